#!/usr/bin/env bash
# Takes the documentation's pictures of every dialog in every shipped
# language: the Windows x64 test program shows each dialog under Wine on a
# virtual display and saves it; the pictures land in docs/screenshots as PNG.
#   scripts/screenshots.sh [BUILD_DIR]   (default build/win64, built if needed)
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$root/build/win64}
out=$root/docs/screenshots
if [ ! -f "$build/build.ninja" ]; then
  cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Debug \
    -DCMAKE_TOOLCHAIN_FILE="$root/cmake/toolchain-win64.cmake" >/dev/null
fi
ninja -C "$build" ferrant_ui_tests >/dev/null
export WINEPREFIX=${WINEPREFIX:-$HOME/.ferrant-wine}
display=:$((90 + RANDOM % 9))
Xvfb "$display" -screen 0 1024x768x24 >/dev/null 2>&1 &
xvfb=$!
trap 'kill $xvfb 2>/dev/null; bash "$root/scripts/wine-session.sh" stop' EXIT
export DISPLAY=$display
bash "$root/scripts/wine-session.sh" start
shots=$(mktemp -d)
FERRANT_SCREENSHOTS="Z:${shots//\//\\}" WINEDEBUG=-all \
  wine "$build/src/ui/ferrant_ui_tests.exe" --gtest_filter='DialogLayout*' >"$shots/log" 2>&1 ||
  { cat "$shots/log"; exit 1; }
mkdir -p "$out"
# Debian's ImageMagick by its own name: another `convert` may come first on
# the path.
convert=$(command -v convert-im6.q16 || command -v convert)
for bmp in "$shots"/*.bmp; do
  "$convert" "$bmp" "$out/$(basename "${bmp%.bmp}").png"
done
ls "$out"
rm -rf "$shots"
