#!/usr/bin/env bash
# Builds the libFuzzer targets (clang, ASan + UBSan) in build-fuzz/ and runs each for a bounded
# time. Fails when any target finds a crash, a leak, a time-out or a broken check; the input
# that did it is kept in build-fuzz/crashes/<target>/ (copy it to fuzz/regressions/<target>/
# once fixed, so the normal test run replays it for good).
#
#   scripts/fuzz.sh                      every target, PELORA_FUZZ_SECONDS (25) each
#   scripts/fuzz.sh answer_mapping       one target
#   PELORA_FUZZ_SECONDS=600 scripts/fuzz.sh macro_replace
#
# New inputs that reach new code are kept in build-fuzz/corpus/<target>/ and reused by the next
# run. Third-party corpora in $PELORA_SHARED_CORPORA (default: the copies in tests/data) are used as
# extra seeds when present.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
export CCACHE_BASEDIR="${CCACHE_BASEDIR:-$(cd .. && pwd)}"
export CCACHE_NOHASHDIR="${CCACHE_NOHASHDIR:-1}"

BUILD_DIR=${BUILD_DIR:-build-fuzz}
SECONDS_EACH=${PELORA_FUZZ_SECONDS:-25}
JOBS=${PELORA_FUZZ_JOBS:-2}
SHARED=${PELORA_SHARED_CORPORA:-$PWD/tests/data}
started=$(date +%s)

cmake -S . -B "$BUILD_DIR" -G Ninja -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
  -DCMAKE_BUILD_TYPE=RelWithDebInfo -DPELORA_FUZZ=ON -DPELORA_WERROR=ON \
  -DPELORA_BUILD_TESTS=OFF -DPELORA_BUILD_BENCH=OFF -DPELORA_BUILD_EXAMPLES=OFF \
  -DPELORA_INSTALL=OFF >/dev/null

listing="$BUILD_DIR/fuzz-targets.txt"
mapfile -t lines <"$listing"
wanted=("$@")
targets=()
for line in "${lines[@]}"; do
  name=${line%%|*}
  if [ ${#wanted[@]} -eq 0 ] || printf '%s\n' "${wanted[@]}" | grep -qx "$name"; then
    targets+=("fuzz_$name")
  fi
done
[ ${#targets[@]} -gt 0 ] || { echo "fuzz: no such target: ${wanted[*]}" >&2; exit 2; }
cmake --build "$BUILD_DIR" -j "$JOBS" --target "${targets[@]}"
built=$(date +%s)

# The third-party corpora, as one file per input: JSON texts as they are; the URL cases'
# inputs pulled out of their JSON files.
seeds="$BUILD_DIR/seeds"
if [ -d "$SHARED/wpt-url" ] && [ ! -d "$seeds/wpt-url" ]; then
  mkdir -p "$seeds/wpt-url"
  python3 - "$SHARED/wpt-url" "$seeds/wpt-url" <<'PY'
import json, os, sys
src, out = sys.argv[1], sys.argv[2]
n = 0
for name in ("urltestdata.json", "percent-encoding.json"):
    path = os.path.join(src, name)
    if not os.path.exists(path):
        continue
    for case in json.load(open(path, encoding="utf-8")):
        if isinstance(case, dict) and isinstance(case.get("input"), str):
            with open(os.path.join(out, "%04d" % n), "wb") as f:
                f.write(case["input"].encode("utf-8", "surrogatepass"))
            n += 1
PY
fi
extra_for() {
  case "$1" in
    answer_mapping|interface_file|sandbox_inventory)
      for d in "$SHARED/JSONTestSuite/test_parsing" "$SHARED/JSONTestSuite/test_transform"; do
        [ -d "$d" ] && echo "$d"
      done ;;
    url_escaping|format_url|download_name)
      [ -d "$seeds/wpt-url" ] && echo "$seeds/wpt-url" ;;
  esac
  return 0
}

failed=()
report=()
for line in "${lines[@]}"; do
  IFS='|' read -r name program dict dirs <<<"$line"
  [[ " ${targets[*]} " == *" fuzz_$name "* ]] || continue
  corpus="$BUILD_DIR/corpus/$name"
  crashes="$BUILD_DIR/crashes/$name"
  mkdir -p "$corpus" "$crashes"
  IFS=';' read -r -a seed_dirs <<<"$dirs"
  existing=()
  for d in "${seed_dirs[@]}" $(extra_for "$name"); do [ -d "$d" ] && existing+=("$d"); done
  args=(-max_total_time="$SECONDS_EACH" -timeout=10 -rss_limit_mb=2048 -max_len=65536
        -print_final_stats=1 -artifact_prefix="$crashes/")
  [ -n "$dict" ] && args+=(-dict="$dict")
  log="$BUILD_DIR/fuzz-$name.log"
  echo "fuzz: $name for ${SECONDS_EACH}s"
  if ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
     "$program" "${args[@]}" "$corpus" "${existing[@]}" >"$log" 2>&1; then
    runs=$(grep -o 'stat::number_of_executed_units:[[:space:]]*[0-9]*' "$log" | awk '{print $2}')
    speed=$(grep -o 'stat::average_exec_per_sec:[[:space:]]*[0-9]*' "$log" | awk '{print $2}')
    report+=("$(printf '%-18s ok      %10s runs  %8s exec/s' "$name" "${runs:-?}" "${speed:-?}")")
  else
    failed+=("$name")
    report+=("$(printf '%-18s FAILED  see %s, input in %s' "$name" "$log" "$crashes")")
    grep -E 'ERROR|fuzz check failed|SUMMARY|Test unit written' "$log" | head -5 >&2 || true
  fi
done

finished=$(date +%s)
echo
printf '%s\n' "${report[@]}"
echo "fuzz: build $((built - started))s, fuzzing $((finished - built))s, total $((finished - started))s"
if [ ${#failed[@]} -gt 0 ]; then
  echo "fuzz: FAILED: ${failed[*]} (crashing inputs under $BUILD_DIR/crashes/)" >&2
  exit 1
fi
