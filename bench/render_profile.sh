#!/usr/bin/env bash
# Where a rendered frame's work goes: runs the render benchmarks under callgrind, counting
# only inside ViewRenderer::renderInto, and sums the instructions by library. Instruction
# counts repeat exactly from run to run, whatever else the machine is doing.
#
# usage: bench/render_profile.sh [BUILD_DIR]   (default: build)
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
build=${1:-build}
out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT
for bench in BM_RenderSplashScale3 BM_RenderNativeListScale3; do
  valgrind --tool=callgrind --callgrind-out-file="$out/$bench" \
    "--toggle-collect=pelora::desktop::ViewRenderer::renderInto*" \
    "$build/bench/pelora_bench_render" --benchmark_filter="^$bench\$" --benchmark_min_time=3 \
    >"$out/$bench.log" 2>&1
  echo "== $bench: instructions inside renderInto, by library"
  python3 "$here/cost_by_library.py" "$out/$bench" | sed -n '1,6p;$p'
  echo
done
