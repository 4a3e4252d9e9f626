// The typed road of calls and properties against the general path: the same script must give the same value or
// the same error on both, and the road each access took must be the one its types and values call for.
#include "LuaTestSupport.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

using namespace Scripting;

namespace
{
enum class Road
{
    // The native code ran from the typed road.
    Typed,
    // The typed road handed the access on; the general path answered.
    Declined,
};

struct TypedCase
{
    const char* name;
    const char* source;
    // "value: ..." or "error: <name>: <message>".
    const char* expected;
    Road road;
};

struct Outcome
{
    std::string text;
    uint64_t typed = 0;
    uint64_t declined = 0;
};

class LuaTypedCalls : public LuaTest::LuaEngineTest, public ::testing::WithParamInterface<TypedCase>
{
protected:
    Outcome runOn(bool typedCalls, const std::string& body)
    {
        mContext.reset();
        Lua::LuaRuntimeSettings settings;
        settings.typedCalls = typedCalls;
        install(std::move(settings));
        const ResultAny result = run("local zoo = require('@test/zoo') " + body);
        Outcome outcome;
        outcome.text = describe(result);
        const std::optional<Lua::LuaContextStats> stats = mRuntime->computeContextStats(context().getContextId());
        EXPECT_TRUE(stats.has_value());
        if (stats.has_value())
        {
            outcome.typed = stats->typedCalls;
            outcome.declined = stats->typedCallsDeclined;
        }
        return outcome;
    }

    static std::string describe(const ResultAny& result)
    {
        if (const Error* error = result.tryGetError())
        {
            return fmt::format("error: {}: {}", error->name, error->message);
        }
        const entt::meta_any& value = result.any();
        if (const auto* integer = value.try_cast<const int64_t>())
        {
            return fmt::format("value: {}", *integer);
        }
        if (const auto* number = value.try_cast<const double>())
        {
            return fmt::format("value: {}", *number);
        }
        if (const auto* text = value.try_cast<const std::string>())
        {
            return fmt::format("value: '{}'", *text);
        }
        if (const auto* flag = value.try_cast<const bool>())
        {
            return fmt::format("value: {}", *flag);
        }
        return "value: other";
    }
};

TEST_P(LuaTypedCalls, GiveWhatTheGeneralPathGives)
{
    const TypedCase& current = GetParam();
    const Outcome general = runOn(false, current.source);
    const Outcome typed = runOn(true, current.source);

    EXPECT_EQ(general.text, current.expected);
    EXPECT_EQ(typed.text, general.text);
    EXPECT_EQ(general.typed + general.declined, 0u) << "a runtime with typed calls off took the typed road";
    if (current.road == Road::Typed)
    {
        EXPECT_GE(typed.typed, 1u);
        EXPECT_EQ(typed.declined, 0u);
    }
    else
    {
        EXPECT_GE(typed.declined, 1u);
    }
}

// Each script ends in the access under test; what comes before it takes the typed road or none.
const TypedCase TYPED_CASES[] = {
    // Values that fit take the typed road, results of every kind come back.
    {"StaticFunction", "return zoo.Counter.twice(21)", "value: 42", Road::Typed},
    {"IntegerFromFloatAndString", "return zoo.Counter.twice(2.0) + zoo.Counter.twice('3')", "value: 10", Road::Typed},
    {"Unsigned8", "return zoo.byteEcho(255)", "value: 255", Road::Typed},
    {"FloatsBothGiven", "return zoo.scale(1.5, 4)", "value: 6", Road::Typed},
    {"StringWithAcceptedValue", "return zoo.pick('fast')", "value: 'fast!'", Road::Typed},
    {"MethodWithinBounds", "local c = zoo.Counter.new(1) return c:increment(10)", "value: 11", Road::Typed},
    {"ObjectByReference", "local c = zoo.Counter.new(5) zoo.addTo(c, 2) return c.value", "value: 7", Road::Typed},
    {"PropertyWrite", "local c = zoo.Counter.new(0) c.value = 1000 return c.value", "value: 1000", Road::Typed},
    {"StringProperty", "local c = zoo.Counter.new(0) return c.label", "value: 'counter'", Road::Typed},
    {"Void", "local c = zoo.Counter.new(3) zoo.addTo(c, -3) return c.value", "value: 0", Road::Typed},
    // Constructors take the scope from the context and hand their object's reference to the script; nothing else
    // in these scripts has a typed road.
    {"Constructor", "return zoo.counterValue(zoo.Counter.new(7))", "value: 7", Road::Typed},
    {"ConstructorByCall", "return zoo.counterValue(zoo.Counter(8))", "value: 8", Road::Typed},
    {"ConstructorOfDerivedClass", "return tostring(zoo.Dog.new()):sub(1, 3)", "value: 'Dog'", Road::Typed},
    // Destroying objects moves others in their storage; each box must still reach its own object.
    {"ObjectsMovedByDestruction",
     "local list = {} for i = 1, 40 do list[i] = zoo.Counter.new(i) end list[2].value = 2 "
     "for i = 1, 40, 3 do zoo.destroy(list[i]) end local sum = 0 "
     "for i = 1, 40 do if i % 3 ~= 1 then "
     "  sum = sum + list[i].value + list[i]:increment(1) list[i].value = list[i].value * 2 zoo.addTo(list[i], 0) "
     "end end "
     "for i = 1, 40 do if i % 3 ~= 1 then sum = sum + list[i].value end end return sum",
     "value: 2210", Road::Typed},

    {"Int8Limits", "return zoo.echoInt8(-128) * 1000 + zoo.echoInt8(127)", "value: -127873", Road::Typed},
    {"UInt16Limits", "return zoo.echoUInt16(0) + zoo.echoUInt16(65535)", "value: 65535", Road::Typed},
    {"Int32Limits", "return zoo.echoInt32(-2147483648) + zoo.echoInt32(2147483647)", "value: -1", Road::Typed},
    {"UInt32Limits", "return zoo.echoUInt32(4294967295)", "value: 4294967295", Road::Typed},
    {"Int64Limits", "return zoo.echoInt64(math.mininteger) + zoo.echoInt64(math.maxinteger)", "value: -1", Road::Typed},
    {"UInt64Limits", "return zoo.echoUInt64(0) + zoo.echoUInt64(math.maxinteger)", "value: 9223372036854775807",
     Road::Typed},

    // Objects of classes without properties: methods come from the method table itself.
    {"MethodWithoutProperties", "local b = zoo.Bell.new() b:ring(2) return b:ring(3)", "value: 5", Road::Typed},
    {"MissingMemberWithoutProperties", "return tostring(zoo.Bell.new().nothing)", "value: 'nil'", Road::Typed},
    {"OwnMethodOfDerivedWithoutProperties", "local b = zoo.LoudBell.new() return b:shout()", "value: 0", Road::Typed},

    // Valid calls that the typed road hands on: a default, a derived object.
    {"InheritedMethodWithoutProperties", "local b = zoo.LoudBell.new() return b:ring(2) + b:shout()", "value: 22",
     Road::Declined},
    {"DefaultArgument", "return zoo.scale(3)", "value: 6", Road::Declined},
    {"NilTakesTheDefault", "return zoo.scale(3, nil)", "value: 6", Road::Declined},
    {"ConstructorDefault", "return zoo.Counter.new().value", "value: 0", Road::Declined},
    {"ConstructorByCallDefault", "return zoo.Counter().value", "value: 0", Road::Declined},
    {"DerivedObjectForBase", "return zoo.legsOf(zoo.Dog.new())", "value: 4", Road::Declined},
    {"InheritedMethod", "return zoo.Dog.new():speak()", "value: '...'", Road::Declined},
    {"InheritedProperty", "return zoo.Dog.new().legs", "value: 4", Road::Declined},

    // Every refusal, with the general path's words.
    {"TooManyArguments", "return zoo.Counter.twice(1, 2)",
     "error: InvalidArgumentError: Invalid value passed to argument [1]. Counter.twice takes at most 1 argument(s), "
     "got "
     "2",
     Road::Declined},
    {"MissingArgument", "return zoo.Counter.twice()",
     "error: InvalidArgumentError: Invalid value passed to argument [0]. Missing or empty: argument 'value' of "
     "Counter.twice needs an int, got nil",
     Road::Declined},
    {"WrongType", "return zoo.Counter.twice('x')",
     "error: InvalidArgumentError: Invalid type passed to function argument [0]. Expected type: int for argument "
     "'value' of Counter.twice, got string",
     Road::Declined},
    {"FloatWithoutIntegerValue", "return zoo.Counter.twice(1.5)",
     "error: InvalidArgumentError: Invalid type passed to function argument [0]. Expected type: int for argument "
     "'value' of Counter.twice, got number 1.5 (no integer value)",
     Road::Declined},
    {"OutOfTheTypesRange", "return zoo.byteEcho(256)",
     "error: ArgumentOutOfBoundsError: Unsupported or out of bounds value passed to function argument [0]: argument "
     "'value' of @test/zoo.byteEcho, Value: 256, Argument bounds: [0, 255]",
     Road::Declined},
    {"NegativeForUnsigned", "return zoo.byteEcho(-1)",
     "error: ArgumentOutOfBoundsError: Unsupported or out of bounds value passed to function argument [0]: argument "
     "'value' of @test/zoo.byteEcho, Value: -1, Argument bounds: [0, 255]",
     Road::Declined},
    {"FloatOverflow", "return zoo.scale(-1e39, 1)",
     "error: ArgumentOutOfBoundsError: Unsupported or out of bounds value passed to function argument [0]: argument "
     "'value' of @test/zoo.scale, Value: -999999999999999939709166371603178586112, Argument bounds: "
     "[-340282346638528859811704183484516925440, 340282346638528859811704183484516925440]",
     Road::Declined},
    {"Int8BelowItsRange", "return zoo.echoInt8(-129)",
     "error: ArgumentOutOfBoundsError: Unsupported or out of bounds value passed to function argument [0]: argument "
     "'value' of @test/zoo.echoInt8, Value: -129, Argument bounds: [-128, 127]",
     Road::Declined},
    {"Int8AboveItsRange", "return zoo.echoInt8(128)",
     "error: ArgumentOutOfBoundsError: Unsupported or out of bounds value passed to function argument [0]: argument "
     "'value' of @test/zoo.echoInt8, Value: 128, Argument bounds: [-128, 127]",
     Road::Declined},
    {"UInt16AboveItsRange", "return zoo.echoUInt16(65536)",
     "error: ArgumentOutOfBoundsError: Unsupported or out of bounds value passed to function argument [0]: argument "
     "'value' of @test/zoo.echoUInt16, Value: 65536, Argument bounds: [0, 65535]",
     Road::Declined},
    {"Int32BelowItsRange", "return zoo.echoInt32(-2147483649)",
     "error: ArgumentOutOfBoundsError: Unsupported or out of bounds value passed to function argument [0]: argument "
     "'value' of @test/zoo.echoInt32, Value: -2147483649, Argument bounds: [-2147483648, 2147483647]",
     Road::Declined},
    {"UInt32AboveItsRange", "return zoo.echoUInt32(4294967296)",
     "error: ArgumentOutOfBoundsError: Unsupported or out of bounds value passed to function argument [0]: argument "
     "'value' of @test/zoo.echoUInt32, Value: 4294967296, Argument bounds: [0, 4294967295]",
     Road::Declined},
    {"UInt32Negative", "return zoo.echoUInt32(-1)",
     "error: ArgumentOutOfBoundsError: Unsupported or out of bounds value passed to function argument [0]: argument "
     "'value' of @test/zoo.echoUInt32, Value: -1, Argument bounds: [0, 4294967295]",
     Road::Declined},
    {"UInt64Negative", "return zoo.echoUInt64(-1)",
     "error: ArgumentOutOfBoundsError: Unsupported or out of bounds value passed to function argument [0]: argument "
     "'value' of @test/zoo.echoUInt64, Value: -1, Argument bounds: [0, 18446744073709551616]",
     Road::Declined},
    {"UInt64PastLuaIntegers", "return zoo.echoUInt64(2^63)",
     "error: ArgumentOutOfBoundsError: Unsupported or out of bounds value passed to function argument [0]: argument "
     "'value' of @test/zoo.echoUInt64, Value: 9223372036854775808",
     Road::Declined},
    {"Int64FromFloatPastItsRange", "return zoo.echoInt64(2^63)",
     "error: ArgumentOutOfBoundsError: Unsupported or out of bounds value passed to function argument [0]: argument "
     "'value' of @test/zoo.echoInt64, Value: 9223372036854775808",
     Road::Declined},
    {"ConstructorArgumentOfWrongType", "return zoo.Counter.new('x')",
     "error: InvalidArgumentError: Invalid type passed to function argument [1]. Expected type: int for argument "
     "'start' of Counter.new, got string",
     Road::Declined},
    {"ConstructorTooManyArguments", "return zoo.Counter(1, 2)",
     "error: InvalidArgumentError: Invalid value passed to argument [1]. Counter.new takes at most 1 argument(s), got "
     "2",
     Road::Declined},
    {"OutOfBounds", "local c = zoo.Counter.new(1) return c:increment(11)",
     "error: ArgumentOutOfBoundsError: Unsupported or out of bounds value passed to function argument [0]: argument "
     "'by' of Counter:increment, Value: 11, Argument bounds: [1, 10]",
     Road::Declined},
    {"NotAnAcceptedValue", "return zoo.pick('medium')",
     "error: InvalidArgumentError: Invalid value passed to argument [0]. argument 'mode' of @test/zoo.pick is not one "
     "of the accepted values, got 'medium'",
     Road::Declined},
    {"BooleanForString", "return zoo.pick(true)",
     "error: InvalidArgumentError: Invalid type passed to function argument [0]. Expected type: string for argument "
     "'mode' of @test/zoo.pick, got boolean",
     Road::Declined},
    {"SelfMissing", "local c = zoo.Counter.new(1) return c.increment(5)",
     "error: InvalidArgumentError: Invalid type passed to function argument [0]. Expected type: Counter for the object "
     "of Counter:increment (call it with ':'), got integer",
     Road::Declined},
    {"SelfOfAnotherClass", "local c = zoo.Counter.new(1) return c.increment(zoo.Dog.new(), 1)",
     "error: InvalidArgumentError: Invalid type passed to function argument [0]. Expected type: Counter for the object "
     "of Counter:increment, got Dog",
     Road::Declined},
    {"OutOfBoundsWithoutProperties", "return zoo.Bell.new():ring(6)",
     "error: ArgumentOutOfBoundsError: Unsupported or out of bounds value passed to function argument [0]: argument "
     "'times' of Bell:ring, Value: 6, Argument bounds: [1, 5]",
     Road::Declined},
    {"SelfMissingWithoutProperties", "return zoo.Bell.new().ring(1)",
     "error: InvalidArgumentError: Invalid type passed to function argument [0]. Expected type: Bell for the object "
     "of Bell:ring (call it with ':'), got integer",
     Road::Declined},
    {"SelfOfAnotherClassWithoutProperties", "return zoo.Bell.new().ring(zoo.Counter.new(1), 1)",
     "error: InvalidArgumentError: Invalid type passed to function argument [0]. Expected type: Bell for the object "
     "of Bell:ring, got Counter",
     Road::Declined},
    {"DestroyedSelfWithoutProperties", "local b = zoo.Bell.new() zoo.destroy(b) return b:ring(1)",
     "error: Error: Bell:ring: the Bell object was destroyed by native code", Road::Declined},

    {"DestroyedSelf", "local c = zoo.Counter.new(1) zoo.destroy(c) return c:increment(1)",
     "error: Error: Counter:increment: the Counter object was destroyed by native code", Road::Declined},
    {"DestroyedArgument", "local c = zoo.Counter.new(1) zoo.destroy(c) return zoo.addTo(c, 1)",
     "error: InvalidArgumentError: Invalid value passed to argument [0]. argument 'counter' of @test/zoo.addTo: the "
     "Counter was destroyed by native code",
     Road::Declined},
    {"ObjectOfAnotherClass", "return zoo.addTo(zoo.Dog.new(), 1)",
     "error: InvalidArgumentError: Invalid type passed to function argument [0]. Expected type: Counter for argument "
     "'counter' of @test/zoo.addTo, got Dog",
     Road::Declined},
    {"PropertyOutOfBounds", "local c = zoo.Counter.new() c.value = 1001",
     "error: PropertyOutOfBoundsError: Unsupported or out of bounds value set on Property: Counter.value, Value: 1001, "
     "Property bounds: [0, 1000]",
     Road::Declined},
    {"PropertyNumberAsString", "local c = zoo.Counter.new() c.value = '5'",
     "error: InvalidArgumentError: Invalid type passed to function argument [0]. Expected type: int for property "
     "Counter.value, got string",
     Road::Declined},
    {"PropertyOfDestroyedObject", "local c = zoo.Counter.new() zoo.destroy(c) return c.value",
     "error: Error: Counter.value: the object was destroyed by native code", Road::Declined},
    {"WriteToDestroyedObject", "local c = zoo.Counter.new() zoo.destroy(c) c.value = 1",
     "error: Error: Counter.value: the object was destroyed by native code", Road::Declined},
    {"DestroyedWhileANewObjectTakesItsPlace",
     "local c = zoo.Counter.new(1) local before = c.value zoo.destroy(c) local fresh = zoo.Counter.new(999) "
     "local ok = pcall(function() return c.value end) return fresh.value + before * 10 + (ok and 1 or 0)",
     "value: 1009", Road::Declined},
};

// A native call of a script function: arguments in, the result out, and what can go wrong on the way.
const TypedCase CLOSURE_CASES[] = {
    {"ClosureResult", "return zoo.callTwice(function(x) return x * 3 end, 2)", "value: 18", Road::Typed},
    {"ClosureIntegerFromFloat", "return zoo.callTwice(function(x) return x * 1.0 end, 2)", "value: 2", Road::Typed},
    {"ClosureRaises", "return zoo.callTwice(function(x) error('inner failure') end, 1)",
     "error: Error: test.lua:1: inner failure", Road::Typed},
    {"ClosureRaisesErrorValue", "return zoo.callTwice(function(x) zoo.Counter.twice('x') end, 1)",
     "error: InvalidArgumentError: Invalid type passed to function argument [0]. Expected type: int for argument "
     "'value' of Counter.twice, got string",
     Road::Declined},
    {"ClosureReturnsString", "return zoo.callTwice(function(x) return 'text' end, 1)",
     "error: InvalidArgumentError: Invalid type passed to function argument [0]. Expected type: int for the value the "
     "script function returned, got string",
     Road::Typed},
    {"ClosureReturnsNumberAsString", "return zoo.callTwice(function(x) return '5' end, 1)",
     "error: InvalidArgumentError: Invalid type passed to function argument [0]. Expected type: int for the value the "
     "script function returned, got string",
     Road::Typed},
    {"ClosureReturnsFraction", "return zoo.callTwice(function(x) return 0.5 end, 1)",
     "error: InvalidArgumentError: Invalid type passed to function argument [0]. Expected type: int for the value the "
     "script function returned, got number 0.5 (no integer value)",
     Road::Typed},
    {"ClosureReturnsNothing", "return zoo.callTwice(function(x) end, 1)",
     "error: InvalidArgumentError: Invalid value passed to argument [0]. Missing or empty: the value the script "
     "function returned needs an int, got nil",
     Road::Typed},
    {"ClosureReturnsTooBig", "return zoo.callTwice(function(x) return 2^40 end, 1)",
     "error: ArgumentOutOfBoundsError: Unsupported or out of bounds value passed to function argument [0]: the value "
     "the script function returned, Value: 1099511627776, Argument bounds: [-2147483648, 2147483647]",
     Road::Typed},
};

// Native exceptions are the typed road's own to report.
const TypedCase THROWING_CASES[] = {
    {"NativeException", "return zoo.throws()", "error: Error: @test/zoo.throws failed in native code: native failure",
     Road::Typed},
};

std::string caseName(const ::testing::TestParamInfo<TypedCase>& info)
{
    return info.param.name;
}

INSTANTIATE_TEST_SUITE_P(Calls, LuaTypedCalls, ::testing::ValuesIn(TYPED_CASES), caseName);
INSTANTIATE_TEST_SUITE_P(Closures, LuaTypedCalls, ::testing::ValuesIn(CLOSURE_CASES), caseName);
INSTANTIATE_TEST_SUITE_P(Throwing, LuaTypedCalls, ::testing::ValuesIn(THROWING_CASES), caseName);
} // namespace
