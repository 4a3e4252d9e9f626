// What the Lua sandbox costs and how fast it stops a script, each beside a baseline in the same run:
// - a tight arithmetic loop and a loop of native calls, on a bare lua_State, in a context that cannot be stopped
//   (not interruptible, no watchdog), in a default context without the watchdog (interrupts come by signal), with
//   the default watchdog, and with the default watchdog and no stop signal (the count hook looks for stops);
// - stop latency per shape of runaway script: how long after its time budget ran out a script is back in
//   native code (interrupts: after interrupt() was called on another thread), as median, 95th percentile and
//   maximum over repeated stops, in milliseconds.
#include "Scripting/BindingFactory/CommonModuleFactory.h"
#include "Scripting/Lua/LuaRuntime.h"
#include "Scripting/Runtime/ScriptClosure.h"
#include "Scripting/ScriptEngine/ScriptEngine.h"

#include <benchmark/benchmark.h>
#include <lua.hpp>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <optional>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

using namespace Scripting;

namespace
{
constexpr const char* ARITHMETIC = "local s = 0 for i = 1, 200000 do s = (s + i * 3) % 1000003 end return s";
constexpr const char* NATIVE_CALLS =
    "local add = require('@bench/sandbox').add local s = 0 for i = 1, 50000 do s = add(s, i) % 1000003 end return s";
// Small, so that the bench is short; latency is measured past it.
constexpr uint32_t BUDGET_MS = 20;
constexpr int STOPS = 25;

std::atomic<bool> sStarted{false};

int add(int a, int b)
{
    return a + b;
}

int bareAdd(lua_State* state)
{
    lua_pushinteger(state, lua_tointeger(state, 1) + lua_tointeger(state, 2));
    return 1;
}

class Fixture
{
public:
    explicit Fixture(Lua::LuaRuntimeSettings settings = {})
    {
        mRuntime = std::make_shared<Lua::LuaRuntime>(mEngine.getRegistryManager(), std::move(settings));
        mEngine.setRuntimeFactory([this](const ContextConfig&, const std::vector<ModuleDescriptor>&)
                                  { return mRuntime; });
        mEngine.addModuleBindingFactory(std::make_unique<CommonModuleFactory>());
        auto factory = std::make_unique<GenericModuleBindingFactory>("@bench/sandbox", quv::UUID{9, 9});
        factory->addVersionedModuleBinding(
            Version(1, 0, 0),
            [](ModuleBindingBuilder& builder, const std::optional<ContextConfig>&)
            {
                builder.function<&add>("add", ArgumentBindingBuilder<int>("a"), ArgumentBindingBuilder<int>("b"));
                builder.function("started", [] { sStarted.store(true); });
                builder.function(
                    "callBack", [](const Closure<int (*)(int)>& function) { return function(1); },
                    ArgumentBindingBuilder<const Closure<int (*)(int)>&>("function"));
                return builder.build(true, {}, RuntimeConditions{});
            },
            CommonModuleFactory::LATEST_VERSION, {}, false);
        mEngine.addModuleBindingFactory(std::move(factory));
        const ModuleDescriptor requester{"bench", quv::UUID{1, 1}, Version(1, 0, 0), false};
        const ModuleDescriptor module{"@bench/sandbox", quv::UUID{9, 9}, Version(1, 0, 0), false};
        ScriptContextResult result =
            mEngine.createScriptingContext(ContextConfig("lua", "", requester), requester, {module}, nullptr, nullptr);
        if (!result.context.has_value())
        {
            throw std::runtime_error(result.getErrorText());
        }
        mContext.emplace(std::move(*result.context));
    }

    ResultAny run(const char* source)
    {
        StringPayload payload(source, "bench.lua");
        return mContext->run(&payload);
    }

    Lua::LuaRuntime& runtime() { return *mRuntime; }
    ContextId id() const { return mContext->getContextId(); }

private:
    ScriptEngine mEngine;
    std::shared_ptr<Lua::LuaRuntime> mRuntime;
    std::optional<ScriptContext> mContext;
};

void runOrFail(benchmark::State& state, Fixture& fixture, const char* source)
{
    const ResultAny result = fixture.run(source);
    if (result.isError())
    {
        state.SkipWithError(result.tryGetError()->message.c_str());
    }
    benchmark::DoNotOptimize(result);
}

void BM_BareLua(benchmark::State& state, const char* source)
{
    lua_State* lua = luaL_newstate();
    luaL_openlibs(lua);
    // The same require('@bench/sandbox').add, reached without bindings.
    lua_newtable(lua);
    lua_pushcfunction(lua, &bareAdd);
    lua_setfield(lua, -2, "add");
    lua_pushcclosure(
        lua, [](lua_State* l) { return lua_pushvalue(l, lua_upvalueindex(1)), 1; }, 1);
    lua_setglobal(lua, "require");
    for (auto _ : state)
    {
        if (luaL_loadstring(lua, source) != LUA_OK || lua_pcall(lua, 0, 1, 0) != LUA_OK)
        {
            state.SkipWithError(lua_tostring(lua, -1));
            break;
        }
        lua_pop(lua, 1);
    }
    lua_close(lua);
}

void BM_Unhooked(benchmark::State& state, const char* source)
{
    Lua::LuaRuntimeSettings settings;
    settings.interruptible = false;
    Fixture fixture(settings);
    for (auto _ : state)
    {
        runOrFail(state, fixture, source);
    }
}

void BM_WatchdogOff(benchmark::State& state, const char* source)
{
    Fixture fixture;
    for (auto _ : state)
    {
        runOrFail(state, fixture, source);
    }
}

void BM_WatchdogOn(benchmark::State& state, const char* source)
{
    Fixture fixture;
    // The default budget: no instruction limit, the runtime's time limit.
    fixture.runtime().enableWatchdog(WatchdogSettings{});
    for (auto _ : state)
    {
        runOrFail(state, fixture, source);
    }
}

void BM_WatchdogCountHook(benchmark::State& state, const char* source)
{
    Lua::LuaRuntimeSettings settings;
    settings.stopSignal = 0;
    Fixture fixture(settings);
    fixture.runtime().enableWatchdog(WatchdogSettings{});
    for (auto _ : state)
    {
        runOrFail(state, fixture, source);
    }
}

BENCHMARK_CAPTURE(BM_BareLua, Arithmetic, ARITHMETIC)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Unhooked, Arithmetic, ARITHMETIC)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_WatchdogOff, Arithmetic, ARITHMETIC)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_WatchdogOn, Arithmetic, ARITHMETIC)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_WatchdogCountHook, Arithmetic, ARITHMETIC)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_BareLua, NativeCalls, NATIVE_CALLS)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Unhooked, NativeCalls, NATIVE_CALLS)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_WatchdogOff, NativeCalls, NATIVE_CALLS)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_WatchdogOn, NativeCalls, NATIVE_CALLS)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_WatchdogCountHook, NativeCalls, NATIVE_CALLS)->Unit(benchmark::kMillisecond);

void reportLatencies(benchmark::State& state, std::vector<double>& milliseconds)
{
    std::sort(milliseconds.begin(), milliseconds.end());
    state.counters["median_ms"] = milliseconds[milliseconds.size() / 2];
    state.counters["p95_ms"] = milliseconds[(milliseconds.size() * 95) / 100];
    state.counters["max_ms"] = milliseconds.back();
}

// Time past the budget until the stopped script is back, per shape.
void BM_StopLatency(benchmark::State& state, const char* source)
{
    Fixture fixture;
    fixture.runtime().enableWatchdog(WatchdogSettings{BUDGET_MS, 0});
    std::vector<double> latencies;
    for (auto _ : state)
    {
        for (int stop = 0; stop < STOPS; ++stop)
        {
            const auto start = std::chrono::steady_clock::now();
            const ResultAny result = fixture.run(source);
            const auto elapsed = std::chrono::steady_clock::now() - start;
            if (!result.isError() || result.tryGetError()->name != "WatchdogError")
            {
                state.SkipWithError("the script was not stopped by the watchdog");
                return;
            }
            latencies.push_back(std::chrono::duration<double, std::milli>(elapsed).count() - BUDGET_MS);
        }
    }
    reportLatencies(state, latencies);
}

BENCHMARK_CAPTURE(BM_StopLatency, Loop, "while true do end")->Iterations(1);
BENCHMARK_CAPTURE(BM_StopLatency, Pattern, "return string.rep('a', 20000):find('.-.-.-.-b')")->Iterations(1);
BENCHMARK_CAPTURE(BM_StopLatency, TableRange, "table.move({}, 1, 1e12, 2)")->Iterations(1);
BENCHMARK_CAPTURE(BM_StopLatency, Handler, "xpcall(function() while true do end end, function() while true do end end)")
    ->Iterations(1);
BENCHMARK_CAPTURE(BM_StopLatency, Coroutine, "coroutine.wrap(function() while true do end end)()")->Iterations(1);
BENCHMARK_CAPTURE(BM_StopLatency, NativeCallback,
                  "require('@bench/sandbox').callBack(function() while true do end end)")
    ->Iterations(1);
BENCHMARK_CAPTURE(BM_StopLatency, LoadLargeText, "while true do load(string.rep('local a = 1 ', 2e5)) end")
    ->Iterations(1);

// From interrupt() on another thread until the script is back.
void BM_InterruptLatency(benchmark::State& state)
{
    Fixture fixture;
    std::vector<double> latencies;
    for (auto _ : state)
    {
        for (int stop = 0; stop < STOPS; ++stop)
        {
            std::atomic<int64_t> askedAt{0};
            sStarted.store(false);
            std::thread interrupter(
                [&]
                {
                    // An interrupt before the run starts is a no-op: wait until the script says it runs.
                    while (!sStarted.load())
                    {
                        std::this_thread::yield();
                    }
                    std::this_thread::sleep_for(std::chrono::milliseconds(2));
                    askedAt.store(std::chrono::steady_clock::now().time_since_epoch().count());
                    fixture.runtime().interrupt(fixture.id());
                });
            const ResultAny result = fixture.run("require('@bench/sandbox').started() while true do end");
            const int64_t back = std::chrono::steady_clock::now().time_since_epoch().count();
            interrupter.join();
            if (!result.isError() || result.tryGetError()->name != "InterruptError")
            {
                state.SkipWithError("the script was not interrupted");
                return;
            }
            latencies.push_back(
                std::chrono::duration<double, std::milli>(std::chrono::steady_clock::duration(back - askedAt.load()))
                    .count());
        }
    }
    reportLatencies(state, latencies);
}

BENCHMARK(BM_InterruptLatency)->Iterations(1);
} // namespace

BENCHMARK_MAIN();
