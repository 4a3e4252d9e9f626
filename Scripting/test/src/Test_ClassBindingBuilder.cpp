#include "Scripting/BindingType/ClassBindingBuilder.h"
#include "Scripting/LifetimeRegistry/LifetimeRegistry.h"
#include "Scripting/Runtime/Result.h"

#include "ZentaryUnitTest/Assert.h"
#include "ZentaryUnitTest/TestClass.h"

#include <array>
#include <cmath>
#include <optional>
#include <string>
#include <utility>
#include <vector>

using namespace Ovelith::CoreTestFramework;
using namespace Scripting;
using Reflection::resolve;

namespace
{
struct TestStructWithMethods
{
    int intVal = 0;
    float floatVal = 0.0f;
    std::string stringVal;
    std::vector<int> intVectorVal;
    std::vector<float> floatVectorVal;
    std::optional<int> intOptionalVal;
    std::optional<float> floatOptionalVal;
    std::optional<std::vector<int>> intOptionalVectorVal;
    std::optional<std::vector<float>> floatOptionalVectorVal;

    int getIntVal() const { return intVal; }
    Result_deprecated<int> getIntValResult() const { return intVal; }
    std::optional<int> getIfIntVal() const { return intOptionalVal; }
    Result_deprecated<std::optional<int>> getIfIntValResult() const { return intOptionalVal; }
    void setIfIntVal(std::optional<int> value) { intOptionalVal = value; }

    void setIntVal(int value) { intVal = value; }
    void setFloatVal(float value) { floatVal = value; }
    void setStringVal(std::string value) { stringVal = std::move(value); }
    void setIntVectorVal(std::vector<int> value) { intVectorVal = std::move(value); }
    void setFloatVectorVal(std::vector<float> value) { floatVectorVal = std::move(value); }
    void setIntOptionalVal(std::optional<int> value) { intOptionalVal = value; }
    void setOptionalFloatVal(std::optional<float> value) { floatOptionalVal = value; }
    void setIntOptionalVectorVal(std::optional<std::vector<int>> value) { intOptionalVectorVal = std::move(value); }
    void setFloatOptionalVectorVal(std::optional<std::vector<float>> value) { floatOptionalVectorVal = value; }
    void setAllValues(int, float, std::string, std::vector<int>, std::vector<float>, std::optional<int>,
                      std::optional<float>, std::optional<std::vector<int>>, std::optional<std::vector<float>>)
    {
    }
};

struct TestStructWithStaticMethods
{
    static inline int sIntVal = 0;

    static void setIntVal(int value) { sIntVal = value; }
    static void setFloatVal(float) {}
    static void setStringVal(std::string) {}
    static void setIntVectorVal(std::vector<int>) {}
    static void setFloatVectorVal(std::vector<float>) {}
    static void setIntOptionalVal(std::optional<int>) {}
    static void setOptionalFloatVal(std::optional<float>) {}
    static void setIntOptionalVectorVal(std::optional<std::vector<int>>) {}
    static void setFloatOptionalVectorVal(std::optional<std::vector<float>>) {}
    static void setAllValues(int, float, std::string, std::vector<int>, std::vector<float>, std::optional<int>,
                             std::optional<float>, std::optional<std::vector<int>>, std::optional<std::vector<float>>)
    {
    }
};

struct TestStructWithStaticMembers
{
    static inline int sIntVal = 0;
};

struct TestStructWithMembers
{
    int intVal = 0;
    float floatVal = 0.0f;
    std::string stringVal;
    std::vector<int> intVectorVal;
    std::vector<float> floatVectorVal;
    std::optional<int> intOptionalVal;
    std::optional<float> floatOptionalVal;
    std::optional<std::vector<int>> intOptionalVectorVal;
    std::optional<std::vector<float>> floatOptionalVectorVal;
};

struct TestStructWithNoMethods
{
    int calls = 0;
};

struct TestStructWithConstructorArguments
{
    TestStructWithConstructorArguments(int intValue, std::string stringValue)
        : intVal(intValue), stringVal(std::move(stringValue))
    {
    }

    int intVal;
    std::string stringVal;
};

StrongTypedObjectHandle<TestStructWithConstructorArguments>
MakeTestStructWithConstructorArguments(WeakLifetimeScope& scope, int intValue, std::string stringValue)
{
    return scope.makeObject<TestStructWithConstructorArguments>(intValue, std::move(stringValue));
}

struct TestStructReadOnly
{
    float floatVal = 0.0f;
    int intVal = 0;

    int getIntVal() const { return intVal; }
    int getAllConstants() const { return 42; }
};

// A registry that constructors can make objects in.
struct ScopeContext
{
    LifetimeRegistryReference reference;
    LifetimeRegistry registry{ContextId{1}, reference};
    WeakLifetimeScope scope{&reference};
};

// The nine arguments the method cases bind, one of each kind.
ArgumentBindingBuilder<int> intArgument()
{
    return ArgumentBindingBuilder<int>("intValueArgument").defaultValue(3).bounds(-5, 5);
}
ArgumentBindingBuilder<float> floatArgument()
{
    return ArgumentBindingBuilder<float>("floatValueArgument").defaultValue(-1.0f).bounds(-10.0f, 10.0f);
}
ArgumentBindingBuilder<std::string> stringArgument()
{
    return ArgumentBindingBuilder<std::string>("stringValueArgument")
        .validValues({"valid", "default"})
        .defaultValue("default");
}
ArgumentBindingBuilder<std::vector<int>> intVectorArgument()
{
    return ArgumentBindingBuilder<std::vector<int>>("intVectorValueArgument").bounds(-5, 5);
}
ArgumentBindingBuilder<std::vector<float>> floatVectorArgument()
{
    return ArgumentBindingBuilder<std::vector<float>>("floatVectorValueArgument").bounds(-10.0f, 10.0f);
}
ArgumentBindingBuilder<std::optional<int>> intOptionalArgument()
{
    return ArgumentBindingBuilder<std::optional<int>>("intOptionalValueArgument").bounds(-5, 5);
}
ArgumentBindingBuilder<std::optional<float>> floatOptionalArgument()
{
    return ArgumentBindingBuilder<std::optional<float>>("floatOptionalValueArgument").bounds(-10.0f, 10.0f);
}
ArgumentBindingBuilder<std::optional<std::vector<int>>> intOptionalVectorArgument()
{
    return ArgumentBindingBuilder<std::optional<std::vector<int>>>("intOptionalVectorValueArgument").bounds(-5, 5);
}
ArgumentBindingBuilder<std::optional<std::vector<float>>> floatOptionalVectorArgument()
{
    return ArgumentBindingBuilder<std::optional<std::vector<float>>>("floatOptionalVectorValueArgument")
        .bounds(-10.0f, 10.0f);
}

const float JUST_ABOVE_TEN = std::nextafter(10.0f, 11.0f);

struct ExpectedArgument
{
    const char* function;
    const char* name;
    entt::meta_type type;
    entt::meta_any defaultValue;
    entt::meta_any minValue;
    entt::meta_any maxValue;
    std::vector<entt::meta_any> accepted;
    std::vector<entt::meta_any> refused;
};

// An empty optional, made in place as the library makes its defaults: GCC 12 warns about the never-read payload of
// a disengaged temporary moved into an any.
template <typename T>
entt::meta_any noValue()
{
    return entt::meta_any{std::in_place_type<std::optional<T>>};
}

std::vector<ExpectedArgument> nineArguments()
{
    using IntVector = std::vector<int>;
    using FloatVector = std::vector<float>;
    return {
        {"setIntVal", "intValueArgument", resolve<int>(), 3, -5, 5, {5, -5, 0}, {6, -6}},
        {"setFloatVal",
         "floatValueArgument",
         resolve<float>(),
         -1.0f,
         -10.0f,
         10.0f,
         {10.0f, -10.0f},
         {JUST_ABOVE_TEN, -JUST_ABOVE_TEN}},
        {"setStringVal",
         "stringValueArgument",
         resolve<std::string>(),
         std::string("default"),
         {},
         {},
         {std::string("valid"), std::string("default")},
         {std::string("invalid"), std::string("Valid"), std::string()}},
        {"setIntVectorVal",
         "intVectorValueArgument",
         resolve<IntVector>(),
         {},
         -5,
         5,
         {IntVector{-5, 0, 5}, IntVector{}},
         {IntVector{0, 6}, IntVector{-6}}},
        {"setFloatVectorVal",
         "floatVectorValueArgument",
         resolve<FloatVector>(),
         {},
         -10.0f,
         10.0f,
         {FloatVector{-10.0f, 10.0f}, FloatVector{}},
         {FloatVector{0.0f, JUST_ABOVE_TEN}}},
        {"setIntOptionalVal",
         "intOptionalValueArgument",
         resolve<std::optional<int>>(),
         noValue<int>(),
         -5,
         5,
         {noValue<int>(), std::optional<int>(5)},
         {std::optional<int>(6)}},
        {"setOptionalFloatVal",
         "floatOptionalValueArgument",
         resolve<std::optional<float>>(),
         noValue<float>(),
         -10.0f,
         10.0f,
         {noValue<float>(), std::optional<float>(-10.0f)},
         {std::optional<float>(-JUST_ABOVE_TEN)}},
        {"setIntOptionalVectorVal",
         "intOptionalVectorValueArgument",
         resolve<std::optional<IntVector>>(),
         noValue<IntVector>(),
         -5,
         5,
         {noValue<IntVector>(), std::optional<IntVector>(IntVector{5, -5})},
         {std::optional<IntVector>(IntVector{5, 6})}},
        {"setFloatOptionalVectorVal",
         "floatOptionalVectorValueArgument",
         resolve<std::optional<FloatVector>>(),
         noValue<FloatVector>(),
         -10.0f,
         10.0f,
         {noValue<FloatVector>(), std::optional<FloatVector>(FloatVector{10.0f})},
         {std::optional<FloatVector>(FloatVector{JUST_ABOVE_TEN})}},
    };
}

// The nine arguments in one function put defaulted ones before the vectors, which have no default.
const std::vector<std::string> DEFAULTS_BEFORE_VECTORS(
    3, "Default arguments must appear at the end of the function\\. Check your argument bindings\\.");

void checkArgument(const FunctionBinding& function, uint32_t index, const ExpectedArgument& expected)
{
    Assert::IsTrue(index < function.arguments.size(), true, "{} has argument {}", function.name, index);
    const ArgumentBinding& argument = function.arguments[index];
    Assert::AreEqual(argument.name, std::string(expected.name));
    Assert::IsTrue(argument.type == expected.type, false, "type of {}", expected.name);
    Assert::IsTrue(argument.details.defaultValue == expected.defaultValue, false, "default of {}", expected.name);
    Assert::IsTrue(argument.details.minValue == expected.minValue, false, "min of {}", expected.name);
    Assert::IsTrue(argument.details.maxValue == expected.maxValue, false, "max of {}", expected.name);
    Assert::IsTrue(function.function->getDefaultArgument(index) == expected.defaultValue, false,
                   "the callable holds the default of {}", expected.name);
    for (size_t value = 0; value < expected.accepted.size(); ++value)
    {
        Assert::IsTrue(function.function->validateArgument(expected.accepted[value], index), false,
                       "{} accepts value {}", expected.name, value);
    }
    for (size_t value = 0; value < expected.refused.size(); ++value)
    {
        Assert::IsFalse(function.function->validateArgument(expected.refused[value], index), false,
                        "{} refuses value {}", expected.name, value);
    }
}

void checkArgumentCounts(const FunctionBinding& function, uint32_t defaults)
{
    Assert::AreEqual(function.function->defaultArgumentCount, defaults, false, "defaults of {}", function.name);
    Assert::AreEqual(function.function->injectedArgumentCount, 0u, false, "injected of {}", function.name);
}

// Nine functions of one argument each, in the order of `nineArguments`.
void checkNineSingleArgumentFunctions(const ClassBinding& binding, std::optional<entt::meta_type> classType)
{
    const std::vector<ExpectedArgument> expected = nineArguments();
    Assert::AreEqual(binding.functions.size(), expected.size(), true);
    for (uint32_t index = 0; index < expected.size(); ++index)
    {
        const FunctionBinding& function = binding.functions[index];
        Assert::AreEqual(function.name, std::string(expected[index].function));
        Assert::AreEqual(function.arguments.size(), size_t{1}, false, "arguments of {}", function.name);
        Assert::IsTrue(function.function->getClassType() == classType, false, "class type of {}", function.name);
        Assert::AreEqual(function.function->getArgumentCount(), 1u);
        checkArgumentCounts(function, index == 3 || index == 4 ? 0u : 1u);
        checkArgument(function, 0, expected[index]);
    }
    Assert::IsTrue(binding.constructors.empty() && binding.properties.empty() && binding.constants.empty());
}

void checkNineArgumentFunction(const ClassBinding& binding, std::optional<entt::meta_type> classType)
{
    Assert::AreEqual(binding.functions.size(), size_t{1}, true);
    const FunctionBinding& function = binding.functions[0];
    Assert::AreEqual(function.name, std::string("setAllValues"));
    Assert::IsTrue(function.function->getClassType() == classType, false, "class type");
    const std::vector<ExpectedArgument> expected = nineArguments();
    Assert::AreEqual(function.arguments.size(), expected.size(), true);
    checkArgumentCounts(function, 7);
    for (uint32_t index = 0; index < expected.size(); ++index)
    {
        checkArgument(function, index, expected[index]);
    }
}

// Binds the nine arguments in one call of `bind`: the three leading defaults before the vectors are each reported.
template <typename T, typename Bind>
void checkNineArgumentBinding(const char* className, const Bind& bind, std::optional<entt::meta_type> classType)
{
    ClassBindingBuilder<T> builder(className);
    Assert::CheckDebugAsserts(
        [&]
        {
            bind(builder, intArgument(), floatArgument(), stringArgument(), intVectorArgument(), floatVectorArgument(),
                 intOptionalArgument(), floatOptionalArgument(), intOptionalVectorArgument(),
                 floatOptionalVectorArgument());
        },
        DEFAULTS_BEFORE_VECTORS);
    checkNineArgumentFunction(builder.finish(), classType);
}

void checkProperty(const ClassBinding& binding, const std::string& name, entt::meta_type type, bool hasSetter)
{
    Assert::AreEqual(binding.properties.size(), size_t{1}, true);
    const PropertyBinding& property = binding.properties[0];
    Assert::AreEqual(property.name, name);
    Assert::IsTrue(property.type == type, false, "type of {}", name);
    Assert::IsTrue(property.getter != nullptr, true, "a getter");
    Assert::IsTrue(property.getter->privilege == Privilege::ReadOnly, false, "getters are read-only");
    Assert::AreEqual(property.setter != nullptr, hasSetter, false, "setter of {}", name);
    Assert::IsFalse(static_cast<bool>(property.minValue) || static_cast<bool>(property.maxValue) ||
                        static_cast<bool>(property.extraValue) || static_cast<bool>(property.valueValidator),
                    false, "no bounds");
    Assert::IsTrue(binding.functions.empty() && binding.constructors.empty() && binding.constants.empty());
}

// Writes `written` through the property and reads it back.
void checkRoundTrip(const PropertyBinding& property, TestStructWithMethods& object, const entt::meta_any& written)
{
    Assert::IsFalse(property.setter->set(entt::forward_as_meta(object), written).isError(), true, "set {}",
                    property.name);
    const entt::meta_any read = property.getter->get(entt::forward_as_meta(object));
    Assert::IsTrue(read == written || read.allow_cast(written.type()) == written, false, "{} reads back",
                   property.name);
}

void checkBounds(const PropertyBinding& property, const std::vector<entt::meta_any>& accepted,
                 const std::vector<entt::meta_any>& refused)
{
    Assert::IsTrue(property.minValue == entt::meta_any{0}, false, "min of {}", property.name);
    Assert::IsTrue(property.maxValue == entt::meta_any{15}, false, "max of {}", property.name);
    Assert::IsTrue(static_cast<bool>(property.valueValidator), true, "a validator on {}", property.name);
    Assert::IsTrue(static_cast<bool>(property.setter->valueValidator), true, "copied into the setter");
    for (size_t index = 0; index < accepted.size(); ++index)
    {
        Assert::IsTrue(property.valueValidator(accepted[index]), false, "{} accepts value {}", property.name, index);
        Assert::IsTrue(property.setter->valueValidator(accepted[index]), false, "the setter's copy agrees");
    }
    for (size_t index = 0; index < refused.size(); ++index)
    {
        Assert::IsFalse(property.valueValidator(refused[index]), false, "{} refuses value {}", property.name, index);
        Assert::IsFalse(property.setter->valueValidator(refused[index]), false, "the setter's copy agrees");
    }
}

const std::vector<entt::meta_any> INT_ACCEPTED{0, 15, 7};
const std::vector<entt::meta_any> INT_REFUSED{-1, 16};

std::vector<entt::meta_any> optionalsOf(const std::vector<entt::meta_any>& values, bool withDisengaged)
{
    std::vector<entt::meta_any> result;
    if (withDisengaged)
    {
        result.emplace_back(noValue<int>());
    }
    for (const entt::meta_any& value : values)
    {
        result.emplace_back(std::optional<int>(value.cast<int>()));
    }
    return result;
}

const std::vector<entt::meta_any> VECTOR_ACCEPTED{std::vector<int>{0, 15}, std::vector<int>{}};
const std::vector<entt::meta_any> VECTOR_REFUSED{std::vector<int>{0, 16}, std::vector<int>{-1}};
const std::vector<entt::meta_any> OPTIONAL_VECTOR_ACCEPTED{std::optional<std::vector<int>>(),
                                                           std::optional<std::vector<int>>(std::vector<int>{0, 15})};
const std::vector<entt::meta_any> OPTIONAL_VECTOR_REFUSED{std::optional<std::vector<int>>(std::vector<int>{16})};
} // namespace

ZUT_TEST_CLASS(Scripting_ClassBindingBuilderTests);
class Scripting_ClassBindingBuilderTests final : public Scripting_ClassBindingBuilderTestsBase
{
    ZUT_TEST(PropertyAsMember)
    {
        ClassBindingBuilder<TestStructWithMethods> builder("TestStructWithMethods");
        builder.property<&TestStructWithMethods::intVal>("intVal");
        const ClassBinding binding = builder.finish();
        Assert::AreEqual(binding.name, std::string("TestStructWithMethods"));
        Assert::IsTrue(binding.type == resolve<TestStructWithMethods>(), false, "finish sets the type");
        Assert::IsFalse(static_cast<bool>(binding.baseType), false, "no base");
        checkProperty(binding, "intVal", resolve<int>(), true);
        TestStructWithMethods object;
        checkRoundTrip(binding.properties[0], object, entt::meta_any{4});
        Assert::AreEqual(object.intVal, 4);
        Assert::IsTrue(binding.properties[0].getter->getReturnPolicy() == Reflection::ReturnPolicy::ByReference);
    }

    ZUT_TEST(PropertyAsMethods)
    {
        ClassBindingBuilder<TestStructWithMethods> builder("TestStructWithMethods");
        builder.property<&TestStructWithMethods::getIntVal, &TestStructWithMethods::setIntVal>("intVal");
        const ClassBinding binding = builder.finish();
        checkProperty(binding, "intVal", resolve<int>(), true);
        Assert::IsTrue(binding.properties[0].setter->isMethod());
        TestStructWithMethods object;
        checkRoundTrip(binding.properties[0], object, entt::meta_any{-4});
        Assert::AreEqual(object.intVal, -4);
    }

    ZUT_TEST(PropertyGetterCanBeResult)
    {
        ClassBindingBuilder<TestStructWithMethods> builder("TestStructWithMethods");
        builder.property<&TestStructWithMethods::getIntValResult, &TestStructWithMethods::setIntVal>("intVal");
        checkProperty(builder.finish(), "intVal", resolve<int>(), true);
    }

    ZUT_TEST(PropertyCanBeOptional)
    {
        ClassBindingBuilder<TestStructWithMethods> builder("TestStructWithMethods");
        builder.property<&TestStructWithMethods::getIfIntVal, &TestStructWithMethods::setIfIntVal>("intVal");
        const ClassBinding binding = builder.finish();
        checkProperty(binding, "intVal", resolve<std::optional<int>>(), true);
        TestStructWithMethods object;
        checkRoundTrip(binding.properties[0], object, entt::meta_any{std::optional<int>(8)});
        Assert::IsTrue(object.intOptionalVal == 8);
    }

    ZUT_TEST(PropertyCanBeOptionalWithResult)
    {
        ClassBindingBuilder<TestStructWithMethods> builder("TestStructWithMethods");
        builder.property<&TestStructWithMethods::getIfIntValResult, &TestStructWithMethods::setIfIntVal>("intVal");
        checkProperty(builder.finish(), "intVal", resolve<std::optional<int>>(), true);
    }

    ZUT_TEST(PropertyAsLambdas)
    {
        ClassBindingBuilder<TestStructWithMethods> builder("TestStructWithMethods");
        builder.property(
            "intVal", [](const TestStructWithMethods& object) { return object.intVal; },
            [](TestStructWithMethods& object, int value) { object.intVal = value; });
        const ClassBinding binding = builder.finish();
        checkProperty(binding, "intVal", resolve<int>(), true);
        Assert::IsFalse(binding.properties[0].setter->isMethod());
        TestStructWithMethods object;
        checkRoundTrip(binding.properties[0], object, entt::meta_any{9});
        Assert::AreEqual(object.intVal, 9);
    }

    ZUT_TEST(ReadOnlyPropertyIsMember)
    {
        ClassBindingBuilder<TestStructWithMethods> builder("TestStructWithMethods");
        builder.property<&TestStructWithMethods::intVal, Privilege::ReadOnly>("intVal");
        checkProperty(builder.finish(), "intVal", resolve<int>(), false);
    }

    ZUT_TEST(ReadOnlyPropertyIsMethod)
    {
        ClassBindingBuilder<TestStructWithMethods> builder("TestStructWithMethods");
        builder.property<&TestStructWithMethods::getIntVal, Privilege::ReadOnly>("intVal");
        const ClassBinding binding = builder.finish();
        checkProperty(binding, "intVal", resolve<int>(), false);
        TestStructWithMethods object;
        object.intVal = 12;
        Assert::IsTrue(binding.properties[0].getter->get(entt::forward_as_meta(object)) == entt::meta_any{12});
    }

    ZUT_TEST(ReadOnlyPropertyIsLambda)
    {
        ClassBindingBuilder<TestStructWithMethods> builder("TestStructWithMethods");
        builder.property<Privilege::ReadOnly>("intVal",
                                              [](const TestStructWithMethods& object) { return object.intVal; });
        checkProperty(builder.finish(), "intVal", resolve<int>(), false);
    }

    ZUT_TEST(MethodWithSingleArgument)
    {
        ClassBindingBuilder<TestStructWithMethods> builder("TestStructWithMethods");
        builder.method<&TestStructWithMethods::setIntVal>("setIntVal", intArgument());
        builder.method<&TestStructWithMethods::setFloatVal>("setFloatVal", floatArgument());
        builder.method<&TestStructWithMethods::setStringVal>("setStringVal", stringArgument());
        builder.method<&TestStructWithMethods::setIntVectorVal>("setIntVectorVal", intVectorArgument());
        builder.method<&TestStructWithMethods::setFloatVectorVal>("setFloatVectorVal", floatVectorArgument());
        builder.method<&TestStructWithMethods::setIntOptionalVal>("setIntOptionalVal", intOptionalArgument());
        builder.method<&TestStructWithMethods::setOptionalFloatVal>("setOptionalFloatVal", floatOptionalArgument());
        builder.method<&TestStructWithMethods::setIntOptionalVectorVal>("setIntOptionalVectorVal",
                                                                        intOptionalVectorArgument());
        builder.method<&TestStructWithMethods::setFloatOptionalVectorVal>("setFloatOptionalVectorVal",
                                                                          floatOptionalVectorArgument());
        const ClassBinding binding = builder.finish();
        checkNineSingleArgumentFunctions(binding, resolve<TestStructWithMethods>());

        TestStructWithMethods object;
        entt::meta_any args[] = {entt::meta_any{4}};
        Assert::IsTrue(static_cast<bool>(binding.functions[0].function->call(entt::forward_as_meta(object), args, 1)));
        Assert::AreEqual(object.intVal, 4, false, "the bound method runs on the object");
        Assert::IsTrue(binding.functions[0].function->privilege == Privilege::None, false, "methods default to None");
    }

    ZUT_TEST(MethodWithMultipleArguments)
    {
        checkNineArgumentBinding<TestStructWithMethods>(
            "TestStructWithMethods",
            [](auto& builder, auto&&... arguments)
            {
                builder.template method<&TestStructWithMethods::setAllValues>(
                    "setAllValues", std::forward<decltype(arguments)>(arguments)...);
            },
            resolve<TestStructWithMethods>());
    }

    ZUT_TEST(MethodLambdaWithSingleArgument)
    {
        using Self = TestStructWithMembers;
        ClassBindingBuilder<Self> builder("TestStructWithMembers");
        builder.method(
            "setIntVal", [](Self& self, int value) { self.intVal = value; }, intArgument());
        builder.method(
            "setFloatVal", [](Self& self, float value) { self.floatVal = value; }, floatArgument());
        builder.method(
            "setStringVal", [](Self& self, const std::string& value) { self.stringVal = value; }, stringArgument());
        builder.method(
            "setIntVectorVal", [](Self& self, std::vector<int> value) { self.intVectorVal = std::move(value); },
            intVectorArgument());
        builder.method(
            "setFloatVectorVal", [](Self& self, std::vector<float> value) { self.floatVectorVal = std::move(value); },
            floatVectorArgument());
        builder.method(
            "setIntOptionalVal", [](Self& self, std::optional<int> value) { self.intOptionalVal = value; },
            intOptionalArgument());
        builder.method(
            "setOptionalFloatVal", [](Self& self, std::optional<float> value) { self.floatOptionalVal = value; },
            floatOptionalArgument());
        builder.method(
            "setIntOptionalVectorVal",
            [](Self& self, std::optional<std::vector<int>> value) { self.intOptionalVectorVal = std::move(value); },
            intOptionalVectorArgument());
        builder.method(
            "setFloatOptionalVectorVal",
            [](Self& self, std::optional<std::vector<float>> value) { self.floatOptionalVectorVal = std::move(value); },
            floatOptionalVectorArgument());
        const ClassBinding binding = builder.finish();
        checkNineSingleArgumentFunctions(binding, resolve<Self>());

        Self object;
        entt::meta_any args[] = {entt::meta_any{std::string("valid")}};
        Assert::IsTrue(static_cast<bool>(binding.functions[2].function->call(entt::forward_as_meta(object), args, 1)));
        Assert::AreEqual(object.stringVal, std::string("valid"), false, "the lambda gets the object first");
    }

    ZUT_TEST(MethodLambdaWithMultipleArguments)
    {
        checkNineArgumentBinding<TestStructWithNoMethods>(
            "TestStructWithNoMethods",
            [](auto& builder, auto&&... arguments)
            {
                builder.method(
                    "setAllValues",
                    [](TestStructWithNoMethods& self, int, float, const std::string&, std::vector<int>,
                       std::vector<float>, std::optional<int>, std::optional<float>, std::optional<std::vector<int>>,
                       std::optional<std::vector<float>>) { ++self.calls; },
                    std::forward<decltype(arguments)>(arguments)...);
            },
            resolve<TestStructWithNoMethods>());
    }

    ZUT_TEST(StaticFunctionWithSingleArgument)
    {
        using Static = TestStructWithStaticMethods;
        ClassBindingBuilder<Static> builder("TestStructWithStaticMethods");
        builder.function<&Static::setIntVal>("setIntVal", intArgument());
        builder.function<&Static::setFloatVal>("setFloatVal", floatArgument());
        builder.function<&Static::setStringVal>("setStringVal", stringArgument());
        builder.function<&Static::setIntVectorVal>("setIntVectorVal", intVectorArgument());
        builder.function<&Static::setFloatVectorVal>("setFloatVectorVal", floatVectorArgument());
        builder.function<&Static::setIntOptionalVal>("setIntOptionalVal", intOptionalArgument());
        builder.function<&Static::setOptionalFloatVal>("setOptionalFloatVal", floatOptionalArgument());
        builder.function<&Static::setIntOptionalVectorVal>("setIntOptionalVectorVal", intOptionalVectorArgument());
        builder.function<&Static::setFloatOptionalVectorVal>("setFloatOptionalVectorVal",
                                                             floatOptionalVectorArgument());
        const ClassBinding binding = builder.finish();
        checkNineSingleArgumentFunctions(binding, std::nullopt);

        entt::meta_any args[] = {entt::meta_any{-2}};
        Assert::IsTrue(static_cast<bool>(binding.functions[0].function->call(entt::meta_any{}, args, 1)));
        Assert::AreEqual(Static::sIntVal, -2, false, "the static function ran");
    }

    ZUT_TEST(StaticFunctionWithMultipleArguments)
    {
        checkNineArgumentBinding<TestStructWithStaticMethods>(
            "TestStructWithStaticMethods",
            [](auto& builder, auto&&... arguments)
            {
                builder.template function<&TestStructWithStaticMethods::setAllValues>(
                    "setAllValues", std::forward<decltype(arguments)>(arguments)...);
            },
            std::nullopt);
    }

    ZUT_TEST(StaticFunctionLambdaWithSingleArgument)
    {
        using Members = TestStructWithStaticMembers;
        ClassBindingBuilder<Members> builder("TestStructWithStaticMembers");
        builder.function(
            "setIntVal", [](int value) { Members::sIntVal = value; }, intArgument());
        builder.function(
            "setFloatVal", [](float) {}, floatArgument());
        builder.function(
            "setStringVal", [](std::string) {}, stringArgument());
        builder.function(
            "setIntVectorVal", [](const std::vector<int>&) {}, intVectorArgument());
        builder.function(
            "setFloatVectorVal", [](std::vector<float>) {}, floatVectorArgument());
        builder.function(
            "setIntOptionalVal", [](std::optional<int>) {}, intOptionalArgument());
        builder.function(
            "setOptionalFloatVal", [](std::optional<float>) {}, floatOptionalArgument());
        builder.function(
            "setIntOptionalVectorVal", [](std::optional<std::vector<int>>) {}, intOptionalVectorArgument());
        builder.function(
            "setFloatOptionalVectorVal", [](std::optional<std::vector<float>>) {}, floatOptionalVectorArgument());
        const ClassBinding binding = builder.finish();
        checkNineSingleArgumentFunctions(binding, std::nullopt);

        entt::meta_any args[] = {entt::meta_any{5}};
        Assert::IsTrue(static_cast<bool>(binding.functions[0].function->call(entt::meta_any{}, args, 1)));
        Assert::AreEqual(Members::sIntVal, 5);
    }

    ZUT_TEST(StaticFunctionLambdaWithMultipleArguments)
    {
        checkNineArgumentBinding<TestStructWithStaticMembers>(
            "TestStructWithStaticMembers",
            [](auto& builder, auto&&... arguments)
            {
                builder.function(
                    "setAllValues",
                    [](int, float, std::string, std::vector<int>, std::vector<float>, std::optional<int>,
                       std::optional<float>, std::optional<std::vector<int>>, std::optional<std::vector<float>>) {},
                    std::forward<decltype(arguments)>(arguments)...);
            },
            std::nullopt);
    }

    ZUT_TEST(ConstructorFunctionPointerWithArgumentBindings)
    {
        ClassBindingBuilder<TestStructWithConstructorArguments> builder("TestStructWithConstructorArguments");
        builder.constructor<&MakeTestStructWithConstructorArguments, Privilege::ReadOnly, int, std::string>(
            ArgumentBindingBuilder<int>("intValue"), ArgumentBindingBuilder<std::string>("stringValue"));
        checkConstructor(builder.finish());
    }

    ZUT_TEST(ConstructorLambdaWithArgumentBindings)
    {
        ClassBindingBuilder<TestStructWithConstructorArguments> builder("TestStructWithConstructorArguments");
        builder.constructor([](WeakLifetimeScope& scope, int intValue, const std::string& stringValue)
                            { return scope.makeObject<TestStructWithConstructorArguments>(intValue, stringValue); },
                            ArgumentBindingBuilder<int>("intValue"),
                            ArgumentBindingBuilder<const std::string&>("stringValue"));
        checkConstructor(builder.finish());
    }

    ZUT_TEST(MultipleConstructors)
    {
        ClassBindingBuilder<TestStructWithConstructorArguments> builder("TestStructWithConstructorArguments");
        builder.constructor<&MakeTestStructWithConstructorArguments>(
            ArgumentBindingBuilder<int>("intValue"), ArgumentBindingBuilder<std::string>("stringValue"));
        builder.constructor([](WeakLifetimeScope& scope)
                            { return scope.makeObject<TestStructWithConstructorArguments>(0, std::string()); });
        const ClassBinding binding = builder.finish();
        Assert::AreEqual(binding.constructors.size(), size_t{2}, true);
        Assert::AreEqual(binding.constructors[0].name, std::string("constructor"));
        Assert::AreEqual(binding.constructors[1].name, std::string("constructor"));
        Assert::AreEqual(binding.constructors[1].function->injectedArgumentCount, 1u);
        Assert::IsTrue(binding.functions.empty());
    }

    ZUT_TEST(ConstructorWithResultReturnType)
    {
        struct TestStuct
        {
            int value = 6;
        };
        ClassBindingBuilder<TestStuct> builder("TestStuct");
        builder.constructor([](WeakLifetimeScope& scope) -> Result<StrongTypedObjectHandle<TestStuct>>
                            { return scope.makeObject<TestStuct>(); });
        const ClassBinding binding = builder.finish();
        Assert::AreEqual(binding.constructors.size(), size_t{1}, true);
        const Reflection::IFunction& constructor = *binding.constructors[0].function;
        Assert::IsTrue(constructor.getReturnType() == resolve<Result<StrongTypedObjectHandle<TestStuct>>>());

        ScopeContext context;
        entt::meta_any args[] = {entt::forward_as_meta(context.scope)};
        entt::meta_any made = constructor.call(entt::meta_any{}, args, 1);
        auto* result = made.try_cast<Result<StrongTypedObjectHandle<TestStuct>>>();
        Assert::IsTrue(result != nullptr && !result->isError(), true, "the constructor gives a result");
        Assert::AreEqual((*result->tryGet())->value, 6, false, "holding the new object");
    }

    ZUT_TEST(ClassBindingBuilderReadOnlyCanBindProperly)
    {
        ClassBindingBuilder<TestStructReadOnly> builder("TestStructReadOnly");
        builder.constructor(
            [](WeakLifetimeScope& scope, float floatValue, int intValue) {
                return scope.makeObject<TestStructReadOnly>(TestStructReadOnly{floatValue, intValue});
            },
            ArgumentBindingBuilder<float>("floatValue"), ArgumentBindingBuilder<int>("intValue"));
        builder.method<&TestStructReadOnly::getAllConstants, Privilege::ReadOnly>("getAllConstants");
        builder.property<&TestStructReadOnly::floatVal, Privilege::ReadOnly>("floatVal");
        builder.property<&TestStructReadOnly::getIntVal, Privilege::ReadOnly>("intVal");
        builder.constant("STATIC_CONST_MEMBER", 42);
        const ClassBinding binding = builder.finish();

        Assert::AreEqual(binding.constructors.size(), size_t{1}, true);
        Assert::AreEqual(binding.constructors[0].name, std::string("constructor"));
        Assert::IsTrue(binding.constructors[0].function->privilege == Privilege::ReadOnly, false,
                       "constructors default to ReadOnly");
        Assert::AreEqual(binding.functions.size(), size_t{1}, true);
        Assert::AreEqual(binding.functions[0].name, std::string("getAllConstants"));
        Assert::IsTrue(binding.functions[0].function->privilege == Privilege::ReadOnly);
        Assert::AreEqual(binding.properties.size(), size_t{2}, true);
        for (const PropertyBinding& property : binding.properties)
        {
            Assert::IsTrue(property.setter == nullptr && property.getter != nullptr, false, "{} is read-only",
                           property.name);
        }
        Assert::AreEqual(binding.constants.size(), size_t{1}, true);
        const ConstantFactory& constant = binding.constants[0];
        Assert::AreEqual(constant.name, std::string("STATIC_CONST_MEMBER"));
        Assert::IsTrue(constant.isConstant && constant.type == resolve<int>());
        WeakLifetimeScope noScope;
        Assert::IsTrue(constant.factory(noScope) == entt::meta_any{42}, false, "the factory gives 42");
    }

    ZUT_TEST(PropertyAsMemberWithBounds)
    {
        ClassBindingBuilder<TestStructWithMethods> builder("TestStructWithMethods");
        PropertyBinding& property = builder.property<&TestStructWithMethods::intVal>("intVal").bounds(0, 15);
        checkBounds(property, INT_ACCEPTED, INT_REFUSED);
        checkBounds(builder.finish().properties.at(0), INT_ACCEPTED, INT_REFUSED);
    }

    ZUT_TEST(PropertyAsLambdasWithBounds)
    {
        ClassBindingBuilder<TestStructWithMethods> builder("TestStructWithMethods");
        builder
            .property(
                "intVal", [](const TestStructWithMethods& object) { return object.intVal; },
                [](TestStructWithMethods& object, int value) { object.intVal = value; })
            .bounds(0, 15);
        checkBounds(builder.finish().properties.at(0), INT_ACCEPTED, INT_REFUSED);
    }

    ZUT_TEST(PropertyOptionalAsMemberWithBounds)
    {
        ClassBindingBuilder<TestStructWithMethods> builder("TestStructWithMethods");
        builder.property<&TestStructWithMethods::intOptionalVal>("intOptionalVal").bounds(0, 15);
        checkBounds(builder.finish().properties.at(0), optionalsOf(INT_ACCEPTED, true),
                    optionalsOf(INT_REFUSED, false));
    }

    ZUT_TEST(PropertyOptionalAsLambdasWithBounds)
    {
        ClassBindingBuilder<TestStructWithMethods> builder("TestStructWithMethods");
        builder
            .property(
                "intOptionalVal", [](const TestStructWithMethods& object) { return object.intOptionalVal; },
                [](TestStructWithMethods& object, std::optional<int> value) { object.intOptionalVal = value; })
            .bounds(0, 15);
        checkBounds(builder.finish().properties.at(0), optionalsOf(INT_ACCEPTED, true),
                    optionalsOf(INT_REFUSED, false));
    }

    ZUT_TEST(PropertyVectorAsMemberWithBounds)
    {
        ClassBindingBuilder<TestStructWithMethods> builder("TestStructWithMethods");
        builder.property<&TestStructWithMethods::intVectorVal>("intVectorVal").bounds(0, 15);
        checkBounds(builder.finish().properties.at(0), VECTOR_ACCEPTED, VECTOR_REFUSED);
    }

    ZUT_TEST(PropertyVectorAsLambdasWithBounds)
    {
        ClassBindingBuilder<TestStructWithMethods> builder("TestStructWithMethods");
        builder
            .property(
                "intVectorVal",
                [](const TestStructWithMethods& object) -> const std::vector<int>& { return object.intVectorVal; },
                [](TestStructWithMethods& object, const std::vector<int>& value) { object.intVectorVal = value; })
            .bounds(0, 15);
        checkBounds(builder.finish().properties.at(0), VECTOR_ACCEPTED, VECTOR_REFUSED);
    }

    ZUT_TEST(PropertyOptionalVectorAsMemberWithBounds)
    {
        ClassBindingBuilder<TestStructWithMethods> builder("TestStructWithMethods");
        builder.property<&TestStructWithMethods::intOptionalVectorVal>("intOptionalVectorVal").bounds(0, 15);
        checkBounds(builder.finish().properties.at(0), OPTIONAL_VECTOR_ACCEPTED, OPTIONAL_VECTOR_REFUSED);
    }

    ZUT_TEST(PropertyOptionalVectorAsLambdasWithBounds)
    {
        ClassBindingBuilder<TestStructWithMethods> builder("TestStructWithMethods");
        builder
            .property(
                "intOptionalVectorVal", [](const TestStructWithMethods& object) { return object.intOptionalVectorVal; },
                [](TestStructWithMethods& object, std::optional<std::vector<int>> value)
                { object.intOptionalVectorVal = std::move(value); })
            .bounds(0, 15);
        checkBounds(builder.finish().properties.at(0), OPTIONAL_VECTOR_ACCEPTED, OPTIONAL_VECTOR_REFUSED);
    }

    ZUT_TEST(SetBoundsPropertyIncorrectTypeFails)
    {
        ClassBindingBuilder<TestStructWithMethods> builder("TestStructWithMethods");
        PropertyBinding& property = builder.property<&TestStructWithMethods::floatVal>("intVal");
        Assert::CheckDebugAsserts([&] { property.bounds(0, 15); },
                                  "Failed to set bounds on property 'intVal' due to property type and bounds type "
                                  "differing\\. Property type: 'float', bounds type: 'int'");
        checkProperty(builder.finish(), "intVal", resolve<float>(), true);
    }

    ZUT_TEST(SetBoundsPropertyNoSetterFails)
    {
        ClassBindingBuilder<TestStructWithMethods> builder("TestStructWithMethods");
        PropertyBinding& property = builder.property<&TestStructWithMethods::intVal, Privilege::ReadOnly>("intVal");
        Assert::CheckDebugAsserts([&] { property.bounds(0, 15); },
                                  "Failed to set bounds on property 'intVal' due to property not having a setter");
        checkProperty(builder.finish(), "intVal", resolve<int>(), false);
    }

private:
    // One constructor of (WeakLifetimeScope&, int, string) with two described arguments, that makes an object.
    static void checkConstructor(const ClassBinding& binding)
    {
        Assert::IsTrue(binding.functions.empty(), false, "constructors leave the functions alone");
        Assert::AreEqual(binding.constructors.size(), size_t{1}, true);
        const FunctionBinding& constructor = binding.constructors[0];
        Assert::AreEqual(constructor.name, std::string("constructor"));
        Assert::IsTrue(constructor.function->privilege == Privilege::ReadOnly);
        Assert::AreEqual(constructor.function->getArgumentCount(), 3u);
        Assert::AreEqual(constructor.function->injectedArgumentCount, 1u);
        Assert::AreEqual(constructor.arguments.size(), size_t{2}, true, "the injected scope takes no binding");
        Assert::AreEqual(constructor.arguments[0].name, std::string("intValue"));
        Assert::IsTrue(constructor.arguments[0].type == resolve<int>());
        Assert::AreEqual(constructor.arguments[1].name, std::string("stringValue"));
        Assert::IsTrue(constructor.arguments[1].type == resolve<std::string>());

        ScopeContext context;
        entt::meta_any args[] = {entt::forward_as_meta(context.scope), entt::meta_any{7},
                                 entt::meta_any{std::string("seven")}};
        entt::meta_any made = constructor.function->call(entt::meta_any{}, args, 3);
        const auto* handle = made.try_cast<StrongTypedObjectHandle<TestStructWithConstructorArguments>>();
        Assert::IsTrue(handle != nullptr && handle->valid(), true, "the constructor made an object");
        Assert::AreEqual((*handle)->intVal, 7);
        Assert::AreEqual((*handle)->stringVal, std::string("seven"));
    }
};
