#include "Scripting/BindingType/ArgumentDetails.h"
#include "Scripting/BindingType/ClassBindingBuilder.h"
#include "Scripting/BindingType/ContextConfig.h"
#include "Scripting/BindingType/InjectedTypes.h"
#include "Scripting/LifetimeRegistry/LifetimeScopeImplementation.h"
#include "Scripting/Reflection/Function.h"
#include "Scripting/Reflection/Property.h"
#include "Scripting/Reflection/Reflection.h"

#include "ZentaryUnitTest/Assert.h"
#include "ZentaryUnitTest/TestClass.h"

#include <entt/meta/factory.hpp>

#include <array>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

using namespace Ovelith::CoreTestFramework;
using namespace Scripting;
using Scripting::Reflection::HasBaseType;
using Scripting::Reflection::resolve;

namespace
{
struct TestClassWithInt
{
    int value = 0;

    int getInt() const { return value; }
    void setInt(const int& newValue) { value = newValue; }
};

struct TestClassWithContainer
{
    std::vector<int> container;

    std::vector<int> getContainer() const { return container; }
    const std::vector<int>& getContainerRef() const { return container; }
};

struct InvalidDependency
{
};

int sVoidVoidCalls = 0;

void TestVoidVoidFunction()
{
    ++sVoidVoidCalls;
}

int TestIntFloatFunction(float value)
{
    return value == 1.0f ? 1 : 0;
}

void TestInstancedVoidFunction(int& object)
{
    ++object;
}

int TestInstancedIntFloatFunction(int& object, float value)
{
    return value == 1.0f ? object : -1;
}

void TestDependencyInjectionFunction(WeakLifetimeScope, LifetimeRegistry&, DependencyLocator&, ScriptObjectFactory&,
                                     ContextConfig&)
{
}

void TestDependencyInjectionFunctionInvalid(WeakLifetimeScope, LifetimeRegistry&, DependencyLocator&,
                                            ScriptObjectFactory&, ContextConfig&, InvalidDependency)
{
}

template <typename T>
bool holds(const entt::meta_any& any, const T& expected)
{
    const T* value = any.try_cast<const T>();
    return value != nullptr && *value == expected;
}

// What every wrapper of a function of no arguments answers, and that a call runs it once.
void checkVoidVoid(const Reflection::IFunction& function, entt::meta_any instance, const int& calls,
                   std::optional<entt::meta_type> classType)
{
    Assert::AreEqual(function.getArgumentCount(), 0u);
    Assert::IsTrue(function.getReturnType() == resolve<void>(), false, "the return type is void");
    Assert::IsTrue(function.getClassType() == classType, false, "class type");
    Assert::IsFalse(static_cast<bool>(function.getArgumentType(0)), false, "no argument 0");
    const int before = calls;
    const entt::meta_any result = function.call(std::move(instance), nullptr, 0);
    Assert::IsTrue(static_cast<bool>(result), false, "a void call gives a valid any");
    Assert::IsTrue(result.type() == resolve<void>(), false, "of type void");
    Assert::AreEqual(calls, before + 1, false, "the native function ran once");
}

// What every wrapper of int(float) answers: the types, the call, the exact arity and the argument check.
void checkIntFloat(const Reflection::IFunction& function, const std::function<entt::meta_any()>& makeInstance,
                   int expected)
{
    Assert::AreEqual(function.getArgumentCount(), 1u);
    Assert::IsTrue(function.getArgumentType(0) == resolve<float>(), false, "argument 0 is a float");
    Assert::IsTrue(function.getReturnType() == resolve<int>(), false, "returns int");
    Assert::IsTrue(function.validateArgument(entt::meta_any{1.0f}, 0), false, "a null validator passes");
    Assert::AreEqual(function.defaultArgumentCount, 0u);
    Assert::AreEqual(function.injectedArgumentCount, 0u);

    entt::meta_any args[] = {entt::meta_any{1.0f}, entt::meta_any{1.0f}};
    Assert::IsTrue(holds(function.call(makeInstance(), args, 1), expected), false, "1.0f gives {}", expected);
    Assert::IsFalse(static_cast<bool>(function.call(makeInstance(), args, 0)), false, "too few arguments");
    Assert::IsFalse(static_cast<bool>(function.call(makeInstance(), args, 2)), false,
                    "too many arguments, although both fit");

    entt::meta_any converted[] = {entt::meta_any{1.0}};
    Assert::IsTrue(holds(function.call(makeInstance(), converted, 1), expected), false, "a double converts");
    entt::meta_any wrong[] = {entt::meta_any{std::string("1")}};
    Assert::IsFalse(static_cast<bool>(function.call(makeInstance(), wrong, 1)), false, "a string does not fit");
}

template <typename Getter>
void checkIntGetter(const Getter& getter, Reflection::ReturnPolicy policy)
{
    TestClassWithInt object{1};
    Assert::IsTrue(getter.getType() == resolve<int>(), false, "type int");
    Assert::IsTrue(getter.getClassType().has_value(), true, "a class type");
    Assert::IsTrue(*getter.getClassType() == resolve<TestClassWithInt>(), false, "class TestClassWithInt");
    Assert::IsTrue(getter.getReturnPolicy() == policy, false, "return policy {}", Reflection::toString(policy));
    Assert::IsFalse(getter.isBaked());
    Assert::IsTrue(holds(getter.get(entt::forward_as_meta(object)), 1), false, "reads 1");
    const TestClassWithInt& constObject = object;
    Assert::IsTrue(holds(getter.get(entt::forward_as_meta(constObject)), 1), false, "reads a const object");
    Assert::IsTrue(holds(getter.get(entt::meta_any{TestClassWithInt{5}}), 5), false, "reads an owned object");
    TestClassWithContainer other;
    Assert::IsFalse(static_cast<bool>(getter.get(entt::forward_as_meta(other))), false, "another class");
    Assert::IsFalse(static_cast<bool>(getter.get(entt::meta_any{})), false, "no object");
}

template <typename Setter>
void checkIntSetter(const Setter& setter, bool isMethod)
{
    TestClassWithInt object{1};
    Assert::IsTrue(setter.getType() == resolve<int>(), false, "type int");
    Assert::IsTrue(setter.getClassType().has_value(), true, "a class type");
    Assert::IsTrue(*setter.getClassType() == resolve<TestClassWithInt>(), false, "class TestClassWithInt");
    Assert::AreEqual(setter.isMethod(), isMethod);

    const ResultAny result = setter.set(entt::forward_as_meta(object), entt::meta_any{2});
    Assert::IsFalse(result.isError(), false, "setting 2 succeeds");
    Assert::IsFalse(static_cast<bool>(result.any()), false, "and holds nothing");
    Assert::AreEqual(object.value, 2);

    Assert::IsFalse(setter.set(entt::forward_as_meta(object), entt::meta_any{3.0}).isError(), false,
                    "a double converts");
    Assert::AreEqual(object.value, 3);

    const ResultAny wrongValue = setter.set(entt::forward_as_meta(object), entt::meta_any{std::string("4")});
    Assert::IsTrue(wrongValue.isError(), true, "a string does not convert");
    Assert::AreEqual(wrongValue.tryGetError()->message, std::string("Failed to set member"));
    Assert::AreEqual(object.value, 3, false, "the object stays as it was");

    const TestClassWithInt& constObject = object;
    Assert::IsTrue(setter.set(entt::forward_as_meta(constObject), entt::meta_any{4}).isError(), false,
                   "a const object cannot be written");
    TestClassWithContainer other;
    Assert::IsTrue(setter.set(entt::forward_as_meta(other), entt::meta_any{4}).isError(), false, "another class");
    Assert::AreEqual(object.value, 3);
}

template <typename Getter>
void checkContainerGetter(const Getter& getter, Reflection::ReturnPolicy policy)
{
    TestClassWithContainer object{{1, 2, 3}};
    Assert::IsTrue(getter.getType() == resolve<std::vector<int>>(), false, "type std::vector<int>");
    Assert::IsTrue(getter.getClassType().has_value(), true, "a class type");
    Assert::IsTrue(*getter.getClassType() == resolve<TestClassWithContainer>(), false, "class TestClassWithContainer");
    Assert::IsTrue(getter.getReturnPolicy() == policy, false, "return policy {}", Reflection::toString(policy));
    const entt::meta_any value = getter.get(entt::forward_as_meta(object));
    Assert::IsTrue(holds(value, object.container), false, "reads the container");
    const auto* held = value.try_cast<const std::vector<int>>();
    const bool refersToMember = held == &object.container;
    Assert::AreEqual(refersToMember, policy == Reflection::ReturnPolicy::ByReference, false,
                     "a reference policy hands out the member itself, a value policy a copy");
}
} // namespace

ZUT_REGISTER_TEST_CLASS(Scripting_ReflectionTests);
struct Scripting_ReflectionTestsBase : ZentaryUnitTest::TestClass<Scripting_ReflectionTests>
{
    void onAfterTest() override { entt::meta_reset(Scripting::Reflection::context()); }
};

class Scripting_ReflectionTests final : public Scripting_ReflectionTestsBase
{
    ZUT_TEST(HasBaseTypeNoBaseTypes)
    {
        struct A
        {
        };
        struct B
        {
        };
        struct NeverRegistered
        {
        };
        entt::meta<A>(Scripting::Reflection::context());
        entt::meta<B>(Scripting::Reflection::context());
        Assert::IsFalse(HasBaseType(resolve<A>(), resolve<B>()));
        Assert::IsFalse(HasBaseType(resolve<B>(), resolve<A>()));
        Assert::IsFalse(HasBaseType(resolve<A>(), resolve<A>()), false, "a type is not its own base");
        Assert::IsFalse(HasBaseType(resolve<A>(), resolve<NeverRegistered>()));
        Assert::IsFalse(HasBaseType(resolve<NeverRegistered>(), resolve<A>()));
        Assert::IsFalse(HasBaseType(entt::meta_type{}, resolve<A>()), false, "an invalid type gives false");
        Assert::IsFalse(HasBaseType(resolve<A>(), entt::meta_type{}), false, "an invalid type gives false");
    }

    ZUT_TEST(HasBaseTypeSingleBaseType)
    {
        struct A
        {
        };
        struct B : A
        {
        };
        entt::meta<B>(Scripting::Reflection::context()).base<A>();
        Assert::IsTrue(HasBaseType(resolve<A>(), resolve<B>()));
        Assert::IsFalse(HasBaseType(resolve<B>(), resolve<A>()), false, "the first argument is the base");
    }

    ZUT_TEST(HasBaseTypeThreeClassTree)
    {
        struct A
        {
        };
        struct B : A
        {
        };
        struct Other
        {
        };
        struct C : Other, B
        {
        };
        entt::meta<B>(Scripting::Reflection::context()).base<A>();
        entt::meta<C>(Scripting::Reflection::context()).base<Other>().base<B>();
        Assert::IsTrue(HasBaseType(resolve<B>(), resolve<C>()));
        Assert::IsTrue(HasBaseType(resolve<A>(), resolve<C>()), false, "only the recursion finds a grandparent");
        Assert::IsTrue(HasBaseType(resolve<Other>(), resolve<C>()));
        Assert::IsFalse(HasBaseType(resolve<C>(), resolve<A>()));
    }

    ZUT_TEST(ClassBindingHasBaseType)
    {
        struct A
        {
        };
        struct B : A
        {
        };
        ClassBindingBuilder<A> builderA("A");
        ClassBindingBuilder<B> builderB("B");
        builderB.base<A>();
        const ClassBinding bindingA = builderA.finish();
        const ClassBinding bindingB = builderB.finish();
        Assert::IsTrue(bindingA.type == resolve<A>(), false, "the binding's type is its class");
        Assert::IsTrue(bindingB.type == resolve<B>(), false, "the binding's type is its class");
        Assert::IsTrue(bindingB.baseType == resolve<A>(), false, "the record names its base");
        Assert::IsTrue(HasBaseType(bindingA.type, bindingB.type), false, "the meta system knows the base");
        Assert::IsFalse(HasBaseType(bindingB.type, bindingA.type));
    }

    ZUT_TEST(StaticFunctionVoidVoid)
    {
        const Reflection::StaticFunction<&TestVoidVoidFunction, false> function(Privilege::None, {});
        checkVoidVoid(function, entt::meta_any{}, sVoidVoidCalls, std::nullopt);
        Assert::IsTrue(function.privilege == Privilege::None);
    }

    ZUT_TEST(StaticIntFloatFunction)
    {
        const Reflection::StaticFunction<&TestIntFloatFunction, false> function(Privilege::ReadOnly, {});
        Assert::IsFalse(function.getClassType().has_value());
        Assert::IsTrue(function.privilege == Privilege::ReadOnly);
        checkIntFloat(
            function, [] { return entt::meta_any{}; }, 1);
    }

    ZUT_TEST(LambdaVoidVoidFunction)
    {
        auto calls = std::make_shared<int>(0);
        const auto lambda = [calls] { ++*calls; };
        const Reflection::LambdaFunction<decltype(lambda), false> function(Privilege::None, lambda, {});
        checkVoidVoid(function, entt::meta_any{42}, *calls, std::nullopt);
    }

    ZUT_TEST(LambdaIntFloatFunction)
    {
        const auto lambda = [](float value) { return value == 1.0f ? 1 : 0; };
        const Reflection::LambdaFunction<decltype(lambda), false> function(Privilege::None, lambda, {});
        Assert::IsFalse(function.getClassType().has_value());
        checkIntFloat(
            function, [] { return entt::meta_any{}; }, 1);
    }

    ZUT_TEST(IntancedStaticFunctionVoidVoid)
    {
        const Reflection::StaticFunction<&TestInstancedVoidFunction, true> function(Privilege::None, {});
        int object = 0;
        checkVoidVoid(function, entt::forward_as_meta(object), object, resolve<int>());
        const int& constObject = object;
        Assert::IsFalse(static_cast<bool>(function.call(entt::forward_as_meta(constObject), nullptr, 0)), false,
                        "an int& cannot refer to a const object");
        Assert::IsFalse(static_cast<bool>(function.call(entt::meta_any{}, nullptr, 0)), false, "no object");
        Assert::AreEqual(object, 1, false, "only the first call ran");
    }

    ZUT_TEST(InstancedStaticIntFloatFunction)
    {
        const Reflection::StaticFunction<&TestInstancedIntFloatFunction, true> function(Privilege::None, {});
        Assert::IsTrue(function.getClassType() == std::optional(resolve<int>()), false, "the object is an int");
        checkIntFloat(
            function, [] { return entt::meta_any{7}; }, 7);
        Assert::IsFalse(static_cast<bool>(function.call(entt::meta_any{std::string("7")},
                                                        std::array{entt::meta_any{1.0f}}.data(), 1)),
                        false, "the object is checked like an argument");
    }

    ZUT_TEST(InstancedLambdaVoidVoid)
    {
        const auto lambda = [](int& object) { ++object; };
        const Reflection::LambdaFunction<decltype(lambda), true> function(Privilege::None, lambda, {});
        int object = 0;
        checkVoidVoid(function, entt::forward_as_meta(object), object, resolve<int>());
    }

    ZUT_TEST(InstancedLambdaIntFloat)
    {
        const auto lambda = [](int& object, float value) { return value == 1.0f ? object : -1; };
        const Reflection::LambdaFunction<decltype(lambda), true> function(Privilege::None, lambda, {});
        Assert::IsTrue(function.getClassType() == std::optional(resolve<int>()), false, "the object is an int");
        checkIntFloat(
            function, [] { return entt::meta_any{9}; }, 9);
    }

    ZUT_TEST(StaticFunctionDependencyInjection)
    {
        const Reflection::StaticFunction<&TestDependencyInjectionFunction, false> valid(Privilege::None, {});
        Assert::AreEqual(valid.getArgumentCount(), 5u);
        Assert::AreEqual(valid.injectedArgumentCount, 5u);
        Assert::IsTrue(valid.getArgumentType(1) == resolve<LifetimeRegistry>(), false, "references resolve plainly");

        const Reflection::StaticFunction<&TestDependencyInjectionFunctionInvalid, false> invalid(Privilege::None, {});
        Assert::AreEqual(invalid.getArgumentCount(), 6u);
        Assert::AreEqual(invalid.injectedArgumentCount, 5u);
        Assert::IsTrue(invalid.getArgumentType(5) == resolve<InvalidDependency>());

        ArgumentDetails withDefault;
        withDefault.defaultValue = entt::meta_any{3.0f};
        const Reflection::StaticFunction<&TestIntFloatFunction, false> defaulted(Privilege::None, {withDefault});
        Assert::AreEqual(defaulted.defaultArgumentCount, 1u);
        Assert::AreEqual(defaulted.injectedArgumentCount, 0u);
        Assert::IsTrue(holds(defaulted.getDefaultArgument(0), 3.0f));
        Assert::IsFalse(static_cast<bool>(defaulted.getDefaultArgument(1)), false, "past the described arguments");
    }

    ZUT_TEST(GetPropertyInt)
    {
        const Reflection::MemberPropertyGetter<TestClassWithInt, false, &TestClassWithInt::value> getter(
            Privilege::ReadOnly);
        checkIntGetter(getter, Reflection::ReturnPolicy::ByReference);

        TestClassWithInt object{1};
        entt::meta_any view = getter.get(entt::forward_as_meta(object));
        view.cast<int&>() = 8;
        Assert::AreEqual(object.value, 8, false, "writing through the result changes the object");
        const TestClassWithInt& constObject = object;
        Assert::IsTrue(getter.get(entt::forward_as_meta(constObject)).try_cast<int>() == nullptr, false,
                       "a const object gives a const reference");

        const Reflection::MemberPropertyGetter<TestClassWithInt, true, &TestClassWithInt::value> baked(
            Privilege::ReadOnly);
        Assert::IsTrue(baked.isBaked());
        Assert::IsTrue(baked.getReturnPolicy() == Reflection::ReturnPolicy::ByReference);
    }

    ZUT_TEST(GetPropertyIntMemberFunction)
    {
        const Reflection::MemberPropertyGetter<TestClassWithInt, false, &TestClassWithInt::getInt> getter(
            Privilege::ReadOnly);
        checkIntGetter(getter, Reflection::ReturnPolicy::ByValue);
    }

    ZUT_TEST(GetPropertyIntLambda)
    {
        const auto lambda = [](const TestClassWithInt& object) { return object.value; };
        const Reflection::LambdaPropertyGetter<TestClassWithInt, false, decltype(lambda)> getter(Privilege::ReadOnly,
                                                                                                 lambda);
        checkIntGetter(getter, Reflection::ReturnPolicy::ByValue);
    }

    ZUT_TEST(SetPropertyInt)
    {
        const Reflection::MemberPropertySetter<TestClassWithInt, &TestClassWithInt::value> setter(Privilege::None);
        checkIntSetter(setter, false);
        Assert::IsFalse(static_cast<bool>(setter.valueValidator), false, "no validator until bounds are set");
    }

    ZUT_TEST(SetPropertyIntMemberFunction)
    {
        const Reflection::MemberPropertySetter<TestClassWithInt, &TestClassWithInt::setInt> setter(Privilege::None);
        checkIntSetter(setter, true);
    }

    ZUT_TEST(SetPropertyIntLambda)
    {
        const auto lambda = [](TestClassWithInt& object, int value) { object.value = value; };
        const Reflection::LambdaPropertySetter<TestClassWithInt, decltype(lambda)> setter(Privilege::None, lambda);
        checkIntSetter(setter, false);
    }

    ZUT_TEST(GetPropertyContainerRef)
    {
        const Reflection::MemberPropertyGetter<TestClassWithContainer, false, &TestClassWithContainer::container>
            getter(Privilege::ReadOnly);
        checkContainerGetter(getter, Reflection::ReturnPolicy::ByReference);
    }

    ZUT_TEST(GetPropertyContainerRefMember)
    {
        const Reflection::MemberPropertyGetter<TestClassWithContainer, false, &TestClassWithContainer::getContainerRef>
            getter(Privilege::ReadOnly);
        checkContainerGetter(getter, Reflection::ReturnPolicy::ByReference);
    }

    ZUT_TEST(GetPropertyContainerRefLambda)
    {
        const auto lambda = [](const TestClassWithContainer& object) -> const std::vector<int>&
        { return object.container; };
        const Reflection::LambdaPropertyGetter<TestClassWithContainer, false, decltype(lambda)> getter(
            Privilege::ReadOnly, lambda);
        checkContainerGetter(getter, Reflection::ReturnPolicy::ByReference);
    }

    ZUT_TEST(GetPropertyContainerMember)
    {
        const Reflection::MemberPropertyGetter<TestClassWithContainer, false, &TestClassWithContainer::getContainer>
            getter(Privilege::ReadOnly);
        checkContainerGetter(getter, Reflection::ReturnPolicy::ByValue);
    }

    ZUT_TEST(GetPropertyContainerLambda)
    {
        const auto lambda = [](const TestClassWithContainer& object) { return object.container; };
        const Reflection::LambdaPropertyGetter<TestClassWithContainer, false, decltype(lambda)> getter(
            Privilege::ReadOnly, lambda);
        checkContainerGetter(getter, Reflection::ReturnPolicy::ByValue);
    }
};
