#include "Diagnostics/Assert.h"
#include "Scripting/BindingType/ClassBindingBuilder.h"
#include "Scripting/BindingType/EnumBindingBuilder.h"
#include "Scripting/BindingType/InterfaceBindingBuilder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace
{
using Ovelith::Diagnostics::collectAsserts;
using namespace Scripting;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* METHOD_MISMATCH =
    "Method arguments metadata mismatch with number of arguments it actually takes!";
constexpr const char* CONSTRUCTOR_MISMATCH =
    "Constructor arguments metadata mismatch with number of arguments it actually takes!";
constexpr const char* LENGTH_MISMATCH =
    "Argument binding length mismatch.  Binding argument count does not match actual functions argument count";
constexpr const char* TYPE_MISMATCH = "Argument binding type does not match actual argument type";

struct Widget
{
    int count = 0;
    float ratio = 0.0f;
    std::string label;

    void setCount(int value) { count = value; }
    int add(int left, int right) const { return left + right; }
};

StrongTypedObjectHandle<Widget> makeWidget(WeakLifetimeScope&, int)
{
    return {};
}

// A builder that takes a misuse must report it, leave the member out and go on with the next one.
TEST(ClassBindingBuilderMisuseTest, MoreArgumentBuildersThanParametersDropsTheMethod)
{
    ClassBindingBuilder<Widget> builder("Widget");
    std::vector<std::string> asserts = collectAsserts(
        [&]
        {
            builder.method<&Widget::setCount>("setCount", ArgumentBindingBuilder<int>("value"),
                                              ArgumentBindingBuilder<int>("extra"));
        });
    EXPECT_THAT(asserts, ElementsAre(LENGTH_MISMATCH, METHOD_MISMATCH));

    asserts = collectAsserts([&] { builder.method<&Widget::add>("add", ArgumentBindingBuilder<int>("left")); });
    EXPECT_THAT(asserts, IsEmpty()) << "fewer builders than parameters pass";
    const ClassBinding binding = builder.finish();
    ASSERT_EQ(binding.functions.size(), 1u);
    EXPECT_EQ(binding.functions[0].name, "add");
}

TEST(ClassBindingBuilderMisuseTest, MismatchedArgumentTypeDropsEachKindOfFunction)
{
    ClassBindingBuilder<Widget> builder("Widget");
    const auto asserts = collectAsserts(
        [&]
        {
            builder.method<&Widget::setCount>("setCount", ArgumentBindingBuilder<float>("value")).release({1, 0, 0});
            builder.method(
                "lambda", [](Widget&, int) {}, ArgumentBindingBuilder<std::string>("value"));
            builder.function(
                "free", [](int) {}, ArgumentBindingBuilder<float>("value"));
            builder.constructor<&makeWidget>(ArgumentBindingBuilder<float>("value"));
        });
    EXPECT_THAT(asserts, ElementsAre(TYPE_MISMATCH, METHOD_MISMATCH, TYPE_MISMATCH, METHOD_MISMATCH, TYPE_MISMATCH,
                                     METHOD_MISMATCH, TYPE_MISMATCH, CONSTRUCTOR_MISMATCH));
    builder.method<&Widget::setCount>("setCount", ArgumentBindingBuilder<int>("value"));
    const ClassBinding binding = builder.finish();
    ASSERT_EQ(binding.functions.size(), 1u) << "only the matching method stays";
    EXPECT_TRUE(binding.functions[0].releases.empty()) << "a tag chained on a dropped method tags nothing kept";
    EXPECT_TRUE(binding.constructors.empty());
}

TEST(ClassBindingBuilderMisuseTest, EmptyNamesAreReportedWithTheClassAndDropped)
{
    ClassBindingBuilder<Widget> builder("Widget");
    const auto asserts = collectAsserts(
        [&]
        {
            builder.method<&Widget::setCount>("", ArgumentBindingBuilder<int>("value")).beta();
            builder.function("", [] {});
            builder.property<&Widget::count>("").bounds(0, 1);
            builder.property<&Widget::ratio, Privilege::ReadOnly>("");
            builder.bakedProperty<&Widget::label>("");
            builder.constant("", 3).notBeta();
        });
    // Bounds chained on the dropped property find a record without a setter, and say so.
    EXPECT_THAT(asserts, ElementsAre("Class 'Widget' has a method with an empty name; it is left out",
                                     "Class 'Widget' has a function with an empty name; it is left out",
                                     "Class 'Widget' has a property with an empty name; it is left out",
                                     "Failed to set bounds on property '' due to property not having a setter",
                                     "Class 'Widget' has a property with an empty name; it is left out",
                                     "Class 'Widget' has a property with an empty name; it is left out",
                                     "Class 'Widget' has a constant with an empty name; it is left out"));
    builder.property<&Widget::count>("count");
    const ClassBinding binding = builder.finish();
    EXPECT_TRUE(binding.functions.empty());
    ASSERT_EQ(binding.properties.size(), 1u);
    EXPECT_EQ(binding.properties[0].name, "count");
    EXPECT_FALSE(binding.properties[0].valueValidator) << "bounds on the dropped property did not land here";
    EXPECT_TRUE(binding.constants.empty());
}

TEST(ClassBindingBuilderMisuseTest, EmptyOwnerNamesAreReportedWithTheNativeType)
{
    enum class Mode
    {
        On,
    };
    const auto asserts = collectAsserts(
        [&]
        {
            ClassBindingBuilder<Widget> classBuilder("");
            classBuilder.property<&Widget::count>("count");
            EXPECT_EQ(classBuilder.finish().properties.size(), 1u) << "the class keeps its members";
            InterfaceBindingBuilder<Widget> interfaceBuilder("");
            EnumBindingBuilder<std::string, Mode> enumBuilder("");
            enumBuilder.value("", Mode::On);
            EXPECT_TRUE(enumBuilder.finish().values.empty());
        });
    ASSERT_EQ(asserts.size(), 4u);
    EXPECT_THAT(asserts[0], testing::MatchesRegex("Class binding of the native type '.*Widget' needs a valid name"));
    EXPECT_THAT(asserts[1],
                testing::MatchesRegex("Interface binding of the native type '.*Widget' needs a valid name"));
    EXPECT_THAT(asserts[2], testing::MatchesRegex("Enum binding of the native type '.*Mode' needs a valid name"));
    EXPECT_EQ(asserts[3], "Enum '' has a value with an empty name; it is left out");
}

TEST(ClassBindingBuilderMisuseTest, BoundsOnAPropertyThatIsNoNumberKeepItUnbounded)
{
    ClassBindingBuilder<Widget> builder("Widget");
    const auto asserts = collectAsserts(
        [&]
        {
            builder.property<&Widget::label>("label").bounds(0, 5);
            builder.property<&Widget::ratio>("ratio").bounds(0, 5);
        });
    // The standard library names its string type in its own way.
    EXPECT_THAT(
        asserts,
        ElementsAre(testing::MatchesRegex("Failed to set bounds on property 'label' due to property type and "
                                          "bounds type differing\\. Property type: 'std::.*basic_string<char.*>', "
                                          "bounds type: 'int'"),
                    "Failed to set bounds on property 'ratio' due to property type and bounds type differing. "
                    "Property type: 'float', bounds type: 'int'"));
    const ClassBinding binding = builder.finish();
    ASSERT_EQ(binding.properties.size(), 2u) << "a failed bounds call keeps the property";
    for (const PropertyBinding& property : binding.properties)
    {
        EXPECT_FALSE(property.valueValidator) << property.name;
        EXPECT_FALSE(property.minValue) << property.name;
        EXPECT_FALSE(property.setter->valueValidator) << property.name;
    }
}

// Two properties of one name are legal while building: tags set after the call may keep them in different
// versions, and the module build reports the pairs that meet.
TEST(ClassBindingBuilderMisuseTest, APropertyBoundTwiceIsKeptForTheBuildToJudge)
{
    ClassBindingBuilder<Widget> builder("Widget");
    EXPECT_THAT(collectAsserts(
                    [&]
                    {
                        builder.property<&Widget::count>("count").release({1, 0, 0}, RemovedInMajorVersion(2));
                        builder.property<&Widget::count>("count").release({2, 0, 0});
                    }),
                IsEmpty());
    EXPECT_EQ(builder.finish().properties.size(), 2u);
}

TEST(ClassBindingBuilderBaseTest, ASecondBaseIsReportedAndReplacesTheFirst)
{
    struct First
    {
        int first = 1;
    };
    struct Second
    {
        int second = 2;
    };
    struct Derived : First, Second
    {
    };
    ClassBindingBuilder<Derived> builder("Derived");
    EXPECT_THAT(collectAsserts([&] { builder.base<First>(); }), IsEmpty());
    EXPECT_THAT(collectAsserts([&] { builder.base<Second>(); }), ElementsAre("This Class Binding already has a base!"));
    // Both reached the meta system before the check.
    EXPECT_TRUE(Reflection::HasBaseType(Reflection::resolve<First>(), Reflection::resolve<Derived>()));
    EXPECT_TRUE(Reflection::HasBaseType(Reflection::resolve<Second>(), Reflection::resolve<Derived>()));
    EXPECT_EQ(builder.finish().baseType, Reflection::resolve<Second>());

    Derived object;
    entt::meta_any any = entt::forward_as_meta(object);
    const Second* second = any.try_cast<const Second>();
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(second->second, 2) << "the cast adjusts to the second base";
}

TEST(ClassBindingBuilderBaseTest, HandlesOfTheClassConvertToHandlesOfTheBase)
{
    struct Base
    {
    };
    struct Derived : Base
    {
    };
    // Never finished: the meta entries do not wait for the record.
    ClassBindingBuilder<Derived>("Derived").base<Base>();
    EXPECT_TRUE(Reflection::HasBaseType(Reflection::resolve<Base>(), Reflection::resolve<Derived>()));

    entt::meta_any typed{Reflection::context(), TypedObjectHandle<Derived>{}};
    EXPECT_TRUE(typed.allow_cast<TypedObjectHandle<Base>>());
    entt::meta_any strong{Reflection::context(), StrongTypedObjectHandle<Derived>{}};
    EXPECT_TRUE(strong.allow_cast<StrongTypedObjectHandle<Base>>());
    entt::meta_any weak{Reflection::context(), WeakTypedObjectHandle<Derived>{}};
    EXPECT_TRUE(weak.allow_cast<WeakTypedObjectHandle<Base>>());
    EXPECT_EQ(weak.type(), Reflection::resolve<WeakTypedObjectHandle<Base>>());
}

TEST(ClassBindingBuilderTest, ConstantsOfTextKeepTheirOwnType)
{
    ClassBindingBuilder<Widget> builder("Widget");
    builder.constant("NAME", "widget").release({1, 0, 0});
    builder.constant("LABEL", std::string("label"));
    const ClassBinding binding = builder.finish();
    ASSERT_EQ(binding.constants.size(), 2u);
    WeakLifetimeScope scope;
    EXPECT_EQ(binding.constants[0].type, Reflection::resolve<const char*>());
    EXPECT_STREQ(binding.constants[0].factory(scope).cast<const char*>(), "widget");
    EXPECT_EQ(binding.constants[0].releases.size(), 1u) << "the tag lands on the constant";
    EXPECT_EQ(binding.constants[1].factory(scope).cast<std::string>(), "label");
    EXPECT_TRUE(binding.releases.empty()) << "member tags are not the class's";
}

enum class Fruit : uint8_t
{
    Apple = 0,
    Pear = 1,
    Plum = 200,
};

TEST(EnumBindingBuilderTest, StringMembersGiveTheirNameOrTheirOverride)
{
    EnumBindingBuilder<std::string, Fruit> builder("Fruit");
    builder.value("Apple", Fruit::Apple);
    builder.valueWithOverride("Pear", "Type1", Fruit::Pear).release({2, 0, 0});
    builder.release({1, 0, 0});
    const EnumBinding binding = builder.finish();

    EXPECT_EQ(binding.name, "Fruit");
    EXPECT_EQ(binding.type, Reflection::resolve<Fruit>());
    EXPECT_FALSE(binding.enumFlag);
    EXPECT_EQ(binding.releases.size(), 1u);
    ASSERT_EQ(binding.constants.size(), 2u);
    ASSERT_EQ(binding.values.size(), 2u);
    WeakLifetimeScope scope;
    const std::pair<const char*, const char*> expected[] = {{"Apple", "Apple"}, {"Pear", "Type1"}};
    for (size_t index = 0; index < 2; ++index)
    {
        EXPECT_EQ(binding.constants[index].name, expected[index].first);
        EXPECT_EQ(binding.constants[index].type, Reflection::resolve<std::string>());
        EXPECT_EQ(binding.constants[index].factory(scope).cast<std::string>(), expected[index].second);
        EXPECT_EQ(binding.values[index].name, expected[index].first);
        EXPECT_EQ(binding.values[index].scriptValue, expected[index].second);
    }
    EXPECT_EQ(binding.values[1].value.cast<Fruit>(), Fruit::Pear);
    EXPECT_TRUE(binding.constants[0].releases.empty());
    EXPECT_EQ(binding.constants[1].releases.size(), 1u);
}

TEST(EnumBindingBuilderTest, NumericMembersGiveTheEnumAndItsDecimalText)
{
    EnumBindingBuilder<Fruit, Fruit> builder("Fruit");
    builder.value("Apple", Fruit::Apple);
    builder.value("Plum", Fruit::Plum);
    const EnumBinding binding = builder.finish();
    ASSERT_EQ(binding.values.size(), 2u);
    EXPECT_EQ(binding.values[0].scriptValue, "0");
    EXPECT_EQ(binding.values[1].scriptValue, "200") << "a one-byte enum prints as a number";
    WeakLifetimeScope scope;
    EXPECT_EQ(binding.constants[1].type, Reflection::resolve<Fruit>());
    EXPECT_EQ(binding.constants[1].factory(scope).cast<Fruit>(), Fruit::Plum);

    const entt::meta_any made = Reflection::resolve<Fruit>().construct(uint8_t{1});
    ASSERT_TRUE(made) << "the enum is made from its number";
    EXPECT_EQ(made.cast<Fruit>(), Fruit::Pear);
}

// Some misuse cannot be written at all.
template <typename Builder, typename V>
concept AcceptsDefault = requires(Builder builder, V value)
{
    builder.defaultValue(value);
};
template <typename Builder>
concept AcceptsBounds = requires(Builder builder)
{
    builder.bounds(0, 1);
};
template <typename Builder>
concept AcceptsValidValues = requires(Builder builder)
{
    builder.validValues({"a", "b"});
};

TEST(ArgumentBindingBuilderMisuseTest, WrongDefaultsAndBoundsDoNotCompile)
{
    static_assert(AcceptsDefault<ArgumentBindingBuilder<int>, int>);
    static_assert(AcceptsDefault<ArgumentBindingBuilder<float>, float>);
    static_assert(AcceptsDefault<ArgumentBindingBuilder<std::string>, const char*>);
    static_assert(AcceptsDefault<ArgumentBindingBuilder<const std::string&>, std::string>);
    static_assert(AcceptsDefault<ArgumentBindingBuilder<std::optional<int>>, int>);
    static_assert(!AcceptsDefault<ArgumentBindingBuilder<int>, std::string>, "another type");
    static_assert(!AcceptsDefault<ArgumentBindingBuilder<int>, double>, "a default that would lose its fraction");
    static_assert(!AcceptsDefault<ArgumentBindingBuilder<float>, double>, "a default that would lose precision");
    static_assert(!AcceptsDefault<ArgumentBindingBuilder<std::string>, int>);

    static_assert(AcceptsBounds<ArgumentBindingBuilder<int>>);
    static_assert(AcceptsBounds<ArgumentBindingBuilder<std::optional<std::vector<float>>>>);
    static_assert(!AcceptsBounds<ArgumentBindingBuilder<std::string>>, "bounds on a non-numeric argument");
    static_assert(!AcceptsBounds<ArgumentBindingBuilder<bool>>);
    static_assert(!AcceptsBounds<ArgumentBindingBuilder<std::vector<std::string>>>);

    static_assert(AcceptsValidValues<ArgumentBindingBuilder<std::string>>);
    static_assert(!AcceptsValidValues<ArgumentBindingBuilder<int>>);
    SUCCEED();
}

TEST(ArgumentBindingHelperTest, DefaultsMustStandAtTheEnd)
{
    struct OrderCase
    {
        std::vector<bool> defaulted;
        size_t reports;
    };
    const OrderCase cases[] = {
        {{}, 0},
        {{true}, 0},
        {{false, true}, 0},
        {{true, false}, 1},
        {{true, true, false}, 2},
        {{true, false, true}, 1},
        {{false, true, true}, 0},
    };
    for (const OrderCase& c : cases)
    {
        std::vector<ArgumentDetails> details(c.defaulted.size());
        for (size_t index = 0; index < details.size(); ++index)
        {
            if (c.defaulted[index])
            {
                details[index].defaultValue = entt::meta_any{1};
            }
        }
        const auto asserts = collectAsserts([&] { internal::checkDefaultArgumentOrder(details); });
        EXPECT_EQ(asserts.size(), c.reports) << testing::PrintToString(c.defaulted);
        for (const std::string& text : asserts)
        {
            EXPECT_EQ(text, "Default arguments must appear at the end of the function. Check your argument bindings.");
        }
    }
}
} // namespace
