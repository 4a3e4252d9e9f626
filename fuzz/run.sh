#!/usr/bin/env bash
# fuzz/run.sh BUILD_DIR [SECONDS]
# Runs every fuzz target of a SCRIPTING_FUZZ build for SECONDS each (default 20), one after another, starting
# from its seed corpus in fuzz/corpus/<name>/. Inputs found on the way go to BUILD_DIR/fuzz-work/<name>/, never
# into the repository. A target that finds a failure leaves the input in BUILD_DIR/fuzz-artifacts/ and the run
# fails; replay it with `BUILD_DIR/fuzz/fuzz_<name> FILE`.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:?usage: fuzz/run.sh BUILD_DIR [SECONDS]}
seconds=${2:-20}

export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1}
mkdir -p "$build/fuzz-artifacts"
failed=()
for corpus in fuzz/corpus/*/; do
    name=$(basename "$corpus")
    target="$build/fuzz/fuzz_$name"
    work="$build/fuzz-work/$name"
    log="$build/fuzz-work/$name.log"
    mkdir -p "$work"
    if [ ! -x "$target" ]; then
        echo "fuzz_$name: not built in $build"
        failed+=("$name")
        continue
    fi
    # New inputs go to the first directory; the seeds are only read.
    if "$target" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -max_len=4096 -print_final_stats=1 \
        -artifact_prefix="$build/fuzz-artifacts/$name-" "$work" "$corpus" >"$log" 2>&1; then
        runs=$(grep -o 'stat::number_of_executed_units: *[0-9]*' "$log" | grep -o '[0-9]*$' || echo "?")
        echo "fuzz_$name: passed, $runs inputs in ${seconds} s, corpus $(ls "$work" | wc -l) + $(ls "$corpus" | wc -l) seeds"
    else
        echo "fuzz_$name: FAILED; the end of its log ($log):"
        tail -n 40 "$log"
        failed+=("$name")
    fi
done
if [ ${#failed[@]} -ne 0 ]; then
    echo "failed: ${failed[*]}; inputs in $build/fuzz-artifacts/" >&2
    exit 1
fi
