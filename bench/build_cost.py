#!/usr/bin/env python3
"""What a binding costs at build time.

Generates an API of N classes (a constructor, two properties, four methods taking int, float, const std::string&
and another class) and N free functions, binds all of it in one translation unit, compiles it with g++ -O2 and
links a program that runs a Lua script against it. Reports compile seconds, the compiler's peak memory and the
stripped executable's size, per class and against a hand-written Lua program linked the same way (the fixed overhead).
Both programs are linked as the package tells its consumers to (the linker options of its pkg-config file).

    bench/build_cost.py [--build build/release] [--counts 10,50,200]

Needs a Release build of the libraries (tools/build.sh run builds one) and GNU time (/usr/bin/time).
"""
import argparse
import json
import os
import re
import shlex
import subprocess
import sys
import tempfile
import time

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))

PROLOGUE = """#include "Scripting/BindingFactory/CommonModuleFactory.h"
#include "Scripting/BindingFactory/GenericModuleBindingFactory.h"
#include "Scripting/BindingType/ClassBindingBuilder.h"
#include "Scripting/Lua/LuaRuntime.h"
#include "Scripting/ScriptEngine/ScriptEngine.h"

#include <cstdio>
#include <string>

using namespace Scripting;
"""

MAIN = """
int main()
{
    ScriptEngine engine;
    auto runtime = std::make_shared<Lua::LuaRuntime>(engine.getRegistryManager());
    engine.setRuntimeFactory([runtime](const ContextConfig&, const std::vector<ModuleDescriptor>&) { return runtime; });
    engine.addModuleBindingFactory(std::make_unique<CommonModuleFactory>());
    auto factory = std::make_unique<GenericModuleBindingFactory>("gen", quv::UUID{1, 2});
    factory->addVersionedModuleBinding(
        Version(1, 0, 0), [](ModuleBindingBuilder& builder, const std::optional<ContextConfig>&) { return describe(builder); },
        CommonModuleFactory::LATEST_VERSION, {}, false);
    engine.addModuleBindingFactory(std::move(factory));
    const ModuleDescriptor app{"app", quv::UUID{3, 4}, Version(1, 0, 0), false};
    const ModuleDescriptor gen{"gen", quv::UUID{1, 2}, Version(1, 0, 0), false};
    ScriptContextResult created = engine.createScriptingContext(ContextConfig("lua", "", app), app, {gen}, nullptr, nullptr);
    if (!created.context.has_value())
    {
        return 1;
    }
    StringPayload payload(SCRIPT, "gen.lua");
    const ResultAny result = created.context->run(&payload);
    return result.tryGetError() == nullptr ? 0 : 1;
}
"""

HAND_WRITTEN = """#include <lua.hpp>

int main()
{
    lua_State* state = luaL_newstate();
    luaL_openlibs(state);
    const int status = luaL_dostring(state, "return 1");
    lua_close(state);
    return status;
}
"""


def generate(count):
    out = [PROLOGUE]
    for i in range(count):
        other = (i + 1) % count
        out.append(f"struct C{other};\n" if other > i else "")
        out.append(f"""struct C{i}
{{
    explicit C{i}(int start) : a(start) {{}}
    int a = 0;
    float b = 0.0f;
    int add(int x) {{ return a += x; }}
    float scale(float x) {{ return b *= x; }}
    int length(const std::string& s) const {{ return static_cast<int>(s.size()) + a; }}
    int take(const struct C{other}& other) const;
}};
int f{i}(int x, float y) {{ return x + static_cast<int>(y) + {i}; }}
""")
    for i in range(count):
        other = (i + 1) % count
        out.append(f"int C{i}::take(const C{other}& other) const {{ return a + other.a; }}\n")
    out.append("std::optional<ModuleBinding> describe(ModuleBindingBuilder& builder)\n{\n")
    for i in range(count):
        other = (i + 1) % count
        out.append(f"""    {{
        ClassBindingBuilder<C{i}> c("C{i}");
        c.constructor([](WeakLifetimeScope& scope, int start) {{ return scope.makeObject<C{i}>(start); }},
                      ArgumentBindingBuilder<int>("start"));
        c.property<&C{i}::a>("a");
        c.property<&C{i}::b>("b");
        c.method<&C{i}::add>("add", ArgumentBindingBuilder<int>("x"));
        c.method<&C{i}::scale>("scale", ArgumentBindingBuilder<float>("x"));
        c.method<&C{i}::length>("length", ArgumentBindingBuilder<const std::string&>("s"));
        c.method<&C{i}::take>("take", ArgumentBindingBuilder<const C{other}&>("other"));
        builder.classBinding(c.finish());
        builder.function<&f{i}>("f{i}", ArgumentBindingBuilder<int>("x"), ArgumentBindingBuilder<float>("y"));
    }}
""")
    out.append("    return builder.build(true, {}, RuntimeConditions{});\n}\n")
    out.append('constexpr const char* SCRIPT = "local gen = require(\\"gen\\")\\n'
               'local c = gen.C0.new(1)\\nreturn c:add(gen.f0(1, 2.0))";\n')
    out.append(MAIN)
    return "".join(out)


def flags(build):
    with open(os.path.join(build, "compile_commands.json")) as f:
        commands = json.load(f)
    for entry in commands:
        if entry["file"].endswith("examples/game/main.cpp"):
            args = shlex.split(entry["command"])
            keep = [a for a in args[1:] if a.startswith(("-I", "-D", "-std=", "-f"))]
            return args[0], keep
    sys.exit("no compile command for examples/game/main.cpp: build the Release preset with SCRIPTING_LUA on first")


def package_link_flags(build):
    """The linker options that the package hands its consumers (pkg-config's Libs, as the CMake targets do)."""
    with open(os.path.join(build, "package", "scripting.pc")) as f:
        for line in f:
            if line.startswith("Libs:"):
                return [flag for flag in line.split()[1:] if flag.startswith("-Wl,")]
    return []


def measured(command):
    """Runs `command` under GNU time; returns (wall seconds, peak kilobytes)."""
    start = time.monotonic()
    done = subprocess.run(["/usr/bin/time", "-f", "peak %M"] + command, capture_output=True, text=True)
    elapsed = time.monotonic() - start
    if done.returncode != 0:
        sys.exit(f"failed: {' '.join(command)}\n{done.stderr[-4000:]}")
    peak = int(re.findall(r"peak (\d+)", done.stderr)[-1])
    return elapsed, peak


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", default=os.path.join(ROOT, "build", "release"))
    parser.add_argument("--counts", default="10,50,200")
    options = parser.parse_args()
    compiler, compile_flags = flags(options.build)
    compile_flags = [f for f in compile_flags if not f.startswith("-O")] + ["-O2", "-DNDEBUG"]
    compile_flags += subprocess.check_output(["pkg-config", "--cflags", "lua5.4"], text=True).split()
    libs = [os.path.join(options.build, path) for path in (
        "ScriptingLua/libScriptingLua.a", "Scripting/libScripting.a", "Platform/libScriptingPlatform.a")]
    libs += subprocess.check_output(["pkg-config", "--libs", "lua5.4"], text=True).split() + ["-lfmt"]
    libs += package_link_flags(options.build)

    with tempfile.TemporaryDirectory() as work:
        hand = os.path.join(work, "hand.cpp")
        with open(hand, "w") as f:
            f.write(HAND_WRITTEN)
        measured([compiler] + compile_flags + [hand, "-s", "-o", hand + ".out"] + libs)
        hand_size = os.path.getsize(hand + ".out")
        rows = []
        for count in [int(c) for c in options.counts.split(",")]:
            source = os.path.join(work, f"gen{count}.cpp")
            with open(source, "w") as f:
                f.write(generate(count))
            seconds, peak = measured([compiler] + compile_flags + ["-c", source, "-o", source + ".o"])
            measured([compiler, source + ".o", "-s", "-o", source + ".out"] + libs)
            if subprocess.run([source + ".out"]).returncode != 0:
                sys.exit(f"the generated program for {count} classes failed")
            rows.append((count, seconds, peak, os.path.getsize(source + ".out")))

    print(f"hand-written Lua program: {hand_size / 1024:.0f} KiB")
    print("| classes | compile s | s per class | peak compiler MiB | MiB per class | executable KiB | "
          "KiB per class (marginal) |")
    print("|---:|---:|---:|---:|---:|---:|---:|")
    previous = None
    for count, seconds, peak, size in rows:
        marginal = "" if previous is None else f"{(size - previous[3]) / (count - previous[0]) / 1024:.1f}"
        print(f"| {count} | {seconds:.1f} | {seconds / count:.2f} | {peak / 1024:.0f} | {peak / 1024 / count:.1f} | "
              f"{size / 1024:.0f} | {marginal} |")
        previous = (count, seconds, peak, size)
    if len(rows) >= 2:
        (n0, _, _, s0), (n1, _, _, s1) = rows[0], rows[1]
        per_class = (s1 - s0) / (n1 - n0)
        fixed = s0 - n0 * per_class - hand_size
        print(f"fixed overhead of the library and the Lua runtime over the hand-written program: {fixed / 1024:.0f} KiB")


if __name__ == "__main__":
    main()
