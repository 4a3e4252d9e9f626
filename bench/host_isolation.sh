#!/usr/bin/env bash
# What worker processes cost the test host: the ScriptingTests pull-request selection in process, with
# --isolate and with -j 2; then in process against -j 2 with more work to share: the selection --repeat'ed, and
# every case (the perf suite included, whose cases are heavier) repeated too. Times come from hyperfine when it
# is installed, else from /usr/bin/time over a batch of runs.
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

# Prints the mean wall time of one run of the command, in seconds.
useHyperfine() { [ "${TIMER:-}" != time ] && command -v hyperfine >/dev/null; }

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

milliseconds() { awk -v s="$1" 'BEGIN { printf "%.1f ms", s * 1000 }'; }

timer=$(useHyperfine && echo "hyperfine, $runs runs" || echo "/usr/bin/time, batches of $runs")
echo "ScriptingTests ${selection[*]}: $cases cases; $(nproc) cores; $timer"

serial=$(measure "$host" "${selection[@]}" "$module")
isolated=$(measure "$host" --isolate "${selection[@]}" "$module")
parallel=$(measure "$host" -j 2 "${selection[@]}" "$module")
printf '%-32s %12s\n' "in process" "$(milliseconds "$serial")"
printf '%-32s %12s   %s\n' "--isolate" "$(milliseconds "$isolated")" \
    "$(awk -v a="$isolated" -v b="$serial" -v n="$cases" 'BEGIN { printf "%+.4f ms per case", (a - b) * 1000 / n }')"
printf '%-32s %12s   %s\n' "-j 2" "$(milliseconds "$parallel")" \
    "$(awk -v a="$serial" -v b="$parallel" 'BEGIN { printf "%.2fx in process", a / b }')"

# In process against -j 2 on the same arguments.
compare() {
    local label=$1
    shift
    local inProcess parallel
    inProcess=$(measure "$host" "$@" "$module")
    parallel=$(measure "$host" -j 2 "$@" "$module")
    printf '%-32s %12s\n' "$label, in process" "$(milliseconds "$inProcess")"
    printf '%-32s %12s   %s\n' "$label, -j 2" "$(milliseconds "$parallel")" \
        "$(awk -v a="$inProcess" -v b="$parallel" 'BEGIN { printf "%.2fx in process", a / b }')"
}
compare "--repeat $repeat" --repeat "$repeat" "${selection[@]}"
compare "--tag all --repeat $repeatAll" --repeat "$repeatAll" --tag all
