// The typed road of the wrappers, as any runtime sees it: which signatures offer it, and that a call through it
// gives what the meta_any call gives.
#include "Scripting/LifetimeRegistry/LifetimeRegistry.h"
#include "Scripting/Reflection/Function.h"
#include "Scripting/Reflection/Property.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace
{
using namespace Scripting;
using Reflection::TypedKind;
using Reflection::TypedReturn;
using Reflection::TypedValue;

enum class Shade
{
    Light,
    Dark,
};

struct Gauge
{
    int level = 0;
    std::string name = "gauge";

    int raise(int by)
    {
        level += by;
        return level;
    }
    const std::string& label() const { return name; }
};

int addInts(int left, int right)
{
    return left + right;
}
void takeText(const std::string&) {}
int bumpInPlace(int& value)
{
    return ++value;
}
int shadeNumber(Shade shade)
{
    return static_cast<int>(shade);
}
int readPointer(const int* value)
{
    return *value;
}
std::optional<int> maybe(int value)
{
    return value;
}
uint64_t echoUnsigned(uint64_t value)
{
    return value;
}
int8_t negate8(int8_t value)
{
    return static_cast<int8_t>(-value);
}
std::string longText(int count)
{
    return std::string(static_cast<size_t>(count), 'x');
}

template <auto F>
std::unique_ptr<Reflection::IFunction> wrap()
{
    return std::make_unique<Reflection::StaticFunction<F, false>>(Privilege::None, std::vector<ArgumentDetails>{});
}

TEST(TypedCall, IsOfferedOnlyWhereEveryValueConvertsDirectly)
{
    struct Case
    {
        const char* name;
        std::unique_ptr<Reflection::IFunction> function;
        bool typed;
    };
    Case cases[] = {
        {"numbers", wrap<&addInts>(), true},
        {"const string reference, void", wrap<&takeText>(), true},
        {"mutable reference to a number", wrap<&bumpInPlace>(), false},
        {"enum", wrap<&shadeNumber>(), false},
        {"pointer", wrap<&readPointer>(), false},
        {"optional result", wrap<&maybe>(), false},
        {"unsigned 64-bit", wrap<&echoUnsigned>(), true},
    };
    for (const Case& current : cases)
    {
        EXPECT_EQ(current.function->getTypedCall() != nullptr, current.typed) << current.name;
    }
    const Reflection::TypedCall* typed = wrap<&addInts>()->getTypedCall();
    ASSERT_NE(typed, nullptr);
    EXPECT_EQ(typed->argumentCount, 2u);
    EXPECT_EQ(typed->arguments[0], TypedKind::Int32);
    EXPECT_EQ(typed->result, TypedKind::Int32);
}

TEST(TypedCall, CarriesValuesAtTheEdgesOfTheirTypes)
{
    TypedValue argument{};
    TypedReturn result;

    argument.unsignedInteger = std::numeric_limits<uint64_t>::max() - 4;
    auto unsignedEcho = wrap<&echoUnsigned>();
    unsignedEcho->getTypedCall()->invoke(*unsignedEcho, nullptr, &argument, result);
    EXPECT_EQ(result.value.unsignedInteger, std::numeric_limits<uint64_t>::max() - 4);

    argument.integer = -128 + 1;
    auto negate = wrap<&negate8>();
    negate->getTypedCall()->invoke(*negate, nullptr, &argument, result);
    EXPECT_EQ(result.value.integer, 127);

    // A string returned by value outlives the call in the result, past the small-string size.
    argument.integer = 40;
    auto text = wrap<&longText>();
    text->getTypedCall()->invoke(*text, nullptr, &argument, result);
    EXPECT_EQ(std::string(result.value.textData, result.value.textSize), std::string(40, 'x'));
    EXPECT_EQ(result.value.textData, result.text.data());
}

TEST(TypedCall, ReachesTheObjectOfMethodsAndInstancedLambdas)
{
    Gauge gauge;
    TypedValue argument{};
    argument.integer = 5;
    TypedReturn result;

    Reflection::MemberFunction<&Gauge::raise> raise(Privilege::None, {});
    ASSERT_NE(raise.getTypedCall(), nullptr);
    raise.getTypedCall()->invoke(raise, &gauge, &argument, result);
    EXPECT_EQ(gauge.level, 5);
    EXPECT_EQ(result.value.integer, 5);

    auto lower = [](Gauge& self, int by)
    {
        self.level -= by;
        return self.level;
    };
    Reflection::LambdaFunction<decltype(lower), true> lowered(Privilege::None, lower, {});
    ASSERT_NE(lowered.getTypedCall(), nullptr);
    EXPECT_EQ(lowered.getTypedCall()->argumentCount, 1u);
    argument.integer = 2;
    lowered.getTypedCall()->invoke(lowered, &gauge, &argument, result);
    EXPECT_EQ(gauge.level, 3);

    // An object taken by pointer keeps the general road.
    auto byPointer = [](Gauge* self) { return self->level; };
    Reflection::LambdaFunction<decltype(byPointer), true> pointed(Privilege::None, byPointer, {});
    EXPECT_EQ(pointed.getTypedCall(), nullptr);
}

// A handle returned by value moves into the caller's handle with its one reference; without a handle offered the
// result is let go. A handle returned by reference belongs to someone else and keeps the general road.
TEST(TypedCall, HandsAReturnedHandleOverWithItsReference)
{
    LifetimeRegistryReference reference;
    LifetimeRegistry registry(ContextId{4}, reference);
    auto make = [](WeakLifetimeScope& scope, int value) { return scope.makeObject<int>(value); };
    Reflection::LambdaFunction<decltype(make), false> function(Privilege::None, make, {});
    const Reflection::TypedCall* typed = function.getTypedCall();
    ASSERT_NE(typed, nullptr);
    EXPECT_EQ(typed->result, TypedKind::Handle);
    EXPECT_EQ(typed->arguments[0], TypedKind::Object);

    WeakLifetimeScope scope(&reference);
    TypedValue arguments[2]{};
    arguments[0].object = &scope;
    arguments[1].integer = 9;
    StrongObjectHandle received;
    TypedReturn result;
    result.handle = &received;
    typed->invoke(function, nullptr, arguments, result);
    ASSERT_TRUE(received.valid());
    EXPECT_EQ(registry.getReferenceCount(received.getHandle()), 1u);
    EXPECT_EQ(*registry.resolveAsAny(received.getHandle()).try_cast<int>(), 9);

    TypedReturn dropped;
    typed->invoke(function, nullptr, arguments, dropped);
    EXPECT_EQ(Scripting::internal::ObjectRegistryUtilities::entitiesWith<int>(registry.registry).size(), 1u)
        << "a result nobody took is released";

    static StrongObjectHandle sHeld;
    auto borrowed = []() -> const StrongObjectHandle& { return sHeld; };
    Reflection::LambdaFunction<decltype(borrowed), false> lent(Privilege::None, borrowed, {});
    EXPECT_EQ(lent.getTypedCall(), nullptr);

    received = {};
    registry.destroyLifetimeScope(true);
}

TEST(TypedCall, PropertiesReadAndWriteInPlace)
{
    Gauge gauge;
    TypedReturn result;

    Reflection::MemberPropertyGetter<Gauge, false, &Gauge::level> level(Privilege::None);
    Reflection::MemberPropertySetter<Gauge, &Gauge::level> setLevel(Privilege::None);
    ASSERT_NE(level.getTypedGet(), nullptr);
    ASSERT_NE(setLevel.getTypedSet(), nullptr);
    EXPECT_EQ(setLevel.getTypedSet()->kind, TypedKind::Int32);
    TypedValue value{};
    value.integer = 42;
    setLevel.getTypedSet()->invoke(setLevel, &gauge, value);
    level.getTypedGet()->invoke(level, &gauge, result);
    EXPECT_EQ(gauge.level, 42);
    EXPECT_EQ(result.value.integer, 42);

    // A reference result is viewed where it lives, not copied.
    Reflection::MemberPropertyGetter<Gauge, false, &Gauge::label> label(Privilege::None);
    ASSERT_NE(label.getTypedGet(), nullptr);
    label.getTypedGet()->invoke(label, &gauge, result);
    EXPECT_EQ(result.value.textData, gauge.name.data());

    auto rename = [](Gauge& self, const std::string& text) { self.name = text; };
    Reflection::LambdaPropertySetter<Gauge, decltype(rename)> setName(Privilege::None, rename);
    ASSERT_NE(setName.getTypedSet(), nullptr);
    const std::string wanted = "a name longer than the small-string buffer";
    value.textData = wanted.data();
    value.textSize = wanted.size();
    setName.getTypedSet()->invoke(setName, &gauge, value);
    EXPECT_EQ(gauge.name, wanted);
}
} // namespace
