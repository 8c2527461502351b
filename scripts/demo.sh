#!/usr/bin/env bash
# The main job: builds the SDK and runs the demo host application against the sandbox ad
# server embedded in the same process (loopback only, nothing to configure).
#   scripts/demo.sh [demo options, see `pelora demo --help`]
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake -S . -B build -G Ninja >/dev/null
cmake --build build -j "$(nproc)" --target pelora_cli >/dev/null
exec build/tools/pelora demo "$@"
