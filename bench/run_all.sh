#!/usr/bin/env bash
# Runs every Google Benchmark program of a Release build and writes one JSON file per program.
#
#   tools/build.sh bench                    # builds the release preset and runs this
#   bench/run_all.sh [BUILD_DIR] [OUT_DIR]  # defaults: build/release, BUILD_DIR/bench-results
#
# Extra Google Benchmark flags can be passed in BENCH_FLAGS, e.g. BENCH_FLAGS=--benchmark_repetitions=5.
set -euo pipefail
cd "$(dirname "$0")/.."

build=${1:-build/release}
out=${2:-$build/bench-results}
mkdir -p "$out"
found=0
for program in "$build"/bench/*_bench; do
    [ -x "$program" ] || continue
    found=1
    name=$(basename "$program")
    echo "== $name -> $out/$name.json"
    # shellcheck disable=SC2086
    "$program" --benchmark_out="$out/$name.json" --benchmark_out_format=json ${BENCH_FLAGS:-}
done
if [ "$found" -eq 0 ]; then
    echo "run_all.sh: no benchmark programs in $build/bench; build the release preset first" >&2
    exit 2
fi
