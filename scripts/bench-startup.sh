#!/usr/bin/env bash
# The add-in's start-up inside the Outlook stand-in, under 64-bit Wine.
# Usage: scripts/bench-startup.sh [RUNS]      (default 5 runs per store)
# Environment:
#   BENCH_WIN64    Release win64 build folder (default build/bench-win64)
#   BENCH_NATIVE   Release native build folder for the generator (default build/bench-capture)
#   BENCH_WORK     scratch folder (default: a new one in /tmp, removed at the end)
#   BENCH_ITEMS / BENCH_FOLDERS  the large store (default 100000 items in 1000 folders)
# Prints, per store, the median over the runs of:
#   class object   CoGetClassObject (the DLL's load and DllGetClassObject)
#   to startup end from just before CoGetClassObject to the return of
#                  OnStartupComplete (what Outlook times for its slow add-in check)
#   loop blocked   the longest single message dispatch of the host's loop while a
#                  capture of the store runs (a click on Capture, then waiting for
#                  its end)
set -uo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root" || exit 1
runs=${1:-5}
[[ $runs =~ ^[1-9][0-9]*$ ]] || { echo "bench-startup.sh: RUNS must be a number" >&2; exit 2; }
win64=${BENCH_WIN64:-build/bench-win64}
native=${BENCH_NATIVE:-build/bench-capture}
items=${BENCH_ITEMS:-100000}
folders=${BENCH_FOLDERS:-1000}

echo "building Release in $win64 and $native ..." >&2
mkdir -p "$win64" "$native" || exit 1
cmake -S . -B "$win64" -G Ninja -DCMAKE_BUILD_TYPE=Release \
  -DCMAKE_TOOLCHAIN_FILE="$root/cmake/toolchain-win64.cmake" >"$win64.configure.log" 2>&1 ||
  { cat "$win64.configure.log" >&2; exit 1; }
ninja -C "$win64" -j "$(nproc)" Ferrant ferrant_mapi32 outlook-sim ferrant >&2 || exit 1
cmake -S . -B "$native" -G Ninja -DCMAKE_BUILD_TYPE=Release -DFERRANT_TESTS=OFF \
  >"$native.configure.log" 2>&1 || { cat "$native.configure.log" >&2; exit 1; }
ninja -C "$native" -j "$(nproc)" ferrant-fixture-gen >&2 || exit 1
case $win64 in /*) outlook=$win64/outlook ;; *) outlook=$root/$win64/outlook ;; esac

if [ -n "${BENCH_WORK:-}" ]; then
  work=$BENCH_WORK
  mkdir -p "$work" || exit 1
else
  work=$(mktemp -d /tmp/ferrant-bench-startup.XXXXXX) || exit 1
  trap 'WINEPREFIX=$work/wine wineserver -k 2>/dev/null; rm -rf "$work"' EXIT
fi
export WINEPREFIX=$work/wine WINEDEBUG=-all TZ=UTC
export WINEDLLOVERRIDES="mapi32=n,b;mscoree,mshtml="
echo "making a Wine prefix ..." >&2
wineserver -k 2>/dev/null  # a server left by an earlier run in the same folder
if [ ! -f "$WINEPREFIX/system.reg" ]; then
  wineboot -i </dev/null >/dev/null 2>&1
  wineserver -w </dev/null >/dev/null 2>&1
fi
wineserver -p 900 </dev/null >/dev/null 2>&1
win() { wine "$@" </dev/null; }
wpath() { winepath -w "$1" 2>/dev/null; }
win cmd /c exit >/dev/null 2>&1
# A new prefix may still be settling: registration is tried a few times.
for try in 1 2 3 4 5; do
  win regsvr32 /s "$(wpath "$outlook/Ferrant.dll")" && break
  ((try == 5)) && { echo "regsvr32 failed" >&2; exit 1; }
  sleep 2
done
# Settings anew for each store (fixtures share their stores' identities, so
# one store's chosen folders would name other folders of the next), capturing
# only when asked, so that start-up is measured alone.
settings() {
  win reg delete 'HKCU\Software\Corvel' /f >/dev/null 2>&1
  win reg add 'HKCU\Software\Corvel\CVTK' /v autoCaptureInterval /t REG_DWORD /d 0 /f >/dev/null
}
appdata=$(winepath -u "$(win cmd /c echo %LOCALAPPDATA% | tr -d '\r')")
log=$(wpath "$appdata/Corvel/CVTK_Logs/CVTK_DBG.log")

echo "generating $items items in $folders folders ..." >&2
"$native/src/store/ferrant-fixture-gen" --out "$work/large.json" --items "$items" \
  --folders "$folders" || exit 1

median() { sort -g | awk '{ v[NR] = $1 } END { if (NR) print v[int((NR + 1) / 2)]; else print "-" }'; }
field() { sed -n "s/.* $1=\\([0-9.]*\\).*/\\1/p"; }

measure() {  # measure NAME STORE
  local name=$1 store=$2 i out
  settings
  : >"$work/times"
  : >"$work/blocked"
  for ((i = 1; i <= runs; i++)); do
    rm -rf "$appdata/Corvel/CVTK_Data"
    out=$(cd "$outlook" && FERRANT_STORE=$(wpath "$store") FERRANT_STORE_POLL_MS=0 \
      win ./outlook-sim.exe --log "$log" --click "#2" \
      --wait-log "Completed data capture process." --timeout 1800 2>/dev/null)
    grep -q '^exit 0' <<<"$out" || { echo "the stand-in failed on $name:" >&2; echo "$out" >&2; }
    grep '^timing ' <<<"$out" >>"$work/times"
    grep '^loop ' <<<"$out" | field max_blocked_ms >>"$work/blocked"
  done
  printf '| %s | %s ms | %s ms | %s ms |\n' "$name" \
    "$(field class_object_ms <"$work/times" | median)" \
    "$(field total_ms <"$work/times" | median)" "$(median <"$work/blocked")"
}

echo "| store | class object | to startup end | loop blocked |"
echo "|---|---:|---:|---:|"
measure "sample mailbox" "$root/samples/sample-mailbox.json"
measure "$items items, $folders folders" "$work/large.json"
