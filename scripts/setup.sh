#!/usr/bin/env bash
# Installs everything the build and the tests need on Debian 12 (as root).
# Quick when everything is there already.
set -euo pipefail

packages=(
  cmake ninja-build g++ clang libclang-rt-14-dev clang-format
  googletest libgtest-dev libgmock-dev libbenchmark-dev libxml2-utils xxd time
  pkg-config libpff-dev
  g++-mingw-w64-x86-64-posix g++-mingw-w64-i686-posix mingw-w64-tools binutils-mingw-w64
  wine64 wine libwine-dev xvfb fonts-wine
  python3 fp-utils
  imagemagick fonts-dejavu-core
)

missing=()
for p in "${packages[@]}"; do
  dpkg -s "$p" >/dev/null 2>&1 || missing+=("$p")
done
if ((${#missing[@]})); then
  echo "setup: installing ${missing[*]}"
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -qq
  apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi
