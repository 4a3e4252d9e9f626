#include "Scripting/LifetimeRegistry/LifetimeRegistry.h"
#include "Scripting/Runtime/Result.h"

#include "ZentaryUnitTest/Assert.h"
#include "ZentaryUnitTest/TestClass.h"

#include <entt/meta/factory.hpp>

#include <utility>

using namespace Ovelith::CoreTestFramework;
using namespace Scripting;

namespace
{
struct ObjectHandleTestClassA
{
    int mValue = 1;
};

struct ObjectHandleTestClassB : ObjectHandleTestClassA
{
    ObjectHandleTestClassB() { mValue = 42; }
    int mOwnValue = 7;
};

// A registry with id 1 on a slot of its own, as every case here needs one.
struct StrongHandleContext
{
    StrongHandleContext() { entt::meta<ObjectHandleTestClassB>(Reflection::context()).base<ObjectHandleTestClassA>(); }

    LifetimeRegistryReference reference;
    LifetimeRegistry registry{ContextId{1}, reference};
    WeakLifetimeScope scope{&reference};
};
} // namespace

ZUT_TEST_CLASS(Scripting_StrongObjectHandleTests);
class Scripting_StrongObjectHandleTests final : public Scripting_StrongObjectHandleTestsBase
{
    ZUT_TEST(StrongObjectHandle_Empty)
    {
        const StrongObjectHandle handle;
        Assert::IsFalse(handle.valid());
        Assert::IsTrue(handle.getLifetimeRegistry() == nullptr);
        Assert::AreEqual(handle.getHandle(), ObjectHandle());
        Assert::AreEqual(handle.getReferenceCount(), 0u);
    }

    ZUT_TEST(StrongObjectHandle_EmptyCompareEqual)
    {
        Assert::IsTrue(StrongObjectHandle() == StrongObjectHandle());
        Assert::IsFalse(StrongObjectHandle() != StrongObjectHandle());
    }

    ZUT_TEST(StrongObjectHandle_ConstructRefIs1)
    {
        StrongHandleContext context;
        const StrongTypedObjectHandle<int> handle = context.scope.makeObject<int>(1);
        Assert::IsTrue(handle.valid(), true);
        Assert::AreEqual(handle.getReferenceCount(), 1u);
        Assert::AreEqual(*handle, 1);
        Assert::AreEqual(handle.getHandle().contextId.value, uint8_t{1});
    }

    ZUT_TEST(StrongObjectHandle_CopyConstruct)
    {
        StrongHandleContext context;
        const StrongTypedObjectHandle<int> source = context.scope.makeObject<int>(1);
        const StrongTypedObjectHandle<int> copy(source);
        Assert::IsTrue(source.valid());
        Assert::IsTrue(copy.valid(), true);
        Assert::IsTrue(copy.getLifetimeRegistry() == &context.registry);
        Assert::AreEqual(copy.getHandle(), source.getHandle());
        Assert::AreEqual(*copy, *source);
        Assert::IsTrue(&*copy == &*source, false, "A copy of a handle names the same object");
        Assert::AreEqual(source.getReferenceCount(), 2u);
        Assert::AreEqual(copy.getReferenceCount(), 2u);
    }

    ZUT_TEST(StrongObjectHandle_MoveConstruct)
    {
        StrongHandleContext context;
        StrongTypedObjectHandle<int> source = context.scope.makeObject<int>(1);
        const ObjectHandle objectHandle = source.getHandle();
        const StrongTypedObjectHandle<int> target(std::move(source));
        Assert::IsFalse(source.valid());
        Assert::IsTrue(source.getLifetimeRegistry() == nullptr);
        Assert::AreEqual(source.getHandle(), ObjectHandle());
        Assert::IsTrue(target.valid());
        Assert::AreEqual(target.getHandle(), objectHandle);
        Assert::AreEqual(target.getReferenceCount(), 1u);
    }

    ZUT_TEST(StrongObjectHandle_CopyAssign)
    {
        StrongHandleContext context;
        const StrongTypedObjectHandle<int> source = context.scope.makeObject<int>(1);
        StrongTypedObjectHandle<int> target;
        target = source;
        Assert::IsTrue(source.valid());
        Assert::IsTrue(target.valid());
        Assert::AreEqual(target.getHandle(), source.getHandle());
        Assert::AreEqual(source.getReferenceCount(), 2u);
    }

    ZUT_TEST(StrongObjectHandle_MoveAssign)
    {
        StrongHandleContext context;
        StrongTypedObjectHandle<int> source = context.scope.makeObject<int>(1);
        const ObjectHandle objectHandle = source.getHandle();
        StrongTypedObjectHandle<int> target;
        target = std::move(source);
        Assert::IsFalse(source.valid());
        Assert::IsTrue(source.getLifetimeRegistry() == nullptr);
        Assert::AreEqual(source.getHandle(), ObjectHandle());
        Assert::IsTrue(target.valid());
        Assert::AreEqual(target.getHandle(), objectHandle);
        Assert::AreEqual(target.getReferenceCount(), 1u);
    }

    ZUT_TEST(StrongObjectHandle_PromoteIncreasesRefCount)
    {
        StrongHandleContext context;
        const StrongTypedObjectHandle<int> strong = context.scope.makeObject<int>(1);
        const WeakTypedObjectHandle<int> weak(strong);
        Assert::AreEqual(strong.getReferenceCount(), 1u, false, "A weak handle holds no reference");
        const StrongObjectHandle promoted = StrongObjectHandle::promote(weak);
        Assert::IsTrue(promoted.valid());
        Assert::AreEqual(promoted.getHandle(), strong.getHandle());
        Assert::AreEqual(strong.getReferenceCount(), 2u);
        Assert::AreEqual(promoted.getReferenceCount(), 2u);
    }

    ZUT_TEST(StrongObjectHandle_toGenericKeepsRefCount)
    {
        StrongHandleContext context;
        StrongTypedObjectHandle<int> typed = context.scope.makeObject<int>(1);
        const ObjectHandle objectHandle = typed.getHandle();
        const StrongObjectHandle generic = StrongTypedObjectHandle<int>::toGeneric(std::move(typed));
        Assert::IsTrue(generic.valid());
        Assert::AreEqual(generic.getHandle(), objectHandle);
        Assert::AreEqual(generic.getReferenceCount(), 1u);
        Assert::IsFalse(typed.valid(), false, "The typed source gave its reference away");
        Assert::AreEqual(typed.getHandle(), ObjectHandle());
    }

    ZUT_TEST(StrongObjectHandle_toGenericKeepsRefCount2)
    {
        StrongHandleContext context;
        StrongObjectHandle generic;
        {
            StrongTypedObjectHandle<int> typed = context.scope.makeObject<int>(1);
            generic = StrongTypedObjectHandle<int>::toGeneric(std::move(typed));
        }
        Assert::IsTrue(generic.valid(), false, "The object outlives the typed handle it came from");
        Assert::AreEqual(generic.getReferenceCount(), 1u);
    }

    ZUT_TEST(StrongObjectHandle_TypedMoveDecaysToGeneric)
    {
        StrongHandleContext context;
        StrongTypedObjectHandle<int> typed = context.scope.makeObject<int>(1);
        const StrongObjectHandle generic = std::move(typed);
        Assert::IsTrue(generic.valid());
        Assert::AreEqual(generic.getReferenceCount(), 1u);
        Assert::IsFalse(typed.valid());
    }

    ZUT_TEST(StrongObjectHandle_TypedCopyDecaysAsGeneric)
    {
        StrongHandleContext context;
        const StrongTypedObjectHandle<int> typed = context.scope.makeObject<int>(1);
        const StrongObjectHandle generic = typed;
        Assert::IsTrue(generic.valid());
        Assert::IsTrue(typed.valid());
        Assert::AreEqual(generic.getReferenceCount(), 2u);
        Assert::IsTrue(generic == typed);
    }

    ZUT_TEST(StrongObjectHandle_TypedStrongRValueToTypedWeakInResultConstruct)
    {
        StrongHandleContext context;
        Result<WeakTypedObjectHandle<int>> result(context.scope.makeObject<int>(1));
        Assert::IsFalse(result.isError());
        Assert::IsTrue(result.tryGet() != nullptr);
    }

    ZUT_TEST(StrongObjectHandle_TypedStrongLValueToTypedWeakInResultConstruct)
    {
        StrongHandleContext context;
        const StrongTypedObjectHandle<int> strong = context.scope.makeObject<int>(1);
        Result<WeakTypedObjectHandle<int>> result(strong);
        Assert::IsFalse(result.isError());
        Assert::IsTrue(result.tryGet() != nullptr, true);
        Assert::IsTrue(result.tryGet()->valid());
        Assert::AreEqual(**result.tryGet(), 1);
        Assert::AreEqual(strong.getReferenceCount(), 1u, false, "The weak handle in the result holds no reference");
    }

    ZUT_TEST(StrongObjectHandle_TypedStrongRValueToTypedWeakInResultConstructDeprecated)
    {
        StrongHandleContext context;
        Result_deprecated<WeakTypedObjectHandle<int>> result(context.scope.makeObject<int>(1));
        Assert::IsFalse(result.isError());
        Assert::IsTrue(result.tryGet() != nullptr);
    }

    ZUT_TEST(StrongObjectHandle_TypedStrongLValueToTypedWeakInResultConstructDeprecated)
    {
        StrongHandleContext context;
        const StrongTypedObjectHandle<int> strong = context.scope.makeObject<int>(1);
        Result_deprecated<WeakTypedObjectHandle<int>> result(strong);
        Assert::IsFalse(result.isError());
        Assert::IsTrue(result.tryGet() != nullptr, true);
        Assert::AreEqual(result.tryGet()->getHandle(), strong.getHandle());
        Assert::AreEqual(strong.getReferenceCount(), 1u);
    }

    ZUT_TEST(StrongObjectHandle_StrongTypedObjectHandleDerivedToBaseConstructor)
    {
        StrongHandleContext context;
        StrongTypedObjectHandle<ObjectHandleTestClassB> derived = context.scope.makeObject<ObjectHandleTestClassB>();
        const StrongTypedObjectHandle<ObjectHandleTestClassA> base(std::move(derived));
        Assert::IsTrue(base.valid(), true);
        Assert::AreEqual(base->mValue, 42);
        Assert::AreEqual(base.getReferenceCount(), 1u);
        Assert::IsFalse(derived.valid());
    }

    ZUT_TEST(StrongObjectHandle_StrongTypedObjectHandleDerivedToBaseCopyConstructor)
    {
        StrongHandleContext context;
        const StrongTypedObjectHandle<ObjectHandleTestClassB> derived =
            context.scope.makeObject<ObjectHandleTestClassB>();
        const StrongTypedObjectHandle<ObjectHandleTestClassA> base(derived);
        Assert::IsTrue(base.valid(), true);
        base->mValue = 5;
        Assert::AreEqual(derived->mValue, 5, false, "The base handle reaches the derived handle's object");
        Assert::AreEqual(derived.getReferenceCount(), 2u);
    }

    ZUT_TEST(StrongObjectHandle_StrongTypedObjectHandleDerivedToBaseAssignment)
    {
        StrongHandleContext context;
        StrongTypedObjectHandle<ObjectHandleTestClassB> derived = context.scope.makeObject<ObjectHandleTestClassB>();
        StrongTypedObjectHandle<ObjectHandleTestClassA> base = context.scope.makeObject<ObjectHandleTestClassA>();
        const StrongTypedObjectHandle<ObjectHandleTestClassA> previous(base);
        base = std::move(derived);
        Assert::IsTrue(base.valid(), true);
        Assert::AreEqual(base->mValue, 42);
        Assert::AreEqual(base.getReferenceCount(), 1u);
        Assert::IsFalse(derived.valid());
        Assert::AreEqual(previous.getReferenceCount(), 1u, false, "Assignment gave up the old object's reference");
    }

    ZUT_TEST(StrongObjectHandle_StrongTypedObjectHandleDerivedToBaseCopyAssignment)
    {
        StrongHandleContext context;
        const StrongTypedObjectHandle<ObjectHandleTestClassB> derived =
            context.scope.makeObject<ObjectHandleTestClassB>();
        StrongTypedObjectHandle<ObjectHandleTestClassA> base;
        base = derived;
        Assert::IsTrue(base.valid(), true);
        base->mValue = 9;
        Assert::AreEqual(derived->mValue, 9);
        Assert::AreEqual(derived->mOwnValue, 7);
        Assert::AreEqual(derived.getReferenceCount(), 2u);
    }
};
