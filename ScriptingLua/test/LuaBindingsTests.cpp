#include "LuaTestSupport.h"

#include <gmock/gmock.h>

using namespace Scripting;
using ::testing::HasSubstr;

namespace LuaTest
{
namespace
{
using LuaBindingsTest = LuaEngineTest;

struct ScriptCase
{
    const char* name;
    const char* source;
    int64_t expected;
};

// Each script returns an integer computed through the bindings; every kind of record takes part.
class LuaRecordsTest : public LuaEngineTest, public ::testing::WithParamInterface<ScriptCase>
{
};

TEST_P(LuaRecordsTest, ScriptReachesNativeCode)
{
    const ResultAny result = run(GetParam().source);
    ASSERT_FALSE(result.isError()) << errorText(result);
    EXPECT_EQ(integer(result), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Records, LuaRecordsTest,
    ::testing::Values(
        ScriptCase{"Constructor", "local zoo = require('@test/zoo') return zoo.Counter.new(5).value", 5},
        ScriptCase{"ConstructorCalledAsClass", "local zoo = require('@test/zoo') return zoo.Counter(6).value", 6},
        ScriptCase{"ConstructorDefault", "local zoo = require('@test/zoo') return zoo.Counter.new().value", 0},
        ScriptCase{"Method", "local zoo = require('@test/zoo') local c = zoo.Counter(1) c:increment(3) return c.value",
                   4},
        ScriptCase{"PropertySet",
                   "local zoo = require('@test/zoo') local c = zoo.Counter() c.value = 99 return c.value", 99},
        ScriptCase{"StaticFunction", "local zoo = require('@test/zoo') return zoo.Counter.twice(21)", 42},
        ScriptCase{"ClassConstant", "local zoo = require('@test/zoo') return zoo.Counter.LIMIT", 1000},
        ScriptCase{"ModuleConstant", "return require('@test/zoo').ANSWER", 42},
        ScriptCase{"ObjectFactory", "local zoo = require('@test/zoo') return zoo.keeper.value", 42},
        ScriptCase{"ObjectFactoryMadeOnce",
                   "local zoo = require('@test/zoo') zoo.keeper:increment(1) return zoo.keeper.value", 43},
        ScriptCase{"Vector", "return require('@test/zoo').sum({1, 2, 3, 4})", 10},
        ScriptCase{"EmptyVector", "return require('@test/zoo').sum({})", 0},
        ScriptCase{"VectorOfClassObjects",
                   "local zoo = require('@test/zoo') return zoo.totalValue({zoo.Counter(2), zoo.Counter(5)})", 7},
        // {4, nil, 2, nil, 0}: the holes of a returned vector of optionals are nils.
        ScriptCase{
            "VectorInsideResult",
            "local t = require('@test/zoo').countdown(4) return t[1] * 100 + t[3] * 10 + (t[2] == nil and 1 or 0)",
            421},
        ScriptCase{"OptionalPresent", "return require('@test/zoo').maybeDouble(4)", 8},
        ScriptCase{"OptionalAbsent", "return require('@test/zoo').maybeDouble(nil) == nil and 1 or 0", 1},
        ScriptCase{"OptionalLeftOut", "return require('@test/zoo').maybeDouble() == nil and 1 or 0", 1},
        ScriptCase{"DefaultArgument", "return math.floor(require('@test/zoo').scale(3))", 6},
        ScriptCase{"FloatArgument", "return math.floor(require('@test/zoo').scale(3, 0.5) * 10)", 15},
        ScriptCase{"SmallUnsigned", "return require('@test/zoo').byteEcho(255)", 255},
        ScriptCase{"StringEnumMembers", "local zoo = require('@test/zoo') return zoo.Mood.Sad == 'Sad' and 1 or 0", 1},
        ScriptCase{"StringEnumRoundTrip",
                   "local zoo = require('@test/zoo') return zoo.nextMood(zoo.Mood.Happy) == 'Sad' and 1 or 0", 1},
        ScriptCase{"NumericEnum", "local zoo = require('@test/zoo') return zoo.levelNumber(zoo.Level.High)", 5},
        ScriptCase{"NumericEnumByNumber", "return require('@test/zoo').levelNumber(1)", 1},
        ScriptCase{
            "InterfaceFromTable",
            "local zoo = require('@test/zoo') "
            "return zoo.describeSettings({volume = 7, title = 'x', list = {4, 5}}) == 'x:7:none:4,5,' and 1 or 0",
            1},
        ScriptCase{"InterfaceDefaultsKept",
                   "return require('@test/zoo').describeSettings({}) == 'untitled:1:none:' and 1 or 0", 1},
        ScriptCase{"InterfaceToTable",
                   "local s = require('@test/zoo').defaultSettings() return s.volume * 100 + #s.list * 10 + s.list[2]",
                   322},
        ScriptCase{"InterfaceShape", "return #require('@test/zoo').Settings.fields", 4},
        ScriptCase{"BaseMethodOnDerived",
                   "local zoo = require('@test/zoo') local d = zoo.Dog() return #d:speak() + #d:fetch()", 8},
        ScriptCase{"DerivedPassedAsBase",
                   "local zoo = require('@test/zoo') local d = zoo.Dog() d.legs = 3 return zoo.legsOf(d)", 3},
        ScriptCase{"TypedHandleArgument", "local zoo = require('@test/zoo') return zoo.counterValue(zoo.Counter(12))",
                   12},
        ScriptCase{"ResultValue", "return require('@test/zoo').fail(0)", 7},
        ScriptCase{"ErrorFields",
                   "local ok, e = pcall(require('@test/zoo').fail, 3) "
                   "return (not ok and e.name == 'ZooError' and e.message == 'the zoo refused') and e.code or -1",
                   3},
        ScriptCase{"CommonModule",
                   "local common = require('@zentary/common') return common.InvalidArgumentErrorType.Empty == "
                   "'Empty' and 1 or 0",
                   1},
        ScriptCase{"ObjectIdentity",
                   "local zoo = require('@test/zoo') local c = zoo.Counter() local k1, k2 = zoo.keeper, zoo.keeper "
                   "return (k1 == k2 and c ~= k1) and 1 or 0",
                   1}),
    [](const ::testing::TestParamInfo<ScriptCase>& info) { return info.param.name; });

struct FailureCase
{
    const char* name;
    const char* source;
    const char* errorName;
    const char* messagePart;
};

// A script that misuses the bindings gets an error value naming what went wrong; so does the run.
class LuaErrorPathTest : public LuaEngineTest, public ::testing::WithParamInterface<FailureCase>
{
};

TEST_P(LuaErrorPathTest, MisuseIsAnErrorValue)
{
    const ResultAny result = run(std::string("local zoo = require('@test/zoo')\n") + GetParam().source);
    ASSERT_TRUE(result.isError());
    const Error* error = result.tryGetError();
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->name, GetParam().errorName) << error->message;
    EXPECT_THAT(error->message, HasSubstr(GetParam().messagePart));
}

INSTANTIATE_TEST_SUITE_P(
    Errors, LuaErrorPathTest,
    ::testing::Values(
        FailureCase{"TooManyArguments", "zoo.Counter.twice(1, 2)", "InvalidArgumentError",
                    "Counter.twice takes at most 1 argument(s), got 2"},
        FailureCase{"MissingArgument", "zoo.Counter.twice()", "InvalidArgumentError",
                    "Missing or empty: argument 'value' of Counter.twice needs an int, got nil"},
        FailureCase{"WrongType", "zoo.Counter.twice('x')", "InvalidArgumentError",
                    "Expected type: int for argument 'value' of Counter.twice, got string"},
        FailureCase{"NoIntegerValue", "zoo.Counter.twice(1.5)", "InvalidArgumentError", "(no integer value)"},
        FailureCase{"ArgumentBounds", "zoo.Counter(1):increment(11)", "ArgumentOutOfBoundsError",
                    "argument 'by' of Counter:increment, Value: 11, Argument bounds: [1, 10]"},
        FailureCase{"TypeLimits", "zoo.byteEcho(256)", "ArgumentOutOfBoundsError", "Argument bounds: [0, 255]"},
        FailureCase{"PropertyBounds", "zoo.Counter().value = 1001", "PropertyOutOfBoundsError",
                    "Property: Counter.value, Value: 1001, Property bounds: [0, 1000]"},
        FailureCase{"ReadOnlyProperty", "zoo.Counter().label = 'x'", "Error", "Counter.label is read-only"},
        FailureCase{"UnknownProperty", "zoo.Counter().nope = 1", "Error", "Counter has no property 'nope'"},
        FailureCase{"AcceptedStrings", "zoo.pick('medium')", "InvalidArgumentError",
                    "argument 'mode' of @test/zoo.pick is not one of the accepted values, got 'medium'"},
        FailureCase{"VectorElementType", "zoo.sum({1, 'two'})", "InvalidArgumentError",
                    "argument 'values' of @test/zoo.sum[2], got string"},
        FailureCase{"VectorElementBounds", "zoo.sum({1, 200})", "ArgumentOutOfBoundsError",
                    "Argument bounds: [-100, 100]"},
        FailureCase{"EnumUnknownName", "zoo.nextMood('Angry')", "InvalidArgumentError", "(one of: Happy, Sad)"},
        FailureCase{"EnumUnknownNumber", "zoo.levelNumber(3)", "InvalidArgumentError", "Low (1), High (5)"},
        FailureCase{"InterfaceFieldType", "zoo.describeSettings({volume = 'x'})", "InvalidArgumentError",
                    "argument 'settings' of @test/zoo.describeSettings.volume, got string"},
        FailureCase{"InterfaceFieldBounds", "zoo.describeSettings({volume = 11})", "ArgumentOutOfBoundsError",
                    "describeSettings.volume, Value: 11, Argument bounds: [0, 10]"},
        FailureCase{"InterfaceUnknownField", "zoo.describeSettings({volumes = 1})", "InvalidArgumentError",
                    "Settings has no field 'volumes'"},
        FailureCase{"MethodWithDot", "local c = zoo.Counter() c.increment(1)", "InvalidArgumentError",
                    "Counter for the object of Counter:increment (call it with ':'), got integer"},
        FailureCase{"MethodOnOtherClass", "local c = zoo.Counter() c.increment(zoo.Dog(), 1)", "InvalidArgumentError",
                    "Counter for the object of Counter:increment, got Dog"},
        FailureCase{"ObjectDestroyedByNative", "local c = zoo.Counter() zoo.destroy(c) return c.value", "Error",
                    "the object was destroyed by native code"},
        FailureCase{"DestroyedObjectAsArgument", "local c = zoo.Counter() zoo.destroy(c) zoo.counterValue(c)",
                    "InvalidArgumentError", "was destroyed by native code"},
        FailureCase{"ResultError", "zoo.fail(9)", "ZooError", "the zoo refused"},
        FailureCase{"NativeException", "zoo.throws()", "Error",
                    "@test/zoo.throws failed in native code: native failure"},
        FailureCase{"MissingRuntimeCondition", "zoo.needsGpu()", "RuntimeConditionError",
                    "@test/zoo.needsGpu is missing these runtime conditions: gpu"},
        FailureCase{"UnknownModule", "require('@test/nothing')", "Error",
                    "module '@test/nothing' is not available in this context"},
        FailureCase{"ScriptError", "error('plain failure')", "Error", "test.lua:2: plain failure"}),
    [](const ::testing::TestParamInfo<FailureCase>& info) { return info.param.name; });

TEST_F(LuaBindingsTest, SyntaxErrorHasFileAndLine)
{
    const ResultAny result = run("local a = 1\nlocal = 2\n", "broken.lua");
    ASSERT_TRUE(result.isError());
    const Error* error = result.tryGetError();
    ASSERT_NE(error, nullptr);
    EXPECT_THAT(error->message, HasSubstr("broken.lua:2:"));
    EXPECT_EQ(error->fileName, "broken.lua");
    ASSERT_EQ(error->getCallStack().size(), 1u);
    EXPECT_EQ(error->getCallStack()[0].file, "broken.lua");
    EXPECT_EQ(error->getCallStack()[0].line, 2);
}

TEST_F(LuaBindingsTest, RuntimeErrorCarriesTheScriptsCallStack)
{
    const ResultAny result = run("local function inner()\n  error('deep')\nend\n"
                                 "local function outer()\n  inner()\nend\nouter()\n",
                                 "stack.lua");
    ASSERT_TRUE(result.isError());
    const Error* error = result.tryGetError();
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->fileName, "stack.lua");
    std::vector<std::pair<std::string, int>> frames;
    for (const CallStackEntry& entry : error->getCallStack())
    {
        if (entry.file == "stack.lua")
        {
            frames.emplace_back(entry.function, entry.line);
        }
    }
    const std::vector<std::pair<std::string, int>> expected{{"inner", 2}, {"outer", 5}, {"<main>", 7}};
    EXPECT_EQ(frames, expected);
}

TEST_F(LuaBindingsTest, NativeErrorsCarryThePlaceOfTheCall)
{
    const ResultAny result = run("local zoo = require('@test/zoo')\n\nzoo.Counter.twice('x')\n", "place.lua");
    const Error* error = result.tryGetError();
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->fileName, "place.lua");
    bool found = false;
    for (const CallStackEntry& entry : error->getCallStack())
    {
        found = found || (entry.file == "place.lua" && entry.line == 3);
    }
    EXPECT_TRUE(found) << error->getStack().value_or("<no stack>");
}

TEST_F(LuaBindingsTest, ErrorValuesCanBeCaughtAndInspectedByScripts)
{
    const ResultAny result = run(R"(
        local zoo = require('@test/zoo')
        local ok, e = pcall(function() zoo.Counter(1):increment(50) end)
        assert(not ok)
        return e.name .. '|' .. e.index .. '|' .. e.value .. '|' .. e.minValue .. '|' .. e.maxValue
    )");
    EXPECT_EQ(text(result), "ArgumentOutOfBoundsError|0|50.0|1.0|10.0");
}

TEST_F(LuaBindingsTest, VersionFilteringIsVisibleFromLua)
{
    const char* probe = R"(
        local zoo = require('@test/zoo')
        local c = zoo.Counter(1)
        return (zoo.newInTwo and 'newInTwo ' or '') .. (zoo.oldOnly and 'oldOnly ' or '') ..
               (c.reset and 'reset ' or '') .. (zoo.Mood.Bored and 'Bored' or '')
    )";
    EXPECT_EQ(text(run(probe)), "oldOnly ");

    mContext.reset();
    context(Version(2, 0, 0));
    EXPECT_EQ(text(run(probe)), "newInTwo reset Bored");
}

TEST_F(LuaBindingsTest, ModulesAreCachedPerContext)
{
    EXPECT_EQ(integer(run("return require('@test/zoo') == require('@test/zoo') and 1 or 0")), 1);
}

TEST_F(LuaBindingsTest, ScriptObjectsLiveInTheContextsRegistry)
{
    const int before = Counter::sAlive;
    ASSERT_FALSE(run("held = require('@test/zoo').Counter(3)").isError());
    EXPECT_EQ(Counter::sAlive, before + 1);
    LifetimeRegistry* registry = context().getLifetimeRegistry();
    ASSERT_NE(registry, nullptr);
    EXPECT_EQ(Scripting::internal::ObjectRegistryUtilities::entitiesWith<Counter>(registry->registry).size(), 1u);
}

TEST_F(LuaBindingsTest, CollectedValuesReleaseTheirObjects)
{
    const int before = Counter::sAlive;
    ASSERT_FALSE(run("local zoo = require('@test/zoo') for i = 1, 100 do local c = zoo.Counter(i) end").isError());
    ASSERT_TRUE(mRuntime->collectGarbage(context().getContextId()));
    EXPECT_EQ(Counter::sAlive, before);

    ASSERT_FALSE(run("kept = {} for i = 1, 10 do kept[i] = require('@test/zoo').Counter(i) end").isError());
    mRuntime->collectGarbage(context().getContextId());
    EXPECT_EQ(Counter::sAlive, before + 10);
    ASSERT_FALSE(run("kept = nil collectgarbage()").isError());
    EXPECT_EQ(Counter::sAlive, before);
}

TEST_F(LuaBindingsTest, ValuesFreedWithoutTheirFinalizerStillReleaseWhatTheyHold)
{
    // A collection taken just below the limit of nested C calls cannot call finalizers, and Lua frees their
    // objects all the same: the error values collected there must still free their native errors (the leak
    // checker sees those) and the objects must still be released.
    const int before = Counter::sAlive;
    const ResultAny result = run(R"(
        local zoo = require('@test/zoo')
        local held = {}
        for i = 1, 50 do
            held[#held + 1] = zoo.Counter(i)
            held[#held + 1] = select(2, pcall(zoo.Counter.twice, 'x'))
        end
        local depth, deepest = 0, 0
        local function deeper()
            depth = depth + 1
            if not pcall(deeper) and deepest == 0 then
                deepest = depth
                held = nil
                collectgarbage()
            end
            depth = depth - 1
        end
        deeper()
        return deepest
    )");
    EXPECT_GT(integer(result), 100) << "the nesting stopped early, not at the limit of C calls";
    // Lua frees them in the next collection, at any depth.
    ASSERT_TRUE(mRuntime->collectGarbage(context().getContextId()));
    EXPECT_EQ(Counter::sAlive, before);
    EXPECT_EQ(mRuntime->computeContextStats(context().getContextId())->scriptHeldObjects, 0u);
    EXPECT_EQ(integer(run("return 40 + 2")), 42);
}

TEST_F(LuaBindingsTest, CollectionDuringANativeCallReleasesAfterIt)
{
    // A release could destroy objects and move others in their storage under the call's feet, so what the
    // collector frees while a native call runs is released when the call returns.
    const ResultAny result = run(R"(
        local zoo = require('@test/zoo')
        local before = zoo.aliveCounters()
        local held = {}
        for i = 1, 5 do held[i] = zoo.Counter(i) end
        local during
        zoo.callTwice(function(x) held = nil collectgarbage() during = zoo.aliveCounters() return x end, 1)
        collectgarbage()
        return (during - before) * 10 + (zoo.aliveCounters() - before)
    )");
    EXPECT_EQ(integer(result), 50) << errorText(result);
}

// Handles that native code returns become objects of the script, each with a reference of its own: a strong
// handle returned by reference stays with its owner, a weak one gives nil once its object is gone.
TEST_F(LuaBindingsTest, ReturnedHandlesGiveTheScriptItsOwnReference)
{
    const int before = Counter::sAlive;
    const ResultAny result = run(R"(
        local zoo = require('@test/zoo')
        zoo.keepCounter(zoo.Counter(5))
        local a, b = zoo.keptCounter(), zoo.keptCounter()
        a.value = 7
        local weak = zoo.weakKeptCounter()
        return b.value + (a == b and 100 or 0) + (weak == a and 1000 or 0)
    )");
    EXPECT_EQ(integer(result), 1107) << errorText(result);
    ASSERT_TRUE(mRuntime->collectGarbage(context().getContextId()));
    ASSERT_TRUE(sKeptCounter.valid()) << "the script must not take the reference of the native handle";
    EXPECT_EQ(context().getLifetimeRegistry()->getReferenceCount(sKeptCounter.getHandle()), 1u);
    EXPECT_EQ(sKeptCounter->value, 7);
    EXPECT_EQ(Counter::sAlive, before + 1);

    ASSERT_FALSE(run("held = require('@test/zoo').keptCounter()").isError());
    EXPECT_EQ(context().getLifetimeRegistry()->getReferenceCount(sKeptCounter.getHandle()), 2u);
    sKeptCounter = {};
    EXPECT_EQ(Counter::sAlive, before + 1) << "the script's value keeps it alive";
    ASSERT_FALSE(run("held = nil collectgarbage()").isError());
    EXPECT_EQ(Counter::sAlive, before);
    EXPECT_EQ(integer(run("return require('@test/zoo').weakKeptCounter() == nil and 1 or 0")), 1);
}

// Objects that the registry tracks by pointer live outside the storage of objects held by value; scripts reach
// each kind correctly whichever the first one the context met was.
TEST_F(LuaBindingsTest, ObjectsTrackedByPointerAndByValueMix)
{
    for (const bool trackedFirst : {true, false})
    {
        SCOPED_TRACE(trackedFirst);
        mContext.reset();
        Counter outside(40);
        LifetimeRegistry* registry = context().getLifetimeRegistry();
        ASSERT_NE(registry, nullptr);
        {
            StrongObjectHandle tracked = registry->trackObjectWithPointer(&outside);
            ASSERT_FALSE(mRuntime->setGlobal(context().getContextId(), "tracked", entt::meta_any{tracked}).isError());
        }
        // The object reached first decides whether the class's storage is found at once or after a miss.
        const char* order = trackedFirst ? "local first, second = tracked, zoo.Counter.new(1) "
                                         : "local first, second = zoo.Counter.new(1), tracked ";
        const ResultAny result = run(std::string("local zoo = require('@test/zoo') ") + order + R"(
            local total = 0
            for round = 1, 6 do
                total = total + first:increment(1) + second:increment(2)
                first.value = first.value + 1
                total = total + zoo.addTo(second, 0) + zoo.addTo(first, 0)
            end
            return total * 1000 + tracked.value
        )");
        ASSERT_FALSE(result.isError()) << errorText(result);
        EXPECT_EQ(outside.value, 52);
        const int64_t total = integer(result);
        EXPECT_EQ(total % 1000, 52);
        // The script held the record's only reference: dropping it ends the record before `outside` goes.
        ASSERT_FALSE(run("tracked = nil collectgarbage()").isError());
        mContext.reset();
        EXPECT_EQ(total / 1000, 654);
    }
}

TEST_F(LuaBindingsTest, ContextTeardownDestroysObjectsScriptsHold)
{
    const int before = Counter::sAlive;
    ASSERT_FALSE(run("kept = {} for i = 1, 10 do kept[i] = require('@test/zoo').Counter(i) end").isError());
    EXPECT_EQ(Counter::sAlive, before + 10);
    mContext.reset();
    EXPECT_EQ(Counter::sAlive, before);
}

TEST_F(LuaBindingsTest, ValuesHandedBackToNativeKeepTheirType)
{
    const ResultAny result = run("return require('@test/zoo').Counter(8)");
    ASSERT_FALSE(result.isError()) << errorText(result);
    const StrongObjectHandle* handle = result.any().try_cast<const StrongObjectHandle>();
    ASSERT_NE(handle, nullptr);
    EXPECT_TRUE(handle->valid());
    EXPECT_EQ(handle->asAny().cast<const Counter&>().value, 8);
}
} // namespace
} // namespace LuaTest
