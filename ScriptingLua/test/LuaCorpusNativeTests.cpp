// Hostile cases that need native code in the middle: objects destroyed by the host while a script holds them,
// objects and closures carried from one context into another, and a host that interrupts scripts of every
// runaway shape from another thread. Each runs in a child process under the same guard as the corpus.
#include "ChildGuard.h"
#include "GameModule.h"
#include "ZooModule.h"

#include "Scripting/BindingFactory/CommonModuleFactory.h"
#include "Scripting/Lua/LuaRuntime.h"
#include "Scripting/ScriptEngine/ScriptEngine.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

using namespace Scripting;
using namespace std::chrono_literals;

namespace LuaTest::Corpus
{
namespace
{
const ModuleDescriptor REQUESTER{"corpus-native", quv::UUID{0x7c0a9a5e11aa22bcull, 0x33cc44dd55ee6600ull},
                                 Version(1, 0, 0), false};

// A runtime with both modules; the report of each check collects in `report`.
struct Host
{
    explicit Host(WatchdogSettings budget = {100, 0})
    {
        Lua::LuaRuntimeSettings settings;
        settings.memoryLimitBytes = 32u * 1024u * 1024u;
        settings.printHandler = [](ContextId, std::string_view) {};
        runtime = std::make_shared<Lua::LuaRuntime>(engine.getRegistryManager(), std::move(settings));
        if (budget.timeoutMilliseconds != 0 || budget.instructionLimit != 0)
        {
            runtime->enableWatchdog(budget);
        }
        engine.setRuntimeFactory([this](const ContextConfig&, const std::vector<ModuleDescriptor>&)
                                 { return runtime; });
        engine.addModuleBindingFactory(std::make_unique<CommonModuleFactory>());
        engine.addModuleBindingFactory(Game::makeGameModuleFactory());
        engine.addModuleBindingFactory(makeZooFactory());
    }

    std::optional<ScriptContext> makeContext()
    {
        const ModuleDescriptor game{Game::MODULE_NAME, Game::MODULE_UUID, Version(1, 1, 0), false};
        const ModuleDescriptor zoo{MODULE_NAME, MODULE_UUID, Version(2, 0, 0), false};
        ScriptContextResult created = engine.createScriptingContext(ContextConfig("lua", "", REQUESTER), REQUESTER,
                                                                    {game, zoo}, nullptr, nullptr);
        if (!created.context)
        {
            report += "no context: " + created.getErrorText() + "\n";
        }
        return std::move(created.context);
    }

    static ResultAny run(ScriptContext& context, const std::string& source)
    {
        StringPayload payload(source, "native.lua");
        return context.run(&payload);
    }

    static std::string outcome(const ResultAny& result)
    {
        if (const Error* error = result.tryGetError())
        {
            return "error " + error->name + ": " + error->message;
        }
        if (const auto* number = result.any().try_cast<const int64_t>())
        {
            return std::to_string(*number);
        }
        return result.any() ? "a value" : "nil";
    }

    void expectValue(ScriptContext& context, const std::string& source, int64_t expected, const char* when)
    {
        const std::string got = outcome(run(context, source));
        if (got != std::to_string(expected))
        {
            report += fmt::format("{}: `{}` gave {}, not {}\n", when, source, got, expected);
        }
    }

    void expectError(const ResultAny& result, const std::string& part, const char* when)
    {
        const std::string got = outcome(result);
        if (!got.starts_with("error") || got.find(part) == std::string::npos)
        {
            report += fmt::format("{}: expected an error holding \"{}\", got {}\n", when, part, got);
        }
    }

    ScriptEngine engine;
    std::shared_ptr<Lua::LuaRuntime> runtime;
    std::string report;
};

// Both counters of native objects back where they were: nothing a script made outlives its context.
std::string leftOver(int countersBefore, int entitiesBefore)
{
    if (Counter::sAlive == countersBefore && Game::Entity::sAlive == entitiesBefore)
    {
        return {};
    }
    return fmt::format("{} counters and {} entities outlived their contexts\n", Counter::sAlive - countersBefore,
                       Game::Entity::sAlive - entitiesBefore);
}

TEST(LuaCorpusNative, ObjectDestroyedByTheHostWhileAScriptHoldsIt)
{
    const std::string report = runGuarded(
        []
        {
            const int counters = Counter::sAlive;
            const int entities = Game::Entity::sAlive;
            std::string text;
            {
                Host host;
                std::optional<ScriptContext> context = host.makeContext();
                if (!context)
                {
                    return host.report;
                }
                // The host reaches the object through a closure the script gave it.
                host.expectValue(*context,
                                 "local zoo = require('@test/zoo') held = zoo.Counter(5) alias = held "
                                 "zoo.remember(function() return held end) return held.value",
                                 5, "setup");
                const ResultAny handed = sRemembered->call(nullptr, 0, Reflection::resolve<StrongObjectHandle>(), {});
                const StrongObjectHandle* handle = handed.any().try_cast<const StrongObjectHandle>();
                if (handle == nullptr)
                {
                    return host.report + "the closure did not hand over the object: " + Host::outcome(handed) + "\n";
                }
                context->getLifetimeRegistry()->destroyObject(handle->getHandle());
                sRemembered.reset();
                host.expectError(Host::run(*context, "return held.value"), "destroyed by native code", "read");
                host.expectError(Host::run(*context, "return alias:increment(1)"), "destroyed by native code",
                                 "method");
                host.expectError(Host::run(*context, "return require('@test/zoo').counterValue(held)"),
                                 "destroyed by native code", "argument");
                host.expectValue(*context, "held, alias = nil, nil collectgarbage() return 40 + 2", 42, "afterwards");
                text = host.report;
            }
            return text + leftOver(counters, entities);
        });
    EXPECT_EQ(report, "");
}

TEST(LuaCorpusNative, ObjectsAndClosuresCarriedAcrossContexts)
{
    const std::string report = runGuarded(
        []
        {
            const int counters = Counter::sAlive;
            const int entities = Game::Entity::sAlive;
            std::string text;
            {
                Host host;
                std::optional<ScriptContext> first = host.makeContext();
                std::optional<ScriptContext> second = host.makeContext();
                if (!first || !second)
                {
                    return host.report;
                }
                host.expectValue(*first,
                                 "local zoo = require('@test/zoo') held = zoo.Counter(7) "
                                 "zoo.remember(function() return held end) return 1",
                                 1, "first context");
                const ClosureAny fromFirst = *sRemembered;
                ResultAny handed = fromFirst.call(nullptr, 0, Reflection::resolve<StrongObjectHandle>(), {});
                const StrongObjectHandle* object = handed.any().try_cast<const StrongObjectHandle>();
                if (object == nullptr)
                {
                    return host.report + "the first context's closure gave " + Host::outcome(handed) + "\n";
                }
                // The second context's script receives the first context's object from the host.
                host.expectValue(*second,
                                 "local zoo = require('@test/zoo') zoo.remember(function(c) kept = c "
                                 "local ok, value = pcall(function() return c.value end) return ok and value or -1 "
                                 "end) return 1",
                                 1, "second context");
                const ClosureAny inSecond = *sRemembered;
                const auto callSecond = [&inSecond, object]
                {
                    entt::meta_any argument{Reflection::context(), *object};
                    return inSecond.call(&argument, 1, Reflection::resolve<int64_t>(), {});
                };
                const std::string whileAlive = Host::outcome(callSecond());
                if (whileAlive != "7" && !whileAlive.starts_with("error"))
                {
                    host.report += "the object of another context read as " + whileAlive + "\n";
                }
                // The first context closes while the second holds its object and the host its closure.
                first.reset();
                handed = ResultAny();
                object = nullptr;
                const ResultAny stale = fromFirst.call(nullptr, 0, Reflection::resolve<StrongObjectHandle>(), {});
                if (!stale.isError())
                {
                    host.report += "a closure of a closed context still answers: " + Host::outcome(stale) + "\n";
                }
                host.expectValue(*second,
                                 "return kept == nil and 0 or (pcall(function() return kept.value end) and 1 or 2)",
                                 whileAlive == "7" ? 2 : 0, "the carried object after its context closed");
                host.expectValue(*second, "kept = nil collectgarbage() return 40 + 2", 42, "afterwards");
                sRemembered.reset();
                text = host.report;
            }
            return text + leftOver(counters, entities);
        });
    EXPECT_EQ(report, "");
}

struct RunawayShape
{
    const char* name;
    const char* setup; // run before, without the interrupt
    const char* script;
};

// Every runaway shape ends when the host interrupts it from another thread, with no watchdog at all.
TEST(LuaCorpusNative, InterruptFromAnotherThreadStopsEveryRunawayShape)
{
    for (const RunawayShape& shape : {
             RunawayShape{"loop", "", "while true do end"},
             RunawayShape{"message handler", "", "return xpcall(error, function() while true do end end)"},
             RunawayShape{"pcall swallowing", "", "while true do pcall(function() while true do end end) end"},
             RunawayShape{"pattern", "", "return string.rep('a', 20000):find('.-.-.-.-b')"},
             RunawayShape{"table range", "", "return table.move({}, 1, 1e12, 2)"},
             RunawayShape{"coroutine made earlier", "co = coroutine.create(function() while true do end end)",
                          "return coroutine.resume(co)"},
             RunawayShape{"native callback", "",
                          "return require('@test/zoo').callTwice(function() while true do end end, 1)"},
             RunawayShape{"listener",
                          "e = require('@example/game').Entity.new('a') e:onDamaged(function() while "
                          "true do end end)",
                          "e:damage(1)"},
             RunawayShape{"close handler", "",
                          "local g <close> = setmetatable({}, {__close = function() while true do end end}) "
                          "error('x')"},
         })
    {
        const std::string report = runGuarded(
            [&shape]
            {
                const int counters = Counter::sAlive;
                const int entities = Game::Entity::sAlive;
                std::string text;
                {
                    Host host(WatchdogSettings{0, 0});
                    std::optional<ScriptContext> context = host.makeContext();
                    if (!context)
                    {
                        return host.report;
                    }
                    if (*shape.setup != '\0' && Host::run(*context, shape.setup).isError())
                    {
                        return std::string("the setup failed\n");
                    }
                    std::atomic<bool> finished{false};
                    ResultAny result;
                    const auto start = std::chrono::steady_clock::now();
                    std::thread runner(
                        [&]
                        {
                            result = Host::run(*context, shape.script);
                            finished.store(true);
                        });
                    // An interrupt while nothing runs is dropped, so ask until the run has ended.
                    std::this_thread::sleep_for(20ms);
                    while (!finished.load())
                    {
                        host.runtime->interrupt(context->getContextId());
                        std::this_thread::sleep_for(5ms);
                    }
                    runner.join();
                    const auto elapsed = std::chrono::steady_clock::now() - start;
                    host.expectError(result, "Script interrupted by the host", shape.name);
                    if (elapsed > 2s)
                    {
                        host.report +=
                            fmt::format("{}: stopped only after {} ms\n", shape.name,
                                        std::chrono::duration_cast<std::chrono::milliseconds>(elapsed).count());
                    }
                    host.expectValue(*context, "e = nil co = nil return 40 + 2", 42, shape.name);
                    text = host.report;
                }
                return text + leftOver(counters, entities);
            },
            20s);
        EXPECT_EQ(report, "") << shape.name;
    }
}
} // namespace
} // namespace LuaTest::Corpus
