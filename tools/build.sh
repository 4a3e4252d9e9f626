#!/usr/bin/env bash
# One entry point for people and CI.
#   tools/build.sh run    build (Release) and run the test host over the built-in test module
#   tools/build.sh test   build Release (g++) and ASan+UBSan (clang) and run every test with CTest, the thread
#                         tests under ThreadSanitizer (clang), then each fuzz target for 20 s; the CTests labelled
#                         package install the build and a shared build of their own into prefixes under build/ and
#                         build projects against them (ctest -L package)
#   tools/build.sh fuzz [SECONDS]
#                         build the libFuzzer targets (clang) and run each for SECONDS (default 20)
#   tools/build.sh bench  build (Release) and run every benchmark, writing JSON to build/release/bench-results
#   tools/build.sh example  build (Release) and run the Lua example: examples/game/game.lua against the game module
#   tools/build.sh deps   only install what is missing
set -euo pipefail
cd "$(dirname "$0")/.."

PACKAGES=(cmake ninja-build g++ clang libclang-rt-14-dev libfmt-dev libmsgsl-dev libgtest-dev libgmock-dev
          libbenchmark-dev liblua5.4-dev pkg-config)

install_missing() {
    local missing=()
    for package in "${PACKAGES[@]}"; do
        dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed" || missing+=("$package")
    done
    # The TypeScript examples need node and npm; a node already on the machine is used as it is.
    command -v node >/dev/null || missing+=(nodejs npm)
    [ ${#missing[@]} -eq 0 ] && return 0
    echo "Installing: ${missing[*]}"
    local sudo=""
    [ "$(id -u)" -eq 0 ] || sudo="sudo"
    $sudo apt-get update -qq
    DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
}

build() {
    local preset=$1
    cmake --preset "$preset" >/dev/null
    cmake --build --preset "$preset" -j "$(nproc)"
}

case "${1:-}" in
deps)
    install_missing
    ;;
run)
    install_missing
    build release
    shift
    build/release/TestHost/testhost "$@"
    ;;
test)
    install_missing
    command -v node >/dev/null && command -v npm >/dev/null ||
        echo "No node or npm: CTest skips the TypeScript examples (TypeScript.Examples)."
    build release
    ctest --preset release -j "$(nproc)"
    build asan
    ctest --preset asan -j "$(nproc)"
    # ThreadSanitizer: engines on several threads; builds only the thread tests and what they link.
    build tsan
    ctest --preset tsan
    build fuzz
    fuzz/run.sh build/fuzz 20
    ;;
fuzz)
    install_missing
    build fuzz
    fuzz/run.sh build/fuzz "${2:-20}"
    ;;
example)
    install_missing
    build release
    build/release/examples/lua_game_example examples/game/game.lua "${2:-1.1.0}"
    ;;
bench)
    install_missing
    build release
    bench/run_all.sh build/release
    ;;
*)
    echo "usage: tools/build.sh run [host options] | test | fuzz [SECONDS] | example [module version] | bench | deps" >&2
    exit 2
    ;;
esac
