#!/usr/bin/env bash
# Takes the documentation's pictures of every dialog in every shipped
# language: the Windows x64 test program shows each dialog under Wine on a
# virtual display and saves it; the pictures land in docs/screenshots as PNG.
#   scripts/screenshots.sh [BUILD_DIR]   (default build/win64, built if needed)
# Wine's own Tahoma has no Hebrew letters, and Wine does not fall back to
# another font for right-to-left text; the Hebrew pictures are taken in a
# prefix of their own where DejaVu Sans stands in for Tahoma.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$root/build/win64}
out=$root/docs/screenshots
if [ ! -f "$build/build.ninja" ]; then
  cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Debug \
    -DCMAKE_TOOLCHAIN_FILE="$root/cmake/toolchain-win64.cmake" >/dev/null
fi
ninja -C "$build" ferrant_ui_tests >/dev/null
prefix=${WINEPREFIX:-$HOME/.ferrant-wine}
display=:$((90 + RANDOM % 9))
Xvfb "$display" -screen 0 1024x768x24 >/dev/null 2>&1 &
xvfb=$!
shots=$(mktemp -d)
trap 'kill $xvfb 2>/dev/null; rm -rf "$shots"' EXIT
export DISPLAY=$display WINEDEBUG=-all

take() {  # take PREFIX FILTER
  export WINEPREFIX=$1
  bash "$root/scripts/wine-session.sh" start
  FERRANT_SCREENSHOTS="Z:${shots//\//\\}" \
    wine "$build/src/ui/ferrant_ui_tests.exe" --gtest_filter="$2" >>"$shots/log" 2>&1 ||
    { cat "$shots/log"; bash "$root/scripts/wine-session.sh" stop; exit 1; }
  bash "$root/scripts/wine-session.sh" stop
}

take "$prefix" '*DialogLayout*/ENU:*DialogLayout*/DEU'
rtl=$prefix-dejavu
WINEPREFIX=$rtl bash "$root/scripts/wine-session.sh" start
rm -f "$rtl"/drive_c/windows/Fonts/tahoma*.ttf
WINEPREFIX=$rtl wine reg add 'HKCU\Software\Wine\Fonts\Replacements' /v Tahoma /t REG_SZ \
  /d 'DejaVu Sans' /f </dev/null >/dev/null 2>&1
WINEPREFIX=$rtl bash "$root/scripts/wine-session.sh" stop
FERRANT_WINE_KEEP_FONTS=1 take "$rtl" '*DialogLayout*/HEB'

compgen -G "$shots/*.bmp" >/dev/null || { cat "$shots/log"; echo "screenshots: no pictures taken"; exit 1; }
mkdir -p "$out"
# Debian's ImageMagick by its own name: another `convert` may come first on
# the path.
convert=$(command -v convert-im6.q16 || command -v convert)
for bmp in "$shots"/*.bmp; do
  "$convert" "$bmp" "$out/$(basename "${bmp%.bmp}").png"
done
ls "$out"
