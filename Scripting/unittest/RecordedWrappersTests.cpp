// What the builders record for a function pointer, a method or a member is one wrapper class read through a
// table, not the wrapper template itself; it must answer every question as that template does.
#include "Diagnostics/Assert.h"
#include "Scripting/BindingType/ClassBindingBuilder.h"
#include "Scripting/LifetimeRegistry/LifetimeRegistry.h"
#include "Scripting/Reflection/Function.h"
#include "Scripting/Reflection/Property.h"
#include "Scripting/Runtime/ResultAny.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace
{
using Ovelith::Diagnostics::collectAsserts;
using namespace Scripting;
using testing::ElementsAre;

struct Meter
{
    int level = 0;
    std::string name = "meter";

    int raise(int by)
    {
        level += by;
        return level;
    }
};

struct Stranger
{
    int level = 0;
};

int scaled(WeakLifetimeScope&, int value, int factor)
{
    return value * factor;
}

entt::meta_any number(int value)
{
    return entt::meta_any{Reflection::context(), value};
}

const FunctionBinding& named(const ClassBinding& binding, const std::string& name)
{
    for (const FunctionBinding& function : binding.functions)
    {
        if (function.name == name)
        {
            return function;
        }
    }
    throw std::logic_error("no function " + name);
}

TEST(RecordedWrappersTest, FunctionsAnswerAsTheirWrapperTemplates)
{
    ClassBindingBuilder<Meter> builder("Meter");
    builder.method<&Meter::raise>("raise", ArgumentBindingBuilder<int>("by"));
    builder.function<&scaled>("scaled", ArgumentBindingBuilder<int>("value"),
                              ArgumentBindingBuilder<int>("factor").defaultValue(2));
    const ClassBinding binding = builder.finish();

    const Reflection::MemberFunction<&Meter::raise> raise(Privilege::None, {});
    const Reflection::StaticFunction<&scaled, false> scaling(Privilege::None, {});
    struct Case
    {
        const char* name;
        const Reflection::IFunction& direct;
        uint32_t injected;
        uint32_t defaults;
    };
    const Case cases[] = {{"raise", raise, 0, 0}, {"scaled", scaling, 1, 1}};
    for (const Case& current : cases)
    {
        const Reflection::IFunction& recorded = *named(binding, current.name).function;
        EXPECT_EQ(recorded.getArgumentCount(), current.direct.getArgumentCount()) << current.name;
        for (uint32_t index = 0; index <= recorded.getArgumentCount(); ++index)
        {
            EXPECT_EQ(recorded.getArgumentType(index), current.direct.getArgumentType(index))
                << current.name << " argument " << index;
        }
        EXPECT_FALSE(recorded.getArgumentType(recorded.getArgumentCount())) << current.name;
        EXPECT_EQ(recorded.getReturnType(), current.direct.getReturnType()) << current.name;
        EXPECT_EQ(recorded.getClassType(), current.direct.getClassType()) << current.name;
        ASSERT_NE(recorded.getTypedCall(), nullptr) << current.name;
        EXPECT_EQ(recorded.getTypedCall(), current.direct.getTypedCall()) << current.name;
        EXPECT_EQ(recorded.injectedArgumentCount, current.injected) << current.name;
        EXPECT_EQ(recorded.defaultArgumentCount, current.defaults) << current.name;
    }
    EXPECT_EQ(named(binding, "raise").function->getClassType(), Reflection::resolve<Meter>());
    EXPECT_FALSE(named(binding, "scaled").function->getClassType().has_value());
    EXPECT_EQ(*named(binding, "scaled").function->getDefaultArgument(1).try_cast<int>(), 2);
}

// Nothing native runs unless the count, the object and every argument fit.
TEST(RecordedWrappersTest, TheGeneralCallRunsOnlyWhatFits)
{
    ClassBindingBuilder<Meter> builder("Meter");
    builder.method<&Meter::raise>("raise", ArgumentBindingBuilder<int>("by"));
    const ClassBinding binding = builder.finish();
    const Reflection::IFunction& raise = *binding.functions.at(0).function;

    Meter meter;
    Stranger stranger;
    struct Case
    {
        const char* what;
        entt::meta_any self;
        entt::meta_any argument;
        uint32_t count;
        bool runs;
    };
    Case cases[] = {
        {"too few arguments", entt::forward_as_meta(Reflection::context(), meter), number(5), 0, false},
        {"another class", entt::forward_as_meta(Reflection::context(), stranger), number(5), 1, false},
        {"a string argument", entt::forward_as_meta(Reflection::context(), meter),
         entt::meta_any{Reflection::context(), std::string("5")}, 1, false},
        {"a fitting call", entt::forward_as_meta(Reflection::context(), meter), number(5), 1, true},
    };
    for (Case& current : cases)
    {
        const entt::meta_any result = raise.call(std::move(current.self), &current.argument, current.count);
        EXPECT_EQ(static_cast<bool>(result), current.runs) << current.what;
        if (current.runs)
        {
            EXPECT_EQ(*result.try_cast<int>(), 5) << current.what;
        }
    }
    EXPECT_EQ(meter.level, 5);
    EXPECT_EQ(stranger.level, 0);
}

TEST(RecordedWrappersTest, PropertiesReadInPlaceAndWriteOnlyWhatFits)
{
    ClassBindingBuilder<Meter> builder("Meter");
    builder.property<&Meter::level>("level");
    builder.property(
        "twice", [](const Meter& self) { return self.level * 2; },
        [](Meter& self, int value) { self.level = value / 2; });
    const ClassBinding binding = builder.finish();
    const PropertyBinding& level = binding.properties.at(0);
    const PropertyBinding& twice = binding.properties.at(1);

    const Reflection::MemberPropertyGetter<Meter, false, &Meter::level> directGet(Privilege::None);
    const Reflection::MemberPropertySetter<Meter, &Meter::level> directSet(Privilege::None);
    EXPECT_EQ(level.getter->getTypedGet(), directGet.getTypedGet());
    EXPECT_EQ(level.setter->getTypedSet(), directSet.getTypedSet());
    EXPECT_EQ(level.getter->getReturnPolicy(), Reflection::ReturnPolicy::ByReference);
    EXPECT_EQ(twice.getter->getReturnPolicy(), Reflection::ReturnPolicy::ByValue);
    EXPECT_FALSE(level.getter->isBaked());
    EXPECT_EQ(level.getter->getClassType(), Reflection::resolve<Meter>());
    EXPECT_EQ(level.setter->getType(), Reflection::resolve<int>());
    EXPECT_FALSE(level.setter->isMethod());

    Meter meter;
    meter.level = 7;
    const entt::meta_any read = level.getter->get(entt::forward_as_meta(Reflection::context(), meter));
    ASSERT_TRUE(read);
    EXPECT_EQ(read.try_cast<const int>(), &meter.level) << "a member is read as a reference into the object";
    Stranger stranger;
    EXPECT_FALSE(level.getter->get(entt::forward_as_meta(Reflection::context(), stranger)));

    struct Case
    {
        const char* what;
        const PropertyBinding& property;
        bool toStranger;
        entt::meta_any value;
        bool written;
        int level;
    };
    Case cases[] = {
        {"another class", level, true, number(9), false, 7},
        {"a string", level, false, entt::meta_any{Reflection::context(), std::string("9")}, false, 7},
        {"a member", level, false, number(9), true, 9},
        {"a lambda of a captured type", twice, false, number(30), true, 15},
    };
    for (Case& current : cases)
    {
        entt::meta_any self = current.toStranger ? entt::forward_as_meta(Reflection::context(), stranger)
                                                 : entt::forward_as_meta(Reflection::context(), meter);
        const ResultAny result = current.property.setter->set(std::move(self), std::move(current.value));
        EXPECT_EQ(result.tryGetError() == nullptr, current.written) << current.what;
        if (!current.written)
        {
            ASSERT_NE(result.tryGetError(), nullptr) << current.what;
            EXPECT_EQ(result.tryGetError()->message, "Failed to set member") << current.what;
        }
        EXPECT_EQ(meter.level, current.level) << current.what;
    }
    EXPECT_EQ(stranger.level, 0);
    const entt::meta_any doubled = twice.getter->get(entt::forward_as_meta(Reflection::context(), meter));
    EXPECT_EQ(*doubled.try_cast<int>(), 30);
}

// A bound lambda keeps what it captured on both roads.
TEST(RecordedWrappersTest, ALambdaKeepsItsCaptures)
{
    ClassBindingBuilder<Meter> builder("Meter");
    const std::string suffix = " and a suffix longer than a small string";
    builder.method(
        "describe", [suffix](const Meter& self, int count) { return self.name + suffix + std::to_string(count); },
        ArgumentBindingBuilder<int>("count"));
    const ClassBinding binding = builder.finish();
    const Reflection::IFunction& describe = *binding.functions.at(0).function;

    Meter meter;
    entt::meta_any argument = number(3);
    const entt::meta_any general = describe.call(entt::forward_as_meta(Reflection::context(), meter), &argument, 1);
    ASSERT_TRUE(general);
    EXPECT_EQ(*general.try_cast<std::string>(), "meter" + suffix + "3");

    const Reflection::TypedCall* typed = describe.getTypedCall();
    ASSERT_NE(typed, nullptr);
    Reflection::TypedValue value{};
    value.integer = 4;
    Reflection::TypedReturn result;
    typed->invoke(describe, &meter, &value, result);
    EXPECT_EQ(std::string(result.value.textData, result.value.textSize), "meter" + suffix + "4");
}

// A scope whose registry is gone makes nothing and says so once; it hands out no handle of the null object.
TEST(RecordedWrappersTest, AScopeOfAGoneRegistryMakesNoObject)
{
    LifetimeRegistryReference reference;
    WeakLifetimeScope scope;
    {
        LifetimeRegistry registry(ContextId{3}, reference);
        scope = registry.getScope();
        const StrongTypedObjectHandle<Meter> made = scope.makeObject<Meter>();
        EXPECT_TRUE(made.valid());
    }
    StrongTypedObjectHandle<Meter> late;
    const std::vector<std::string> asserts = collectAsserts([&] { late = scope.makeObject<Meter>(); });
    EXPECT_THAT(asserts, ElementsAre("LifetimeScope is empty"));
    EXPECT_FALSE(late.valid());
}
} // namespace
