// Engines on several threads at once, and interrupts from a thread that does not run the script.
#include "LuaTestSupport.h"

#include <array>
#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

using namespace Scripting;
using namespace LuaTest;
using namespace std::chrono_literals;

namespace
{
constexpr int THREADS = 4;
constexpr int CONTEXTS_PER_THREAD = 8;

// Everything a worker makes is its own: engine, runtime, module factories, contexts.
struct Worker
{
    ScriptEngine engine;
    std::shared_ptr<Lua::LuaRuntime> runtime;

    Worker()
    {
        runtime = std::make_shared<Lua::LuaRuntime>(engine.getRegistryManager());
        engine.setRuntimeFactory([this](const ContextConfig&, const std::vector<ModuleDescriptor>&)
                                 { return runtime; });
        engine.addModuleBindingFactory(std::make_unique<CommonModuleFactory>());
        engine.addModuleBindingFactory(makeZooFactory());
    }

    std::optional<ScriptContext> makeContext()
    {
        const ContextConfig config("lua", "", REQUESTER, true, {}, VersionSelection::HighestSatisfying);
        ScriptContextResult result =
            engine.createScriptingContext(config, REQUESTER, {zoo(Version(1, 0, 0))}, nullptr, nullptr);
        return std::move(result.context);
    }
};

ResultAny runIn(ScriptContext& context, const std::string& source)
{
    StringPayload payload(source, "thread.lua");
    return context.run(&payload);
}

std::string messageOf(const ResultAny& result)
{
    const Error* error = result.tryGetError();
    return error != nullptr ? error->name + ": " + error->message : "<no error>";
}
} // namespace

TEST(LuaThreads, EnginesMadeAtOnceOnSeveralThreadsAreIndependent)
{
    runGuarded("engines on threads", 120s,
               []
               {
                   std::atomic<int> ready{0};
                   std::atomic<int> failures{0};
                   std::atomic<int> stoppedLoops{0};
                   std::atomic<bool> stopperDone{false};
                   std::array<std::atomic<Lua::LuaRuntime*>, THREADS> runtimes{};
                   // Interrupts every runtime it can see until each worker's endless loop was stopped.
                   std::thread stopper(
                       [&]
                       {
                           while (stoppedLoops.load() < THREADS)
                           {
                               for (auto& runtime : runtimes)
                               {
                                   if (Lua::LuaRuntime* seen = runtime.load())
                                   {
                                       seen->interrupt();
                                   }
                               }
                               std::this_thread::sleep_for(1ms);
                           }
                           stopperDone.store(true);
                       });
                   std::vector<std::thread> threads;
                   for (int index = 0; index < THREADS; ++index)
                   {
                       threads.emplace_back(
                           [&, index]
                           {
                               // All start constructing together, so that first-time registrations collide.
                               ready.fetch_add(1);
                               while (ready.load() < THREADS)
                               {
                                   std::this_thread::yield();
                               }
                               Worker worker;
                               worker.runtime->enableWatchdog(WatchdogSettings{5000, 0});
                               std::vector<ScriptContext> contexts;
                               for (int made = 0; made < CONTEXTS_PER_THREAD; ++made)
                               {
                                   std::optional<ScriptContext> context = worker.makeContext();
                                   if (!context.has_value())
                                   {
                                       failures.fetch_add(1);
                                       continue;
                                   }
                                   const int start = index * 100 + made;
                                   const ResultAny result =
                                       runIn(*context, "local zoo = require('@test/zoo') local c = zoo.Counter(" +
                                                           std::to_string(start) +
                                                           ") c:increment(1) "
                                                           "return c.value + #string.rep('ab', 10):gsub('a', 'xy')");
                                   const int64_t* value = result.any().try_cast<const int64_t>();
                                   if (value == nullptr || *value != start + 1 + 30)
                                   {
                                       failures.fetch_add(1);
                                   }
                                   contexts.push_back(std::move(*context));
                               }
                               runtimes[index].store(worker.runtime.get());
                               if (!contexts.empty() && messageOf(runIn(contexts.front(), "while true do end")) !=
                                                            "InterruptError: Script interrupted by the host")
                               {
                                   failures.fetch_add(1);
                               }
                               stoppedLoops.fetch_add(1);
                               // The stopper may still hold this runtime.
                               while (!stopperDone.load())
                               {
                                   std::this_thread::yield();
                               }
                           });
                   }
                   for (std::thread& thread : threads)
                   {
                       thread.join();
                   }
                   stopper.join();
                   EXPECT_EQ(failures.load(), 0);
               });
}

TEST(LuaThreads, InterruptFromAnotherThreadStopsTheRunningScript)
{
    runGuarded("interrupt from another thread", 60s,
               []
               {
                   Worker worker;
                   std::optional<ScriptContext> context = worker.makeContext();
                   ASSERT_TRUE(context.has_value());
                   const ContextId id = context->getContextId();
                   // Nothing runs: a no-op, the next run is not affected.
                   worker.runtime->interrupt(id);
                   worker.runtime->interrupt();
                   ASSERT_EQ(runIn(*context, "return 40 + 2").any().cast<int64_t>(), 42);

                   for (const bool wholeRuntime : {false, true})
                   {
                       std::atomic<bool> finished{false};
                       ResultAny result;
                       std::thread runner(
                           [&]
                           {
                               result = runIn(*context, "local n = 0 while true do n = n + 1 end");
                               finished.store(true);
                           });
                       // The script may not have started yet: ask again until it ends.
                       while (!finished.load())
                       {
                           if (wholeRuntime)
                           {
                               worker.runtime->interrupt();
                           }
                           else
                           {
                               worker.runtime->interrupt(id);
                           }
                           std::this_thread::sleep_for(1ms);
                       }
                       runner.join();
                       EXPECT_EQ(messageOf(result), "InterruptError: Script interrupted by the host");
                       EXPECT_EQ(runIn(*context, "return 40 + 2").any().cast<int64_t>(), 42);
                   }
               });
}
