// The Lua runtime's cost per crossing, each beside a baseline in the same run:
// - a native int add(int, int) called from a Lua loop through the bindings, and the same loop calling a
//   hand-written lua_CFunction, the floor for any binding;
// - an object made by a constructor and collected, beside a plain Lua table made and collected;
// - a property read and written, beside a field of a Lua table;
// - a Lua function called from native code through Closure<int(int, int)>, beside a bare lua_pcall.
#include "Scripting/BindingFactory/CommonModuleFactory.h"
#include "Scripting/BindingType/ClassBindingBuilder.h"
#include "Scripting/Lua/LuaRuntime.h"
#include "Scripting/Runtime/ScriptClosure.h"
#include "Scripting/ScriptEngine/ScriptEngine.h"

#include <benchmark/benchmark.h>
#include <lua.hpp>

#include <optional>
#include <stdexcept>

using namespace Scripting;

namespace
{
struct Point
{
    int x = 0;
};

constexpr int LOOP = 100000;

std::optional<Closure<int (*)(int, int)>> sKept;

int add(int a, int b)
{
    return a + b;
}

int handWrittenAdd(lua_State* state)
{
    lua_pushinteger(state, lua_tointeger(state, 1) + lua_tointeger(state, 2));
    return 1;
}

std::optional<ModuleBinding> describe(ModuleBindingBuilder& builder)
{
    builder.function<&add>("add", ArgumentBindingBuilder<int>("a"), ArgumentBindingBuilder<int>("b"));
    builder.function(
        "keep", [](const Closure<int (*)(int, int)>& function) { sKept = function; },
        ArgumentBindingBuilder<const Closure<int (*)(int, int)>&>("function"));
    ClassBindingBuilder<Point> point("Point");
    point.constructor([](WeakLifetimeScope& scope, int x) { return scope.makeObject<Point>(Point{x}); },
                      ArgumentBindingBuilder<int>("x"));
    point.property<&Point::x>("x");
    builder.classBinding(point.finish());
    return builder.build(true, {}, RuntimeConditions{});
}

// One context with the bench module and the hand-written function beside it.
class Fixture
{
public:
    Fixture()
    {
        mRuntime = std::make_shared<Lua::LuaRuntime>(mEngine.getRegistryManager());
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
        lua_State* state = mRuntime->getLuaState(mContext->getContextId());
        lua_pushcfunction(state, &handWrittenAdd);
        lua_setglobal(state, "handWrittenAdd");
        run(R"(
            local math = require('@bench/math')
            local bound, Point = math.add, math.Point
            function boundLoop(n) local s = 0 for i = 1, n do s = bound(s, 1) end return s end
            function handWrittenLoop(n) local f, s = handWrittenAdd, 0 for i = 1, n do s = f(s, 1) end return s end
            function createObjects(n) for i = 1, n do local p = Point.new(i) end collectgarbage() end
            function createTables(n) for i = 1, n do local p = {x = i} end collectgarbage() end
            local point, plain = Point.new(1), {x = 1}
            function readProperty(n) local s = 0 for i = 1, n do s = s + point.x end return s end
            function writeProperty(n) for i = 1, n do point.x = i end end
            function readField(n) local s = 0 for i = 1, n do s = s + plain.x end return s end
            function writeField(n) for i = 1, n do plain.x = i end end
            function luaAdd(a, b) return a + b end
            math.keep(luaAdd)
        )");
    }

    void run(const char* source)
    {
        StringPayload payload(source, "bench.lua");
        const ResultAny result = mContext->run(&payload);
        if (const Error* error = result.tryGetError())
        {
            throw std::runtime_error(error->message);
        }
    }

    lua_State* state() const { return mRuntime->getLuaState(mContext->getContextId()); }

private:
    ScriptEngine mEngine;
    std::shared_ptr<Lua::LuaRuntime> mRuntime;
    std::optional<ScriptContext> mContext;
};

Fixture& fixture()
{
    static Fixture sFixture;
    return sFixture;
}

void runLoop(benchmark::State& state, const char* source)
{
    Fixture& bench = fixture();
    for (auto _ : state)
    {
        bench.run(source);
    }
    state.SetItemsProcessed(state.iterations() * LOOP);
}

void BM_AddThroughBindings(benchmark::State& state)
{
    runLoop(state, "boundLoop(100000)");
}
BENCHMARK(BM_AddThroughBindings);

void BM_AddHandWrittenCFunction(benchmark::State& state)
{
    runLoop(state, "handWrittenLoop(100000)");
}
BENCHMARK(BM_AddHandWrittenCFunction);

void BM_ObjectCreateAndCollect(benchmark::State& state)
{
    runLoop(state, "createObjects(100000)");
}
BENCHMARK(BM_ObjectCreateAndCollect);

void BM_TableCreateAndCollect(benchmark::State& state)
{
    runLoop(state, "createTables(100000)");
}
BENCHMARK(BM_TableCreateAndCollect);

void BM_PropertyGet(benchmark::State& state)
{
    runLoop(state, "readProperty(100000)");
}
BENCHMARK(BM_PropertyGet);

void BM_TableFieldGet(benchmark::State& state)
{
    runLoop(state, "readField(100000)");
}
BENCHMARK(BM_TableFieldGet);

void BM_PropertySet(benchmark::State& state)
{
    runLoop(state, "writeProperty(100000)");
}
BENCHMARK(BM_PropertySet);

void BM_TableFieldSet(benchmark::State& state)
{
    runLoop(state, "writeField(100000)");
}
BENCHMARK(BM_TableFieldSet);

void BM_ClosureCallFromNative(benchmark::State& state)
{
    fixture();
    int total = 0;
    for (auto _ : state)
    {
        Result<int> result = (*sKept)(total & 0xff, 1);
        total += *result.tryGet();
    }
    benchmark::DoNotOptimize(total);
}
BENCHMARK(BM_ClosureCallFromNative);

void BM_BareLuaPcall(benchmark::State& state)
{
    lua_State* lua = fixture().state();
    int total = 0;
    for (auto _ : state)
    {
        lua_getglobal(lua, "luaAdd");
        lua_pushinteger(lua, total & 0xff);
        lua_pushinteger(lua, 1);
        if (lua_pcall(lua, 2, 1, 0) != LUA_OK)
        {
            state.SkipWithError("pcall failed");
            break;
        }
        total += static_cast<int>(lua_tointeger(lua, -1));
        lua_pop(lua, 1);
    }
    benchmark::DoNotOptimize(total);
}
BENCHMARK(BM_BareLuaPcall);
} // namespace
