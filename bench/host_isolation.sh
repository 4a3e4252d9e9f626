#!/usr/bin/env bash
# What worker processes cost the test host: the ScriptingTests pull-request selection in process, with
# --isolate and with -j 2, and the same once more with --repeat so that two workers have enough work to share.
# Times come from hyperfine when it is installed, else from /usr/bin/time over a batch of runs.
#
#   cmake --preset release && cmake --build --preset release
#   bench/host_isolation.sh [BUILD_DIR]        # BUILD_DIR defaults to build/release
#
# RUNS (default 20) sets the runs per measurement, REPEAT (default 20) the rounds of the heavier run.
set -euo pipefail
cd "$(dirname "$0")/.."

build=${1:-build/release}
host=$build/TestHost/testhost
module=$build/Scripting/test/ScriptingTests.so
runs=${RUNS:-20}
repeat=${REPEAT:-20}
if [ ! -x "$host" ] || [ ! -f "$module" ]; then
    echo "host_isolation.sh: build $host and $module first (a Release build)" >&2
    exit 2
fi
if ! grep -q 'CMAKE_BUILD_TYPE:STRING=Release' "$build/CMakeCache.txt" 2>/dev/null; then
    echo "host_isolation.sh: warning: $build is not a Release build; the figures mean little" >&2
fi

selection=(--tag suite:pull_request)
cases=$("$host" --list "${selection[@]}" "$module" | head -n 1 | sed -E 's/.* ([0-9]+) cases? .*/\1/')
scratch=$(mktemp)
trap 'rm -f "$scratch"' EXIT

# Prints the mean wall time of one run of the command, in seconds.
measure() {
    if command -v hyperfine >/dev/null; then
        hyperfine --style none --shell=none --warmup 3 --runs "$runs" --export-csv "$scratch" -- "$*" >/dev/null
        awk -F, 'NR == 2 { printf "%.6f", $2 }' "$scratch"
    else
        "$@" >/dev/null
        /usr/bin/time -f %e -o "$scratch" bash -c \
            'for ((i = 0; i < $0; ++i)); do "$@" >/dev/null || exit 1; done' "$runs" "$@"
        awk -v runs="$runs" '{ printf "%.6f", $1 / runs }' "$scratch"
    fi
}

milliseconds() { awk -v s="$1" 'BEGIN { printf "%.1f ms", s * 1000 }'; }

timer=$(command -v hyperfine >/dev/null && echo "hyperfine, $runs runs" || echo "/usr/bin/time, batches of $runs")
echo "ScriptingTests ${selection[*]}: $cases cases; $(nproc) cores; $timer"

serial=$(measure "$host" "${selection[@]}" "$module")
isolated=$(measure "$host" --isolate "${selection[@]}" "$module")
parallel=$(measure "$host" -j 2 "${selection[@]}" "$module")
printf '%-28s %12s\n' "in process" "$(milliseconds "$serial")"
printf '%-28s %12s   %s\n' "--isolate" "$(milliseconds "$isolated")" \
    "$(awk -v a="$isolated" -v b="$serial" -v n="$cases" 'BEGIN { printf "%+.4f ms per case", (a - b) * 1000 / n }')"
printf '%-28s %12s   %s\n' "-j 2" "$(milliseconds "$parallel")" \
    "$(awk -v a="$serial" -v b="$parallel" 'BEGIN { printf "%.2fx in process", a / b }')"

heavySerial=$(measure "$host" --repeat "$repeat" "${selection[@]}" "$module")
heavyParallel=$(measure "$host" -j 2 --repeat "$repeat" "${selection[@]}" "$module")
printf '%-28s %12s\n' "--repeat $repeat, in process" "$(milliseconds "$heavySerial")"
printf '%-28s %12s   %s\n' "--repeat $repeat, -j 2" "$(milliseconds "$heavyParallel")" \
    "$(awk -v a="$heavySerial" -v b="$heavyParallel" 'BEGIN { printf "%.2fx in process", a / b }')"
