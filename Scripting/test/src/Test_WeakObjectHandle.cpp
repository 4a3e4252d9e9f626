#include "Scripting/LifetimeRegistry/LifetimeRegistry.h"

#include "ZentaryUnitTest/Assert.h"
#include "ZentaryUnitTest/TestClass.h"

#include <entt/meta/factory.hpp>

#include <utility>

using namespace Ovelith::CoreTestFramework;
using namespace Scripting;

namespace
{
struct TestComponent
{
    bool mValue = false;
};

struct TestFromThisComponent : EnableWeakHandleFromThis
{
    int mValue = 3;
};

// Has the handle to itself only through its base.
struct TestFromThisSecondComponent : TestFromThisComponent
{
    int mSecondValue = 4;
};

struct BaseClass
{
    int mBaseValue = 10;
};

struct DerivedClass : BaseClass
{
    int mDerivedValue = 20;
};

struct WeakHandleContext
{
    WeakHandleContext() { entt::meta<DerivedClass>(Reflection::context()).base<BaseClass>(); }

    LifetimeRegistryReference reference;
    LifetimeRegistry registry{ContextId{1}, reference};
    WeakLifetimeScope scope{&reference};
};

WeakObjectHandle weakOf(const StrongObjectHandle& strong)
{
    return WeakObjectHandle(strong.getScope(), strong.getHandle());
}
} // namespace

ZUT_TEST_CLASS(Scripting_WeakObjectHandleTests);
class Scripting_WeakObjectHandleTests final : public Scripting_WeakObjectHandleTestsBase
{
    ZUT_TEST(WeakObjectHandle_Empty)
    {
        const WeakObjectHandle handle;
        Assert::IsTrue(handle.empty());
        Assert::IsFalse(handle.valid());
        Assert::IsTrue(handle.getLifetimeRegistry() == nullptr);
        Assert::AreEqual(handle.getHandle(), ObjectHandle());
    }

    ZUT_TEST(WeakObjectHandle_EmptyCompareEqual) { Assert::IsTrue(WeakObjectHandle() == WeakObjectHandle()); }

    ZUT_TEST(WeakObjectHandle_CopyConstruct)
    {
        WeakHandleContext context;
        const StrongTypedObjectHandle<int> strong = context.scope.makeObject<int>(1);
        const WeakObjectHandle source = weakOf(strong);
        const WeakObjectHandle copy(source);
        Assert::IsFalse(copy.empty());
        Assert::IsTrue(copy.valid(), true);
        Assert::IsTrue(copy.getLifetimeRegistry() == &context.registry);
        Assert::AreEqual(copy.getHandle(), strong.getHandle());
        Assert::AreEqual(copy.asAny().cast<int>(), 1);
        Assert::AreEqual(source.asAny().cast<int>(), 1);
        Assert::AreEqual(strong.getReferenceCount(), 1u, false, "Copying a weak handle holds no reference");
    }

    ZUT_TEST(WeakObjectHandle_CopyAssign)
    {
        WeakHandleContext context;
        const StrongTypedObjectHandle<int> strong = context.scope.makeObject<int>(1);
        const WeakObjectHandle source = weakOf(strong);
        WeakObjectHandle copy;
        copy = source;
        Assert::IsFalse(copy.empty());
        Assert::IsTrue(copy.valid(), true);
        Assert::IsTrue(copy.getLifetimeRegistry() == &context.registry);
        Assert::AreEqual(copy.getHandle(), strong.getHandle());
        Assert::AreEqual(copy.asAny().cast<int>(), 1);
        Assert::AreEqual(source.asAny().cast<int>(), 1);
    }

    ZUT_TEST(WeakObjectHandle_MoveConstruct)
    {
        WeakHandleContext context;
        const StrongTypedObjectHandle<int> strong = context.scope.makeObject<int>(1);
        WeakObjectHandle source = weakOf(strong);
        const WeakObjectHandle target(std::move(source));
        Assert::IsTrue(source.empty());
        Assert::IsFalse(source.valid());
        Assert::IsTrue(source.getLifetimeRegistry() == nullptr);
        Assert::AreEqual(source.getHandle(), ObjectHandle());
        Assert::IsTrue(target.valid());
        Assert::IsTrue(target.getLifetimeRegistry() == &context.registry);
        Assert::AreEqual(target.getHandle(), strong.getHandle());
    }

    ZUT_TEST(WeakObjectHandle_MoveAssign)
    {
        WeakHandleContext context;
        const StrongTypedObjectHandle<int> strong = context.scope.makeObject<int>(1);
        WeakObjectHandle source = weakOf(strong);
        WeakObjectHandle target;
        target = std::move(source);
        Assert::IsTrue(source.empty());
        Assert::IsFalse(source.valid());
        Assert::IsTrue(source.getLifetimeRegistry() == nullptr);
        Assert::AreEqual(source.getHandle(), ObjectHandle());
        Assert::IsTrue(target.valid());
        Assert::AreEqual(target.getHandle(), strong.getHandle());
    }

    ZUT_TEST(WeakObjectHandle_CopyCompareEqual)
    {
        WeakHandleContext context;
        const StrongTypedObjectHandle<int> strong = context.scope.makeObject<int>(1);
        const StrongTypedObjectHandle<int> other = context.scope.makeObject<int>(1);
        const WeakObjectHandle source = weakOf(strong);
        const WeakObjectHandle copy = source;
        Assert::IsTrue(copy == source);
        Assert::IsFalse(copy == weakOf(other), false, "Handles of two objects differ");
    }

    ZUT_TEST(WeakObjectHandle_AsAny)
    {
        WeakHandleContext context;
        const StrongTypedObjectHandle<int> strong = context.scope.makeObject<int>(1);
        const entt::meta_any any = weakOf(strong).asAny();
        Assert::IsTrue(static_cast<bool>(any), true);
        Assert::IsTrue(any.type() == Reflection::resolve<int>());
        Assert::AreEqual(any.cast<int>(), 1);
    }

    ZUT_TEST(WeakObjectHandle_AsAnyIsReference)
    {
        WeakHandleContext context;
        const StrongTypedObjectHandle<int> strong = context.scope.makeObject<int>(1);
        const WeakObjectHandle weak = weakOf(strong);
        const entt::meta_any any = weak.asAny();
        Assert::IsTrue(weak.tryGet<int>() != nullptr, true);
        Assert::IsTrue(any.data() == weak.tryGet<int>(), false, "The any shows the object itself, not a copy");
    }

    ZUT_TEST(WeakObjectHandle_HasFails)
    {
        WeakHandleContext context;
        const StrongTypedObjectHandle<int> strong = context.scope.makeObject<int>(1);
        Assert::IsFalse(weakOf(strong).has<TestComponent>());
        Assert::IsTrue(weakOf(strong).has<int>());
    }

    ZUT_TEST(WeakObjectHandle_TryGetFails)
    {
        WeakHandleContext context;
        const StrongTypedObjectHandle<int> strong = context.scope.makeObject<int>(1);
        Assert::IsTrue(weakOf(strong).tryGet<TestComponent>() == nullptr);
    }

    ZUT_TEST(WeakObjectHandle_AttachAndGet)
    {
        WeakHandleContext context;
        const StrongTypedObjectHandle<int> strong = context.scope.makeObject<int>(1);
        const WeakObjectHandle weak = weakOf(strong);
        TestComponent& attached = weak.attach<TestComponent>(true);
        Assert::IsTrue(weak.has<TestComponent>(), true);
        Assert::IsTrue(&weak.get<TestComponent>() == &attached);
        Assert::IsTrue(weak.tryGet<TestComponent>() == &attached);
        Assert::IsTrue(weak.get<TestComponent>().mValue);
    }

    ZUT_TEST(WeakObjectHandle_Detach)
    {
        WeakHandleContext context;
        const StrongTypedObjectHandle<int> strong = context.scope.makeObject<int>(1);
        const WeakObjectHandle weak = weakOf(strong);
        weak.attach<TestComponent>(true);
        weak.detach<TestComponent>();
        Assert::IsFalse(weak.has<TestComponent>());
        Assert::IsTrue(weak.valid(), false, "Detaching a component leaves the object alive");
    }

    ZUT_TEST(WeakObjectHandle_WeakTypedHandleOperators)
    {
        WeakHandleContext context;
        const StrongTypedObjectHandle<TestComponent> strong = context.scope.makeObject<TestComponent>(true);
        const WeakTypedObjectHandle<TestComponent> weak(strong);
        Assert::IsTrue((*weak).mValue);
        Assert::IsTrue(weak->mValue);
        Assert::IsTrue(weak.tryGet<TestComponent>() == &*weak);
        weak->mValue = false;
        Assert::IsFalse(strong->mValue, false, "The weak handle reaches the strong handle's object");
    }

    ZUT_TEST(WeakObjectHandle_WeakHandleFromThis)
    {
        WeakHandleContext context;
        const StrongTypedObjectHandle<TestFromThisComponent> strong = context.scope.makeObject<TestFromThisComponent>();
        const WeakObjectHandle& fromThis = strong->weakHandleFromThis();
        Assert::IsTrue(fromThis.valid(), true);
        Assert::IsTrue(fromThis == weakOf(strong));
        Assert::AreEqual(strong.getReferenceCount(), 1u, false, "The handle to itself holds no reference");
    }

    ZUT_TEST(WeakObjectHandle_WeakHandleFromThisFails)
    {
        const TestFromThisComponent unmanaged;
        Assert::IsTrue(unmanaged.weakHandleFromThis().empty());
        Assert::IsFalse(unmanaged.weakHandleFromThis().valid());
    }

    ZUT_TEST(WeakObjectHandle_WeakHandleFromThisTracked)
    {
        WeakHandleContext context;
        TestFromThisComponent native;
        const StrongObjectHandle tracked = context.registry.trackObjectWithPointer(&native);
        Assert::IsTrue(native.weakHandleFromThis().valid(), true);
        const WeakObjectHandle earlier = native.weakHandleFromThis();
        Assert::IsTrue(earlier == weakOf(tracked));
        Assert::IsTrue(earlier.asAny().data() == &native, false, "A tracked object is reached through its pointer");

        context.registry.untrackObjectWithPointer(&native);
        Assert::IsFalse(earlier.valid());
        Assert::IsTrue(native.weakHandleFromThis().empty());
        Assert::IsFalse(tracked.valid());
        Assert::AreEqual(native.mValue, 3, false, "Untracking leaves the native object alone");
    }

    ZUT_TEST(WeakObjectHandle_WeakHandleFromThisInheritance)
    {
        WeakHandleContext context;
        const StrongTypedObjectHandle<TestFromThisSecondComponent> made =
            context.scope.makeObject<TestFromThisSecondComponent>();
        Assert::IsTrue(made->weakHandleFromThis().valid(), true);
        Assert::IsTrue(made->weakHandleFromThis() == weakOf(made));

        TestFromThisSecondComponent native;
        const StrongObjectHandle tracked = context.registry.trackObjectWithPointer(&native);
        const WeakObjectHandle earlier = native.weakHandleFromThis();
        Assert::IsTrue(earlier.valid(), true);
        context.registry.untrackObjectWithPointer(&native);
        Assert::IsFalse(earlier.valid());
        Assert::IsTrue(native.weakHandleFromThis().empty());
    }

    ZUT_TEST(WeakObjectHandle_TryCast)
    {
        WeakHandleContext context;
        const StrongTypedObjectHandle<DerivedClass> strong = context.scope.makeObject<DerivedClass>();
        const WeakObjectHandle generic = weakOf(strong);

        const WeakTypedObjectHandle<DerivedClass> exact = generic.tryCast<DerivedClass>();
        Assert::IsTrue(exact.valid());
        Assert::IsTrue(exact == generic);

        const WeakTypedObjectHandle<BaseClass> base = generic.tryCast<BaseClass>();
        Assert::IsTrue(base.valid(), true);
        Assert::IsTrue(base == generic);
        Assert::AreEqual(base->mBaseValue, 10);

        const WeakTypedObjectHandle<TestComponent> unrelated = generic.tryCast<TestComponent>();
        Assert::IsTrue(unrelated.empty(), false, "A cast to an unrelated type gives an empty handle");
    }
};
