#!/usr/bin/env bash
# Mutation testing: applies the plausible faults of scripts/mutants.txt to src/ and platform/
# one at a time, rebuilds, runs the tests (all but the soak and browser ones, stopping at the
# first failure) and reports which faults the suite catches. Slow (about a minute a fault on
# two cores); not part of CI. Usage:
#   scripts/mutants.sh                 every fault, build tree build-mutants/
#   scripts/mutants.sh --only 'reward' the faults whose names match
#   scripts/mutants.sh --check         only checks that every entry still applies
# The sources are restored after each fault, also when a step fails; do not edit the tree
# while it runs.
set -euo pipefail
cd "$(dirname "$0")/.."
export CCACHE_BASEDIR="${CCACHE_BASEDIR:-$(cd .. && pwd)}"
export CCACHE_NOHASHDIR="${CCACHE_NOHASHDIR:-1}"
BUILD=build-mutants
for arg in "$@"; do [ "$arg" = "--check" ] && exec python3 scripts/mutants.py "$@"; done
scripts/install-deps.sh
# Shared libraries are not relinked into every test program after each fault.
cmake -S . -B "$BUILD" -G Ninja -DPELORA_WERROR=ON -DPELORA_BUILD_BENCH=OFF \
  -DCMAKE_LINK_DEPENDS_NO_SHARED=ON >/dev/null
exec python3 scripts/mutants.py --build "$BUILD" "$@"
