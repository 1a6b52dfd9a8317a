#!/usr/bin/env bash
# The Outlook stand-in driving the probe add-in under Wine: what it reads from
# the registry, the calls it makes and prints, click delivery through the
# message loop, the failure knobs and its exit statuses.
#   outlook_sim_test.sh GROUP SIM_EXE PROBE_DLL WINE_RUN
# GROUP: lifecycle | knobs | usage | mapi (the last needs our mapi32.dll beside
# the stand-in). The probe is registered for the run and removed after it.
set -u
group=$1 sim=$2 probe=$3 winerun=$4
export WINEDLLOVERRIDES="mapi32=n,b;mscoree,mshtml="

work=$(mktemp -d)
win() { echo "Z:${1//\//\\}"; }   # the Wine path of a Unix path
failures=0
fail() {
  echo "FAIL: $*" >&2
  failures=$((failures + 1))
}
cleanup() {
  "$winerun" regsvr32 /u /s "$probe" </dev/null >/dev/null 2>&1
  rm -rf "$work"
}
trap cleanup EXIT

"$winerun" regsvr32 /s "$probe" </dev/null || { echo "FAIL: regsvr32 of the probe" >&2; exit 1; }

# Runs the stand-in with the given words; its output goes to $work/out,
# the probe's log to $work/probe.log (both fresh), the status to $status.
# Only the probe is loaded unless the words name an add-in: the registry may
# list others (Ferrant.PimAddin) that are not under test here.
sim() {
  local only=(--addin Ferrant.SimProbe)
  [[ " $* " == *" --addin "* ]] && only=()
  rm -f "$work/out" "$work/probe.log" "$work/touched"
  FERRANT_PROBE_LOG=$(win "$work/probe.log") FERRANT_PROBE_TOUCH=$(win "$work/touched") \
    "$winerun" "$sim" "${only[@]}" "$@" </dev/null >"$work/out" 2>"$work/err"
  status=$?
  tr -d '\r' <"$work/out" >"$work/out.txt"
  sed -E 's/ ms=[0-9.]+$//' "$work/out.txt" >"$work/lines.txt"
}
expect_status() {
  [ "$status" = "$1" ] || fail "$2: exit status $status, expected $1"
}
# Every line given must be in the output, whole (timings left out).
has_lines() {
  local what=$1 line
  shift
  for line in "$@"; do
    grep -qxF -- "$line" "$work/lines.txt" || fail "$what: no line '$line'"
  done
}
lacks() {
  ! grep -qE -- "$2" "$work/out.txt" || fail "$1: unexpected line matching '$2'"
}
# The output's lines that start with one of the words, in order, against a list.
calls_are() {
  local what=$1
  shift
  local got expected
  got=$(grep -E '^(call On|call Release|click|DllCanUnloadNow|office references|exit)' \
        "$work/lines.txt")
  expected=$(printf '%s\n' "$@")
  [ "$got" = "$expected" ] || fail "$what: calls were
$got
expected
$expected"
}
probe_log_is() {
  local what=$1
  shift
  local got expected
  got=$(tr -d '\r' <"$work/probe.log" 2>/dev/null)
  expected=$(printf '%s\n' "$@")
  [ "$got" = "$expected" ] || fail "$what: the probe logged
$got
expected
$expected"
}

log=$(win "$work/probe.log")
touched=$(win "$work/touched")
button='button bar="Standard" index=1 caption="Probe" faceid=4 style=1 visible=-1 temporary=1 tooltip="Probe tip" description="Probe tip" picture=16x16 mask=16x16 number=1 sinks=1 bar_index=1'

case $group in
lifecycle)
  # Start-up mode: the whole life of an add-in, a click answered only once
  # the loop runs, and everything released at the end.
  sim --no-mapi --log "$log" --timeout 20 --click Probe --wait-log clicked --wait-file "$touched"
  expect_status 0 "start-up"
  has_lines "start-up" \
    "registry hive=HKLM progid=Ferrant.SimProbe LoadBehavior=3 load=1" \
    "registry hive=HKCU progid=Ferrant.SimProbe.Idle LoadBehavior=2 load=0" \
    "$button" "office Button#1.Click sinks=1 hr=0x00000000 cancel=0" "office references=0"
  grep -qE '^wait-log "clicked" found ms=[0-9]+$' "$work/out.txt" || fail "start-up: no wait-log line"
  grep -qE '^addin Ferrant.SimProbe clsid=\{D67986AE-9BD6-4F59-81E5-C31F283FF920\} path=.*FerrantSimProbe.dll$' \
    "$work/out.txt" || fail "start-up: no addin line"
  grep -qE '^timing class_object_ms=[0-9.]+ create_ms=[0-9.]+ connect_ms=[0-9.]+ startup_complete_ms=[0-9.]+ total_ms=[0-9.]+$' \
    "$work/out.txt" || fail "start-up: no timing line"
  grep -qE '^loop max_blocked_ms=[0-9.]+ messages=[1-9][0-9]*$' "$work/out.txt" ||
    fail "start-up: the click's message was not pumped"
  calls_are "start-up" "call OnConnection mode=1 hr=0x00000000" \
    "call OnStartupComplete hr=0x00000000" \
    'click caption="Probe" number=1 sinks=1 hr=0x00000000' \
    "call OnBeginShutdown hr=0x00000000" "call OnDisconnection mode=0 hr=0x00000000" \
    "call Release refs=0" "DllCanUnloadNow hr=0x00000000" "office references=0" "exit 0"
  probe_log_is "start-up" "OnConnection mode=1 app=yes custom=yes" \
    "AddInInst ProgId=Ferrant.SimProbe" "QueryInterface _Application hr=0x00000000" \
    "OnStartupComplete" "addButton: Advise hr=0x00000000" "Click args=ok" "clicked" \
    "OnBeginShutdown" "OnDisconnection mode=0" "Unadvise hr=0x00000000"

  # Connected after start-up, driven by a script: no OnStartupComplete, the
  # button comes from OnConnection and goes to the end of the second bar.
  printf '%s\n' "# after start-up" "mode after" "bars Web,Standard:2" "pump 10" "click #1" \
    "log $log" "timeout 20" "wait-log clicked" "shutdown" "pump 10" >"$work/script.txt"
  sim --no-mapi --script "$(win "$work/script.txt")"
  expect_status 0 "after start-up"
  has_lines "after start-up" \
    'button bar="Standard" index=3 caption="Probe" faceid=4 style=1 visible=-1 temporary=1 tooltip="Probe tip" description="Probe tip" picture=16x16 mask=16x16 number=1 sinks=1 bar_index=2' \
    "office Controls#2.Add(VT_I4 1, missing, missing, VT_I4 3, VT_I2 -1) hr=0x00000000 -> VT_DISPATCH"
  calls_are "after start-up" "call OnConnection mode=0 hr=0x00000000" \
    'click caption="Probe" number=1 sinks=1 hr=0x00000000' \
    "call OnBeginShutdown hr=0x00000000" "call OnDisconnection mode=0 hr=0x00000000" \
    "call Release refs=0" "DllCanUnloadNow hr=0x00000000" "office references=0" "exit 0"
  ;;

knobs)
  # A refused _Application fails the connection: no start-up call, but the
  # add-in is still disconnected; expected, the run succeeds.
  sim --no-mapi --fail-qi
  expect_status 1 "failing QI"
  calls_are "failing QI" "call OnConnection mode=1 hr=0x80004002" \
    "call OnDisconnection mode=0 hr=0x00000000" "call Release refs=0" \
    "DllCanUnloadNow hr=0x00000000" "office references=0" "exit 1"
  has_lines "failing QI" "office Application.QueryInterface(_Application) hr=0x80004002" \
    "error OnConnection failed"
  sim --no-mapi --fail-qi --expect-connect-fail
  expect_status 0 "failing QI, expected"
  sim --no-mapi --null-app --expect-connect-fail
  expect_status 0 "null application"
  grep -qx "OnConnection mode=1 app=null custom=yes" "$work/probe.log" ||
    fail "null application: the probe saw an application"
  sim --no-mapi
  [ "$status" = 0 ] || fail "a connection that succeeds: exit $status"
  FERRANT_PROBE_FAIL=OnConnection sim --no-mapi --expect-connect-fail
  expect_status 0 "the add-in's own failure"
  sim --no-mapi --expect-connect-fail
  expect_status 1 "a success where a failure was expected"
  has_lines "a success where a failure was expected" "error OnConnection was expected to fail"

  # Bars: none, a failing first of two "Standard", a failing Add.
  sim --no-mapi --bars none
  expect_status 0 "no bars"
  has_lines "no bars" "buttons count=0"
  grep -qx "addButton: no Standard bar" "$work/probe.log" || fail "no bars: probe not told"
  sim --no-mapi --bars Standard,Standard --fail-item 1
  has_lines "failing item" "office CommandBars.Item(1) hr=0x80004005" \
    "${button/bar_index=1/bar_index=2}"
  sim --no-mapi --fail-add
  has_lines "failing Add" "buttons count=0" \
    "office Controls#1.Add(VT_I4 1, missing, missing, VT_I4 1, VT_I2 -1) hr=0x80004005"

  # A refused Advise: the click reaches no one, and waiting for its effect
  # times out with status 1; the commands after it are not run.
  sim --no-mapi --fail-advise --click Probe --log "$log" --timeout 0.3 --wait-log clicked \
    --wait-file "$touched"
  expect_status 1 "failing Advise"
  has_lines "failing Advise" 'click caption="Probe" number=1 sinks=0 hr=0x00000000' \
    'error wait-log "clicked" timed out after 0.3 s'
  lacks "failing Advise" '^wait-file'
  ;;

usage)
  sim --pump
  expect_status 2 "a command without its value"
  grep -q "needs a value" "$work/err" || fail "usage: no reason given"
  sim --no-mapi --addin Nobody.There
  expect_status 3 "no add-in"
  has_lines "no add-in" "registry hive=HKLM progid=Ferrant.SimProbe LoadBehavior=3 load=0" \
    "error no add-in loaded"
  # Asked for by name, an add-in with LoadBehavior 2 still stays unloaded.
  sim --no-mapi --addin Ferrant.SimProbe.Idle
  expect_status 3 "LoadBehavior 2"
  has_lines "LoadBehavior 2" "registry hive=HKCU progid=Ferrant.SimProbe.Idle LoadBehavior=2 load=0"
  sim --no-mapi --click Nothing --pump 1
  expect_status 1 "unknown button"
  has_lines "unknown button" "error click: no button Nothing"
  lacks "unknown button" '^pump'
  ;;

dialogs)
  # A message box the probe shows from a loop message: the commands go on in
  # its modal loop, read it and close it with the button pressed.
  FERRANT_PROBE_MESSAGE_BOX="Keep going?" sim --no-mapi --log "$log" --timeout 20 --click Probe \
    --dialog Probe --print-texts --press cancel --wait-closed --wait-log "message box 2"
  expect_status 0 "message box"
  has_lines "message box" 'dialog "Probe" found' 'texts title="Probe" page=0' \
    'text where=dialog id=1 class=Button text="OK"' 'text where=dialog id=2 class=Button text="Cancel"' \
    'press id=2 by=WM_COMMAND' 'wait-closed "Probe" found' 'wait-log "message box 2" found'
  grep -qE '^text where=dialog id=-?[0-9]+ class=Static text="Keep going\?"$' "$work/out.txt" ||
    fail "message box: its text was not printed"
  FERRANT_PROBE_MESSAGE_BOX="Keep going?" sim --no-mapi --log "$log" --timeout 20 --click Probe \
    --dialog "#1" --press ok --wait-closed --wait-log "message box 1"
  expect_status 0 "first dialog"
  has_lines "first dialog" 'dialog "Probe" found' 'press id=1 by=WM_COMMAND'

  # A failure inside the modal loop closes the box, so the stand-in gets back
  # to shut down and report it.
  FERRANT_PROBE_MESSAGE_BOX="Keep going?" sim --no-mapi --log "$log" --timeout 0.3 --click Probe \
    --dialog Nobody --pump 1
  expect_status 1 "a dialog never shown"
  has_lines "a dialog never shown" 'error dialog "Nobody" timed out after 0.3 s' \
    "call OnDisconnection mode=0 hr=0x00000000"
  lacks "a dialog never shown" '^pump'
  grep -qx "message box 2" <(tr -d '\r' <"$work/probe.log") ||
    fail "a dialog never shown: the message box was not closed"

  # Acting on a dialog needs one chosen, and one that is still there.
  sim --no-mapi --press ok
  expect_status 1 "no dialog"
  has_lines "no dialog" "error press: no dialog (--dialog chooses one)"
  FERRANT_PROBE_MESSAGE_BOX="Keep going?" sim --no-mapi --log "$log" --timeout 20 --click Probe \
    --dialog Probe --press ok --wait-closed --set-text 5=x
  expect_status 1 "dialog gone"
  has_lines "dialog gone" 'error set-text: no dialog (--dialog chooses one)'
  sim --no-mapi --click Probe --timeout 0.2 --wait-closed
  expect_status 1 "nothing to wait for"
  has_lines "nothing to wait for" "error wait-closed: no dialog (--dialog chooses one)"
  ;;

mapi)
  # Our store as the process's MAPI: Outlook's own logon works, and a
  # failing logon ends the run unless told to go on without MAPI.
  sim
  expect_status 0 "MAPI"
  has_lines "MAPI" "call MAPIInitialize hr=0x00000000" "call MAPILogonEx hr=0x00000000" \
    "call Logoff hr=0x00000000"
  FERRANT_STORE_FAIL=MAPILogonEx sim
  expect_status 1 "failing logon"
  has_lines "failing logon" "call MAPILogonEx hr=0x80040111"
  lacks "failing logon" '^call OnConnection'
  FERRANT_STORE_FAIL=MAPILogonEx sim --no-mapi
  expect_status 0 "failing logon, going on"
  has_lines "failing logon, going on" "mapi off" "call OnConnection mode=1 hr=0x00000000"
  ;;

*)
  echo "unknown group $group" >&2
  exit 2
  ;;
esac

if [ "$failures" -gt 0 ]; then
  echo "--- last output:" >&2
  cat "$work/out.txt" >&2
  exit 1
fi
echo "$group: all passed"
