#!/usr/bin/env bash
# ferrant capture --store <sample data file>: the files it writes are valid
# against the schema and hold what each sample is known to hold (the facts
# of the samples' README); a damaged file fails in one line with status 3
# and writes nothing into the data folder.
#   pst_capture_test.sh FERRANT SCHEMA SAMPLES_DIR
# Exits 77 (skipped) when the samples are absent.
set -uo pipefail
ferrant=${1:?ferrant}
schema=${2:?schema}
samples=${3:?samples folder}
[ -d "$samples" ] || { echo "no sample data files at $samples: skipped"; exit 77; }

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# Settings, logs and the default data folder of this run only.
export HOME=$work/home XDG_CONFIG_HOME=$work/home/.config XDG_DATA_HOME=$work/home/.local
mkdir -p "$HOME"
failures=0
fail() {
  echo "FAIL: $*"
  failures=$((failures + 1))
}

# The data file of a type in a capture's index, entry ids made neutral.
datafile() {  # folder type
  local name
  name=$(grep -o "name=\"[^\"]*\" type=\"$2\"" "$1/DataDirectory.xml" | head -n 1 | cut -d'"' -f2)
  [ -n "$name" ] && tr -d '\r' <"$1/$name" | sed -E 's/entryId="[0-9a-f]+"/entryId="."/' 
}

# Status 1 where the capture itself logs what a sample lacks (a mail without
# sender or HTML body, a file without Inbox), as it would in Outlook.
capture() {  # sample folder status [options]
  local sample=$1 out=$2 want=$3
  shift 3
  "$ferrant" capture --store "$samples/$sample" --data-dir "$out" "$@" >"$out.log" 2>&1
  local status=$?
  if [ "$status" != "$want" ] || [ ! -f "$out/DataDirectory.xml" ]; then
    fail "$sample: capture $* gave status $status, not $want: $(cat "$out.log")"
    return 1
  fi
  for f in "$out"/*.XML; do
    [ -e "$f" ] || continue
    xmllint --noout --schema "$schema" "$f" 2>"$out.schema" || fail "$sample: $(cat "$out.schema")"
  done
}

expect_text() {  # what actual expected
  if [ "$2" != "$3" ]; then
    fail "$1 differs:"
    diff <(printf '%s\n' "$3") <(printf '%s\n' "$2") | head -n 20
  fi
}

expect_has() {  # what text fixed-string...
  local what=$1 text=$2
  shift 2
  for s in "$@"; do
    grep -qF -- "$s" <<<"$text" || fail "$what lacks: $s"
  done
}

# ---- The chosen folders as saved settings have them: no options needed ------------------
if capture dist-list.pst "$work/dist" 0; then
  expect_text "dist-list.pst contacts" "$(datafile "$work/dist" contacts)" \
'<?xml version="1.0" encoding="utf-8"?>
<xmlData xmlns="http://schemas.ferrant.example/XMLDataSchema.xsd">
<contact entryId="." name="test dist list">
  <addresses>
    <address>contact name 1 &lt;contact1@rjohnson.id.au&gt;</address>
    <address>dist name 1 &lt;dist1@rjohnson.id.au&gt;</address>
    <address>dist name 2 &lt;dist2@rjohnson.id.au&gt;</address>
  </addresses>
</contact>
<contact entryId="." name="1, contact name" fullname="contact name 1" email="contact1@rjohnson.id.au">
  <notes></notes>
  <homeAddress></homeAddress>
  <businessAddress></businessAddress>
</contact>
</xmlData>'
  # Weekly on Tuesdays from 2016-08-02 15:00-15:30 without end: always in the window.
  expect_has "dist-list.pst calendar" "$(datafile "$work/dist" calendar)" \
    'subject="Test appointment" startTime="131146236000000000" endTime="131146254000000000"' \
    'recurring="true"' '<Weekly onDays="tuesday" every="1" />' \
    '<exception baseDate="131164380000000000" startTime="131164416000000000" endTime="131164434000000000"' \
    '<exception baseDate="131170428000000000" startTime="131170500000000000" endTime="131170518000000000"'
fi

if capture hughbe_Outlook.pst "$work/hughbe" 0; then
  expect_has "hughbe_Outlook.pst contacts" "$(datafile "$work/hughbe" contacts)" \
    'name="Distribution List">' \
    '<address>Distribution List Member &lt;email@gmail.com&gt;</address>' \
    'fullname="Distribution List Member" email="email@gmail.com"'
fi

# ---- Every folder, at the samples' own dates ----------------------------------------------
if ! "$ferrant" capture --help | grep -q -- '--all-folders'; then
  echo "NOTE: ferrant capture has no --all-folders/--as-of yet: the samples' mail and old"
  echo "      appointments are checked by the loader's unit tests only"
else
  if capture sample.pst "$work/sample" 0 --all-folders --as-of 2004-08-19; then
    cal=$(datafile "$work/sample" calendar)
    expect_has "sample.pst calendar" "$cal" \
      'subject="Updated: Olympus training for new hires" startTime="127374138000000000" endTime="127374174000000000"' \
      'organizer="Cyndy Foulkrod" busyStatus="Tentative"'
    [ "$(grep -c '<attendee>' <<<"$cal")" = 7 ] || fail "sample.pst: not 4 + 3 attendees"
  fi
  if capture hughbe_Outlook.pst "$work/hughbe-all" 1 --all-folders --as-of 2021-02-04; then
    expect_has "hughbe_Outlook.pst calendar" "$(datafile "$work/hughbe-all" calendar)" \
      'subject="Appointment" startTime="132569100000000000" endTime="132569118000000000"'
    # The only task is complete; the draft has no subject; hidden items never show.
    grep -q 'type="tasks"' "$work/hughbe-all/DataDirectory.xml" && fail "hughbe_Outlook.pst: a complete task was written"
    [ "$(datafile "$work/hughbe-all" email | grep -c '<email ')" = 1 ] || fail "hughbe_Outlook.pst: not 1 draft"
    grep -l "IPM.Configuration\|WunderBar" "$work/hughbe-all"/*.XML && fail "hughbe_Outlook.pst: hidden items written"
  fi
  if capture multiple_to_cc.pst "$work/multi" 0 --all-folders --as-of 2010-06-27; then
    mail=$(datafile "$work/multi" email)
    expect_has "multiple_to_cc.pst e-mail" "$mail" \
      'subject="Multiple recipients" from="John Doe &lt;pst-test-1@aranetic.com&gt;" date="129221342830000000"' \
      '<to>' '<address>John Doe &lt;pst-test-1@aranetic.com&gt;</address>' '<address>Jane Doe &lt;' \
      '<cc>' '<address>pst-test-3@aranetic.com</address>' '<address>pst-test-4@aranetic.com</address>'
    body=$(sed -n '/<body>/,/<\/body>/p' <<<"$mail" | sed -e 's/<\/\?body>//g' | tr -d ' ' |
      base64 -d 2>/dev/null | tr -d '\0')
    [[ $body == "<html"* ]] || fail "multiple_to_cc.pst: the body is not the HTML body"
  fi
  if capture test_ansi.pst "$work/ansi" 0 --all-folders --as-of 2008-07-09; then
    expect_has "test_ansi.pst e-mail" "$(datafile "$work/ansi" email)" 'subject="Post" from="Terry Mahaffey'
  fi
  if capture test_unicode.pst "$work/unicode" 0 --all-folders --as-of 2008-07-09; then
    all=$(cat "$work/unicode"/*.XML)
    expect_has "test_unicode.pst e-mails" "$all" 'subject="Test" from="Terry Mahaffey' 'subject="Post" from="Terry Mahaffey'
  fi
  if capture msgInMsg.pst "$work/msg" 1 --all-folders --as-of 2021-07-01; then
    expect_has "msgInMsg.pst e-mail" "$(datafile "$work/msg" email)" \
      'subject="I have attachments!"' 'hasAttachments="true"' \
      '<attachment>Microsoft Outlook テスト メッセージ (7 kb)</attachment>' '<attachment>green.png (3 kb)</attachment>'
    grep -q "the HTML part was not present" "$HOME"/.local/*/*_Logs/*.log ||
      fail "msgInMsg.pst: the log does not say that the HTML part was not present"
  fi
  if capture attachAndInline.pst "$work/inline" 1 --all-folders --as-of 2021-07-01; then
    expect_has "attachAndInline.pst e-mail" "$(datafile "$work/inline" email)" \
      'subject="Attach and inline"' '<attachment>attach.png (5 kb)</attachment>' \
      '<address>xmailuser@xmailserver.test</address>'
  fi
fi

# ---- Damaged and foreign files ---------------------------------------------------------------
head -c 4096 "$samples/dist-list.pst" >"$work/cut.pst"
head -c 200000 "$samples/dist-list.pst" >"$work/most.pst"
printf '!BDN' >"$work/signature.ost"
for bad in "$work/cut.pst" "$work/most.pst" "$work/signature.ost"; do
  "$ferrant" capture --store "$bad" --data-dir "$work/bad" >"$work/bad.out" 2>"$work/bad.err"
  status=$?
  [ "$status" = 3 ] || fail "$bad: exit status $status, not 3"
  [ "$(wc -l <"$work/bad.err")" = 1 ] || fail "$bad: not one error line: $(cat "$work/bad.err")"
  grep -qF "$bad" "$work/bad.err" || fail "$bad: the error does not name the file"
  compgen -G "$work/bad/*" >/dev/null && fail "$bad: files were written: $(ls "$work/bad")"
  # A folder captured before keeps its files as they were.
  if [ -f "$work/dist/DataDirectory.xml" ]; then
    before=$(cd "$work/dist" && md5sum ./* | sort)
    "$ferrant" capture --store "$bad" --data-dir "$work/dist" >/dev/null 2>&1
    [ "$(cd "$work/dist" && md5sum ./* | sort)" = "$before" ] || fail "$bad: an earlier capture was changed"
  fi
done

if ((failures)); then
  echo "$failures failed"
  exit 1
fi
echo "pst capture: all checks passed"
