#!/usr/bin/env bash
# Runs one libFuzzer target for a while from its seed corpus:
#   scripts/fuzz.sh build/fuzz/src/core/language_file_fuzz [seconds]
# Seeds: fuzz/corpus/<target>/ in the repository, for the MAPI blob parsers
# the captured blobs in ../shared/testdata and for the data file loader the
# sample data files there, when present. New inputs,
# and whatever a target writes to the temporary folder, go to a scratch
# folder, never into the repository.
set -euo pipefail
target=${1:?fuzz target}
seconds=${2:-60}
root=$(cd "$(dirname "$0")/.." && pwd)
name=$(basename "$target")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
seeds=()
[ -d "$root/fuzz/corpus/$name" ] && seeds+=("$root/fuzz/corpus/$name")
if [ -d "$root/../shared/testdata/mapi-blobs" ] && [[ $name == *recurrence* || $name == *oneoff* || $name == *entryid* ]]; then
  mkdir -p "$work/shared"
  for f in "$root"/../shared/testdata/mapi-blobs/*.dat; do
    tr -d ' \r\n\t' <"$f" | xxd -r -p >"$work/shared/$(basename "$f")" 2>/dev/null || true
  done
  seeds+=("$work/shared")
fi
# The data file loader starts from the sample data files, read where they lie.
if [ -d "$root/../shared/testdata/pst" ] && [[ $name == pst_* ]]; then
  seeds+=("$root/../shared/testdata/pst")
fi
mkdir -p "$work/new"
echo "fuzzing $name for ${seconds}s"
TMPDIR="$work" "$target" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -print_final_stats=1 \
  "$work/new" "${seeds[@]}" 2>&1 | tail -n 12
