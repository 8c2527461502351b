#!/usr/bin/env bash
# Runs one browser test file: run.sh <test file> <pelora> <pelora-sandbox> <artefacts dir>.
# Exits 77 (skipped) when Chromium, Node.js or the driver is missing; scripts/install-deps.sh
# installs all three.
set -euo pipefail
here="$(cd "$(dirname "$0")" && pwd)"
export PELORA_TOOL="$2" PELORA_SANDBOX="$3" PELORA_ARTIFACTS="$4"
export PELORA_CHROMIUM="${PELORA_CHROMIUM:-/usr/bin/chromium}"
if ! command -v node >/dev/null; then echo "skipped: node is not installed" >&2; exit 77; fi
if [ ! -x "$PELORA_CHROMIUM" ]; then echo "skipped: no Chromium at $PELORA_CHROMIUM" >&2; exit 77; fi
if [ ! -f "$here/node_modules/playwright-core/package.json" ]; then
  echo "skipped: run 'npm ci' in tests/browser (scripts/install-deps.sh does)" >&2; exit 77
fi
mkdir -p "$PELORA_ARTIFACTS"
cd "$here"
exec node --test "$1"
