#!/usr/bin/env bash
# Measures `ferrant capture` on generated stores and prints a markdown table.
# Usage: scripts/bench.sh [ITEMS...]        (default: 10000 100000 250000)
# Environment:
#   BENCH_BUILD    Release build folder (default build/bench-capture)
#   BENCH_KINDS    kinds to measure (default: calendar contacts tasks email mixed)
#   BENCH_WORK     scratch folder (default: a new one in /tmp, removed at the end)
#   BENCH_TIMEOUT  seconds allowed to each measured step (default 600); slower
#                  steps show as ">N"
#   BENCH_SEED     the generator's seed (default 1)
# Per kind and size:
#   load MB/s      the fixture's bytes over the reference store's load time
#   items/s        items in the store over the first capture's wall time
#                  (records: what the capture wrote; the limits are set to their
#                  maxima, so mail and tasks write at most 1000 and 50)
#   ×write         the capture's wall time over a bare buffered write (cat) of
#                  the same output bytes, measured right after it
#   RSS            the capture's peak resident memory, and as a multiple of the
#                  fixture and of the largest output file
#   reload 1/1000  taking in a copy with 1 and 1000 (at most all) changed
#                  items, with every folder's contents table advised
#                  (ferrant-reload-time)
#   2nd run        a second `ferrant capture` over the same data folder
# A case whose loaded store would not fit in the memory available now (the
# store takes up to ~3x the fixture while loading, twice during a reload) is
# skipped and says so.
set -uo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root" || exit 1

sizes=("$@")
((${#sizes[@]})) || sizes=(10000 100000 250000)
for n in "${sizes[@]}"; do
  [[ $n =~ ^[1-9][0-9]*$ ]] || { echo "bench.sh: '$n' is not a number of items" >&2; exit 2; }
done
build=${BENCH_BUILD:-build/bench-capture}
read -r -a kinds <<<"${BENCH_KINDS:-calendar contacts tasks email mixed}"
limit=${BENCH_TIMEOUT:-600}
seed=${BENCH_SEED:-1}

echo "building Release in $build ..." >&2
mkdir -p "$build" || exit 1
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DFERRANT_TESTS=OFF \
  >"$build.configure.log" 2>&1 || { cat "$build.configure.log" >&2; exit 1; }
ninja -C "$build" -j "$(nproc)" ferrant ferrant-fixture-gen ferrant-reload-time >&2 || exit 1
# BENCH_BUILD may be given relative to the repository or absolute.
[[ $build = /* ]] || build=$root/$build
ferrant=$build/src/app/ferrant
gen=$build/src/store/ferrant-fixture-gen
reload=$build/src/store/ferrant-reload-time

if [ -n "${BENCH_WORK:-}" ]; then
  work=$BENCH_WORK
  mkdir -p "$work" || exit 1
else
  work=$(mktemp -d /tmp/ferrant-bench.XXXXXX) || exit 1
  trap 'rm -rf "$work"' EXIT
fi
export XDG_DATA_HOME=$work/xdg
today=$(date +%F)
failed=0

now() { date +%s.%N; }
# seconds START END
seconds() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.3f", b - a }'; }
# ratio A B [DECIMALS]: A/B, or "-" when B is zero
ratio() {
  awk -v a="$1" -v b="$2" -v d="${3:-1}" 'BEGIN {
    if (a !~ /^[0-9.]+$/ || b !~ /^[0-9.]+$/ || b <= 0) printf "-"; else printf "%.*f", d, a / b }'
}
mib() { awk -v a="$1" 'BEGIN { printf "%.0f", a / 1048576 }'; }
available() { awk '/^MemAvailable:/ { printf "%.0f", $2 * 1024 }' /proc/meminfo; }
fail() { echo "bench.sh: $*" >&2; failed=1; }

# capture FIXTURE DATA LOG: one timed capture; sets took and rss (bytes).
capture() {
  local start end
  start=$(now)
  timeout "$limit" /usr/bin/time -v -o "$3.time" \
    "$ferrant" capture --store "$1" --data-dir "$2" >"$3" 2>&1
  local status=$?
  end=$(now)
  took=$(seconds "$start" "$end")
  rss=$(awk -F': ' '/Maximum resident set size/ { printf "%.0f", $2 * 1024 }' "$3.time" 2>/dev/null)
  rss=${rss:-0}
  if [ $status -eq 124 ]; then
    took=">$limit"
    return 1
  fi
  if [ $status -ne 0 ] || grep -q "error line" "$3"; then
    fail "capture of $1 failed (exit $status):"
    cat "$3" >&2
    return 1
  fi
}

# reload_time ORIGINAL CHANGED: prints the reload's seconds (or ">limit"),
# and leaves the whole line of the run in $case_dir/reload.out.
reload_time() {
  timeout "$limit" "$reload" "$1" "$2" >"$case_dir/reload.out" 2>&1
  local status=$?
  if [ $status -eq 124 ]; then
    echo ">$limit"
  elif [ $status -ne 0 ]; then
    echo "-"
  else
    sed -n 's/.*reload_s=\([0-9.]*\).*/\1/p' "$case_dir/reload.out"
  fi
}
# field NAME: a value of the last ferrant-reload-time line
field() { sed -n "s/.*$1=\\([0-9.]*\\).*/\\1/p" "$case_dir/reload.out"; }

echo "| kind | items | fixture MB | load MB/s | capture s | items/s | records | ×write | peak RSS MiB | RSS/fixture | RSS/largest out | reload 1 s | reload 1000 s | 2nd run s |"
echo "|---|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|"
for n in "${sizes[@]}"; do
  for kind in "${kinds[@]}"; do
    case_dir=$work/$kind-$n
    rm -rf "$case_dir"
    mkdir -p "$case_dir"
    fixture=$case_dir/store.json
    changes=$((n < 1000 ? n : 1000))
    if ! "$gen" --out "$fixture" --kind "$kind" --items "$n" --seed "$seed" --around "$today" ||
        ! "$gen" --out "$fixture.tmp" --kind "$kind" --items "$n" --seed "$seed" --around "$today" \
          --changed-copy "$case_dir/changed1.json" --changes 1 ||
        ! "$gen" --out "$fixture.tmp" --kind "$kind" --items "$n" --seed "$seed" --around "$today" \
          --changed-copy "$case_dir/changed1000.json" --changes "$changes"; then
      fail "generating $kind $n failed"
      continue
    fi
    rm -f "$fixture.tmp"
    fixture_bytes=$(stat -c %s "$fixture")
    if ((fixture_bytes * 6 > $(available))); then
      echo "| $kind | $n | $(mib "$fixture_bytes") | skipped: a reload would need ~$(mib $((fixture_bytes * 6))) MiB, $(mib "$(available)") MiB available | | | | | | | | | | |"
      rm -rf "$case_dir"
      continue
    fi

    export FERRANT_KEYSTORE=$case_dir/keystore
    {
      "$ferrant" prefs set email.captureEmailCount 1000 &&
        "$ferrant" prefs set tasks.maxTaskCapture 50 &&
        "$ferrant" prefs set calendar.captureDaysBefore 180 &&
        "$ferrant" prefs set calendar.captureDaysAfter 180 &&
        "$ferrant" prefs --store "$fixture" folders email add "Mailbox - Ana Núñez 📬/Inbox"
    } >/dev/null || { fail "prefs for $kind $n failed"; continue; }

    data=$case_dir/data
    capture "$fixture" "$data" "$case_dir/first.log"
    first=$took first_rss=$rss
    records=$(sed -n 's/^Items: *//p' "$case_dir/first.log" | grep -o '[0-9]\+' | awk '{ s += $1 } END { print s }')
    largest=$(stat -c %s "$data"/*.XML 2>/dev/null | sort -n | tail -1)
    start=$(now)
    cat "$data"/*.XML "$data"/DataDirectory.xml >"$case_dir/bare-write" 2>/dev/null
    bare=$(seconds "$start" "$(now)")
    rm -f "$case_dir/bare-write"

    capture "$fixture" "$data" "$case_dir/second.log"
    second=$took

    reload1=$(reload_time "$fixture" "$case_dir/changed1.json")
    [ "$reload1" = - ] && fail "reload of $kind $n failed: $(cat "$case_dir/reload.out")"
    load_s=$(field load_s)
    reload1000=$(reload_time "$fixture" "$case_dir/changed1000.json")
    [ "$reload1000" = - ] && fail "reload of $kind $n failed: $(cat "$case_dir/reload.out")"
    [ -n "$load_s" ] || load_s=$(field load_s)

    printf '| %s | %s | %s | %s | %s | %s | %s | %s | %s | %s | %s | %s | %s | %s |\n' \
      "$kind" "$n" "$(ratio "$fixture_bytes" 1048576)" \
      "$(ratio "$(awk -v b="$fixture_bytes" 'BEGIN { print b / 1048576 }')" "${load_s:-0}" 0)" "$first" \
      "$(ratio "$n" "$first" 0)" "${records:-?}" "$(ratio "$first" "$bare" 0)" \
      "$(mib "$first_rss")" "$(ratio "$first_rss" "$fixture_bytes")" \
      "$(ratio "$first_rss" "${largest:-0}")" "$reload1" "$reload1000" "$second"
    rm -rf "$case_dir"
  done
done
echo
echo "$(nproc) cores, $(awk '/^MemTotal:/ { printf "%.1f GiB", $2 / 1048576 }' /proc/meminfo), $(uname -sr), $(date -u '+%Y-%m-%d %H:%M UTC')"
exit $failed
