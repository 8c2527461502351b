#!/usr/bin/env bash
# Installs the Debian packages needed to build, test and benchmark Pelora, and the browser
# tests' driver from npm.
# Non-interactive; installs only what is missing. Run as root (or with sudo available).
set -euo pipefail

PACKAGES=(
  g++ cmake ninja-build pkg-config git ca-certificates python3
  libcurl4-openssl-dev libsimdjson-dev nlohmann-json3-dev
  libcpp-httplib-dev libstb-dev zlib1g-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  clang-format ccache
  clang libclang-rt-14-dev
  libgstreamer1.0-dev libgstreamer-plugins-base1.0-dev gstreamer1.0-plugins-base
  gstreamer1.0-plugins-good gstreamer1.0-plugins-bad gstreamer1.0-plugins-ugly gstreamer1.0-libav
  gstreamer1.0-tools
  libcairo2-dev libpango1.0-dev fonts-dejavu-core fonts-wqy-microhei
  libsdl2-dev libx11-dev xvfb xdotool
  chromium
)
# Node.js runs the browser tests' driver; a machine that already has a node keeps its own.
if ! command -v node >/dev/null 2>&1; then
  PACKAGES+=(nodejs npm)
fi

missing=()
for p in "${PACKAGES[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -gt 0 ]; then
  echo "install-deps: installing ${missing[*]}" >&2
  SUDO=""
  if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
  export DEBIAN_FRONTEND=noninteractive
  $SUDO apt-get update -qq
  $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi

# The browser tests' driver (playwright-core, which drives the Chromium installed above and
# never downloads a browser of its own), exactly as the committed lock file says.
browser_tests="$(cd "$(dirname "$0")/.." && pwd)/tests/browser"
if [ ! -f "$browser_tests/node_modules/playwright-core/package.json" ] ||
   [ "$browser_tests/package-lock.json" -nt "$browser_tests/node_modules/.package-lock.json" ]; then
  echo "install-deps: npm ci in tests/browser" >&2
  (cd "$browser_tests" && PLAYWRIGHT_SKIP_BROWSER_DOWNLOAD=1 \
     npm ci --no-audit --no-fund --ignore-scripts --loglevel=error)
fi
