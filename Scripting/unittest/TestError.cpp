#include "Diagnostics/Assert.h"
#include "Scripting/Runtime/Error.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <stdexcept>
#include <tuple>

namespace
{
using Ovelith::Diagnostics::collectAsserts;
using namespace Scripting;
using testing::ElementsAre;
using testing::StartsWith;

TEST(ErrorTest, NumbersPrintAsIntegersOrWithTwoDecimals)
{
    const std::pair<double, const char*> cases[] = {
        {3.000001, "3"},
        {2.5, "2.50"},
        {0.0, "0"},
        {-0.0, "0"},
        {42.0, "42"},
        {-7.0, "-7"},
        {-3.000001, "-3"},
        {-2.5, "-2.50"},
        {0.000001, "0"},
        {1.00002, "1.00"},
        // Only the distance to the integer part counts, so a value just below an integer keeps its decimals.
        {2.999999, "3.00"},
        {0.1, "0.10"},
        {1234.5678, "1234.57"},
        {-0.004, "-0.00"},
        // Integers too large for a 64-bit integer still print as integers.
        {1e20, "100000000000000000000"},
        {-1e20, "-100000000000000000000"},
        {9007199254740993.0, "9007199254740992"},
        {std::numeric_limits<double>::infinity(), "inf"},
        {-std::numeric_limits<double>::infinity(), "-inf"},
    };
    for (const auto& [value, text] : cases)
    {
        EXPECT_EQ(internal::formatErrorNumber(value), text) << "value " << value;
    }
}

TEST(ErrorTest, LongMessagesAreCutAfter1024Characters)
{
    auto makeText = [](size_t length)
    {
        std::string text(length, ' ');
        for (size_t i = 0; i < length; ++i)
        {
            text[i] = static_cast<char>('a' + i % 26);
        }
        return text;
    };
    for (size_t length : {0u, 1u, 1023u, 1024u})
    {
        EXPECT_EQ(Error(makeText(length)).message, makeText(length)) << "length " << length;
    }
    for (size_t length : {1025u, 1026u, 5000u})
    {
        const std::string message = Error(makeText(length)).message;
        EXPECT_EQ(message.size(), 1026u) << "length " << length;
        EXPECT_EQ(message, makeText(1024) + "..") << "length " << length;
    }

    // Composed messages are cut as a whole, after the prefix was added.
    const std::string composed = UnsupportedFunctionalityError(makeText(2000)).message;
    EXPECT_EQ(composed.size(), 1026u);
    EXPECT_THAT(composed, StartsWith("Unsupported functionality: abc"));
}

TEST(ErrorTest, EachKindCarriesItsName)
{
    const std::pair<BaseError, const char*> cases[] = {
        {Error("m"), "Error"},
        {InvalidArgumentError("d", 0), "InvalidArgumentError"},
        {ArgumentOutOfBoundsError("d", 0, {}, {}, {}), "ArgumentOutOfBoundsError"},
        {PropertyOutOfBoundsError("p", 1.0, {}, {}), "PropertyOutOfBoundsError"},
        {PropertyOutOfBoundsError("p", {}, {}), "PropertyOutOfBoundsError"},
        {RuntimeConditionError({}, "s"), "RuntimeConditionError"},
        {UnsupportedFunctionalityError("w"), "UnsupportedFunctionalityError"},
        {Error("CustomError", "m"), "CustomError"},
    };
    for (const auto& [error, name] : cases)
    {
        EXPECT_EQ(error.name, name);
    }
}

TEST(ErrorTest, InvalidArgumentMessagesFollowTheType)
{
    struct Case
    {
        InvalidArgumentErrorType type;
        const char* message;
    };
    const Case cases[] = {
        {InvalidArgumentErrorType::Unspecified, "Invalid value passed to argument [3]. name"},
        {InvalidArgumentErrorType::Unknown, "Invalid value passed to argument [3]. name"},
        {InvalidArgumentErrorType::Empty, "Invalid value passed to argument [3]. Missing or empty: name"},
        {InvalidArgumentErrorType::Duplicate, "Invalid value passed to argument [3]. Duplicate: name"},
        {InvalidArgumentErrorType::TypeMismatch, "Invalid type passed to function argument [3]. Expected type: name"},
        {InvalidArgumentErrorType::UnsupportedValue,
         "Invalid value passed to argument [3]. Value did not match one of the supported values."},
        {static_cast<InvalidArgumentErrorType>(6), ""},
        {static_cast<InvalidArgumentErrorType>(255), ""},
    };
    for (const Case& c : cases)
    {
        const InvalidArgumentError error("name", c.type, 3);
        EXPECT_EQ(error.message, c.message) << "type " << static_cast<int>(c.type);
        EXPECT_EQ(error.type, c.type);
        EXPECT_EQ(error.index, 3);
    }

    const InvalidArgumentError untyped("name", 7);
    EXPECT_EQ(untyped.message, "Invalid value passed to argument [7]. name");
    EXPECT_EQ(untyped.type, InvalidArgumentErrorType::Unspecified);
    EXPECT_EQ(untyped.index, 7);
}

TEST(ErrorTest, ArgumentOutOfBoundsMessageListsWhatIsKnown)
{
    struct Case
    {
        const char* detail;
        int32_t index;
        std::optional<double> value, minValue, maxValue;
        const char* tail;
    };
    const Case cases[] = {
        {"", 2, {}, {}, {}, "[2]."},
        {"too big", 2, {}, {}, {}, "[2]: too big"},
        {"", 2, 5.0, {}, {}, "[2]. Value: 5"},
        {"too big", 2, 5.0, {}, {}, "[2]: too big, Value: 5"},
        {"", 2, {}, 1.0, 3.0, "[2]. Argument bounds: [1, 3]"},
        {"d", 2, 5.0, 1.0, 3.0, "[2]: d, Value: 5, Argument bounds: [1, 3]"},
        {"", 2, 0.5, 1.0, {}, "[2]. Value: 0.50, Argument min: 1"},
        {"", 2, 5.0, {}, 3.0, "[2]. Value: 5, Argument max: 3"},
        {"d", 2, {}, {}, 2.25, "[2]: d, Argument max: 2.25"},
        {"d", 2, {}, -1.5, {}, "[2]: d, Argument min: -1.50"},
        {"", -1, 3.000001, {}, {}, "[-1]. Value: 3"},
    };
    for (const Case& c : cases)
    {
        const ArgumentOutOfBoundsError error(c.detail, c.index, c.value, c.minValue, c.maxValue);
        EXPECT_EQ(error.message,
                  std::string("Unsupported or out of bounds value passed to function argument ") + c.tail);
        EXPECT_EQ(error.index, c.index);
        EXPECT_EQ(error.value, c.value);
        EXPECT_EQ(error.minValue, c.minValue);
        EXPECT_EQ(error.maxValue, c.maxValue);
    }
}

TEST(ErrorTest, PropertyOutOfBoundsMessageInBothForms)
{
    const std::string prefix = "Unsupported or out of bounds value set on Property: speed";
    EXPECT_EQ(PropertyOutOfBoundsError("speed", 5.0, 0.0, 3.0).message, prefix + ", Value: 5, Property bounds: [0, 3]");
    EXPECT_EQ(PropertyOutOfBoundsError("speed", -2.5, -1.0, 1.0).message,
              prefix + ", Value: -2.50, Property bounds: [-1, 1]");
    EXPECT_EQ(PropertyOutOfBoundsError("speed", 5.0, {}, {}).message, prefix + ", Value: 5,");
    EXPECT_EQ(PropertyOutOfBoundsError("speed", 0.0, {}, 3.0).message, prefix + ", Value: 0, Property max: 3");
    EXPECT_EQ(PropertyOutOfBoundsError("speed", 0.0, {}).message, prefix + ", Property min: 0");
    EXPECT_EQ(PropertyOutOfBoundsError("speed", {}, 1.5).message, prefix + ", Property max: 1.50");
    EXPECT_EQ(PropertyOutOfBoundsError("speed", {}, {}).message, prefix + ",");

    const PropertyOutOfBoundsError withValue("speed", 5.0, 1.0, 3.0);
    EXPECT_EQ(std::make_tuple(withValue.value, withValue.minValue, withValue.maxValue),
              std::make_tuple(5.0, std::optional(1.0), std::optional(3.0)));
    const PropertyOutOfBoundsError withoutValue("speed", {}, 3.0);
    EXPECT_EQ(std::make_tuple(withoutValue.value, withoutValue.minValue, withoutValue.maxValue),
              std::make_tuple(0.0, std::optional<double>(), std::optional(3.0)));
}

TEST(ErrorTest, RuntimeConditionAndUnsupportedFunctionalityMessages)
{
    EXPECT_EQ(RuntimeConditionError({}, "Camera").message, "Camera is missing these runtime conditions: ");
    EXPECT_EQ(RuntimeConditionError({"gpu"}, "Camera").message, "Camera is missing these runtime conditions: gpu");
    EXPECT_EQ(RuntimeConditionError({"gpu", "net", "gpu"}, "Camera").message,
              "Camera is missing these runtime conditions: gpu, net, gpu");
    EXPECT_EQ(UnsupportedFunctionalityError("threads").message, "Unsupported functionality: threads");
}

TEST(ErrorTest, EngineErrorHidesItsDetailAndAsserts)
{
    std::optional<EngineError> error;
    // A '%' in the detail must reach the assert as text, not as a directive.
    const auto asserts = collectAsserts([&] { error.emplace("lost 50% of %s"); });
    EXPECT_THAT(asserts, ElementsAre("Script EngineError thrown: lost 50% of %s"));
    ASSERT_TRUE(error.has_value());
    EXPECT_EQ(error->name, "EngineError");
    EXPECT_EQ(error->message, "An internal engine error occurred.");

    try
    {
        EngineError uncaptured("detail");
        FAIL() << "an uncaptured assert must throw";
    }
    catch (const std::runtime_error& exception)
    {
        EXPECT_THAT(exception.what(), StartsWith("Assertion failed: "));
    }
}

TEST(ErrorTest, ToStringJoinsNameMessageAndRawStack)
{
    Error error("boom");
    EXPECT_EQ(error.toString(), "Error: boom");
    EXPECT_EQ(BaseError("", "boom").toString(), "boom");

    error.setStack("    at f (a.js:1)\n");
    EXPECT_EQ(error.toString(), "Error: boom    at f (a.js:1)\n");
    error.setStack("");
    EXPECT_EQ(error.toString(), "Error: boom");
}
} // namespace
