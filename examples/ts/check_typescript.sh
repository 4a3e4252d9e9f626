#!/usr/bin/env bash
# The TypeScript examples end to end: declarations of both module versions, type checks (one that must fail),
# compilation with TypeScriptToLua, and each compiled script run beside game.lua with the same output.
#   check_typescript.sh LUA_GAME_EXAMPLE EXAMPLES_DIR WORK_DIR [ZOO_DECLARATIONS ZOO_SCRIPT]
# With the last two, a script using every kind of record of the zoo test module is type-checked, compiled and run.
# Exits 77 (CTest's skip) when node or npm is missing.
set -euo pipefail
if ! command -v node >/dev/null || ! command -v npm >/dev/null; then
    echo "skipped: node and npm are needed for the TypeScript examples (tools/build.sh deps installs them)"
    exit 77
fi
mkdir -p "$3"
example=$(realpath "$1")
source_dir=$(realpath "$2/ts")
lua_script=$(realpath "$2/game/game.lua")
work=$(realpath "$3")
zoo_tool=${4:+$(realpath "$4")}
zoo_script=${5:+$(realpath "$5")}

# The packages live in the build tree; npm's cache too, so a second run needs no network.
npm_dir=$work/npm
mkdir -p "$npm_dir"
if ! cmp -s "$source_dir/package-lock.json" "$npm_dir/package-lock.json" || [ ! -x "$npm_dir/node_modules/.bin/tstl" ]; then
    cp "$source_dir/package.json" "$source_dir/package-lock.json" "$npm_dir/"
    (cd "$npm_dir" && npm ci --prefer-offline --no-audit --no-fund --loglevel=error --cache "$work/npm-cache")
fi
tsc=$npm_dir/node_modules/.bin/tsc
tstl=$npm_dir/node_modules/.bin/tstl

for version in 1.0.0 1.1.0; do
    rm -rf "$work/declarations/$version"
    "$example" --declarations "$work/declarations/$version" "$version" >/dev/null
done

# A configuration per script and module version, on top of the example's own.
configure() {
    local name=$1 script=$2 version=$3 declarations=$work/declarations/$3/ts
    cat >"$work/$name.tsconfig.json" <<JSON
{
    "extends": "$source_dir/tsconfig.json",
    "compilerOptions": { "rootDir": "$source_dir", "outDir": "$work/lua/$version" },
    "include": [],
    "files": ["$source_dir/$script", "$source_dir/lua.d.ts", "$declarations/runtime.d.ts",
              "$declarations/example-game.d.ts", "$declarations/zentary-common.d.ts"]
}
JSON
    echo "$work/$name.tsconfig.json"
}

failures=0
fail() {
    echo "FAILED: $*"
    failures=$((failures + 1))
}

# Type checks: the 1.0 script holds for both versions, the 1.1 script only for 1.1.0.
for check in "game_1_0.ts 1.0.0" "game_1_0.ts 1.1.0" "game.ts 1.1.0"; do
    set -- $check
    if "$tsc" --noEmit -p "$(configure "check-${1%.ts}-$2" "$1" "$2")"; then
        echo "ok: $1 type-checks against $2"
    else
        fail "$1 against $2 does not type-check"
    fi
done
diagnostics=$("$tsc" --noEmit -p "$(configure check-game-1.0.0 game.ts 1.0.0)" 2>&1) && fail "game.ts type-checks against 1.0.0, which has no Entity:heal"
if grep -q "error TS2339: Property 'heal' does not exist on type 'Entity'" <<<"$diagnostics"; then
    echo "ok: game.ts against 1.0.0 fails with TypeScript's diagnostic:"
    grep "'heal'" <<<"$diagnostics" | sed 's/^/    /'
else
    fail "game.ts against 1.0.0 did not report the missing Entity.heal:"
    echo "$diagnostics"
fi

# Compile and run each against its version; the output must be game.lua's, line for line.
for run in "game_1_0 1.0.0" "game 1.1.0"; do
    set -- $run
    if ! "$tstl" -p "$(configure "build-$1-$2" "$1.ts" "$2")"; then
        fail "$1.ts did not compile against $2"
        continue
    fi
    expected=$("$example" "$lua_script" "$2" 2>&1) || fail "game.lua failed against $2"
    actual=$("$example" "$work/lua/$2/$1.lua" "$2" 2>&1) || fail "$1.lua failed against $2"
    if [ "$expected" == "$actual" ]; then
        echo "ok: $1.ts compiled and run against $2 prints what game.lua prints:"
        sed 's/^/    /' <<<"$actual"
    else
        fail "$1.lua against $2 differs from game.lua"
        diff <(echo "$expected") <(echo "$actual") || true
    fi
done

# The zoo module holds a record of every kind: its declarations must hold a script that uses each.
if [ -n "$zoo_tool" ] && [ -n "$zoo_script" ]; then
    zoo_declarations=$work/zoo-declarations
    rm -rf "$zoo_declarations"
    "$zoo_tool" "$zoo_declarations" 2
    cat >"$work/zoo.tsconfig.json" <<JSON
{
    "extends": "$source_dir/tsconfig.json",
    "compilerOptions": { "rootDir": "$(dirname "$zoo_script")", "outDir": "$work/lua/zoo" },
    "tstl": { "noResolvePaths": ["@test/zoo", "@zentary/common"] },
    "include": [],
    "files": ["$zoo_script", "$source_dir/lua.d.ts", "$zoo_declarations/ts/runtime.d.ts",
              "$zoo_declarations/ts/test-zoo.d.ts", "$zoo_declarations/ts/zentary-common.d.ts"]
}
JSON
    if "$tstl" -p "$work/zoo.tsconfig.json"; then
        # The calling conventions the declarations ask TypeScriptToLua for.
        zoo_lua=$work/lua/zoo/zoo.lua
        for expected in 'require("@test/zoo")' 'Counter.new(5)' 'Dog.new()' 'Promise.new()' 'Buffer.new(4)' \
                        'counter:increment(2)' 'Counter.twice(started.value)' 'callTwice(' 'function(value) return value * 2 end'; do
            grep -qF "$expected" "$zoo_lua" || fail "zoo.lua has no $expected"
        done
        if "$zoo_tool" --run "$zoo_lua"; then
            echo "ok: zoo.ts type-checks, compiles against the zoo's declarations and runs"
        else
            fail "the compiled zoo.lua fails"
        fi
    else
        fail "zoo.ts does not compile against the zoo's declarations"
    fi
fi

[ "$failures" -eq 0 ] || { echo "$failures check(s) failed"; exit 1; }
echo "all TypeScript checks passed"
