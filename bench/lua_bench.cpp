// The Lua runtime's cost per crossing, each row beside its hand-written checked equivalent timed in the same
// benchmark iteration, so that load on the machine hits both alike. Each row reports the bound cost per call, the
// baseline's, their ratio and the C++ heap allocations per bound call (every operator new of this program is
// counted; Lua's own allocator is not):
// - a native int add(int, int) from a Lua loop, beside a lua_CFunction that checks with luaL_checkinteger; the
//   same call of a signature that the typed road does not take (std::optional<int>) shows the general path;
// - a method obj:bump(1) on a class that also has a property, and on one that has none, each beside a full
//   userdata whose metatable's __index is its method table;
// - a property read and write, beside __index/__newindex C functions that check the userdata and the name;
// - an object made by a constructor and collected, beside a checked constructor of a full userdata with __gc;
// - a Lua function called from native code through Closure<int(int, int)>, beside a bare lua_pcall of it from a
//   registry reference.
#include "AllocationCounter.h"

#include "Scripting/BindingFactory/CommonModuleFactory.h"
#include "Scripting/BindingType/ClassBindingBuilder.h"
#include "Scripting/Lua/LuaRuntime.h"
#include "Scripting/Runtime/ScriptClosure.h"
#include "Scripting/ScriptEngine/ScriptEngine.h"

#include <benchmark/benchmark.h>
#include <lua.hpp>

#include <chrono>
#include <cstring>
#include <ctime>
#include <optional>
#include <stdexcept>
#include <utility>

using namespace Scripting;

namespace
{
// A class with methods only: its objects' __index is its method table.
struct Tally
{
    int count = 0;

    int bump(int by)
    {
        count += by;
        return count;
    }
};

struct Point
{
    int x = 0;

    int bump(int by)
    {
        x += by;
        return x;
    }
};

constexpr int LOOP = 100000;

std::optional<Closure<int (*)(int, int)>> sKept;

int add(int a, int b)
{
    return a + b;
}

int addOptional(int a, std::optional<int> b)
{
    return a + b.value_or(0);
}

// ---- Hand-written equivalents: what a careful author writes with the C API alone ----

constexpr const char* HAND_POINT = "HandPoint";
constexpr const char* HAND_PROPERTY_POINT = "HandPropertyPoint";

struct HandPoint
{
    int x = 0;
};

int handWrittenAdd(lua_State* state)
{
    const lua_Integer a = luaL_checkinteger(state, 1);
    const lua_Integer b = luaL_checkinteger(state, 2);
    lua_pushinteger(state, a + b);
    return 1;
}

int handWrittenNew(lua_State* state)
{
    const auto x = static_cast<int>(luaL_checkinteger(state, 1));
    auto* point = static_cast<HandPoint*>(lua_newuserdatauv(state, sizeof(HandPoint), 0));
    point->x = x;
    luaL_setmetatable(state, HAND_POINT);
    return 1;
}

int handWrittenCollect(lua_State* state)
{
    static_cast<HandPoint*>(luaL_checkudata(state, 1, HAND_POINT))->x = 0;
    return 0;
}

int handWrittenBump(lua_State* state)
{
    auto* point = static_cast<HandPoint*>(luaL_checkudata(state, 1, HAND_POINT));
    point->x += static_cast<int>(luaL_checkinteger(state, 2));
    lua_pushinteger(state, point->x);
    return 1;
}

int handWrittenIndex(lua_State* state)
{
    auto* point = static_cast<HandPoint*>(luaL_checkudata(state, 1, HAND_PROPERTY_POINT));
    if (std::strcmp(luaL_checkstring(state, 2), "x") == 0)
    {
        lua_pushinteger(state, point->x);
        return 1;
    }
    return luaL_error(state, "no property");
}

int handWrittenNewIndex(lua_State* state)
{
    auto* point = static_cast<HandPoint*>(luaL_checkudata(state, 1, HAND_PROPERTY_POINT));
    if (std::strcmp(luaL_checkstring(state, 2), "x") == 0)
    {
        point->x = static_cast<int>(luaL_checkinteger(state, 3));
        return 0;
    }
    return luaL_error(state, "no property");
}

int handWrittenPropertyPoint(lua_State* state)
{
    auto* point = static_cast<HandPoint*>(lua_newuserdatauv(state, sizeof(HandPoint), 0));
    point->x = static_cast<int>(luaL_checkinteger(state, 1));
    luaL_setmetatable(state, HAND_PROPERTY_POINT);
    return 1;
}

void installHandWritten(lua_State* state)
{
    luaL_newmetatable(state, HAND_POINT);
    lua_createtable(state, 0, 1);
    lua_pushcfunction(state, &handWrittenBump);
    lua_setfield(state, -2, "bump");
    lua_setfield(state, -2, "__index");
    lua_pushcfunction(state, &handWrittenCollect);
    lua_setfield(state, -2, "__gc");
    lua_pop(state, 1);

    luaL_newmetatable(state, HAND_PROPERTY_POINT);
    lua_pushcfunction(state, &handWrittenIndex);
    lua_setfield(state, -2, "__index");
    lua_pushcfunction(state, &handWrittenNewIndex);
    lua_setfield(state, -2, "__newindex");
    lua_pop(state, 1);

    lua_pushcfunction(state, &handWrittenAdd);
    lua_setglobal(state, "handWrittenAdd");
    lua_pushcfunction(state, &handWrittenNew);
    lua_setglobal(state, "handWrittenNew");
    lua_pushcfunction(state, &handWrittenPropertyPoint);
    lua_setglobal(state, "handWrittenPropertyPoint");
}

std::optional<ModuleBinding> describe(ModuleBindingBuilder& builder)
{
    builder.function<&add>("add", ArgumentBindingBuilder<int>("a"), ArgumentBindingBuilder<int>("b"));
    builder.function<&addOptional>("addOptional", ArgumentBindingBuilder<int>("a"),
                                   ArgumentBindingBuilder<std::optional<int>>("b"));
    builder.function(
        "keep", [](const Closure<int (*)(int, int)>& function) { sKept = function; },
        ArgumentBindingBuilder<const Closure<int (*)(int, int)>&>("function"));
    ClassBindingBuilder<Point> point("Point");
    point.constructor([](WeakLifetimeScope& scope, int x) { return scope.makeObject<Point>(Point{x}); },
                      ArgumentBindingBuilder<int>("x"));
    point.property<&Point::x>("x");
    point.method<&Point::bump>("bump", ArgumentBindingBuilder<int>("by"));
    builder.classBinding(point.finish());
    ClassBindingBuilder<Tally> tally("Tally");
    tally.constructor([](WeakLifetimeScope& scope) { return scope.makeObject<Tally>(Tally{}); });
    tally.method<&Tally::bump>("bump", ArgumentBindingBuilder<int>("by"));
    builder.classBinding(tally.finish());
    return builder.build(true, {}, RuntimeConditions{});
}

// One context with the bench module and the hand-written functions beside it.
class Fixture
{
public:
    Fixture()
    {
        // The count hook that interrupts need costs every bound and hand-written loop alike; the rows measure
        // the crossing itself.
        Lua::LuaRuntimeSettings settings;
        settings.interruptible = false;
        mRuntime = std::make_shared<Lua::LuaRuntime>(mEngine.getRegistryManager(), std::move(settings));
        mEngine.setRuntimeFactory([this](const ContextConfig&, const std::vector<ModuleDescriptor>&)
                                  { return mRuntime; });
        mEngine.addModuleBindingFactory(std::make_unique<CommonModuleFactory>());
        auto factory = std::make_unique<GenericModuleBindingFactory>("@bench/math", quv::UUID{7, 7});
        factory->addVersionedModuleBinding(
            Version(1, 0, 0),
            [](ModuleBindingBuilder& builder, const std::optional<ContextConfig>&) { return describe(builder); },
            CommonModuleFactory::LATEST_VERSION, {}, false);
        mEngine.addModuleBindingFactory(std::move(factory));
        const ModuleDescriptor requester{"bench", quv::UUID{1, 1}, Version(1, 0, 0), false};
        const ModuleDescriptor math{"@bench/math", quv::UUID{7, 7}, Version(1, 0, 0), false};
        ScriptContextResult result =
            mEngine.createScriptingContext(ContextConfig("lua", "", requester), requester, {math}, nullptr, nullptr);
        if (!result.context.has_value())
        {
            throw std::runtime_error(result.getErrorText());
        }
        mContext.emplace(std::move(*result.context));
        lua_State* lua = state();
        installHandWritten(lua);
        run(R"(
            local math = require('@bench/math')
            local bound, optional, Point = math.add, math.addOptional, math.Point
            function boundAdd(n) local s = 0 for i = 1, n do s = bound(s, 1) end return s end
            function generalAdd(n) local s = 0 for i = 1, n do s = optional(s, 1) end return s end
            function handAdd(n) local f, s = handWrittenAdd, 0 for i = 1, n do s = f(s, 1) end return s end
            function boundCreate(n) for i = 1, n do local p = Point.new(i) end collectgarbage() end
            function handCreate(n) local f = handWrittenNew for i = 1, n do local p = f(i) end collectgarbage() end
            local point, handPoint, handProperty = Point.new(1), handWrittenNew(1), handWrittenPropertyPoint(1)
            function boundMethod(n) local p = point for i = 1, n do p:bump(1) end end
            local tally = math.Tally.new()
            function tallyMethod(n) local t = tally for i = 1, n do t:bump(1) end end
            function handMethod(n) local p = handPoint for i = 1, n do p:bump(1) end end
            function boundRead(n) local p, s = point, 0 for i = 1, n do s = s + p.x end return s end
            function handRead(n) local p, s = handProperty, 0 for i = 1, n do s = s + p.x end return s end
            function boundWrite(n) local p = point for i = 1, n do p.x = i end end
            function handWrite(n) local p = handProperty for i = 1, n do p.x = i end end
            function luaAdd(a, b) return a + b end
            math.keep(luaAdd)
        )");
        lua_getglobal(lua, "luaAdd");
        mLuaAddRef = luaL_ref(lua, LUA_REGISTRYINDEX);
    }

    void run(const char* source)
    {
        StringPayload payload(source, "bench.lua");
        run(payload);
    }

    void run(StringPayload& payload)
    {
        const ResultAny result = mContext->run(&payload);
        if (const Error* error = result.tryGetError())
        {
            throw std::runtime_error(error->message);
        }
    }

    lua_State* state() const { return mRuntime->getLuaState(mContext->getContextId()); }
    int luaAddRef() const { return mLuaAddRef; }

private:
    ScriptEngine mEngine;
    std::shared_ptr<Lua::LuaRuntime> mRuntime;
    std::optional<ScriptContext> mContext;
    int mLuaAddRef = LUA_NOREF;
};

Fixture& fixture()
{
    static Fixture sFixture;
    return sFixture;
}

// CPU time of this thread: the machine is shared, and time spent waiting for a core belongs to neither side.
struct Clock
{
    using duration = std::chrono::nanoseconds;
    using time_point = std::chrono::time_point<Clock, duration>;

    static time_point now() noexcept
    {
        timespec reading{};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &reading);
        return time_point(std::chrono::seconds(reading.tv_sec) + std::chrono::nanoseconds(reading.tv_nsec));
    }
};

// Times `bound` and `baseline` alternately in CPU time, LOOP calls each per iteration, and reports nanoseconds per call
// of each, their ratio and the allocations per bound call.
template <typename Bound, typename Baseline>
void compare(benchmark::State& state, const Bound& bound, const Baseline& baseline)
{
    Clock::duration boundTime{};
    Clock::duration baselineTime{};
    std::size_t allocations = 0;
    for (auto _ : state)
    {
        const std::size_t before = Bench::allocationCounts().allocations;
        const Clock::time_point start = Clock::now();
        bound();
        const Clock::time_point middle = Clock::now();
        allocations += Bench::allocationCounts().allocations - before;
        baseline();
        baselineTime += Clock::now() - middle;
        boundTime += middle - start;
    }
    const double calls = static_cast<double>(state.iterations()) * LOOP;
    const double boundNs = std::chrono::duration<double, std::nano>(boundTime).count() / calls;
    const double baselineNs = std::chrono::duration<double, std::nano>(baselineTime).count() / calls;
    state.counters["bound_ns"] = boundNs;
    state.counters["baseline_ns"] = baselineNs;
    state.counters["ratio"] = baselineNs > 0.0 ? boundNs / baselineNs : 0.0;
    state.counters["allocs_per_call"] = static_cast<double>(allocations) / calls;
}

// A script loop of the bound road against one of the hand-written function. The script runs are compiled
// anew each time, on both sides alike; LOOP calls make it negligible. The payloads are made first, so that their
// text is not counted as an allocation of the calls.
void compareScripts(benchmark::State& state, const char* bound, const char* baseline)
{
    Fixture& bench = fixture();
    StringPayload boundPayload(bound, "bench.lua");
    StringPayload baselinePayload(baseline, "bench.lua");
    compare(
        state, [&] { bench.run(boundPayload); }, [&] { bench.run(baselinePayload); });
}

void BM_FreeCall(benchmark::State& state)
{
    compareScripts(state, "boundAdd(100000)", "handAdd(100000)");
}
BENCHMARK(BM_FreeCall);

void BM_FreeCallGeneralPath(benchmark::State& state)
{
    compareScripts(state, "generalAdd(100000)", "handAdd(100000)");
}
BENCHMARK(BM_FreeCallGeneralPath);

void BM_MethodCall(benchmark::State& state)
{
    compareScripts(state, "boundMethod(100000)", "handMethod(100000)");
}
BENCHMARK(BM_MethodCall);

void BM_MethodCallWithoutProperties(benchmark::State& state)
{
    compareScripts(state, "tallyMethod(100000)", "handMethod(100000)");
}
BENCHMARK(BM_MethodCallWithoutProperties);

void BM_PropertyRead(benchmark::State& state)
{
    compareScripts(state, "boundRead(100000)", "handRead(100000)");
}
BENCHMARK(BM_PropertyRead);

void BM_PropertyWrite(benchmark::State& state)
{
    compareScripts(state, "boundWrite(100000)", "handWrite(100000)");
}
BENCHMARK(BM_PropertyWrite);

void BM_CreateAndCollect(benchmark::State& state)
{
    compareScripts(state, "boundCreate(100000)", "handCreate(100000)");
}
BENCHMARK(BM_CreateAndCollect);

void BM_ClosureCall(benchmark::State& state)
{
    lua_State* lua = fixture().state();
    const int reference = fixture().luaAddRef();
    int total = 0;
    compare(
        state,
        [&]
        {
            for (int index = 0; index < LOOP; ++index)
            {
                Result<int> result = (*sKept)(index & 0xff, 1);
                total += *result.tryGet();
            }
        },
        [&]
        {
            for (int index = 0; index < LOOP; ++index)
            {
                lua_rawgeti(lua, LUA_REGISTRYINDEX, reference);
                lua_pushinteger(lua, index & 0xff);
                lua_pushinteger(lua, 1);
                if (lua_pcall(lua, 2, 1, 0) != LUA_OK)
                {
                    lua_pop(lua, 1);
                    return;
                }
                total += static_cast<int>(lua_tointeger(lua, -1));
                lua_pop(lua, 1);
            }
        });
    benchmark::DoNotOptimize(total);
}
BENCHMARK(BM_ClosureCall);
} // namespace
