#!/usr/bin/env bash
# The add-in as Outlook uses it, under 64-bit Wine: registered with regsvr32,
# loaded from the registry by the Outlook stand-in, driven through start-up,
# clicks, store edits and shut-down, with our mapi32.dll serving the store.
#
#   outlook_e2e.sh SCENARIO
#
# Environment (set by CTest): OUTLOOK_DIR (Ferrant.dll, mapi32.dll,
# outlook-sim.exe, Language\), SOURCE_DIR, E2E_PREFIX (a Wine prefix of these
# tests alone), NATIVE_FERRANT (the Linux `ferrant`, when built; the capture
# is compared with it byte for byte).
set -uo pipefail

scenario=${1:?scenario}
: "${OUTLOOK_DIR:?}" "${SOURCE_DIR:?}" "${E2E_PREFIX:?}"
export WINEPREFIX=$E2E_PREFIX WINEDEBUG=-all TZ=UTC
export WINEDLLOVERRIDES="mapi32=n,b;mscoree,mshtml="
work=$(mktemp -d "${TMPDIR:-/tmp}/ferrant-e2e.XXXXXX")
trap 'rm -rf "$work"' EXIT
sample=$SOURCE_DIR/samples/sample-mailbox.json
failures=0

fail() {
  echo "FAIL: $*"
  failures=$((failures + 1))
}
win() { wine "$@" </dev/null; }
winpath() { winepath -w "$1" 2>/dev/null; }
# The Wine user's local application data folder, as a Unix path.
local_appdata() {
  local p
  p=$(win cmd /c echo %LOCALAPPDATA% 2>/dev/null | tr -d '\r')
  winepath -u "$p" 2>/dev/null
}

setup_prefix() {
  if [ ! -f "$WINEPREFIX/system.reg" ]; then
    wineboot -i >/dev/null 2>&1 || true
    wineserver -w || true
  fi
  # Wine's server and services outlive this script: none may hold its output
  # open, or CTest waits for them.
  wineserver -p 900 </dev/null >/dev/null 2>&1
  win cmd /c exit >/dev/null 2>&1 || true
  win reg add 'HKCU\Software\Wine\WineDbg' /v ShowCrashDialog /t REG_DWORD /d 0 /f >/dev/null 2>&1
  local_appdata >"$WINEPREFIX/.ferrant-localappdata"
  # A new prefix may still be settling: the first registration is tried a
  # few times, then undone, so every scenario starts unregistered.
  local dll try
  dll=$(winpath "$OUTLOOK_DIR/Ferrant.dll")
  for try in 1 2 3 4 5; do
    win regsvr32 /s "$dll" && break
    ((try == 5)) && { echo "regsvr32 failed in a new prefix"; exit 1; }
    sleep 2
  done
  win regsvr32 /s /u "$dll" || { echo "regsvr32 /u failed"; exit 1; }
  [ -s "$WINEPREFIX/.ferrant-localappdata" ] || { echo "no local application data folder"; exit 1; }
}

appdata=""
[ "$scenario" = setup ] || [ "$scenario" = cleanup ] || appdata=$(cat "$WINEPREFIX/.ferrant-localappdata")
data_dir() { echo "$appdata/Corvel/CVTK_Data"; }
log_file() { echo "$appdata/Corvel/CVTK_Logs/CVTK_DBG.log"; }

# A clean start: no settings, no data, no log; the add-in registered.
fresh() {
  win reg delete 'HKCU\Software\Corvel' /f >/dev/null 2>&1
  rm -rf "$appdata/Corvel"
  win regsvr32 /s "$(winpath "$OUTLOOK_DIR/Ferrant.dll")" || fail "regsvr32 failed ($?)"
}

# prefs MODE INTERVAL: the capture mode and interval the add-in reads.
prefs() {
  win reg add 'HKCU\Software\Corvel\CVTK' /v autoCaptureInterval /t REG_DWORD /d "$1" /f >/dev/null
  win reg add 'HKCU\Software\Corvel\CVTK' /v captureInterval /t REG_DWORD /d "$2" /f >/dev/null
}

# sim ARGS...: runs the stand-in; its output in $work/sim.out, status in $sim_status.
sim() {
  (cd "$OUTLOOK_DIR" && win ./outlook-sim.exe --log "$(winpath "$(log_file)")" "$@") \
    >"$work/sim.out" 2>"$work/sim.err"
  sim_status=$?
  sed 's/^/  sim: /' "$work/sim.out"
}

expect_sim() {  # expect_sim EXTENDED-REGEX...: each must match a line of the stand-in's output
  local re
  for re in "$@"; do
    grep -qE -- "$re" "$work/sim.out" || fail "the stand-in did not print /$re/"
  done
}
refuse_sim() {
  local re
  for re in "$@"; do
    if grep -qE -- "$re" "$work/sim.out"; then fail "the stand-in printed /$re/"; fi
  done
}

# log_in_order TEXT...: each text appears in the log, after the one before.
log_in_order() {
  local log from=0 text at
  log=$(log_file)
  [ -f "$log" ] || { fail "no log at $log"; return; }
  for text in "$@"; do
    at=$(tr -d '\r' <"$log" | awk -v from="$from" -v t="$text" \
      'NR > from && index($0, t) { print NR; exit }')
    if [ -z "$at" ]; then
      fail "log: \"$text\" missing after line $from"
      return
    fi
    from=$at
  done
}
log_has_not() {
  local text
  for text in "$@"; do
    if tr -d '\r' <"$(log_file)" | grep -qF -- "$text"; then fail "log has \"$text\""; fi
  done
}

# No error lines, but for the settings a first start finds missing.
no_errors() {
  local errors
  errors=$(tr -d '\r' <"$(log_file)" | grep -F " ERR> " |
    grep -vF "Could not read from the registry key")
  [ -z "$errors" ] || fail "errors logged: $errors"
}

# The index's data files, one "type entryId name" line each, sorted.
index_files() {
  tr -d '\r' <"$1/DataDirectory.xml" |
    sed -n 's/.*<dataFile name="\([^"]*\)" type="\([^"]*\)" entryId="\([^"]*\)".*/\2 \3 \1/p' | sort
}

# same_capture A B: both data folders hold the same index (file names aside)
# and byte-identical files for every folder.
same_capture() {
  local a=$1 b=$2 type id name other
  [ -f "$a/DataDirectory.xml" ] || { fail "no index in $a"; return; }
  [ -f "$b/DataDirectory.xml" ] || { fail "no index in $b"; return; }
  cmp -s <(sed 's/name="[^"]*"/name=""/' "$a/DataDirectory.xml") \
    <(sed 's/name="[^"]*"/name=""/' "$b/DataDirectory.xml") ||
    fail "the indexes differ beyond file names"
  while read -r type id name; do
    other=$(index_files "$b" | awk -v t="$type" -v i="$id" '$1 == t && $2 == i { print $3 }')
    if [ -z "$other" ]; then
      fail "$type folder $id missing from $b"
    elif ! cmp -s "$a/$name" "$b/$other"; then
      fail "$type files differ: $a/$name $b/$other"
    fi
  done < <(index_files "$a")
  [ "$(index_files "$a" | wc -l)" -gt 0 ] || fail "nothing captured"
}

# The same store captured by the command: on Linux when built, else the
# Windows command under Wine.
reference_capture() {  # reference_capture STORE DIR
  local store=$1 dir=$2
  mkdir -p "$dir"
  if [ -n "${NATIVE_FERRANT:-}" ] && [ -x "$NATIVE_FERRANT" ]; then
    HOME=$work/home XDG_CONFIG_HOME=$work/home/.config \
      "$NATIVE_FERRANT" capture --store "$store" --data-dir "$dir" --force >"$work/ref.out" 2>&1 ||
      fail "ferrant capture failed: $(cat "$work/ref.out")"
  else
    echo "  (no Linux ferrant: comparing with ferrant.exe under Wine)"
    win "$WIN_FERRANT" capture --store "$(winpath "$store")" \
      --data-dir "$(winpath "$dir")" --force >"$work/ref.out" 2>&1 ||
      fail "ferrant.exe capture failed: $(cat "$work/ref.out")"
  fi
}

# ---- scenarios -------------------------------------------------------------

reg_value() {  # reg_value KEY NAME|/ve: the value's type and data, as reg query prints them
  win reg query "$1" $([ "$2" = /ve ] && echo /ve || echo /v "$2") 2>/dev/null | tr -d '\r' |
    grep -m1 ' REG_' | sed -E 's/^ *[^ ]+ +(REG_[A-Z_0-9]+) +/\1 /'
}
expect_reg() {  # expect_reg KEY NAME|/ve "REG_TYPE data"
  local got
  got=$(reg_value "$1" "$2")
  [ "$got" = "$3" ] || fail "registry $1 [$2]: \"$got\", wanted \"$3\""
}
expect_no_key() {
  if win reg query "$1" >/dev/null 2>&1; then fail "registry key $1 still there"; fi
}

clsid='{61442FFF-EB7A-4FD5-8095-0CF619BABA0D}'
appid='{34C2CE7C-96FF-402E-AE16-D5DB06F2A021}'
libid='{A88DD810-57E2-49F7-B599-59AFA1953CAE}'
addins='HKLM\Software\Microsoft\Office\Outlook\Addins'

scenario_registration() {
  local dll
  dll=$(winpath "$OUTLOOK_DIR/Ferrant.dll")
  win regsvr32 /s /u "$dll" || fail "unregistering a DLL never registered failed"
  win regsvr32 /s "$dll" || fail "regsvr32 failed"
  win regsvr32 /s "$dll" || fail "registering twice failed"
  expect_reg "HKCR\\AppID\\$appid" /ve "REG_SZ Ferrant"
  expect_reg 'HKCR\AppID\Ferrant.DLL' AppID "REG_SZ $appid"
  expect_reg 'HKCR\Ferrant.PimAddin.1' /ve "REG_SZ PimAddin Class"
  expect_reg 'HKCR\Ferrant.PimAddin.1\CLSID' /ve "REG_SZ $clsid"
  expect_reg 'HKCR\Ferrant.PimAddin' /ve "REG_SZ PimAddin Class"
  expect_reg 'HKCR\Ferrant.PimAddin\CLSID' /ve "REG_SZ $clsid"
  expect_reg 'HKCR\Ferrant.PimAddin\CurVer' /ve "REG_SZ Ferrant.PimAddin.1"
  expect_reg "HKCR\\CLSID\\$clsid" /ve "REG_SZ PimAddin Class"
  expect_reg "HKCR\\CLSID\\$clsid" AppID "REG_SZ $appid"
  expect_reg "HKCR\\CLSID\\$clsid\\ProgID" /ve "REG_SZ Ferrant.PimAddin.1"
  expect_reg "HKCR\\CLSID\\$clsid\\VersionIndependentProgID" /ve "REG_SZ Ferrant.PimAddin"
  win reg query "HKCR\\CLSID\\$clsid\\Programmable" >/dev/null 2>&1 || fail "no Programmable key"
  expect_reg "HKCR\\CLSID\\$clsid\\InprocServer32" /ve "REG_SZ $dll"
  expect_reg "HKCR\\CLSID\\$clsid\\InprocServer32" ThreadingModel "REG_SZ Apartment"
  expect_reg "HKCR\\CLSID\\$clsid\\TypeLib" /ve "REG_SZ $libid"
  expect_reg "$addins\\Ferrant.PimAddin" FriendlyName "REG_SZ Corvel Brisa PIM Addin"
  expect_reg "$addins\\Ferrant.PimAddin" Description \
    "REG_SZ Corvel Brisa PIM Outlook Data Logging Addin"
  expect_reg "$addins\\Ferrant.PimAddin" LoadBehavior "REG_DWORD 0x3"
  expect_reg "$addins\\Ferrant.PimAddin" CommandLineSafe "REG_DWORD 0x0"
  win reg query "HKCR\\TypeLib\\$libid\\1.0" >/dev/null 2>&1 || fail "type library not registered"

  win regsvr32 /s /u "$dll" || fail "regsvr32 /u failed"
  for key in "HKCR\\CLSID\\$clsid" 'HKCR\Ferrant.PimAddin.1' 'HKCR\Ferrant.PimAddin' \
    "HKCR\\AppID\\$appid" 'HKCR\AppID\Ferrant.DLL' "$addins\\Ferrant.PimAddin" \
    "HKCR\\TypeLib\\$libid"; do
    expect_no_key "$key"
  done
  win reg query 'HKCR\AppID' >/dev/null 2>&1 || fail "the AppID root went"
  win reg query "$addins" >/dev/null 2>&1 || fail "Outlook's Addins key went"
  win regsvr32 /s /u "$dll" || fail "unregistering twice failed"
}

scenario_capture_click() {
  fresh
  prefs 0 15
  sim --click "Capture data now" --timeout 120 --wait-log "Completed data capture process."
  [ "$sim_status" -eq 0 ] || fail "the stand-in exited with $sim_status"
  expect_sim '^call OnConnection mode=1 hr=0x00000000' '^call OnStartupComplete hr=0x00000000' \
    '^button bar="Standard" index=1 caption="Configure data capture" faceid=4 style=1 visible=-1 temporary=1 tooltip="Configure data capture" description="Configure data capture" picture=16x16 mask=16x16' \
    '^button bar="Standard" index=2 caption="Capture data now" faceid=4 style=1 visible=-1 temporary=1 tooltip="Capture data now" description="Capture data now" picture=16x16 mask=16x16' \
    '^DllCanUnloadNow hr=0x00000000'
  log_in_order "OnConnection: " "OnStartupComplete" "Installing toolbar buttons." \
    "Beginning data capture process." "Writing data directory." "Completed data capture process." \
    "OnBeginShutdown" "OnDisconnection: 0" "Removing all toolbar buttons."
  no_errors
  reference_capture "$sample" "$work/reference"
  same_capture "$(data_dir)" "$work/reference"
}

scenario_connect_after_startup() {
  fresh
  prefs 0 15
  sim --mode after --dispatch --click "#2" --timeout 120 \
    --wait-log "Completed data capture process."
  [ "$sim_status" -eq 0 ] || fail "the stand-in exited with $sim_status"
  expect_sim '^call OnConnection mode=0 hr=0x00000000' '^button bar="Standard" index=2 '
  refuse_sim '^call OnStartupComplete'
  # Both dual interfaces describe themselves from the DLL's type libraries,
  # and a late-bound host reaches the add-in's methods by name.
  expect_sim '^dispatch extensibility typeinfo_count=1 name=IDTExtensibility2 hr=0x00000000' \
    '^dispatch object typeinfo_count=1 name=IPimAddin hr=0x00000000' \
    '^dispatch OnAddInsUpdate dispid=3 hr=0x00000000'
  # Buttons and capturing come inside OnConnection.
  log_in_order "OnConnection: " "OnStartupComplete" "Installing toolbar buttons." \
    "OnAddInsUpdate" "Completed data capture process." "OnDisconnection: 0"
  no_errors
}

# wait_log TEXT COUNT SECONDS: until the log holds TEXT COUNT times.
wait_log() {
  local deadline=$((SECONDS + $3))
  while ((SECONDS < deadline)); do
    [ "$(tr -d '\r' <"$(log_file)" 2>/dev/null | grep -cF -- "$1")" -ge "$2" ] && return 0
    sleep 0.2
  done
  return 1
}

# An edit of the store while Outlook runs: the store reloads the file, tells
# the tasks folder's table, and the next timed capture rewrites that folder
# alone.
scenario_reload_one_folder() {
  fresh
  prefs 2 1
  cp "$sample" "$work/box.json"
  (
    FERRANT_STORE=$(winpath "$work/box.json") FERRANT_STORE_POLL_MS=100 \
      sim --click "Capture data now" --timeout 60 --wait-log "Completed data capture process." \
      --timeout 150 --wait-log "Completed data capture process."
    exit "$sim_status"
  ) &
  local pid=$!
  if wait_log "Completed data capture process." 1 60; then
    local first
    first=$(index_files "$(data_dir)")
    sed -i 's/Renovar o seguro do carro/Renovar o seguro do carro e da casa/' "$work/box.json"
    wait "$pid"
    sim_status=$?
    [ "$sim_status" -eq 0 ] || fail "the stand-in exited with $sim_status"
    local second
    second=$(index_files "$(data_dir)")
    # Unchanged folders keep their files; the tasks folder has a new one.
    diff <(grep -v '^tasks ' <<<"$first") <(grep -v '^tasks ' <<<"$second") >/dev/null ||
      fail "folders other than tasks were rewritten: $first / $second"
    [ "$(grep '^tasks ' <<<"$first")" != "$(grep '^tasks ' <<<"$second")" ] ||
      fail "the tasks folder was not rewritten"
    grep -q "e da casa" "$(data_dir)/$(grep '^tasks ' <<<"$second" | cut -d' ' -f3)" ||
      fail "the new tasks file lacks the edit"
    reference_capture "$work/box.json" "$work/reference"
    same_capture "$(data_dir)" "$work/reference"
  else
    fail "the first capture did not complete"
    wait "$pid"
  fi
  no_errors
}

scenario_failures() {
  fresh
  sim --null-app --expect-connect-fail
  [ "$sim_status" -eq 0 ] || fail "null application: the stand-in exited with $sim_status"
  expect_sim '^call OnConnection mode=1 hr=0x80070057' '^DllCanUnloadNow hr=0x00000000'
  log_in_order "Outlook passed invalid application dispatch object" "OnDisconnection: 0"

  fresh
  sim --fail-qi --expect-connect-fail
  expect_sim '^call OnConnection mode=1 hr=0x80004002' '^DllCanUnloadNow hr=0x00000000'
  log_in_order "HR Error: 0x80004002" "OnDisconnection: 0"

  fresh
  FERRANT_STORE_FAIL=MAPILogonEx sim --no-mapi --expect-connect-fail
  expect_sim '^call OnConnection mode=1 hr=0x8004' '^DllCanUnloadNow hr=0x00000000'
  log_in_order "OnConnection: " "HR Error: 0x8004" "OnDisconnection: 0"

  fresh
  printf '{"format": "Ferrant reference store fixture", "version": 1, "stores": [' >"$work/bad.json"
  FERRANT_STORE=$(winpath "$work/bad.json") sim --no-mapi --expect-connect-fail
  expect_sim '^call OnConnection mode=1 hr=0x8' '^DllCanUnloadNow hr=0x00000000'
  log_in_order "OnConnection: " "HR Error: 0x8"

  fresh
  prefs 0 15
  sim --bars none --pump 200
  [ "$sim_status" -eq 0 ] || fail "no bars: the stand-in exited with $sim_status"
  refuse_sim '^button '
  log_has_not "Failed to"
  no_errors

  fresh
  prefs 0 15
  sim --bars Standard,Standard --pump 200
  expect_sim '^button bar="Standard" index=1 .*caption="Configure data capture"' \
    '^button bar="Standard" index=2 .*caption="Capture data now"'
  refuse_sim '^button bar="Standard#2"'

  fresh
  prefs 0 15
  sim --bars Other,Standard --fail-item 1 --pump 200
  expect_sim '^button bar="Standard" index=1 .*caption="Configure data capture"'
  log_in_order "Failed to retrieve the command bar name for bar 1" \
    "Failed to retrieve the command bar name for bar 1"
}

# The language files: a German or Hebrew Windows gets its own texts, a
# French one (no strings.FRA) falls back to English; an add-in without any
# language file still runs, with empty texts.
scenario_language() {
  local own lang caption
  for own in "de_DE.UTF-8|Datenerfassung konfigurieren" "he_IL.UTF-8|הגדרות איסוף נתונים"; do
    lang=${own%%|*} caption=${own#*|}
    fresh
    prefs 0 15
    LC_ALL=$lang LANG=$lang sim --pump 100
    [ "$sim_status" -eq 0 ] || fail "$lang: the stand-in exited with $sim_status"
    expect_sim "^button bar=\"Standard\" index=1 caption=\"$caption\""
    log_has_not "There is no language file" "Unable to resolve Language file path"
  done

  fresh
  prefs 0 15
  LC_ALL=fr_FR.UTF-8 LANG=fr_FR.UTF-8 sim --pump 100
  [ "$sim_status" -eq 0 ] || fail "French: the stand-in exited with $sim_status"
  expect_sim '^button bar="Standard" index=1 caption="Configure data capture"'
  log_in_order "There is no language file for the current language & sub language: FR" \
    "Installing toolbar buttons."
  log_has_not "Unable to resolve Language file path"

  # A copy of the add-in with no Language folder beside it.
  mkdir -p "$work/bare"
  cp "$OUTLOOK_DIR/Ferrant.dll" "$work/bare/"
  win regsvr32 /s "$(winpath "$work/bare/Ferrant.dll")" || fail "regsvr32 of the copy failed"
  win reg delete 'HKCU\Software\Corvel' /f >/dev/null 2>&1
  rm -rf "$appdata/Corvel"
  prefs 0 15
  sim --click "#2" --timeout 120 --wait-log "Completed data capture process."
  [ "$sim_status" -eq 0 ] || fail "no language files: the stand-in exited with $sim_status"
  expect_sim '^button bar="Standard" index=2 caption="" ' '^DllCanUnloadNow hr=0x00000000'
  log_in_order "Unable to resolve Language file path" "Installing toolbar buttons." \
    "Completed data capture process."
  win regsvr32 /s /u "$(winpath "$work/bare/Ferrant.dll")"
}

# A timed capture still running when Outlook closes: the add-in shows the
# progress dialog in its shut-down form and ends only after the run. (A
# capture the user asked for cannot be overtaken so: its progress dialog is
# modal and closes only when the run has ended.)
scenario_shutdown_waits() {
  fresh
  prefs 2 1
  [ -n "${FIXTURE_GEN:-}" ] && [ -x "$FIXTURE_GEN" ] || { echo "SKIP: no ferrant-fixture-gen"; return; }
  "$FIXTURE_GEN" --out "$work/big.json" --kind contacts --items 20000 || fail "generator failed"
  FERRANT_STORE=$(winpath "$work/big.json") \
    sim --timeout 150 --wait-log "Beginning data capture process." --shutdown
  [ "$sim_status" -eq 0 ] || fail "the stand-in exited with $sim_status"
  log_in_order "Beginning data capture process." "OnBeginShutdown" "OnDisconnection: 0" \
    "Completed data capture process."
  no_errors
  expect_sim '^DllCanUnloadNow hr=0x00000000'
  reference_capture "$work/big.json" "$work/reference"
  same_capture "$(data_dir)" "$work/reference"
}

# The Configure button opens the preferences sheet inside Outlook's loop: OK
# saves the interval typed; one out of range is refused with a message box
# and set to the largest allowed; Cancel then saves nothing.
scenario_preferences() {
  local sheet="Data Capture Preferences" key='HKCU\Software\Corvel\CVTK'
  fresh
  prefs 0 15
  sim --click "Configure data capture" --timeout 60 --dialog "$sheet" --set-text 217=30 \
    --press ok --wait-closed
  [ "$sim_status" -eq 0 ] || fail "OK: the stand-in exited with $sim_status"
  expect_sim "^dialog \"$sheet\" found" '^set-text id=217 where=page text="30"' \
    '^press id=1 by=PSM_PRESSBUTTON' "^wait-closed \"$sheet\" found"
  expect_reg "$key" captureInterval "REG_DWORD 0x1e"
  log_in_order "Installing toolbar buttons." "OnBeginShutdown" "OnDisconnection: 0"
  no_errors

  sim --click "Configure data capture" --timeout 60 --dialog "$sheet" --set-text 217=500 \
    --press ok --dialog Ferrant --print-texts --press ok --wait-closed \
    --dialog "$sheet" --print-texts --select-page 2 --print-texts --press cancel --wait-closed
  [ "$sim_status" -eq 0 ] || fail "clamping: the stand-in exited with $sim_status"
  expect_sim '^dialog "Ferrant" found' '^texts title="Ferrant" page=0' \
    '^text where=dialog id=[0-9-]+ class=Static text="[^"]*The capture interval must be between 1 and 120 minutes' \
    '^texts title="Data Capture Preferences" page=1' \
    '^text where=page id=217 class=Edit text="120"' '^select-page 2' \
    '^texts title="Data Capture Preferences" page=2' '^press id=2 by=PSM_PRESSBUTTON'
  # Neither the refused OK nor Cancel wrote anything.
  expect_reg "$key" captureInterval "REG_DWORD 0x1e"
  no_errors
}

case $scenario in
  setup) setup_prefix ;;
  cleanup) wineserver -k 2>/dev/null || true ;;
  registration | capture_click | connect_after_startup | reload_one_folder | failures | \
    language | shutdown_waits | preferences)
    "scenario_$scenario"
    if ((failures)); then
      echo "--- log"
      tr -d '\r' <"$(log_file)" 2>/dev/null | tail -60
      echo "--- stand-in errors"
      cat "$work/sim.err" 2>/dev/null | tail -20
    fi
    ;;
  *) echo "unknown scenario $scenario"; exit 2 ;;
esac
((failures == 0)) && echo "PASS: $scenario"
((failures == 0))
