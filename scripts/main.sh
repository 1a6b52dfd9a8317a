#!/usr/bin/env bash
# Sets up this machine, builds the `ferrant` command, captures the bundled
# sample mailbox once into the data folder and shows where the index and the
# data files are, each checked against the published schema.
#   scripts/main.sh                          the bundled sample mailbox
#   scripts/main.sh FILE.pst [YYYY-MM-DD]    an Outlook data file instead: every calendar,
#                                            contacts, e-mail and tasks folder, into
#                                            build/main-data, the calendar's days counted
#                                            from the given day (default today)
set -euo pipefail
shopt -s nullglob
root=$(cd "$(dirname "$0")/.." && pwd)
store=${1:+$(realpath -- "$1")}
cd "$root"
bash scripts/setup.sh
cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=Release -DFERRANT_TESTS=OFF >/dev/null
ninja -C build/release ferrant
ferrant=./build/release/src/app/ferrant
"$ferrant" --version
if [ -n "$store" ]; then
  [ -f "$store" ] || { echo "main.sh: no such file: $1" >&2; exit 2; }
  data=build/main-data
  args=(--store "$store" --data-dir "$data" --all-folders)
  (($# > 1)) && args+=(--as-of "$2")
  status=0
  "$ferrant" capture "${args[@]}" || status=$?
  ((status <= 1)) || exit "$status"
else
  "$ferrant" capture
  data=$("$ferrant" paths | sed -n 's/^data folder: *//p')
fi
echo
echo "Index and data files in $data:"
ls -l "$data"
files=("$data"/*.xml "$data"/*.XML)
xmllint --noout --schema XMLDataSchema.xsd "${files[@]}" 2>&1
echo
echo "Next: '$ferrant watch' captures on the preferences' timer as the store file changes;"
echo "'$ferrant prefs' shows and changes the settings; '$ferrant --help' lists every command."
