#!/usr/bin/env bash
# Builds the SDK as a package is built (Release, shared libraries, Clang, warnings as errors),
# installs it into a staging prefix, then builds the sample hosts in examples/ as a user
# would, against the installed CMake package, and runs the console host (it starts the
# installed sandbox itself). Also links a program through pkg-config.
#   scripts/package-check.sh            build dir build-package/, prefix build-package/stage
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
export CCACHE_BASEDIR="${CCACHE_BASEDIR:-$(cd .. && pwd)}"
export CCACHE_NOHASHDIR="${CCACHE_NOHASHDIR:-1}"
export CC=clang CXX=clang++

build=${BUILD_DIR:-build-package}
stage=$PWD/$build/stage
echo "package-check: building the SDK (Release, shared, clang) into $stage"
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DBUILD_SHARED_LIBS=ON \
  -DPELORA_WERROR=ON -DPELORA_BUILD_TESTS=OFF -DPELORA_BUILD_BENCH=OFF -DPELORA_BUILD_EXAMPLES=OFF \
  -DCMAKE_INSTALL_PREFIX="$stage" >/dev/null
cmake --build "$build" -j "$(nproc)"
rm -rf "$stage"
cmake --install "$build" >/dev/null

for example in console_host engine_loop window_host host_test; do
  echo "package-check: building examples/$example against the installed package"
  cmake -S "examples/$example" -B "$build/examples/$example" -G Ninja -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_PREFIX_PATH="$stage" -DCMAKE_CXX_FLAGS="-Wall -Wextra -Werror" >/dev/null
  cmake --build "$build/examples/$example"
done

echo "package-check: linking through pkg-config"
cat >"$build/pc_check.cpp" <<'CPP'
#include <pelora/Pelora.h>
#include <pelora/desktop/DesktopPlatform.h>
int main() {
    pelora::desktop::makeDesktopServices();
    return PeloraConstConfig::baseUrl().empty() ? 1 : 0;
}
CPP
PKG_CONFIG_PATH="$stage/lib/pkgconfig" \
  sh -c "$CXX $build/pc_check.cpp -o $build/pc_check \$(pkg-config --cflags --libs pelora-desktop) -Wl,-rpath,$stage/lib"
"$build/pc_check"

echo "package-check: running the host's test on the installed test environment"
"$build/examples/host_test/host_test"

echo "package-check: running the console host against the installed sandbox"
PATH="$stage/bin:$PATH" timeout 120 "$build/examples/console_host/console_host"

echo "package-check: the installed sandbox serves its inspector page"
"$stage/bin/pelora-sandbox" >"$build/sandbox.url" 2>/dev/null &
sandbox_pid=$!
trap 'kill "$sandbox_pid" 2>/dev/null || true' EXIT
for _ in $(seq 100); do [ -s "$build/sandbox.url" ] && break; sleep 0.1; done
python3 - "$(head -1 "$build/sandbox.url")/inspector/" <<'PY'
import sys, urllib.request
page = urllib.request.urlopen(sys.argv[1], timeout=10).read()
sys.exit(0 if b"inspector.js" in page else "the installed sandbox does not serve its inspector page")
PY
kill "$sandbox_pid"
wait "$sandbox_pid" || true
trap - EXIT
