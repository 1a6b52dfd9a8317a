#!/usr/bin/env bash
# Sets up this machine and runs every test of every target:
#   native (Debug), native with address+undefined and with thread sanitizers,
#   the libFuzzer targets for a short while, the benchmarks once,
#   Windows x64 under Wine, and the Windows x86 build (its tests run only
#   where 32-bit Wine exists).
# Usage: scripts/test.sh [linux|sanitize|fuzz|bench|win64|win32 ...]  (default: all)
set -uo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"
bash scripts/setup.sh || exit 1

stages=("$@")
((${#stages[@]})) || stages=(linux sanitize fuzz bench win64 win32)
jobs=$(nproc)
passed=0
failed=0
failures=()

note() { printf '\n=== %s\n' "$*"; }
record() {  # record NAME STATUS
  if [ "$2" -eq 0 ]; then passed=$((passed + 1)); else failed=$((failed + 1)); failures+=("$1"); fi
}
configure_build() {  # configure_build DIR [cmake args...]
  local dir=$1
  shift
  cmake -S . -B "$dir" -G Ninja -DFERRANT_WERROR=ON "$@" >"$dir.configure.log" 2>&1 ||
    { cat "$dir.configure.log"; return 1; }
  ninja -C "$dir" -j "$jobs"
}
run_ctest() {  # run_ctest NAME DIR [ctest args...]
  local name=$1 dir=$2
  shift 2
  (cd "$dir" && ctest --output-on-failure -j "$jobs" "$@")
  record "$name" $?
}
mkdir -p build

for stage in "${stages[@]}"; do
  case $stage in
    linux)
      note "native build and tests"
      if configure_build build/linux -DCMAKE_BUILD_TYPE=Debug; then
        run_ctest linux build/linux
      else record linux-build 1; fi
      ;;
    sanitize)
      for s in address,undefined thread; do
        note "native tests with -fsanitize=$s"
        dir=build/linux-${s%%,*}
        if configure_build "$dir" -DCMAKE_BUILD_TYPE=Debug -DFERRANT_SANITIZE=$s; then
          TSAN_OPTIONS=halt_on_error=1 UBSAN_OPTIONS=print_stacktrace=1 run_ctest "sanitize-$s" "$dir"
        else record "sanitize-$s-build" 1; fi
      done
      ;;
    fuzz)
      note "fuzz targets (clang, libFuzzer)"
      if CC=clang CXX=clang++ configure_build build/fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo \
          -DFERRANT_FUZZ=ON -DFERRANT_TESTS=OFF -DCMAKE_CXX_FLAGS=-fsanitize=address,undefined; then
        for f in $(find build/fuzz -type f -name '*_fuzz' -perm -u+x | sort); do
          bash scripts/fuzz.sh "$f" 20
          status=$?  # before the name's command substitution resets $?
          record "$(basename "$f")" $status
        done
      else record fuzz-build 1; fi
      ;;
    bench)
      note "benchmarks (one short pass each)"
      if configure_build build/bench -DCMAKE_BUILD_TYPE=Release -DFERRANT_BENCH=ON -DFERRANT_TESTS=OFF; then
        for b in $(find build/bench -type f -name '*_bench' -perm -u+x | sort); do
          "$b" --benchmark_min_time=0.01
          status=$?
          record "$(basename "$b")" $status
        done
        # The capture benchmark at its smallest size: it has to finish, its
        # figures are not judged here.
        BENCH_BUILD=build/bench bash scripts/bench.sh 1000
        record bench.sh $?
      else record bench-build 1; fi
      ;;
    win64 | win32)
      note "Windows $stage build"
      # The add-in's end-to-end tests compare its files with the Linux
      # command's, when the native stage has built it.
      native=()
      [ -x build/linux/src/app/ferrant ] && native=(-DFERRANT_NATIVE_DIR="$root/build/linux")
      if configure_build "build/$stage" -DCMAKE_BUILD_TYPE=Debug \
          -DCMAKE_TOOLCHAIN_FILE="$root/cmake/toolchain-$stage.cmake" "${native[@]}"; then
        if [ "$stage" = win64 ] || bash scripts/wine-session.sh has32 2>/dev/null; then
          # A virtual display, so that window and dialog tests run too.
          Xvfb :87 -screen 0 1024x768x24 >/dev/null 2>&1 &
          xvfb=$!
          export DISPLAY=:87
          bash scripts/wine-session.sh start
          run_ctest "$stage" "build/$stage"
          bash scripts/wine-session.sh stop
          kill $xvfb 2>/dev/null
          unset DISPLAY
        else
          echo "no 32-bit Wine here: the x86 binaries are built, only their imports are tested"
          run_ctest "$stage-imports" "build/$stage" -R windows_binaries_import_system_dlls_only
        fi
      else record "$stage-build" 1; fi
      ;;
    *) echo "test.sh: unknown stage '$stage'"; exit 2 ;;
  esac
done

note "summary"
((failed)) && printf 'failed: %s\n' "${failures[*]}"
echo "$passed passed, $failed failed"
((failed == 0))
