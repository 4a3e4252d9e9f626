// Stops that come by signal: scripts run without Lua's hook until a stop is due, and the signal hooks whichever
// thread of the context runs at that moment.
#include "LuaTestSupport.h"

#include "Scripting/Runtime/Error.h"

#include <lua.hpp>

#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

using namespace Scripting;
using namespace LuaTest;
using namespace std::chrono_literals;

namespace
{
constexpr auto GUARD = 20s;
constexpr const char* INTERRUPTED = "Script interrupted by the host";

std::atomic<bool> sWaiting{false};
std::atomic<bool> sRelease{false};
std::atomic<int> sReturned{0};
Lua::LuaRuntime* sRuntime = nullptr;
ContextId sContextId{};

// Whether the Lua thread that calls it carries a hook right now.
int hooked(lua_State* state)
{
    lua_pushboolean(state, lua_gethook(state) != nullptr);
    return 1;
}

// Native code that runs until another thread lets it go.
int waitForRelease(lua_State* state)
{
    sWaiting.store(true);
    while (!sRelease.load())
    {
        std::this_thread::sleep_for(1ms);
    }
    ++sReturned;
    lua_pushinteger(state, 7);
    return 1;
}

// The stop signal with nothing due: a stray one, as another library might send.
int strayStopSignal(lua_State* state)
{
    pthread_kill(pthread_self(), Lua::DEFAULT_STOP_SIGNAL);
    lua_pushinteger(state, 1);
    return 1;
}

int interruptOwnContext(lua_State* state)
{
    sRuntime->interrupt(sContextId);
    lua_pushinteger(state, 1);
    return 1;
}

class LuaStopSignalTest : public LuaEngineTest
{
protected:
    void SetUp() override
    {
        if (Lua::DEFAULT_STOP_SIGNAL == 0)
        {
            GTEST_SKIP() << "no stop signal on this platform";
        }
        sWaiting.store(false);
        sRelease.store(false);
        sReturned.store(0);
    }

    void addFunctions(ScriptContext& target)
    {
        lua_State* state = mRuntime->getLuaState(target.getContextId());
        lua_register(state, "hooked", &hooked);
        lua_register(state, "waitForRelease", &waitForRelease);
        lua_register(state, "strayStopSignal", &strayStopSignal);
        lua_register(state, "interruptOwnContext", &interruptOwnContext);
    }

    void prepare(const Lua::LuaRuntimeSettings& settings)
    {
        configure(settings);
        addFunctions(context());
    }

    lua_State* mainState() { return mRuntime->getLuaState(context().getContextId()); }
};

struct HookCase
{
    const char* name;
    int stopSignal;
    bool interruptible;
    bool watchdog;
    uint64_t instructionLimit;
    // Whether the running threads carry a hook while nothing is due.
    bool hookedWhileRunning;
};

TEST_F(LuaStopSignalTest, HookIsSetOnlyWhereSomethingMustBeCounted)
{
    const HookCase cases[] = {
        {"interruptible, no watchdog", Lua::DEFAULT_STOP_SIGNAL, true, false, 0, false},
        {"default watchdog", Lua::DEFAULT_STOP_SIGNAL, true, true, 0, false},
        {"time budget, not interruptible", Lua::DEFAULT_STOP_SIGNAL, false, true, 0, false},
        {"nothing can stop it", Lua::DEFAULT_STOP_SIGNAL, false, false, 0, false},
        {"instruction budget", Lua::DEFAULT_STOP_SIGNAL, true, true, 1000000, true},
        {"no signal, default watchdog", 0, true, true, 0, true},
        {"no signal, interruptible", 0, true, false, 0, true},
        {"no signal, nothing can stop it", 0, false, false, 0, false},
    };
    for (const HookCase& hookCase : cases)
    {
        SCOPED_TRACE(hookCase.name);
        mContext.reset();
        Lua::LuaRuntimeSettings settings;
        settings.stopSignal = hookCase.stopSignal;
        settings.interruptible = hookCase.interruptible;
        prepare(settings);
        // Made before the watchdog: resumed, it takes the hook the context needs then.
        ASSERT_FALSE(
            run("early = coroutine.wrap(function() while true do coroutine.yield(hooked()) end end)").isError());
        if (hookCase.watchdog)
        {
            mRuntime->enableWatchdog(WatchdogSettings{0, hookCase.instructionLimit});
        }
        const ResultAny result = run("local inner = coroutine.wrap(function() return hooked() end) "
                                     "local a, b, c = hooked(), inner(), early() "
                                     "return (a and 1 or 0) + (b and 2 or 0) + (c and 4 or 0)");
        EXPECT_EQ(integer(result), hookCase.hookedWhileRunning ? 7 : 0);
        if (!hookCase.hookedWhileRunning)
        {
            EXPECT_EQ(lua_gethook(mainState()), nullptr) << "a hook left between runs";
        }
        mRuntime->disableWatchdog();
    }
}

// Every Lua thread a script can run on is reached: the main one, coroutines made before the watchdog, nested
// ones, those that yield all the time, those that close, and callbacks of native code inside coroutines.
TEST_F(LuaStopSignalTest, TimeBudgetStopsEveryThreadThatRuns)
{
    prepare({});
    ASSERT_FALSE(run("early = coroutine.create(function() while true do end end)").isError());
    mRuntime->enableWatchdog(WatchdogSettings{50, 0});
    const char* scripts[] = {
        "return coroutine.resume(early)",
        "coroutine.wrap(function() coroutine.wrap(function() while true do end end)() end)()",
        "local co = coroutine.wrap(function() while true do coroutine.yield() end end) while true do co() end",
        "local co = coroutine.create(function() local x <close> = setmetatable({}, {__close = function() "
        "while true do end end}) coroutine.yield() end) coroutine.resume(co) return coroutine.close(co)",
        "coroutine.wrap(function() require('@test/zoo').callTwice(function(v) while true do end end, 1) end)()",
        "local co = coroutine.wrap(function() error('x') end) local t = setmetatable({}, {__index = function() "
        "while true do end end}) return pcall(co), t.x",
    };
    for (const char* script : scripts)
    {
        SCOPED_TRACE(script);
        runGuarded(script, GUARD,
                   [&]
                   {
                       EXPECT_EQ(errorText(run(script)), "Script stopped by the watchdog: ran longer than 50 ms");
                       EXPECT_EQ(integer(run("return 40 + 2")), 42);
                   });
    }
    EXPECT_EQ(lua_gethook(mainState()), nullptr);
}

TEST_F(LuaStopSignalTest, InterruptWhileNativeCodeRunsStopsTheScriptWhenItIsBack)
{
    prepare({});
    sRuntime = mRuntime.get();
    const ContextId id = context().getContextId();
    const char* scripts[] = {
        "local n = waitForRelease() while true do n = n + 1 end",
        "coroutine.wrap(function() local n = waitForRelease() while true do n = n + 1 end end)()",
    };
    for (const char* script : scripts)
    {
        SCOPED_TRACE(script);
        sWaiting.store(false);
        sRelease.store(false);
        runGuarded(script, GUARD,
                   [&]
                   {
                       std::thread host(
                           [&]
                           {
                               while (!sWaiting.load())
                               {
                                   std::this_thread::sleep_for(1ms);
                               }
                               mRuntime->interrupt(id);
                               sRelease.store(true);
                           });
                       const ResultAny result = run(script);
                       host.join();
                       EXPECT_EQ(errorText(result), INTERRUPTED);
                   });
    }
    EXPECT_EQ(sReturned.load(), 2) << "the native function must finish before the stop";
    EXPECT_EQ(integer(run("return 40 + 2")), 42);
}

TEST_F(LuaStopSignalTest, SignalWithNothingDueChangesNothing)
{
    prepare({});
    mRuntime->enableWatchdog(WatchdogSettings{});
    runGuarded("stray signals", GUARD,
               [&]
               {
                   // No script anywhere on this thread, then between runs, then inside a running script.
                   pthread_kill(pthread_self(), Lua::DEFAULT_STOP_SIGNAL);
                   EXPECT_EQ(integer(run("return 40 + 2")), 42);
                   pthread_kill(pthread_self(), Lua::DEFAULT_STOP_SIGNAL);
                   EXPECT_EQ(lua_gethook(mainState()), nullptr);
                   const ResultAny result =
                       run("local n = 0 for i = 1, 5 do n = n + strayStopSignal() end "
                           "local co = coroutine.wrap(function() strayStopSignal() coroutine.yield(hooked()) end) "
                           "local inCoroutine = co() for i = 1, 1000 do n = n + 1 end "
                           "return (hooked() or inCoroutine) and -1 or n");
                   EXPECT_EQ(integer(result), 1005);
               });
    EXPECT_EQ(lua_gethook(mainState()), nullptr);
}

TEST_F(LuaStopSignalTest, ContextClosedWhileItsStopSignalIsPending)
{
    prepare({});
    sRuntime = mRuntime.get();
    sContextId = context().getContextId();
    runGuarded("pending stop signal", GUARD,
               [&]
               {
                   // The thread is known to take the signal from its first run on.
                   ASSERT_EQ(integer(run("return 1")), 1);
                   sigset_t blocked;
                   sigemptyset(&blocked);
                   sigaddset(&blocked, Lua::DEFAULT_STOP_SIGNAL);
                   ASSERT_EQ(pthread_sigmask(SIG_BLOCK, &blocked, nullptr), 0);
                   // The signal cannot arrive: the end of the entry still honours the request.
                   EXPECT_EQ(errorText(run("return interruptOwnContext()")), INTERRUPTED);
                   mContext.reset();
                   // Arrives now, with the context and its states gone.
                   ASSERT_EQ(pthread_sigmask(SIG_UNBLOCK, &blocked, nullptr), 0);
                   addFunctions(context());
                   EXPECT_EQ(integer(run("return 40 + 2")), 42);
                   EXPECT_EQ(lua_gethook(mainState()), nullptr);
               });
}

TEST_F(LuaStopSignalTest, ThreadThatBlocksTheSignalIsStoppedByTheHook)
{
    prepare({});
    mRuntime->enableWatchdog(WatchdogSettings{50, 0});
    runGuarded("signal blocked", GUARD,
               [&]
               {
                   sigset_t blocked;
                   sigemptyset(&blocked);
                   sigaddset(&blocked, Lua::DEFAULT_STOP_SIGNAL);
                   ASSERT_EQ(pthread_sigmask(SIG_BLOCK, &blocked, nullptr), 0);
                   EXPECT_EQ(integer(run("return hooked() and 1 or 0")), 1);
                   EXPECT_EQ(errorText(run("coroutine.wrap(function() while true do end end)()")),
                             "Script stopped by the watchdog: ran longer than 50 ms");
               });
}

// The table that the signal handler searches has a fixed number of places, one per thread that has run a script.
// More threads than that, one after another, each run without a hook: a thread that ends gives its place back,
// and the last of them is still stopped by the signal.
TEST_F(LuaStopSignalTest, ThreadsThatEndedLeaveTheirPlaceToLaterOnes)
{
    prepare({});
    mRuntime->enableWatchdog(WatchdogSettings{50, 0});
    constexpr int THREADS = 1100;
    int hookedThreads = 0;
    for (int index = 0; index < THREADS; ++index)
    {
        std::thread([&] { hookedThreads += static_cast<int>(integer(run("return hooked() and 1 or 0"))); }).join();
    }
    EXPECT_EQ(hookedThreads, 0);
    runGuarded("after many threads", GUARD,
               [&]
               {
                   EXPECT_EQ(integer(run("return hooked() and 1 or 0")), 0);
                   EXPECT_EQ(errorText(run("while true do end")),
                             "Script stopped by the watchdog: ran longer than 50 ms");
               });
}

// A forked child has no deadline thread of its own until it times an entry; the parent's one is gone with the
// fork.
TEST_F(LuaStopSignalTest, ForkedChildKeepsTheTimeBudget)
{
    prepare({});
    mRuntime->enableWatchdog(WatchdogSettings{50, 0});
    // A stop in the parent proves its deadline thread is past its start-up and asleep: a thread that allocates
    // while another forks leaves the child a locked allocator under ASan.
    ASSERT_EQ(errorText(run("while true do end")), "Script stopped by the watchdog: ran longer than 50 ms");
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0)
    {
        const bool stopped =
            errorText(run("while true do end")) == "Script stopped by the watchdog: ran longer than 50 ms";
        std::_Exit(stopped ? 0 : 1);
    }
    int status = 0;
    const auto giveUp = std::chrono::steady_clock::now() + GUARD;
    while (waitpid(child, &status, WNOHANG) == 0)
    {
        if (std::chrono::steady_clock::now() > giveUp)
        {
            kill(child, SIGKILL);
            waitpid(child, &status, 0);
            FAIL() << "the child's script was never stopped";
        }
        std::this_thread::sleep_for(5ms);
    }
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
}

// One deadline thread serves every runtime: budgets of several engines running at once on several threads each
// end their own script, at their own time.
TEST_F(LuaStopSignalTest, DeadlinesOfEnginesOnSeveralThreadsAreKeptApart)
{
    struct Engine : LuaEngineTest
    {
        void TestBody() override {}
        using LuaEngineTest::errorText;
        using LuaEngineTest::mRuntime;
        using LuaEngineTest::run;
    };
    constexpr std::array<uint32_t, 3> BUDGETS = {40, 120, 240};
    std::vector<std::unique_ptr<Engine>> engines;
    for (const uint32_t budget : BUDGETS)
    {
        engines.push_back(std::make_unique<Engine>());
        engines.back()->mRuntime->enableWatchdog(WatchdogSettings{budget, 0});
        ASSERT_EQ(LuaEngineTest::integer(engines.back()->run("return 1")), 1);
    }
    std::array<std::string, BUDGETS.size()> messages;
    std::array<std::chrono::steady_clock::duration, BUDGETS.size()> took{};
    runGuarded("engines on threads", GUARD,
               [&]
               {
                   std::vector<std::thread> threads;
                   for (size_t index = 0; index < BUDGETS.size(); ++index)
                   {
                       threads.emplace_back(
                           [&, index]
                           {
                               const auto start = std::chrono::steady_clock::now();
                               messages[index] = Engine::errorText(engines[index]->run("while true do end"));
                               took[index] = std::chrono::steady_clock::now() - start;
                           });
                   }
                   for (std::thread& thread : threads)
                   {
                       thread.join();
                   }
               });
    for (size_t index = 0; index < BUDGETS.size(); ++index)
    {
        EXPECT_EQ(messages[index],
                  "Script stopped by the watchdog: ran longer than " + std::to_string(BUDGETS[index]) + " ms");
        EXPECT_GE(took[index], std::chrono::milliseconds(BUDGETS[index]));
    }
    // The ordering of the budgets shows through with a margin larger than any stop latency here.
    EXPECT_LT(took[0] + 40ms, took[2]);
}
} // namespace
