#!/usr/bin/env bash
# Installs what is missing, builds, and runs every test through CTest (the soak test, label
# "soak", runs in the sanitizer build only).
#   scripts/test.sh                 normal build in build/
#   PELORA_SANITIZE=1 scripts/test.sh   AddressSanitizer + UBSan build in build-asan/
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
# Object files are shared through ccache between build trees and clones side by side.
export CCACHE_BASEDIR="${CCACHE_BASEDIR:-$(cd .. && pwd)}"
export CCACHE_NOHASHDIR="${CCACHE_NOHASHDIR:-1}"

if [ "${PELORA_SANITIZE:-0}" = "1" ]; then
  BUILD_DIR=${BUILD_DIR:-build-asan}
  EXTRA=(-DPELORA_SANITIZE=ON -DPELORA_BUILD_BENCH=OFF -DCMAKE_BUILD_TYPE=Debug)
  export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1}
  export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
  export LSAN_OPTIONS=${LSAN_OPTIONS:-suppressions=$PWD/tests/lsan.supp:print_suppressions=0}
  # The soak test runs here, where LeakSanitizer watches it and the heap is counted exactly.
  LABELS=()
else
  BUILD_DIR=${BUILD_DIR:-build}
  EXTRA=()
  LABELS=(-LE soak)
fi

cmake -S . -B "$BUILD_DIR" -G Ninja -DPELORA_WERROR=ON "${EXTRA[@]}" >/dev/null
cmake --build "$BUILD_DIR" -j "$(nproc)"
ctest --test-dir "$BUILD_DIR" --output-on-failure -j "$(nproc)" "${LABELS[@]}"
