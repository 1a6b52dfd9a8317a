#!/bin/bash
# A generated mailbox is the same for the same seed, loads in the reference
# store, and captures without error lines into files the schema accepts; its
# changed copy loads too and the next capture writes the changed items.
# Usage: fixture_generator_test.sh GENERATOR FERRANT SCHEMA RELOAD_TIMER
set -u
gen=$1 ferrant=$2 schema=$3 reload=$4
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "FAIL: $*"; exit 1; }
export FERRANT_KEYSTORE=$work/keystore XDG_DATA_HOME=$work/xdg

"$gen" --out "$work/a.json" --kind mixed --items 200 --seed 7 --around "$(date +%F)" \
  --changed-copy "$work/changed.json" --changes 10 || fail "the generator failed"
"$gen" --out "$work/again.json" --kind mixed --items 200 --seed 7 --around "$(date +%F)" ||
  fail "the generator failed"
"$gen" --out "$work/other.json" --kind mixed --items 200 --seed 8 --around "$(date +%F)" ||
  fail "the generator failed"
cmp -s "$work/a.json" "$work/again.json" || fail "the same seed gave different files"
cmp -s "$work/a.json" "$work/other.json" && fail "another seed gave the same file"
"$gen" --out "$work/x.json" --items 5 --changed-copy "$work/y.json" --changes 6 2>/dev/null &&
  fail "more changes than items were accepted"

"$ferrant" prefs --store "$work/a.json" folders email add "Mailbox - Ana Núñez 📬/Inbox" >/dev/null ||
  fail "prefs folders email add failed"
for setting in "email.captureEmailCount 1000" "tasks.maxTaskCapture 50" \
    "calendar.captureDaysBefore 180" "calendar.captureDaysAfter 180"; do
  # shellcheck disable=SC2086
  "$ferrant" prefs set $setting >/dev/null || fail "prefs set $setting failed"
done

# capture FIXTURE: runs ferrant capture into $work/data, fails on a non-zero
# exit or logged errors, and leaves the summary in $work/summary.
capture() {
  "$ferrant" capture --store "$1" --data-dir "$work/data" >"$work/summary" 2>"$work/stderr"
  local status=$?
  cat "$work/summary" "$work/stderr"
  [ $status -eq 0 ] || fail "ferrant capture of $1 exited $status"
  grep -q "error line" "$work/summary" && fail "the capture of $1 logged errors"
  return 0
}

capture "$work/a.json"
# 200 items: 20 appointments (4 series), 40 contacts (lists among them),
# 120 e-mails, 20 tasks of which the capture keeps the ones not completed.
grep -q "^Folders: 4 folders captured" "$work/summary" || fail "not 4 folders captured"
grep -q "^Items:   20 appointments, 40 contacts, 120 e-mails, [1-9][0-9]* tasks" \
  "$work/summary" || fail "unexpected item counts"
files=("$work"/data/*.XML)
[ ${#files[@]} -eq 4 ] || fail "expected 4 data files, found ${#files[@]}"
for f in "${files[@]}" "$work/data/DataDirectory.xml"; do
  xmllint --noout --schema "$schema" "$f" 2>"$work/xmllint" || {
    head -5 "$work/xmllint"
    fail "$(basename "$f") does not validate"
  }
done
grep -q "<recurrence" "$work"/data/*.XML || fail "no recurrence captured"
grep -q "<exception" "$work"/data/*.XML || fail "no exception captured"
grep -q "<address" "$work"/data/*.XML || fail "no distribution-list member captured"
grep -q "📬" "$work"/data/*.XML || fail "an escaped surrogate pair did not arrive"
grep -q "(edited" "$work"/data/*.XML && fail "the original holds edited items"

# The copy differs in exactly the 10 changed items, spread over the folders.
line=$("$reload" "$work/a.json" "$work/changed.json") || fail "the changed copy did not reload: $line"
echo "$line"
[[ $line == *" status=applied folders=4 notifications=10" ]] ||
  fail "the changed copy should change 10 items in 4 folders"

capture "$work/changed.json"
grep -q "(edited ✎)" "$work"/data/*.XML || fail "the changed copy's edits were not captured"
echo "PASS"
