#include "LuaTestSupport.h"

#include "Diagnostics/Assert.h"

#include "Scripting/Runtime/ScriptPromise.h"

#include <gmock/gmock.h>
#include <lua.hpp>

using namespace Scripting;
using ::testing::HasSubstr;

namespace LuaTest
{
namespace
{
class LuaScriptValuesTest : public LuaEngineTest
{
protected:
    ~LuaScriptValuesTest() override { sRemembered.reset(); }

    ResultAny callRemembered(std::vector<entt::meta_any> arguments, const entt::meta_type& returnType)
    {
        return sRemembered->call(arguments.data(), static_cast<unsigned>(arguments.size()), returnType, std::nullopt);
    }
};

struct ValueCase
{
    const char* name;
    const char* source;
    int64_t expected;
};

class LuaScriptValueCases : public LuaEngineTest, public ::testing::WithParamInterface<ValueCase>
{
};

TEST_P(LuaScriptValueCases, ReachNativeCode)
{
    const ResultAny result = run(std::string("local zoo = require('@test/zoo')\n") + GetParam().source);
    ASSERT_FALSE(result.isError()) << errorText(result);
    EXPECT_EQ(integer(result), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    ScriptValues, LuaScriptValueCases,
    ::testing::Values(
        ValueCase{"Closure", "return zoo.callTwice(function(x) return x * 3 end, 2)", 18},
        ValueCase{"ClosureOverUpvalues",
                  "local calls = 0 zoo.callTwice(function(x) calls = calls + 1 return x end, 0) "
                  "return calls",
                  2},
        ValueCase{"GeneratorFunction", "return zoo.sumGenerator(function() for i = 1, 4 do coroutine.yield(i) end end)",
                  10},
        ValueCase{"GeneratorReturnValueEndsIt", "return zoo.sumGenerator(function() coroutine.yield(1) return 100 end)",
                  1},
        ValueCase{"GeneratorCoroutine",
                  "return zoo.sumGenerator(coroutine.create(function() coroutine.yield(5) coroutine.yield(6) end))",
                  11},
        ValueCase{"PromiseResolvedByNative",
                  "local p = Promise.new() local got p:next(function(v) got = v end) "
                  "local first = zoo.resolveWith(p, 9) local second = zoo.resolveWith(p, 10) "
                  "return got + (first and 100 or 0) + (second and 1000 or 0)",
                  109},
        ValueCase{"FutureObserved",
                  "local p = Promise.new() local before = zoo.futureState(p) p:resolve(4) "
                  "return before * 100 + zoo.futureState(p) * 10 + zoo.futureValue(p)",
                  124},
        ValueCase{"FutureRejected", "local p = Promise.new() p:reject('no') return zoo.futureState(p)", 3},
        ValueCase{
            "PromiseChain",
            "local p = Promise.new() local out p:next(function(v) return v + 1 end):next(function(v) out = v end) "
            "p:resolve(1) return out",
            2},
        ValueCase{"BufferRead", "local b = Buffer.new(4) b[1] = 1 b[4] = 200 return zoo.bufferSum(b) + #b", 205},
        ValueCase{"BufferWrittenByNative", "local b = Buffer.new(3) zoo.bufferFill(b, 7) return b[1] + b[2] + b[3]",
                  21},
        ValueCase{"StringAsBuffer", "return zoo.bufferSum('abc')", 294}),
    [](const ::testing::TestParamInfo<ValueCase>& info) { return info.param.name; });

TEST_F(LuaScriptValuesTest, FailuresInsideScriptValuesComeBackAsErrors)
{
    EXPECT_THAT(errorText(run("require('@test/zoo').callTwice(function(x) error('inner failure') end, 1)")),
                HasSubstr("inner failure"));
    EXPECT_THAT(errorText(run("require('@test/zoo').callTwice(function(x) return 'text' end, 1)")),
                HasSubstr("Expected type: int for the value the script function returned, got string"));
    EXPECT_THAT(errorText(run("require('@test/zoo').sumGenerator(function() error('broken generator') end)")),
                HasSubstr("broken generator"));
    EXPECT_THAT(errorText(run("local p = Promise.new() p:reject('refused') require('@test/zoo').futureValue(p)")),
                HasSubstr("refused"));
    EXPECT_THAT(errorText(run("require('@test/zoo').futureValue(Promise.new())")), HasSubstr("still pending"));
    EXPECT_THAT(errorText(run("require('@test/zoo').callTwice({}, 1)")),
                HasSubstr("Expected type: function for argument 'function'"));
    EXPECT_THAT(errorText(run("local b = Buffer.new(2) return b[3]")), HasSubstr("buffer index 3 out of range 1..2"));
}

TEST_F(LuaScriptValuesTest, NativeCodeCallsAStoredScriptFunctionLater)
{
    ASSERT_FALSE(
        run("require('@test/zoo').remember(function(a, b) calls = (calls or 0) + 1 return a + b end)").isError());
    ASSERT_TRUE(sRemembered.has_value() && sRemembered->valid());
    for (int round = 1; round <= 3; ++round)
    {
        const ResultAny result =
            callRemembered({entt::meta_any{Reflection::context(), 2}, entt::meta_any{Reflection::context(), round}},
                           Reflection::resolve<int>());
        ASSERT_FALSE(result.isError()) << errorText(result);
        EXPECT_EQ(result.any().cast<int>(), 2 + round);
    }
    EXPECT_EQ(integer(run("return calls")), 3);

    Closure<int (*)(int, int)> typed;
    static_cast<ClosureAny&>(typed) = *sRemembered;
    Result<int> typedResult = typed(20, 22);
    ASSERT_NE(typedResult.tryGet(), nullptr);
    EXPECT_EQ(typedResult.value(), 42);
}

TEST_F(LuaScriptValuesTest, HeldFunctionsKeepAnsweringWhenTheirTableIsRemadeSmaller)
{
    // Native code holds many script functions, then lets all but two go: the table that keeps them for it is
    // made anew, smaller, and what is still held (also through a typed closure that remembers where its function
    // was) and what is held later must each call its own function.
    std::vector<Closure<int (*)()>> held;
    const auto hold = [this, &held](int index)
    {
        const ResultAny made =
            run("require('@test/zoo').remember(function() return " + std::to_string(index) + " end)");
        ASSERT_FALSE(made.isError()) << errorText(made);
        held.emplace_back();
        static_cast<ClosureAny&>(held.back()) = *sRemembered;
    };
    const ContextId id = context().getContextId();
    ASSERT_TRUE(mRuntime->collectGarbage(id));
    const uint64_t before = mRuntime->computeContextStats(id)->memoryUsedBytes;
    for (int index = 0; index < 3000; ++index)
    {
        hold(index);
    }
    sRemembered.reset();
    ASSERT_EQ(held[1500]().value(), 1500);
    Closure<int (*)()> early = held[1500];
    Closure<int (*)()> late = held[2999];
    held.clear();
    ASSERT_FALSE(run("collectgarbage()").isError());
    ASSERT_TRUE(mRuntime->collectGarbage(id));
    // 3000 slots of 16 bytes: what a table that kept its room would hold on to.
    EXPECT_LT(mRuntime->computeContextStats(id)->memoryUsedBytes, before + 3000 * 16 / 2) << "the table kept its room";
    EXPECT_EQ(early().value(), 1500);
    EXPECT_EQ(late().value(), 2999);
    for (int index = 0; index < 100; ++index)
    {
        hold(10000 + index);
    }
    sRemembered.reset();
    for (int index = 0; index < 100; ++index)
    {
        EXPECT_EQ(held[static_cast<size_t>(index)]().value(), 10000 + index);
    }
    EXPECT_EQ(early().value(), 1500);
    EXPECT_EQ(late().value(), 2999);
}

// What a raw C function of the host drops while a script runs; native code outside the runtime's own calls.
std::vector<Closure<int (*)()>>* sDroppedByHost = nullptr;

int dropHeldClosures(lua_State* /*state*/)
{
    sDroppedByHost->clear();
    return 0;
}

// The functions native code holds stay reachable when their table is remade while a script runs, where the
// runtime cannot reach the bottom of the main thread's stack: the old table must not live on there.
TEST_F(LuaScriptValuesTest, HeldFunctionsAnswerAfterTheirTableIsRemadeDuringARun)
{
    std::vector<Closure<int (*)()>> held;
    const ContextId id = context().getContextId();
    ASSERT_TRUE(mRuntime->collectGarbage(id));
    const uint64_t before = mRuntime->computeContextStats(id)->memoryUsedBytes;
    for (int index = 0; index < 3000; ++index)
    {
        ASSERT_FALSE(
            run("require('@test/zoo').remember(function() return " + std::to_string(index) + " end)").isError());
        held.emplace_back();
        static_cast<ClosureAny&>(held.back()) = *sRemembered;
    }
    sRemembered.reset();
    Closure<int (*)()> kept = held[2999];
    ASSERT_EQ(kept().value(), 2999);
    sDroppedByHost = &held;
    lua_State* state = mRuntime->getLuaState(id);
    lua_pushcfunction(state, &dropHeldClosures);
    lua_setglobal(state, "dropHeld");
    // The next native call after the drop lets the references go inside its own frame.
    const ResultAny ran = run("dropHeld() local zoo = require('@test/zoo') "
                              "return zoo.callTwice(function(x) return x + 1 end, zoo.aliveCounters())");
    sDroppedByHost = nullptr;
    ASSERT_FALSE(ran.isError()) << errorText(ran);
    EXPECT_EQ(integer(ran), 2);
    ASSERT_FALSE(run("collectgarbage()").isError());
    ASSERT_TRUE(mRuntime->collectGarbage(id));
    EXPECT_LT(mRuntime->computeContextStats(id)->memoryUsedBytes, before + 3000 * 16 / 2) << "the old table lives on";
    EXPECT_EQ(kept().value(), 2999);
}

// A call from native code finds its function and the message handler wherever it comes from: between runs
// with values of the host on the stack, and from within a native function a script called.
TEST_F(LuaScriptValuesTest, ClosuresAnswerWhereverNativeCodeCallsThem)
{
    ASSERT_FALSE(run("require('@test/zoo').remember(function(a, b)\n"
                     "  if a < 0 then error('negative') end\n"
                     "  return a * b\n"
                     "end)",
                     "calls.lua")
                     .isError());
    Closure<int (*)(int, int)> typed;
    static_cast<ClosureAny&>(typed) = *sRemembered;
    lua_State* state = mRuntime->getLuaState(context().getContextId());
    const int top = lua_gettop(state);
    lua_pushliteral(state, "host");
    lua_pushnil(state);
    lua_pushinteger(state, 77);
    for (const int first : {6, -1})
    {
        SCOPED_TRACE(first);
        Result<int> viaTyped = typed(first, 7);
        const ResultAny viaGeneral =
            callRemembered({entt::meta_any{Reflection::context(), first}, entt::meta_any{Reflection::context(), 7}},
                           Reflection::resolve<int>());
        ASSERT_EQ(lua_gettop(state), top + 3);
        EXPECT_STREQ(lua_tostring(state, top + 1), "host");
        EXPECT_TRUE(lua_isnil(state, top + 2));
        EXPECT_EQ(lua_tointeger(state, top + 3), 77);
        if (first > 0)
        {
            ASSERT_NE(viaTyped.tryGet(), nullptr);
            EXPECT_EQ(viaTyped.value(), 42);
            EXPECT_EQ(viaGeneral.any().cast<int>(), 42);
            continue;
        }
        const ResultAny typedAny = std::move(viaTyped);
        for (const ResultAny* failed : {&typedAny, &viaGeneral})
        {
            const Error* error = failed->tryGetError();
            ASSERT_NE(error, nullptr);
            EXPECT_THAT(error->message, HasSubstr("calls.lua:2: negative"));
            // The stack comes from the message handler, which only runs on an error.
            EXPECT_THAT(error->getStack().value_or(""), HasSubstr("calls.lua:2"));
        }
    }
    lua_settop(state, top);
    // From inside native code that a script called, on the main thread and in a coroutine.
    EXPECT_EQ(integer(run("local zoo = require('@test/zoo') return zoo.callTwice(function(x) return x * 3 end, 2)")),
              18);
    EXPECT_EQ(integer(run("local zoo = require('@test/zoo') return coroutine.wrap(function() "
                          "return zoo.callTwice(function(x) return x + 1 end, 5) end)()")),
              7);
    EXPECT_THAT(errorText(run("local zoo = require('@test/zoo') "
                              "return zoo.callTwice(function(x) error('inner ' .. x) end, 4)",
                              "inner.lua")),
                HasSubstr("inner 4"));
    EXPECT_EQ(typed(2, 3).value(), 6);
}

// Embedding code that overwrites the runtime's slots at the bottom of the stack is told so, and calls still
// reach their function.
TEST_F(LuaScriptValuesTest, ClosuresAnswerAfterTheHostOverwroteTheRuntimesSlots)
{
    ASSERT_FALSE(run("require('@test/zoo').remember(function(a, b) return a - b end)").isError());
    Closure<int (*)(int, int)> typed;
    static_cast<ClosureAny&>(typed) = *sRemembered;
    lua_State* state = mRuntime->getLuaState(context().getContextId());
    lua_pushinteger(state, 5);
    lua_replace(state, 2);
    std::optional<int> answered;
    const std::vector<std::string> asserts =
        Ovelith::Diagnostics::collectAsserts([&] { answered = typed(9, 4).value(); });
    ASSERT_FALSE(asserts.empty());
    EXPECT_THAT(asserts.front(), HasSubstr("belong to the Lua runtime"));
    EXPECT_EQ(answered, 5);
}

// A typed call gives what the general one gives, failures included, leaves the script's stack as it found it,
// and a later call of the same closure still reaches the function.
TEST_F(LuaScriptValuesTest, TypedClosureCallsMatchTheGeneralOne)
{
    ASSERT_FALSE(run("require('@test/zoo').remember(function(a, b)\n"
                     "  if a < 0 then error('negative ' .. a) end\n"
                     "  if a == 0 then return 'zero' end\n"
                     "  if a == 1 then return 2.5 end\n"
                     "  return a + b\n"
                     "end)",
                     "closure.lua")
                     .isError());
    Closure<int (*)(int, int)> typed;
    static_cast<ClosureAny&>(typed) = *sRemembered;
    lua_State* state = mRuntime->getLuaState(context().getContextId());
    const int top = lua_gettop(state);
    for (int round = 0; round < 2; ++round)
    {
        for (const int first : {5, -3, 0, 1})
        {
            SCOPED_TRACE(first);
            Result<int> viaTyped = typed(first, 4);
            const ResultAny viaGeneral =
                callRemembered({entt::meta_any{Reflection::context(), first}, entt::meta_any{Reflection::context(), 4}},
                               Reflection::resolve<int>());
            EXPECT_EQ(lua_gettop(state), top);
            ASSERT_EQ(viaTyped.isError(), viaGeneral.isError());
            if (!viaGeneral.isError())
            {
                EXPECT_EQ(viaTyped.value(), viaGeneral.any().cast<int>());
                continue;
            }
            const ResultAny typedAny = std::move(viaTyped);
            const Error* typedError = typedAny.tryGetError();
            const Error* generalError = viaGeneral.tryGetError();
            ASSERT_NE(typedError, nullptr);
            EXPECT_EQ(typedError->message, generalError->message);
            EXPECT_EQ(typedError->getStack(), generalError->getStack());
            EXPECT_EQ(typedError->fileName, generalError->fileName);
            if (first < 0)
            {
                EXPECT_THAT(typedError->message, HasSubstr("closure.lua:2: negative -3"));
                EXPECT_THAT(typedError->getStack().value_or(""), HasSubstr("closure.lua:2"));
            }
        }
    }
}

TEST_F(LuaScriptValuesTest, DroppedClosuresLetTheScriptFunctionGo)
{
    ASSERT_FALSE(run("weak = setmetatable({}, {__mode = 'v'}) local f = function() end weak[1] = f "
                     "require('@test/zoo').remember(f)")
                     .isError());
    EXPECT_EQ(integer(run("collectgarbage() return weak[1] ~= nil and 1 or 0")), 1) << "native code holds it";
    sRemembered.reset();
    EXPECT_EQ(integer(run("collectgarbage() return weak[1] == nil and 1 or 0")), 1);
}

TEST_F(LuaScriptValuesTest, ClosureOutlivingItsContextAnswersAnError)
{
    ASSERT_FALSE(run("require('@test/zoo').remember(function() return 1 end)").isError());
    mContext.reset();
    ASSERT_TRUE(sRemembered.has_value());
    EXPECT_FALSE(sRemembered->valid());
    EXPECT_EQ(errorText(callRemembered({}, Reflection::resolve<int>())), ClosureAny::INVALID_CALL_MESSAGE);
}

// A typed closure keeps where it found its function between calls. Whatever ends the function's life or frees
// its place must reach that: after each change the closure answers the invalid-call error and runs no script,
// neither its old function nor one that took its place. Each case primes the closure with a call first.
TEST_F(LuaScriptValuesTest, TypedClosuresNoticeWhatChangedSinceTheirLastCall)
{
    enum class Change
    {
        ObjectDestroyed,
        PlaceTakenByAnotherFunction,
        RegistryDestroyed,
    };
    for (const Change change :
         {Change::ObjectDestroyed, Change::PlaceTakenByAnotherFunction, Change::RegistryDestroyed})
    {
        SCOPED_TRACE(static_cast<int>(change));
        mContext.reset();
        ASSERT_FALSE(
            run("calls, other = 0, 0 require('@test/zoo').remember(function(a, b) calls = calls + 1 return a + b end)")
                .isError());
        Closure<int (*)(int, int)> typed;
        static_cast<ClosureAny&>(typed) = *sRemembered;
        sRemembered.reset();
        const ObjectHandle function = *typed.getHandle();
        ASSERT_EQ(typed(1, 2).value(), 3);
        LifetimeRegistry& registry = *context().getLifetimeRegistry();
        const uint64_t typedBefore = mRuntime->computeContextStats(context().getContextId())->typedCalls;
        switch (change)
        {
        case Change::ObjectDestroyed:
            registry.destroyObject(function);
            break;
        case Change::PlaceTakenByAnotherFunction:
            registry.destroyObject(function);
            // The run lets go of the old place, and the next function native code holds takes it.
            ASSERT_FALSE(
                run("require('@test/zoo').remember(function(a, b) other = other + 1 return -1 end)").isError());
            break;
        case Change::RegistryDestroyed:
            registry.destroyLifetimeScope(false);
            break;
        }
        Result<int> after = typed(1, 2);
        ASSERT_TRUE(after.isError());
        EXPECT_EQ(ResultAny(std::move(after)).tryGetError()->message, ClosureAny::INVALID_CALL_MESSAGE);
        if (change != Change::RegistryDestroyed)
        {
            EXPECT_EQ(mRuntime->computeContextStats(context().getContextId())->typedCalls, typedBefore);
            EXPECT_EQ(integer(run("return calls")), 1);
            EXPECT_EQ(integer(run("return other")), 0);
        }
    }
    sRemembered.reset();
}

// A closure that outlived its context must not reach a later context that got the same id, even though it
// remembers where its function was.
TEST_F(LuaScriptValuesTest, TypedClosureOfAClosedContextStaysOutOfTheNextOne)
{
    ASSERT_FALSE(run("require('@test/zoo').remember(function(a, b) return a + b end)").isError());
    Closure<int (*)(int, int)> typed;
    static_cast<ClosureAny&>(typed) = *sRemembered;
    ASSERT_EQ(typed(1, 2).value(), 3);
    const ContextId closedId = context().getContextId();
    sRemembered.reset();
    mContext.reset();
    ASSERT_FALSE(
        run("calls = 0 require('@test/zoo').remember(function(a, b) calls = calls + 1 return 7 end)").isError());
    ASSERT_EQ(context().getContextId(), closedId) << "the case needs the id used again";
    Result<int> after = typed(1, 2);
    ASSERT_TRUE(after.isError());
    EXPECT_EQ(ResultAny(std::move(after)).tryGetError()->message, ClosureAny::INVALID_CALL_MESSAGE);
    EXPECT_EQ(integer(run("return calls")), 0);
}

// What the runtime cached for a closure names its context by a serial that a later context of the same id does not
// share: a cache kept past the context's end never reaches the next context's functions, even where the slot and
// the count of values let go would match.
TEST_F(LuaScriptValuesTest, TypedCallCacheOfAClosedContextIsRefusedByTheNextOne)
{
    // The cache belongs to the typed road, which this case needs on whichever road the others run.
    install(Lua::LuaRuntimeSettings{});
    ASSERT_FALSE(run("require('@test/zoo').remember(function(a, b) return a + b end)").isError());
    const ContextId id = context().getContextId();
    const ObjectHandle function = *sRemembered->getHandle();
    Reflection::TypedValue values[2]{};
    values[0].integer = 1;
    values[1].integer = 2;
    const Reflection::TypedKind kinds[2] = {Reflection::TypedKind::Int32, Reflection::TypedKind::Int32};
    const Reflection::TypedClosureCall call{values, kinds, 2, Reflection::TypedKind::Int32};
    Reflection::TypedClosureCache cache;
    Reflection::TypedReturn result;
    ResultAny failure;
    ASSERT_EQ(mRuntime->callClosureTyped(id, function, cache, call, Reflection::resolve<int>(), result, failure),
              Reflection::TypedClosureStatus::Done);
    EXPECT_EQ(result.value.integer, 3);
    ASSERT_NE(cache.owner, 0U);
    sRemembered.reset();
    mContext.reset();
    ASSERT_FALSE(
        run("calls = 0 require('@test/zoo').remember(function(a, b) calls = calls + 1 return 7 end)").isError());
    ASSERT_EQ(context().getContextId(), id) << "the case needs the id used again";
    EXPECT_EQ(mRuntime->callClosureTyped(id, function, cache, call, Reflection::resolve<int>(), result, failure),
              Reflection::TypedClosureStatus::Unsupported);
    EXPECT_EQ(cache.owner, 0U) << "a refused cache is emptied";
    EXPECT_EQ(integer(run("return calls")), 0);
}

TEST_F(LuaScriptValuesTest, ClosuresOfOneFunctionCompareEqual)
{
    ASSERT_FALSE(run("f = function() end g = function() end require('@test/zoo').remember(f)").isError());
    const ClosureAny first = *sRemembered;
    ASSERT_FALSE(run("require('@test/zoo').remember(f)").isError());
    EXPECT_TRUE(first == *sRemembered);
    ASSERT_FALSE(run("require('@test/zoo').remember(g)").isError());
    EXPECT_FALSE(first == *sRemembered);
}

TEST_F(LuaScriptValuesTest, PromiseMadeByNativeSettlesInTheScript)
{
    const ContextId id = context().getContextId();
    std::optional<PromiseAny> promise = mRuntime->createPromise(id);
    ASSERT_TRUE(promise.has_value() && promise->valid());
    ASSERT_FALSE(run("require('@test/zoo').remember(function(p) p:next(function(v) result = v end) end)").isError());
    ASSERT_FALSE(callRemembered({entt::meta_any{Reflection::context(), *promise}}, entt::meta_type{}).isError());
    EXPECT_EQ(integer(run("return result == nil and 1 or 0")), 1);
    EXPECT_FALSE(promise->resolve(entt::meta_any{Reflection::context(), 7}).isError());
    EXPECT_EQ(integer(run("return result")), 7);
    EXPECT_EQ(errorText(promise->reject(entt::meta_any{Reflection::context(), std::string("late")})),
              "The promise was settled already");
}
} // namespace
} // namespace LuaTest
