#!/usr/bin/env bash
# Installs what is missing, builds, and runs every test through CTest (the soak test, label
# "soak", runs in the sanitizer builds only).
#   scripts/test.sh                     normal build in build/
#   PELORA_SANITIZE=1 scripts/test.sh   AddressSanitizer + UBSan build in build-asan/
#   PELORA_TSAN=1 scripts/test.sh       ThreadSanitizer build in build-tsan/: only the test
#                                       programs labelled "threads", the soak with fewer loads
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
# Object files are shared through ccache between build trees and clones side by side.
export CCACHE_BASEDIR="${CCACHE_BASEDIR:-$(cd .. && pwd)}"
export CCACHE_NOHASHDIR="${CCACHE_NOHASHDIR:-1}"

TARGETS=()
if [ "${PELORA_TSAN:-0}" = "1" ]; then
  BUILD_DIR=${BUILD_DIR:-build-tsan}
  EXTRA=(-DPELORA_TSAN=ON -DPELORA_BUILD_BENCH=OFF -DPELORA_BUILD_EXAMPLES=OFF
         -DPELORA_INSTALL=OFF -DCMAKE_BUILD_TYPE=RelWithDebInfo)
  # Every report fails the run; the suppressions name only third-party code (see the file).
  export TSAN_OPTIONS=${TSAN_OPTIONS:-suppressions=$PWD/tests/tsan.supp:second_deadlock_stack=1:print_suppressions=0}
  # A thousand loads of each kind take too long under ThreadSanitizer; races show in fewer.
  export PELORA_SOAK_LOADS=${PELORA_SOAK_LOADS:-60}
  TARGETS=(--target pelora_platform_tests pelora_core_tests pelora_native_tests
           pelora_reward_tests pelora_tools_tests pelora_soak_tests)
  LABELS=(-L threads)
elif [ "${PELORA_SANITIZE:-0}" = "1" ]; then
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
cmake --build "$BUILD_DIR" -j "$(nproc)" "${TARGETS[@]}"
ctest --test-dir "$BUILD_DIR" --output-on-failure -j "$(nproc)" "${LABELS[@]}"
