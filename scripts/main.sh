#!/usr/bin/env bash
# Sets up this machine, builds the `ferrant` command, captures the bundled
# sample mailbox once into the data folder and shows where the index and the
# data files are, each checked against the published schema.
set -euo pipefail
shopt -s nullglob
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"
bash scripts/setup.sh
cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=Release -DFERRANT_TESTS=OFF >/dev/null
ninja -C build/release ferrant
ferrant=./build/release/src/app/ferrant
"$ferrant" --version
"$ferrant" capture

data=$("$ferrant" paths | sed -n 's/^data folder: *//p')
echo
echo "Index and data files in $data:"
ls -l "$data"
files=("$data"/*.xml "$data"/*.XML)
xmllint --noout --schema XMLDataSchema.xsd "${files[@]}" 2>&1
echo
echo "Next: '$ferrant watch' captures on the preferences' timer as the store file changes;"
echo "'$ferrant prefs' shows and changes the settings; '$ferrant --help' lists every command."
