#!/usr/bin/env bash
# Installs the Debian packages needed to build, test and benchmark Pelora.
# Non-interactive; installs only what is missing. Run as root (or with sudo available).
set -euo pipefail

PACKAGES=(
  g++ cmake ninja-build pkg-config git ca-certificates python3
  libcurl4-openssl-dev libsimdjson-dev nlohmann-json3-dev
  libcpp-httplib-dev libstb-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  clang-format ccache
  libgstreamer1.0-dev libgstreamer-plugins-base1.0-dev gstreamer1.0-plugins-base
  gstreamer1.0-plugins-good gstreamer1.0-plugins-bad gstreamer1.0-plugins-ugly gstreamer1.0-libav
  gstreamer1.0-tools
  libcairo2-dev libpango1.0-dev fonts-dejavu-core fonts-wqy-microhei
  libsdl2-dev libx11-dev xvfb xdotool
)

missing=()
for p in "${PACKAGES[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

echo "install-deps: installing ${missing[*]}" >&2
SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
