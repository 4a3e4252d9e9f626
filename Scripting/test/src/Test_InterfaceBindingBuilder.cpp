#include "Scripting/BindingType/InterfaceBindingBuilder.h"

#include "ZentaryUnitTest/Assert.h"
#include "ZentaryUnitTest/TestClass.h"

#include <optional>
#include <string>
#include <vector>

using namespace Ovelith::CoreTestFramework;
using namespace Scripting;
using Reflection::resolve;

namespace
{
struct TestStruct
{
    int intVal = 0;
    float floatVal = 0.0f;
    std::string stringVal;
    std::vector<int> intVectorVal;
    std::vector<float> floatVectorVal;
    std::optional<int> optionalIntVal;
    std::optional<float> optionalFloatVal;
    std::optional<std::vector<int>> intOptionalVectorVal;
    std::optional<std::vector<float>> floatOptionalVectorVal;
    bool boolVal = false;
};

class TestStructMemberSetterGetter
{
public:
    int getIntVal() const { return mValues.intVal; }
    void setIntVal(int value) { mValues.intVal = value; }
    float getFloatVal() const { return mValues.floatVal; }
    void setFloatVal(float value) { mValues.floatVal = value; }
    const std::string& getStringVal() const { return mValues.stringVal; }
    void setStringVal(const std::string& value) { mValues.stringVal = value; }
    std::vector<int> getIntVectorVal() const { return mValues.intVectorVal; }
    void setIntVectorVal(std::vector<int> value) { mValues.intVectorVal = std::move(value); }
    std::vector<float> getFloatVectorVal() const { return mValues.floatVectorVal; }
    void setFloatVectorVal(std::vector<float> value) { mValues.floatVectorVal = std::move(value); }
    std::optional<int> getOptionalIntVal() const { return mValues.optionalIntVal; }
    void setOptionalIntVal(std::optional<int> value) { mValues.optionalIntVal = value; }
    std::optional<float> getOptionalFloatVal() const { return mValues.optionalFloatVal; }
    void setOptionalFloatVal(std::optional<float> value) { mValues.optionalFloatVal = value; }
    std::optional<std::vector<int>> getIntOptionalVectorVal() const { return mValues.intOptionalVectorVal; }
    void setIntOptionalVectorVal(std::optional<std::vector<int>> value) { mValues.intOptionalVectorVal = value; }
    std::optional<std::vector<float>> getFloatOptionalVectorVal() const { return mValues.floatOptionalVectorVal; }
    void setFloatOptionalVectorVal(std::optional<std::vector<float>> value) { mValues.floatOptionalVectorVal = value; }

private:
    TestStruct mValues;
};

// A property as the suite expects it, with the values its bounds let through and keep out.
struct ExpectedProperty
{
    const char* name;
    entt::meta_type type;
    entt::meta_any minValue;
    entt::meta_any maxValue;
    std::vector<entt::meta_any> accepted;
    std::vector<entt::meta_any> refused;
};

std::vector<ExpectedProperty> threeProperties()
{
    return {{"intVal", resolve<int>(), {}, {}, {}, {}},
            {"floatVal", resolve<float>(), {}, {}, {}, {}},
            {"stringVal", resolve<std::string>(), {}, {}, {}, {}}};
}

std::vector<ExpectedProperty> boundedProperties()
{
    using IntVector = std::vector<int>;
    using FloatVector = std::vector<float>;
    return {
        {"intVal", resolve<int>(), 0, 15, {0, 15}, {-1, 16}},
        {"floatVal", resolve<float>(), 0.0f, 42.0f, {0.0f, 42.0f}, {-0.5f, 42.5f}},
        {"intVectorVal", resolve<IntVector>(), 0, 15, {IntVector{0, 15}, IntVector{}}, {IntVector{3, 16}}},
        {"floatVectorVal",
         resolve<FloatVector>(),
         0.0f,
         42.0f,
         {FloatVector{42.0f}, FloatVector{}},
         {FloatVector{-1.0f, 3.0f}}},
        {"optionalIntVal",
         resolve<std::optional<int>>(),
         0,
         15,
         {std::optional<int>(), std::optional<int>(15)},
         {std::optional<int>(16)}},
        {"optionalFloatVal",
         resolve<std::optional<float>>(),
         0.0f,
         42.0f,
         {std::optional<float>(), std::optional<float>(0.0f)},
         {std::optional<float>(43.0f)}},
        {"intOptionalVectorVal",
         resolve<std::optional<IntVector>>(),
         0,
         15,
         {std::optional<IntVector>(), std::optional<IntVector>(IntVector{1, 2})},
         {std::optional<IntVector>(IntVector{1, 20})}},
        {"floatOptionalVectorVal",
         resolve<std::optional<FloatVector>>(),
         0.0f,
         42.0f,
         {std::optional<FloatVector>(), std::optional<FloatVector>(FloatVector{41.0f})},
         {std::optional<FloatVector>(FloatVector{-41.0f})}},
    };
}

template <typename T>
void checkInterface(const InterfaceBinding& binding, const std::string& name,
                    const std::vector<ExpectedProperty>& expected)
{
    Assert::AreEqual(binding.name, name);
    Assert::IsTrue(binding.type == resolve<T>(), false, "the type is set at once");
    Assert::IsFalse(static_cast<bool>(binding.baseType), false, "no builder sets the base");
    Assert::AreEqual(binding.properties.size(), expected.size(), true);
    for (size_t index = 0; index < expected.size(); ++index)
    {
        const PropertyBinding& property = binding.properties[index];
        const ExpectedProperty& wanted = expected[index];
        Assert::AreEqual(property.name, std::string(wanted.name), false, "property {}", index);
        Assert::IsTrue(property.type == wanted.type, false, "type of {}", wanted.name);
        Assert::IsTrue(property.getter != nullptr && property.setter != nullptr, false, "both wrappers of {}",
                       wanted.name);
        Assert::IsTrue(property.minValue == wanted.minValue, false, "min of {}", wanted.name);
        Assert::IsTrue(property.maxValue == wanted.maxValue, false, "max of {}", wanted.name);
        Assert::AreEqual(static_cast<bool>(property.valueValidator), static_cast<bool>(wanted.minValue), false,
                         "a validator on {} exactly when it has bounds", wanted.name);
        for (const entt::meta_any& value : wanted.accepted)
        {
            Assert::IsTrue(property.valueValidator(value), false, "{} accepts a value", wanted.name);
            Assert::IsTrue(property.setter->valueValidator(value), false, "so does the setter's copy");
        }
        for (const entt::meta_any& value : wanted.refused)
        {
            Assert::IsFalse(property.valueValidator(value), false, "{} refuses a value", wanted.name);
        }
    }
}

// Every member of TestStruct through a getter and a setter lambda, each one read and written by copy.
template <auto member>
PropertyBinding& lambdaProperty(InterfaceBindingBuilder<TestStruct>& builder, const char* name)
{
    using Value = std::remove_cvref_t<decltype(TestStruct{}.*member)>;
    return builder.property(
        name, [](const TestStruct& object) { return object.*member; },
        [](TestStruct& object, const Value& value) { object.*member = value; });
}

constexpr const char* INCORRECT_TYPE = "Failed to set bounds on property 'intVal' due to property type and bounds type "
                                       "differing\\. Property type: 'float', bounds type: 'int'";
} // namespace

ZUT_TEST_CLASS(Scripting_InterfaceBindingBuilderTests);
class Scripting_InterfaceBindingBuilderTests final : public Scripting_InterfaceBindingBuilderTestsBase
{
    ZUT_TEST(PropertiesAsLambdas)
    {
        InterfaceBindingBuilder<TestStruct> builder("TestStruct");
        lambdaProperty<&TestStruct::intVal>(builder, "intVal");
        lambdaProperty<&TestStruct::floatVal>(builder, "floatVal");
        lambdaProperty<&TestStruct::stringVal>(builder, "stringVal");
        builder.release(Version(1, 0, 0));
        const InterfaceBinding binding = builder.finish();
        checkInterface<TestStruct>(binding, "TestStruct", threeProperties());
        Assert::AreEqual(binding.releases.size(), size_t{1}, false, "the builder's tags move into the record");

        TestStruct object;
        Assert::IsFalse(binding.properties[2].setter->set(entt::forward_as_meta(object), std::string("x")).isError());
        Assert::AreEqual(object.stringVal, std::string("x"));
        Assert::IsTrue(binding.properties[2].getter->get(entt::forward_as_meta(object)) ==
                       entt::meta_any{std::string("x")});
    }

    ZUT_TEST(PropertiesAsMethods)
    {
        using Methods = TestStructMemberSetterGetter;
        InterfaceBindingBuilder<Methods> builder("TestStructMemberSetterGetter");
        builder.property<&Methods::getIntVal, &Methods::setIntVal>("intVal");
        builder.property<&Methods::getFloatVal, &Methods::setFloatVal>("floatVal");
        builder.property<&Methods::getStringVal, &Methods::setStringVal>("stringVal");
        const InterfaceBinding binding = builder.finish();
        checkInterface<Methods>(binding, "TestStructMemberSetterGetter", threeProperties());
        Assert::IsTrue(binding.properties[0].setter->isMethod());
        Assert::IsTrue(binding.properties[2].getter->getReturnPolicy() == Reflection::ReturnPolicy::ByReference, false,
                       "a getter returning a reference");
    }

    ZUT_TEST(PropertiesAsLambdasWithBounds)
    {
        InterfaceBindingBuilder<TestStruct> builder("TestStruct");
        lambdaProperty<&TestStruct::intVal>(builder, "intVal").bounds(0, 15);
        lambdaProperty<&TestStruct::floatVal>(builder, "floatVal").bounds(0.0f, 42.0f);
        lambdaProperty<&TestStruct::intVectorVal>(builder, "intVectorVal").bounds(0, 15);
        lambdaProperty<&TestStruct::floatVectorVal>(builder, "floatVectorVal").bounds(0.0f, 42.0f);
        lambdaProperty<&TestStruct::optionalIntVal>(builder, "optionalIntVal").bounds(0, 15);
        lambdaProperty<&TestStruct::optionalFloatVal>(builder, "optionalFloatVal").bounds(0.0f, 42.0f);
        lambdaProperty<&TestStruct::intOptionalVectorVal>(builder, "intOptionalVectorVal").bounds(0, 15);
        lambdaProperty<&TestStruct::floatOptionalVectorVal>(builder, "floatOptionalVectorVal").bounds(0.0f, 42.0f);
        checkInterface<TestStruct>(builder.finish(), "TestStruct", boundedProperties());
    }

    ZUT_TEST(PropertiesAsMethodsWithBounds)
    {
        using Methods = TestStructMemberSetterGetter;
        InterfaceBindingBuilder<Methods> builder("TestStructMemberSetterGetter");
        builder.property<&Methods::getIntVal, &Methods::setIntVal>("intVal").bounds(0, 15);
        builder.property<&Methods::getFloatVal, &Methods::setFloatVal>("floatVal").bounds(0.0f, 42.0f);
        builder.property<&Methods::getIntVectorVal, &Methods::setIntVectorVal>("intVectorVal").bounds(0, 15);
        builder.property<&Methods::getFloatVectorVal, &Methods::setFloatVectorVal>("floatVectorVal")
            .bounds(0.0f, 42.0f);
        builder.property<&Methods::getOptionalIntVal, &Methods::setOptionalIntVal>("optionalIntVal").bounds(0, 15);
        builder.property<&Methods::getOptionalFloatVal, &Methods::setOptionalFloatVal>("optionalFloatVal")
            .bounds(0.0f, 42.0f);
        builder.property<&Methods::getIntOptionalVectorVal, &Methods::setIntOptionalVectorVal>("intOptionalVectorVal")
            .bounds(0, 15);
        builder
            .property<&Methods::getFloatOptionalVectorVal, &Methods::setFloatOptionalVectorVal>(
                "floatOptionalVectorVal")
            .bounds(0.0f, 42.0f);
        checkInterface<Methods>(builder.finish(), "TestStructMemberSetterGetter", boundedProperties());
    }

    ZUT_TEST(SetBoundsLambdaPropertyIncorrectTypeFails)
    {
        InterfaceBindingBuilder<TestStruct> builder("TestStruct");
        PropertyBinding& property = lambdaProperty<&TestStruct::floatVal>(builder, "intVal");
        Assert::CheckDebugAsserts([&] { property.bounds(0, 15); }, INCORRECT_TYPE);
        checkInterface<TestStruct>(builder.finish(), "TestStruct", {{"intVal", resolve<float>(), {}, {}, {}, {}}});
    }

    ZUT_TEST(SetBoundsMethodPropertyIncorrectTypeFails)
    {
        using Methods = TestStructMemberSetterGetter;
        InterfaceBindingBuilder<Methods> builder("TestStructMemberSetterGetter");
        Assert::CheckDebugAsserts(
            [&] { builder.property<&Methods::getFloatVal, &Methods::setFloatVal>("intVal").bounds(0, 15); },
            INCORRECT_TYPE);
        checkInterface<Methods>(builder.finish(), "TestStructMemberSetterGetter",
                                {{"intVal", resolve<float>(), {}, {}, {}, {}}});
    }
};
