// Lua source against the example game module, in a fresh context per input, under the watchdog and a memory
// limit. Whatever the script does, the run ends in a value or an error within a hard guard, the context still
// answers `return 40 + 2`, and closing it leaves no entity alive and no Lua memory in use.
//
// The first byte chooses how the rest reads: with its low bit clear the rest is source text as it stands
// (syntax, the lexer, anything a person types); with it set the rest is a list of choices that builds a script
// from pieces that reach the runtime's risky places: metamethods, message handlers, coroutines, callbacks from
// native code, library functions that run long on small input, error objects, objects and their handles.
#include "FuzzSupport.h"

#include "GameModule.h"

#include "Scripting/BindingFactory/CommonModuleFactory.h"
#include "Scripting/Lua/LuaRuntime.h"
#include "Scripting/ScriptEngine/ScriptEngine.h"

#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <thread>

namespace
{
using namespace Scripting;

constexpr size_t MEMORY_LIMIT = 8u * 1024u * 1024u;
// The limit may be passed by one native result on its way into Lua; the module's results are small.
constexpr size_t RESULT_MARGIN = 64u * 1024u;
constexpr WatchdogSettings BUDGET{100, 500000};
// An input still running after this means the watchdog let a script through.
constexpr std::chrono::seconds GUARD{5};
// Nesting of generated functions and expressions: fixed, never read from the input.
constexpr int MAX_DEPTH = 3;

// When the input now running started, in milliseconds of the steady clock; 0 between inputs. A plain global,
// so that the watcher may read it at any time, also while the process exits.
std::atomic<int64_t> sInputStarted{0};

int64_t nowMilliseconds()
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

// Aborts the process when one input runs past the guard, so that a hang is a finding with its input also where
// libFuzzer's own -timeout is not in force (the replay of the seeds as a CTest).
void startHangGuard()
{
    std::thread(
        []
        {
            for (;;)
            {
                std::this_thread::sleep_for(std::chrono::milliseconds(100));
                const int64_t started = sInputStarted.load();
                if (started != 0 && nowMilliseconds() - started > GUARD.count() * 1000)
                {
                    std::fprintf(stderr, "an input ran longer than %lld s: the watchdog did not stop it\n",
                                 static_cast<long long>(GUARD.count()));
                    std::abort();
                }
            }
        })
        .detach();
}

constexpr std::array NUMBERS{"0",
                             "1",
                             "-1",
                             "2",
                             "7",
                             "100",
                             "1000",
                             "1e6",
                             "1e12",
                             "2^53",
                             "math.maxinteger",
                             "math.mininteger",
                             "math.huge",
                             "-math.huge",
                             "0/0",
                             "0.5",
                             "-2^31"};
constexpr std::array STRINGS{"''",
                             "'a'",
                             "'hero'",
                             "'%d'",
                             "'.-.-.-b'",
                             "'(a*)*b'",
                             "'%b()'",
                             "'%f[%w]'",
                             "'\\0'",
                             "string.rep('a', 5000)",
                             "string.rep('(', 300)",
                             "'\\u{10FFFF}'",
                             "'Red'",
                             "'Purple'"};
constexpr std::array NAMES{"a", "b", "t", "e", "v", "co", "p", "f"};
constexpr std::array FIELDS{"health",    "name", "team",    "position", "x", "damage",
                            "onDamaged", "new",  "__index", "message",  "1"};
constexpr std::array METAMETHODS{"__index", "__newindex",  "__call",   "__tostring", "__len", "__eq",
                                 "__lt",    "__le",        "__concat", "__add",      "__unm", "__close",
                                 "__name",  "__metatable", "__pairs",  "__mode"};
constexpr std::array PATTERNS{"'.-.-.-.-b'", "'a*a*a*b'",        "'(.-)(.-)(.-)b'", "'%b()%b()x'", "'%a+'",
                              "'()'",        "'[%z\\1-\\255]*'", "'(((((.)))))'",   "'%'"};
constexpr std::array LIBRARY{"string.rep",      "string.format",  "string.byte",    "string.char",
                             "string.sub",      "table.concat",   "table.unpack",   "table.move",
                             "table.insert",    "table.remove",   "table.sort",     "utf8.len",
                             "utf8.char",       "utf8.codepoint", "select",         "tostring",
                             "tonumber",        "rawlen",         "rawequal",       "next",
                             "ipairs",          "pairs",          "load",           "error",
                             "pcall",           "xpcall",         "coroutine.wrap", "coroutine.resume",
                             "coroutine.close", "setmetatable",   "getmetatable",   "collectgarbage",
                             "require",         "print",          "rawset"};

template <typename Pieces>
std::string pick(Fuzz::Input& input, const Pieces& pieces)
{
    return pieces[input.byte() % pieces.size()];
}

// Joins pieces in order. The pieces of a braced list are evaluated left to right, unlike the operands of +, so
// an input reads the same with every compiler.
std::string cat(std::initializer_list<std::string> pieces)
{
    std::string joined;
    for (const std::string& piece : pieces)
    {
        joined.append(piece);
    }
    return joined;
}

std::string statement(Fuzz::Input& input, int depth);

std::string expression(Fuzz::Input& input, int depth)
{
    const int choice = input.byte() % (depth >= MAX_DEPTH ? 4 : 18);
    const auto inner = [&input, depth] { return expression(input, depth + 1); };
    switch (choice)
    {
    case 0:
        return pick(input, NUMBERS);
    case 1:
        return pick(input, STRINGS);
    case 2:
        return pick(input, NAMES);
    case 3:
        return "{}";
    case 4:
        return cat({"{", inner(), ", ", inner(), ", k = ", inner(), "}"});
    case 5:
    {
        std::string body;
        const int count = 1 + input.byte() % 3;
        for (int index = 0; index < count; ++index)
        {
            body.append(statement(input, depth + 1)).append(" ");
        }
        return cat({"function(...) ", body, "end"});
    }
    case 6:
        return cat({inner(), " .. ", inner()});
    case 7:
        return cat({inner(), " + ", inner()});
    case 8:
        return cat({"#", inner()});
    case 9:
        return cat({pick(input, NAMES), ".", pick(input, FIELDS)});
    case 10:
        return cat({pick(input, NAMES), "[", inner(), "]"});
    case 11:
        return cat({"game.Entity.new(", inner(), ", ", inner(), ")"});
    case 12:
        return cat({"game.Vec3.new(", pick(input, NUMBERS), ", ", inner(), ", 0)"});
    case 13:
        return cat({pick(input, LIBRARY), "(", inner(), ", ", inner(), ", ", inner(), ")"});
    case 14:
        return cat({"setmetatable({}, {", pick(input, METAMETHODS), " = ", inner(), ", ", pick(input, METAMETHODS),
                    " = ", inner(), "})"});
    case 15:
        return cat({"(", inner(), input.byte() % 2 ? "):find(" : "):gsub(", pick(input, PATTERNS), ", ", inner(), ")"});
    case 16:
        return cat({"coroutine.create(", inner(), ")"});
    default:
        return cat({pick(input, NAMES), "(", inner(), ")"});
    }
}

std::string statement(Fuzz::Input& input, int depth)
{
    const auto value = [&input, depth] { return expression(input, depth); };
    const auto nested = [&input, depth] { return statement(input, depth + 1); };
    switch (input.byte() % 16)
    {
    case 0:
        return cat({pick(input, NAMES), " = ", value()});
    case 1:
        return cat({"local _ = ", value()});
    case 2:
        return cat({pick(input, NAMES), ".", pick(input, FIELDS), " = ", value()});
    case 3:
        return cat({"pcall(", value(), ", ", value(), ")"});
    case 4:
        return cat({"xpcall(", value(), ", ", value(), ")"});
    case 5:
        return cat({"for i = 1, ", pick(input, NUMBERS), " do ", depth < MAX_DEPTH ? nested() : "", " end"});
    case 6:
        return cat({"while ", value(), " do ", depth < MAX_DEPTH ? nested() : "", " end"});
    case 7:
        return cat({"e:onDamaged(", value(), ") e:damage(", pick(input, NUMBERS), ")"});
    case 8:
        return cat({"co = coroutine.create(", value(), ") coroutine.resume(co, ", value(), ")"});
    case 9:
        return cat({"local g <close> = ", value()});
    case 10:
        return cat({"error(", value(), ")"});
    case 11:
        return cat({input.byte() % 2 ? "table.move(t, " : "table.insert(t, ", pick(input, NUMBERS), ", ",
                    pick(input, NUMBERS), ", ", value(), ")"});
    case 12:
        return cat({"p = Promise.new() p:next(", value(), ") p:resolve(", value(), ")"});
    case 13:
        return "collectgarbage()";
    case 14:
        return cat({"coroutine.wrap(", value(), ")()"});
    default:
        return cat({"return ", value()});
    }
}

std::string generate(Fuzz::Input& input)
{
    std::string source = "local game = require('@example/game')\n"
                         "local e, v, t = game.Entity.new('hero'), game.Vec3.new(1, 2, 3), {1, 2, 3}\n"
                         "local a, b, co, p, f = {}, 'b', nil, nil, print\n";
    // Each statement under its own pcall, so that one failing leaves the next ones to run.
    while (!input.exhausted())
    {
        source.append("pcall(function() ").append(statement(input, 0)).append(" end)\n");
    }
    return source;
}

Lua::LuaRuntimeSettings fuzzSettings()
{
    Lua::LuaRuntimeSettings settings;
    settings.memoryLimitBytes = MEMORY_LIMIT;
    settings.printHandler = [](ContextId, std::string_view) {};
    return settings;
}

struct Fixture
{
    Fixture() : runtime(std::make_shared<Lua::LuaRuntime>(engine.getRegistryManager(), fuzzSettings()))
    {
        runtime->enableWatchdog(BUDGET);
        engine.setRuntimeFactory([this](const ContextConfig&, const std::vector<ModuleDescriptor>&)
                                 { return runtime; });
        engine.addModuleBindingFactory(std::make_unique<CommonModuleFactory>());
        engine.addModuleBindingFactory(Game::makeGameModuleFactory());
        startHangGuard();
    }

    ScriptEngine engine;
    std::shared_ptr<Lua::LuaRuntime> runtime;
};

const ModuleDescriptor REQUESTER{"fuzz", quv::UUID{0x6c7561ull, 0x66757a7aull}, Version(1, 0, 0), false};
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static Fixture fixture;
    Fuzz::Input input(data, size);
    const bool raw = (input.byte() & 1u) == 0;
    const std::string source = raw ? std::string(input.rest()) : generate(input);
    // To see what a reproducer runs: LUA_FUZZ_PRINT=1 fuzz_lua_script FILE
    static const bool print = std::getenv("LUA_FUZZ_PRINT") != nullptr;
    if (print)
    {
        std::fprintf(stderr, "%s\n", source.c_str());
    }

    const int entitiesBefore = Game::Entity::sAlive;
    const uint64_t memoryBefore = fixture.runtime->computeRuntimeStats().memoryUsedBytes;
    sInputStarted.store(nowMilliseconds());
    {
        const ModuleDescriptor game{Game::MODULE_NAME, Game::MODULE_UUID, Version(1, 1, 0), false};
        ScriptContextResult created = fixture.engine.createScriptingContext(ContextConfig("lua", "", REQUESTER),
                                                                            REQUESTER, {game}, nullptr, nullptr);
        FUZZ_CHECK(created.context.has_value());
        StringPayload payload(source, "fuzz.lua");
        const ResultAny result = created.context->run(&payload);
        if (const Error* error = result.tryGetError())
        {
            FUZZ_CHECK(!error->message.empty());
        }
        StringPayload probe("return 40 + 2", "probe.lua");
        const ResultAny answer = created.context->run(&probe);
        const int64_t* number = answer.any().try_cast<const int64_t>();
        FUZZ_CHECK(number != nullptr && *number == 42);
        const std::optional<Lua::LuaContextStats> stats =
            fixture.runtime->computeContextStats(created.context->getContextId());
        FUZZ_CHECK(stats.has_value() && stats->memoryPeakBytes <= MEMORY_LIMIT + RESULT_MARGIN);
    }
    sInputStarted.store(0);
    FUZZ_CHECK(Game::Entity::sAlive == entitiesBefore);
    FUZZ_CHECK(fixture.runtime->computeRuntimeStats().memoryUsedBytes == memoryBefore);
    return 0;
}
