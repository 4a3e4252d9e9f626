#!/usr/bin/env bash
# What worker processes cost the test host: ScriptingTests run in process, with --isolate and with -j 2, for
# the pull-request selection once, the same repeated (many small cases), and every case repeated (the perf
# suite's cases carry more work). Times come from hyperfine when it is installed, else from /usr/bin/time over
# a batch of runs.
#
#   cmake --preset release && cmake --build --preset release
#   bench/host_isolation.sh [BUILD_DIR]        # BUILD_DIR defaults to build/release
#
# RUNS (default 20) sets the runs per measurement, REPEAT (default 200) the rounds of the repeated selection and
# REPEAT_ALL (default 10) those of the run of every case; TIMER=time skips hyperfine.
set -euo pipefail
cd "$(dirname "$0")/.."

build=${1:-build/release}
host=$build/TestHost/testhost
module=$build/Scripting/test/ScriptingTests.so
runs=${RUNS:-20}
repeat=${REPEAT:-200}
repeatAll=${REPEAT_ALL:-10}
if [ ! -x "$host" ] || [ ! -f "$module" ]; then
    echo "host_isolation.sh: build $host and $module first (a Release build)" >&2
    exit 2
fi
if ! grep -q 'CMAKE_BUILD_TYPE:STRING=Release' "$build/CMakeCache.txt" 2>/dev/null; then
    echo "host_isolation.sh: warning: $build is not a Release build; the figures mean little" >&2
fi

selection=(--tag suite:pull_request)
scratch=$(mktemp)
trap 'rm -f "$scratch"' EXIT
"$host" --list "${selection[@]}" "$module" >"$scratch"
cases=$(sed -E -n '1s/.* ([0-9]+) cases? .*/\1/p' "$scratch")

useHyperfine() { [ "${TIMER:-}" != time ] && command -v hyperfine >/dev/null; }

# Prints the mean wall time of one run of the command, in seconds.
measure() {
    if useHyperfine; then
        hyperfine --style none --shell=none --warmup 3 --runs "$runs" --export-csv "$scratch" -- "$*" >/dev/null
        awk -F, 'NR == 2 { printf "%.6f", $2 }' "$scratch"
    else
        "$@" >/dev/null
        /usr/bin/time -f %e -o "$scratch" bash -c \
            'for ((i = 0; i < $0; ++i)); do "$@" >/dev/null || exit 1; done' "$runs" "$@"
        awk -v runs="$runs" '{ printf "%.6f", $1 / runs }' "$scratch"
    fi
}

timer=$(useHyperfine && echo "hyperfine, $runs runs" || echo "/usr/bin/time, batches of $runs")
echo "ScriptingTests: $(nproc) cores; $timer; mean wall time per run"
printf '%-52s %12s %12s %16s %12s %12s\n' "run" "in process" "--isolate" "per case" "-j 2" "speed-up"

# One line: the run in process, isolated and with two workers. Arguments: label, case count, host arguments.
row() {
    local label=$1 count=$2
    shift 2
    local inProcess isolated parallel
    inProcess=$(measure "$host" "$@" "$module")
    isolated=$(measure "$host" --isolate "$@" "$module")
    parallel=$(measure "$host" -j 2 "$@" "$module")
    awk -v label="$label" -v a="$inProcess" -v b="$isolated" -v c="$parallel" -v n="$count" 'BEGIN {
        printf "%-52s %9.1f ms %9.1f ms %+13.4f ms %9.1f ms %11.2fx\n",
               label, a * 1000, b * 1000, (b - a) * 1000 / n, c * 1000, a / c }'
}

row "${selection[*]} ($cases cases)" "$cases" "${selection[@]}"
row "${selection[*]} --repeat $repeat ($((cases * repeat)) cases)" $((cases * repeat)) --repeat "$repeat" "${selection[@]}"
"$host" --list --tag all "$module" >"$scratch"
all=$(sed -E -n '1s/.* ([0-9]+) cases? .*/\1/p' "$scratch")
row "--tag all --repeat $repeatAll ($((all * repeatAll)) cases)" $((all * repeatAll)) --repeat "$repeatAll" --tag all
