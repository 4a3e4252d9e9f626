#include "Scripting/Reflection/Reflection.h"

#include "ZentaryUnitTest/Assert.h"
#include "ZentaryUnitTest/TestClass.h"

#include <entt/meta/factory.hpp>

using namespace Ovelith::CoreTestFramework;
using Scripting::Reflection::HasBaseType;
using Scripting::Reflection::resolve;

ZUT_REGISTER_TEST_CLASS(Scripting_ReflectionTests);
struct Scripting_ReflectionTestsBase : ZentaryUnitTest::TestClass<Scripting_ReflectionTests>
{
    // Cases reuse the names of local types, which clang's type names do not tell apart, so each case starts from
    // an empty meta context: a host need not call onAfterTest, and an earlier suite may have registered anything.
    static void startFromEmptyContext() { entt::meta_reset(Scripting::Reflection::context()); }
    void onAfterTest() override { entt::meta_reset(Scripting::Reflection::context()); }
};

class Scripting_ReflectionTests final : public Scripting_ReflectionTestsBase
{
    ZUT_TEST(HasBaseTypeNoBaseTypes)
    {
        startFromEmptyContext();
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
        startFromEmptyContext();
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
        startFromEmptyContext();
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
};
