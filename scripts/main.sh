#!/usr/bin/env bash
# Sets up this machine, builds the `ferrant` command and runs it.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"
bash scripts/setup.sh
cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=Release -DFERRANT_TESTS=OFF >/dev/null
ninja -C build/release ferrant
./build/release/src/app/ferrant --version
./build/release/src/app/ferrant paths
