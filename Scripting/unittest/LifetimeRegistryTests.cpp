#include "Diagnostics/Assert.h"
#include "Scripting/LifetimeRegistry/HandleTracker.h"
#include "Scripting/LifetimeRegistry/LifetimeRegistry.h"

#include <entt/meta/factory.hpp>
#include <entt/meta/template.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <numeric>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace
{
using Ovelith::Diagnostics::collectAsserts;
using namespace Scripting;
using testing::ElementsAre;
using testing::IsEmpty;

using Log = std::vector<std::string>;

std::string idOf(ObjectHandle handle)
{
    return std::to_string(static_cast<uint64_t>(handle.value) & 0xFFFFFFFFull);
}

// Writes its name into a log when it dies, and can run something from its destructor.
struct Traced
{
    Traced(Log& log, std::string name) : mLog(&log), mName(std::move(name)) {}
    Traced(Traced&& other) noexcept
        : mLog(other.mLog), mName(std::move(other.mName)), mOnDestroy(std::move(other.mOnDestroy))
    {
        other.mLog = nullptr;
    }
    Traced& operator=(Traced&& other) noexcept
    {
        std::swap(mLog, other.mLog);
        std::swap(mName, other.mName);
        std::swap(mOnDestroy, other.mOnDestroy);
        return *this;
    }
    ~Traced()
    {
        if (mLog != nullptr)
        {
            mLog->push_back("destructor " + mName);
            if (mOnDestroy)
            {
                mOnDestroy();
            }
        }
    }

    Log* mLog;
    std::string mName;
    std::function<void()> mOnDestroy;
};

class RecordingScriptRef : public IScriptRef
{
public:
    RecordingScriptRef(Log& log, std::string name) : mLog(log), mName(std::move(name)) {}
    ~RecordingScriptRef() override { mLog.push_back("script ref deleted " + mName); }
    void onReferenceCountLoweredToOne() override { mLog.push_back("lowered to one " + mName); }
    void onReferenceCountRaisedToTwo() override { mLog.push_back("raised to two " + mName); }
    void onObjectDestroyed() override { mLog.push_back("script ref told " + mName); }

private:
    Log& mLog;
    std::string mName;
};

class RecordingObjectListener : public ILifetimeObjectListener
{
public:
    RecordingObjectListener(Log& log, std::string name) : mLog(log), mName(std::move(name)) {}
    void onObjectCreated(LifetimeRegistry&, ObjectHandle handle, const entt::meta_type& type,
                         unsigned objectSize) override
    {
        mLog.push_back(mName + " created " + idOf(handle) + " " + std::string(type.info().name()) + " " +
                       std::to_string(objectSize));
    }
    void onObjectDestroyed(LifetimeRegistry& registry, ObjectHandle handle, const entt::meta_type&, unsigned) override
    {
        mLog.push_back(mName + " destroyed " + idOf(handle));
        if (mOnDestroyed)
        {
            mOnDestroyed(registry, handle);
        }
    }

    std::function<void(LifetimeRegistry&, ObjectHandle)> mOnDestroyed;

private:
    Log& mLog;
    std::string mName;
};

class RecordingScopeListener : public ILifetimeScopeListener
{
public:
    explicit RecordingScopeListener(Log& log) : mLog(log) {}
    void onScopeDestroying(LifetimeRegistry&) override { mLog.push_back("scope destroying"); }
    void onScopeDestroyed(LifetimeRegistry&) override { mLog.push_back("scope destroyed"); }

private:
    Log& mLog;
};

struct Base
{
    int mBaseValue = 1;
};

struct Derived : Base
{
    int mDerivedValue = 2;
};

struct Unrelated
{
    int mValue = 3;
};

struct Tracked
{
    using HandleKey = int;
    int mValue = 0;
};

struct WideTracked
{
    using HandleKey = int64_t;
    int64_t mValue = 0;
};

template <typename Key>
struct KeyedBy
{
    using HandleKey = Key;
    Key mValue{};
};

// Tracked types of their own, all under `int` keys.
template <int N>
struct Numbered
{
    using HandleKey = int;
    int mValue = 0;
};

enum Shade : uint32_t
{
    DARK = 0,
    LIGHT = 0x80000000u,
    WHITE = 0xFFFFFFFFu,
};

// Every case gets a registry with id 1 on a slot of its own; what a case leaves alive dies with it.
class LifetimeRegistryTest : public testing::Test
{
protected:
    ~LifetimeRegistryTest() override { mRegistry.destroyLifetimeScope(false); }

    Log mLog;
    LifetimeRegistryReference mReference;
    LifetimeRegistry mRegistry{ContextId{1}, mReference};
    WeakLifetimeScope mScope{&mReference};
};

TEST_F(LifetimeRegistryTest, ANewObjectHasOneReferenceAndNoScriptRef)
{
    const StrongTypedObjectHandle<int> handle = mScope.makeObject<int>(1);
    EXPECT_EQ(mRegistry.getReferenceCount(handle.getHandle()), 1u);
    EXPECT_EQ(mRegistry.getScriptRef(handle.getHandle()), nullptr);
    EXPECT_EQ(handle.getHandle().contextId.value, 1);
    EXPECT_EQ(mRegistry.resolvedType(handle.getHandle()), Reflection::resolve<int>());
}

TEST_F(LifetimeRegistryTest, TheLastReferenceDestroysAndTheIdComesBackWithANewVersion)
{
    StrongTypedObjectHandle<int> first = mScope.makeObject<int>(1);
    const ObjectHandle old = first.release();
    const WeakObjectHandle weak(mScope.getLifetimeRegistry()->getScope(), old);
    EXPECT_TRUE(mRegistry.removeReference(old));
    EXPECT_FALSE(mRegistry.registry.valid(old.value));
    EXPECT_FALSE(weak.valid());
    EXPECT_FALSE(weak.empty()) << "A dead object's handle is stale, not empty";

    const StrongTypedObjectHandle<int> second = mScope.makeObject<int>(2);
    using Traits = entt::entt_traits<ObjectHandleValue>;
    EXPECT_EQ(Traits::to_entity(second.getHandle().value), Traits::to_entity(old.value));
    EXPECT_EQ(Traits::to_version(second.getHandle().value), Traits::to_version(old.value) + 1);
    EXPECT_FALSE(weak.valid()) << "The reused id does not revive the old handle";
    EXPECT_FALSE(mRegistry.removeReference(old)) << "A stale handle is a quiet no-op";
    EXPECT_EQ(second.getReferenceCount(), 1u);
}

TEST_F(LifetimeRegistryTest, DestroyObjectKillsWhateverTheCountAndLeavesHoldersHarmless)
{
    const StrongTypedObjectHandle<int> first = mScope.makeObject<int>(1);
    const StrongTypedObjectHandle<int> second = first;
    const StrongTypedObjectHandle<int> third = first;
    EXPECT_EQ(first.getReferenceCount(), 3u);
    mRegistry.destroyObject(first.getHandle());
    for (const auto* holder : {&first, &second, &third})
    {
        EXPECT_FALSE(holder->valid());
        EXPECT_EQ(holder->getReferenceCount(), 0u);
        EXPECT_FALSE(mRegistry.removeReference(holder->getHandle()));
    }
}

TEST_F(LifetimeRegistryTest, ScriptRefHearsOnlyTheCrossingsBetweenOneAndTwo)
{
    StrongTypedObjectHandle<int> handle = mScope.makeObject<int>(1);
    mRegistry.setScriptRef(handle.getHandle(), std::make_unique<RecordingScriptRef>(mLog, "a"));
    {
        const StrongTypedObjectHandle<int> two = handle;
        {
            const StrongTypedObjectHandle<int> three = handle;
            EXPECT_EQ(handle.getReferenceCount(), 3u);
        }
    }
    EXPECT_THAT(mLog, ElementsAre("raised to two a", "lowered to one a"));
    mLog.clear();
    handle = StrongTypedObjectHandle<int>();
    EXPECT_THAT(mLog, ElementsAre("script ref told a", "script ref deleted a"));
}

TEST_F(LifetimeRegistryTest, SettingAScriptRefAgainDeletesThePreviousOne)
{
    const StrongTypedObjectHandle<int> handle = mScope.makeObject<int>(1);
    mRegistry.setScriptRef(handle.getHandle(), std::make_unique<RecordingScriptRef>(mLog, "first"));
    mRegistry.setScriptRef(handle.getHandle(), std::make_unique<RecordingScriptRef>(mLog, "second"));
    EXPECT_THAT(mLog, ElementsAre("script ref deleted first"));
    EXPECT_NE(mRegistry.getScriptRef(handle.getHandle()), nullptr);

    // Without an object there is nobody to take the script ref: the caller keeps it.
    std::unique_ptr<IScriptRef> unused = std::make_unique<RecordingScriptRef>(mLog, "unused");
    mRegistry.setScriptRef(ObjectHandle(ObjectHandleValue{77}, ContextId{1}), std::move(unused));
    EXPECT_NE(unused, nullptr);
}

TEST_F(LifetimeRegistryTest, ListenersAreToldInOrderAndExpiredOnesAreSkipped)
{
    auto first = std::make_shared<RecordingObjectListener>(mLog, "first");
    auto expired = std::make_shared<RecordingObjectListener>(mLog, "expired");
    auto last = std::make_shared<RecordingObjectListener>(mLog, "last");
    mRegistry.addObjectListener(first);
    mRegistry.addObjectListener(expired);
    mRegistry.addObjectListener(last);
    expired.reset();

    {
        const StrongTypedObjectHandle<double> handle = mScope.makeObject<double>(2.0);
        const std::string id = idOf(handle.getHandle());
        EXPECT_THAT(mLog, ElementsAre("first created " + id + " double 8", "last created " + id + " double 8"));
        mLog.clear();
    }
    EXPECT_THAT(mLog, ElementsAre("first destroyed 0", "last destroyed 0"));

    mLog.clear();
    mRegistry.removeObjectListener(first);
    {
        const StrongTypedObjectHandle<int> handle = mScope.makeObject<int>(1);
    }
    EXPECT_THAT(mLog, ElementsAre("last created 0 int 4", "last destroyed 0"));
}

TEST_F(LifetimeRegistryTest, ListenerMisuseAssertsAndContinues)
{
    auto listener = std::make_shared<RecordingObjectListener>(mLog, "twice");
    mRegistry.addObjectListener(listener);
    EXPECT_THAT(collectAsserts([&] { mRegistry.addObjectListener(listener); }),
                ElementsAre("This Listener is already inserted"));
    {
        const StrongTypedObjectHandle<int> handle = mScope.makeObject<int>(1);
    }
    EXPECT_EQ(mLog.size(), 4u) << "The duplicate was inserted all the same";

    mRegistry.removeObjectListener(listener);
    EXPECT_THAT(collectAsserts([&] { mRegistry.removeObjectListener(listener); }), ElementsAre("Listener not in list"));
}

TEST_F(LifetimeRegistryTest, DestructionLeavesTheCacheThenTellsListenersThenTheScriptRefThenDestroys)
{
    auto listener = std::make_shared<RecordingObjectListener>(mLog, "listener");
    mRegistry.addObjectListener(listener);
    StrongTypedObjectHandle<Traced> handle = mScope.makeObject<Traced>(mLog, "object");
    const ObjectHandle objectHandle = handle.getHandle();
    HandleTracker::trackWith<Tracked>(mRegistry, objectHandle, 5, false);
    mRegistry.setScriptRef(objectHandle, std::make_unique<RecordingScriptRef>(mLog, "object"));

    listener->mOnDestroyed = [&](LifetimeRegistry& registry, ObjectHandle dying)
    {
        EXPECT_EQ(registry.removingEntity, dying);
        EXPECT_FALSE(registry.isValid(dying));
        EXPECT_FALSE(handle.valid()) << "Handles of the dying object answer invalid";
        EXPECT_FALSE(HandleTracker::fetch<Tracked>(mScope, 5).has_value()) << "The object left the cache first";
        EXPECT_NE(internal::ObjectRegistryUtilities::tryGet<Traced>(registry.registry, dying.value), nullptr)
            << "The object itself is still there";
        EXPECT_FALSE(registry.resolveAsTypedObjectHandle(dying).type() == entt::meta_type{})
            << "A dying object may still be resolved as a typed handle";
        EXPECT_THAT(collectAsserts([&] { (void)registry.getReferenceCount(dying); }),
                    ElementsAre("This handle is being removed"));
    };
    mLog.clear();
    handle = StrongTypedObjectHandle<Traced>();
    EXPECT_THAT(mLog, ElementsAre("listener destroyed " + idOf(objectHandle), "script ref told object",
                                  "destructor object", "script ref deleted object"));
    EXPECT_EQ(mRegistry.removingEntity, ObjectHandle());
}

TEST_F(LifetimeRegistryTest, ScopeDestructionTakesTheNewestFirstBetweenTheScopeListenerCalls)
{
    auto scopeListener = std::make_shared<RecordingScopeListener>(mLog);
    mRegistry.setScopeListener(scopeListener);
    auto listener = std::make_shared<RecordingObjectListener>(mLog, "listener");

    mRegistry.destroyLifetimeScope(false);
    EXPECT_THAT(mLog, IsEmpty()) << "An empty scope tells the scope listener nothing";

    StrongTypedObjectHandle<Traced> a = mScope.makeObject<Traced>(mLog, "a");
    StrongTypedObjectHandle<Traced> b = mScope.makeObject<Traced>(mLog, "b");
    StrongTypedObjectHandle<Traced> c = mScope.makeObject<Traced>(mLog, "c");
    const StrongTypedObjectHandle<Traced> extra = b;
    mRegistry.setScriptRef(b.getHandle(), std::make_unique<RecordingScriptRef>(mLog, "b"));
    mRegistry.addObjectListener(listener);

    mRegistry.destroyLifetimeScope(false);
    EXPECT_THAT(mLog, ElementsAre("scope destroying", "listener destroyed 2", "destructor c", "listener destroyed 1",
                                  "script ref told b", "destructor b", "script ref deleted b", "listener destroyed 0",
                                  "destructor a", "scope destroyed"));
    EXPECT_FALSE(extra.valid());
    EXPECT_EQ(mRegistry.removingEntity, ObjectHandle());
    EXPECT_THAT(collectAsserts([&] { mRegistry.destroyLifetimeScope(true); }), IsEmpty());
}

TEST_F(LifetimeRegistryTest, ExpectingAnEmptyScopeAssertsWhenObjectsLiveAndDestroysThemAnyway)
{
    const StrongTypedObjectHandle<int> handle = mScope.makeObject<int>(1);
    EXPECT_THAT(collectAsserts([&] { mRegistry.destroyLifetimeScope(true); }),
                ElementsAre("You expected all objects owned by this LifetimeRegistry would be dead, but it still has "
                            "objects"));
    EXPECT_FALSE(handle.valid());
}

TEST_F(LifetimeRegistryTest, ADestructorReleasingAnotherObjectDuringScopeDestructionIsTolerated)
{
    StrongTypedObjectHandle<Traced> held = mScope.makeObject<Traced>(mLog, "held");
    StrongTypedObjectHandle<Traced> holder = mScope.makeObject<Traced>(mLog, "holder");
    // The holder owns the only other reference of the held object and drops it when it dies.
    auto keepAlive = std::make_shared<StrongObjectHandle>(held);
    holder->mOnDestroy = [keepAlive]() mutable { *keepAlive = StrongObjectHandle(); };
    held = StrongTypedObjectHandle<Traced>();
    holder = StrongTypedObjectHandle<Traced>();
    keepAlive.reset();
    EXPECT_THAT(mLog, ElementsAre("destructor holder", "destructor held"))
        << "Releasing the last reference from a destructor destroys the held object right after the holder";

    mLog.clear();
    StrongTypedObjectHandle<Traced> second = mScope.makeObject<Traced>(mLog, "second held");
    StrongTypedObjectHandle<Traced> secondHolder = mScope.makeObject<Traced>(mLog, "second holder");
    auto secondKeepAlive = std::make_shared<StrongObjectHandle>(second);
    secondHolder->mOnDestroy = [secondKeepAlive]() mutable { *secondKeepAlive = StrongObjectHandle(); };
    secondKeepAlive.reset();
    second = StrongTypedObjectHandle<Traced>();
    mRegistry.destroyLifetimeScope(false);
    // The holder is newer and dies first; the held object dies within it and is skipped afterwards.
    EXPECT_THAT(mLog, ElementsAre("destructor second holder", "destructor second held"));
    EXPECT_EQ(mRegistry.removingEntity, ObjectHandle());
}

TEST_F(LifetimeRegistryTest, ObjectsCreatedByDestructorsDuringScopeDestructionSurvive)
{
    StrongTypedObjectHandle<Traced> creator = mScope.makeObject<Traced>(mLog, "creator");
    auto created = std::make_shared<StrongObjectHandle>();
    creator->mOnDestroy = [this, created] { *created = mScope.makeObject<int>(5); };
    creator.release();
    mRegistry.destroyLifetimeScope(false);
    EXPECT_TRUE(created->valid()) << "Nothing re-scans the scope";
    EXPECT_EQ(created->getReferenceCount(), 1u);
    created.reset();
    EXPECT_THAT(collectAsserts([&] { mRegistry.destroyLifetimeScope(true); }), IsEmpty());
}

TEST_F(LifetimeRegistryTest, AssigningTheOnlyHandleToItselfDestroysTheObject)
{
    StrongTypedObjectHandle<int> handle = mScope.makeObject<int>(1);
    StrongTypedObjectHandle<int>& alias = handle;
    handle = alias;
    EXPECT_FALSE(handle.valid());
    EXPECT_EQ(handle.getReferenceCount(), 0u);

    StrongTypedObjectHandle<int> moved = mScope.makeObject<int>(2);
    StrongTypedObjectHandle<int>& movedAlias = moved;
    moved = std::move(movedAlias);
    EXPECT_TRUE(moved.valid()) << "Move-assignment to itself does nothing";
}

TEST_F(LifetimeRegistryTest, HandlesStayHarmlessAfterTheRegistryAndTheSlotMovedOn)
{
    LifetimeRegistryReference reference;
    auto registry = std::make_unique<LifetimeRegistry>(ContextId{2}, reference);
    const WeakLifetimeScope scope = registry->getScope();
    auto strong = std::make_unique<StrongTypedObjectHandle<int>>(scope.makeObject<int>(1));
    const WeakTypedObjectHandle<int> weak(*strong);
    const StrongTypedObjectHandle<int> sameNumbers(*strong);
    registry->destroyLifetimeScope(false);
    registry.reset();

    auto successor = std::make_unique<LifetimeRegistry>(ContextId{2}, reference);
    const StrongTypedObjectHandle<int> fresh = successor->getScope().makeObject<int>(2);
    EXPECT_EQ(fresh.getHandle().value, strong->getHandle().value) << "The new object has the old numbers";
    EXPECT_FALSE(strong->valid());
    EXPECT_FALSE(weak.valid());
    EXPECT_TRUE(weak.empty()) << "The dead scope has no registry";
    EXPECT_EQ(scope.getContextId().value, 0);
    EXPECT_TRUE(*strong == sameNumbers) << "Handles of a dead registry compare by their numbers";
    EXPECT_FALSE(*strong == fresh);
    strong.reset();
    EXPECT_EQ(fresh.getReferenceCount(), 1u) << "The stale handle's destructor did not reach the new object";
    EXPECT_EQ(*fresh, 2);
}

TEST_F(LifetimeRegistryTest, TrackedPointersAreReachedAsAnyButAreNoComponent)
{
    Unrelated native;
    const StrongObjectHandle handle = mRegistry.trackObjectWithPointer(&native);
    EXPECT_EQ(handle.getReferenceCount(), 1u);
    EXPECT_EQ(handle.asAny().data(), &native);
    EXPECT_FALSE(handle.has<Unrelated>());
    EXPECT_EQ(handle.tryGet<Unrelated>(), nullptr);
    EXPECT_EQ(mRegistry.resolve<Unrelated>(handle.getHandle()).mValue, 3);

    Unrelated other;
    EXPECT_THAT(collectAsserts([&] { mRegistry.untrackObjectWithPointer(&other); }),
                ElementsAre("Object of the same type was not found, has the typed changed from when you started "
                            "tracking it?"));
    EXPECT_TRUE(handle.valid());
    mRegistry.untrackObjectWithPointer(&native);
    EXPECT_FALSE(handle.valid());
}

TEST_F(LifetimeRegistryTest, ObjectsOfOneTypeShareOneCachedType)
{
    const StrongTypedObjectHandle<int> first = mScope.makeObject<int>(1);
    const StrongTypedObjectHandle<int> second = mScope.makeObject<int>(2);
    EXPECT_EQ(&mRegistry.resolvedType(first.getHandle()), &mRegistry.resolvedType(second.getHandle()));
}

TEST_F(LifetimeRegistryTest, TypedHandlesOfAllThreeKinds)
{
    const StrongTypedObjectHandle<int> handle = mScope.makeObject<int>(6);
    const entt::meta_any plain = mRegistry.resolveAsTypedObjectHandle(handle.getHandle());
    ASSERT_NE(plain.try_cast<const TypedObjectHandle<int>>(), nullptr);
    EXPECT_EQ(plain.cast<const TypedObjectHandle<int>&>(), handle.getHandle());

    const entt::meta_any weak = mRegistry.resolveAsWeakTypedObjectHandle(handle.getHandle());
    ASSERT_NE(weak.try_cast<const WeakTypedObjectHandle<int>>(), nullptr);
    EXPECT_EQ(*weak.cast<const WeakTypedObjectHandle<int>&>(), 6);
    EXPECT_EQ(handle.getReferenceCount(), 1u);

    {
        const entt::meta_any strong = mRegistry.resolveAsStrongTypedObjectHandle(handle.getHandle());
        ASSERT_NE(strong.try_cast<const StrongTypedObjectHandle<int>>(), nullptr);
        EXPECT_EQ(handle.getReferenceCount(), 2u);
    }
    EXPECT_EQ(handle.getReferenceCount(), 1u);
}

TEST_F(LifetimeRegistryTest, HandleTemplatesAreClassTemplatesToReflectionAndConvertToBases)
{
    EXPECT_EQ(Reflection::resolve<StrongTypedObjectHandle<int>>().template_type(),
              Reflection::resolve<entt::meta_class_template_tag<StrongTypedObjectHandle>>());
    EXPECT_EQ(Reflection::resolve<WeakTypedObjectHandle<int>>().template_type(),
              Reflection::resolve<entt::meta_class_template_tag<WeakTypedObjectHandle>>());
    EXPECT_EQ(Reflection::resolve<TypedObjectHandle<int>>().template_type(),
              Reflection::resolve<entt::meta_class_template_tag<TypedObjectHandle>>());

    // What a class binding registers for a base: the handle conversions must exist.
    entt::meta<Derived>(Reflection::context()).base<Base>();
    entt::meta<StrongTypedObjectHandle<Derived>>(Reflection::context()).conv<StrongTypedObjectHandle<Base>>();
    StrongTypedObjectHandle<Derived> derived = mScope.makeObject<Derived>();
    entt::meta_any any = entt::forward_as_meta(Reflection::context(), derived);
    ASSERT_TRUE(any.allow_cast<StrongTypedObjectHandle<Base>>());
    EXPECT_EQ(any.cast<StrongTypedObjectHandle<Base>&>()->mBaseValue, 1);
    EXPECT_EQ(derived.getReferenceCount(), 2u) << "The converted copy holds a reference of its own";
}

TEST_F(LifetimeRegistryTest, TypeChecksFollowReflectedBases)
{
    entt::meta<Derived>(Reflection::context()).base<Base>();
    const StrongTypedObjectHandle<Derived> derived = mScope.makeObject<Derived>();
    const WeakObjectHandle weak(derived.getScope(), derived.getHandle());
    EXPECT_TRUE(weak.tryCast<Base>().valid());
    EXPECT_TRUE(weak.tryCast<Unrelated>().empty());

    const StrongTypedObjectHandle<Derived> extra = derived;
    EXPECT_THAT(collectAsserts([&] { mRegistry.removeReference<Unrelated>(extra.getHandle()); }),
                ElementsAre("type of handle provided doesnt match the type of the object we stored"));
    EXPECT_EQ(derived.getReferenceCount(), 1u) << "The reference went all the same";
    // Give back what the mistyped call took, so that both handles own one.
    mRegistry.addReference(derived.getHandle());
}

TEST_F(LifetimeRegistryTest, ComponentMisuseAssertsWithTheStatedWords)
{
    const StrongTypedObjectHandle<int> handle = mScope.makeObject<int>(1);
    const ObjectHandle objectHandle = handle.getHandle();

    EXPECT_THAT(collectAsserts([&] { mRegistry.detach<Unrelated>(objectHandle); }),
                ElementsAre("This handle already has this type attached"));
    Unrelated& attached = mRegistry.attach<Unrelated>(objectHandle);
    attached.mValue = 11;
    Unrelated* again = nullptr;
    EXPECT_THAT(collectAsserts([&] { again = &mRegistry.attach<Unrelated>(objectHandle, Unrelated{99}); }),
                ElementsAre("This handle already has this type attached"));
    EXPECT_EQ(again, &attached) << "The component already there is answered";
    EXPECT_EQ(again->mValue, 11);

    const WeakObjectHandle weak(handle.getScope(), objectHandle);
    EXPECT_THAT(collectAsserts([&] { weak.detach<Base>(); }),
                ElementsAre("Cannot detach a component if it isnt on the object already",
                            "This handle already has this type attached"));
}

TEST_F(LifetimeRegistryTest, AStaleHandleAnswersQuietlyAfterItsAsserts)
{
    StrongTypedObjectHandle<int> handle = mScope.makeObject<int>(1);
    const WeakTypedObjectHandle<int> weak(handle);
    handle = StrongTypedObjectHandle<int>();

    bool has = true;
    int* component = reinterpret_cast<int*>(&has);
    entt::meta_any any{42};
    const auto asserted = collectAsserts(
        [&]
        {
            has = weak.has<int>();
            component = weak.tryGet<int>();
            any = weak.asAny();
        });
    EXPECT_THAT(asserted, ElementsAre("Cannot check if object has a component if its invalid",
                                      "Cannot check if object has a component if its invalid",
                                      "Cannot fetch asAny on a invalid objectCopy"));
    EXPECT_FALSE(has);
    EXPECT_EQ(component, nullptr);
    EXPECT_FALSE(any);

    // Where an object must be handed out and there is none, the call ends after its assert.
    EXPECT_THROW(collectAsserts([&] { (void)weak.get<int>(); }), std::logic_error);
    EXPECT_THROW(collectAsserts([&] { (void)*weak; }), std::logic_error);
    EXPECT_THROW(collectAsserts([&] { weak.attach<Unrelated>(); }), std::logic_error);

    StrongObjectHandle promoted;
    EXPECT_THAT(collectAsserts([&] { promoted = StrongObjectHandle::promote(weak); }),
                ElementsAre("Trying to promote an invalid weak handle."));
    EXPECT_FALSE(promoted.valid());
    EXPECT_EQ(promoted.getHandle(), ObjectHandle());
}

TEST_F(LifetimeRegistryTest, InvalidTypedHandlesAssertWhenMadeGeneric)
{
    StrongTypedObjectHandle<int> empty;
    StrongObjectHandle generic = mScope.makeObject<int>(1);
    EXPECT_THAT(collectAsserts([&] { generic = empty.asGeneric(); }),
                ElementsAre("Trying to make an invalid handle generic."));
    EXPECT_FALSE(generic.valid());
    EXPECT_THAT(collectAsserts([&] { generic = StrongTypedObjectHandle<int>::toGeneric(std::move(empty)); }),
                ElementsAre("Trying to convert an invalid handle to a generic handle."));
    EXPECT_FALSE(generic.valid());

    const StrongTypedObjectHandle<int> typed = mScope.makeObject<int>(1);
    generic = typed.asGeneric();
    EXPECT_EQ(typed.getReferenceCount(), 2u);
}

TEST_F(LifetimeRegistryTest, AStrongHandleOfTheEmptyHandleAssertsAndNeverReachesTheRegistry)
{
    const auto asserted = collectAsserts([&] { StrongObjectHandle handle(mScope, ObjectHandle(), true); });
    EXPECT_THAT(asserted, ElementsAre("Do not construct a strong object handle with an empty object handle"));
}

TEST_F(LifetimeRegistryTest, AFailedConstructionLeavesNoObjectBehind)
{
    struct Throws
    {
        explicit Throws(int) { throw std::runtime_error("no"); }
        int mValue = 0;
    };
    auto listener = std::make_shared<RecordingObjectListener>(mLog, "listener");
    mRegistry.addObjectListener(listener);
    EXPECT_THROW(mScope.makeObject<Throws>(1), std::runtime_error);
    EXPECT_EQ(mLog.size(), 2u) << "The listener hears of the death of what it heard being born";
    EXPECT_THAT(collectAsserts([&] { mRegistry.destroyLifetimeScope(true); }), IsEmpty());
}

TEST_F(LifetimeRegistryTest, ADeadScopeMakesNothing)
{
    LifetimeRegistryReference reference;
    WeakLifetimeScope scope;
    {
        LifetimeRegistry registry(ContextId{3}, reference);
        scope = registry.getScope();
    }
    StrongTypedObjectHandle<int> made;
    EXPECT_THAT(collectAsserts([&] { made = scope.makeObject<int>(1); }), ElementsAre("LifetimeScope is empty"));
    EXPECT_TRUE(made.empty());

    const WeakLifetimeScope before = scope;
    WeakLifetimeScope& alias = scope;
    scope = std::move(alias);
    EXPECT_EQ(scope, before) << "Move-assigning a scope to itself keeps it";
    EXPECT_FALSE(scope == WeakLifetimeScope(&reference)) << "The slot moved on to the next generation";
}
// Objects move in their storage when others die, and new objects take the places they left: a fetch must count
// the tracked object, never whatever stands where it stood when it was tracked.
TEST_F(LifetimeRegistryTest, FetchCountsTheTrackedObjectAfterObjectsMovedAndPlacesWereRetaken)
{
    std::vector<StrongTypedObjectHandle<Tracked>> objects;
    for (int key = 0; key < 6; ++key)
    {
        objects.push_back(mScope.makeObject<Tracked>(key));
        HandleTracker::trackWith<Tracked>(mRegistry, objects.back().getHandle(), key, false);
    }
    objects[0] = StrongTypedObjectHandle<Tracked>();
    objects[1] = StrongTypedObjectHandle<Tracked>();
    const StrongTypedObjectHandle<Tracked> newcomerA = mScope.makeObject<Tracked>(100);
    const StrongTypedObjectHandle<Tracked> newcomerB = mScope.makeObject<Tracked>(101);

    for (int round = 0; round < 2; ++round)
    {
        for (int key = 0; key < 6; ++key)
        {
            SCOPED_TRACE("round " + std::to_string(round) + ", key " + std::to_string(key));
            std::optional<StrongTypedObjectHandle<Tracked>> fetched = HandleTracker::fetch<Tracked>(mScope, key);
            if (key < 2)
            {
                EXPECT_FALSE(fetched.has_value()) << "a dead object left the cache";
                continue;
            }
            ASSERT_TRUE(fetched.has_value());
            EXPECT_EQ(fetched->getHandle(), objects[key].getHandle());
            EXPECT_EQ((*fetched)->mValue, key);
            EXPECT_EQ(objects[key].getReferenceCount(), 2u);
            fetched.reset();
            EXPECT_EQ(objects[key].getReferenceCount(), 1u);
        }
        EXPECT_EQ(newcomerA.getReferenceCount(), 1u);
        EXPECT_EQ(newcomerB.getReferenceCount(), 1u);
    }
}
// Narrow integer keys sit at their own value in the cache, wide ones at their hash; either way every key, however
// its values are spaced, answers with its own object, and the count follows tracking and untracking.
template <typename T>
void trackFetchAndUntrack(LifetimeRegistry& registry, WeakLifetimeScope scope, const std::vector<HandleKey<T>>& keys)
{
    std::vector<StrongTypedObjectHandle<T>> objects;
    for (const HandleKey<T> key : keys)
    {
        objects.push_back(scope.makeObject<T>(key));
        HandleTracker::trackWith<T>(registry, objects.back().getHandle(), key, true);
    }
    ASSERT_EQ(HandleTracker::getTrackedHandleCount<T>(registry), keys.size());
    for (size_t i = 0; i < keys.size(); ++i)
    {
        const std::optional<StrongTypedObjectHandle<T>> fetched = HandleTracker::fetch<T>(scope, keys[i]);
        ASSERT_TRUE(fetched.has_value()) << "key " << keys[i];
        EXPECT_EQ(fetched->getHandle(), objects[i].getHandle());
        EXPECT_EQ((*fetched)->mValue, keys[i]);
    }
    for (size_t i = 0; i < keys.size(); ++i)
    {
        HandleTracker::untrack<T>(registry, objects[i].getHandle());
        EXPECT_FALSE(HandleTracker::fetch<T>(scope, keys[i]).has_value()) << "key " << keys[i];
    }
    EXPECT_EQ(HandleTracker::getTrackedHandleCount<T>(registry), 0u);
}

TEST_F(LifetimeRegistryTest, IntegerKeysOfEveryWidthAndSpacingFetchTheirOwnObjects)
{
    std::vector<int> narrow = {INT32_MIN, -1, 0, 1, INT32_MAX};
    std::vector<int64_t> wide = {INT64_MIN, -1, 0, 1, int64_t{1} << 32, int64_t{1} << 40, INT64_MAX};
    // Keys a power of two apart land on one home slot of a small table, over and over.
    for (int i = 1; i <= 300; ++i)
    {
        narrow.push_back(i << 16);
        wide.push_back(static_cast<int64_t>(i) << 41);
    }
    {
        SCOPED_TRACE("int keys");
        trackFetchAndUntrack<Tracked>(mRegistry, mScope, narrow);
    }
    {
        SCOPED_TRACE("int64_t keys");
        trackFetchAndUntrack<WideTracked>(mRegistry, mScope, wide);
    }
    // Narrow keys of every kind are found by their place: sign-extended or not, they must not meet.
    {
        SCOPED_TRACE("int8_t keys");
        std::vector<int8_t> keys;
        for (int key = INT8_MIN; key <= INT8_MAX; ++key)
        {
            keys.push_back(static_cast<int8_t>(key));
        }
        trackFetchAndUntrack<KeyedBy<int8_t>>(mRegistry, mScope, keys);
    }
    {
        SCOPED_TRACE("uint16_t keys");
        trackFetchAndUntrack<KeyedBy<uint16_t>>(mRegistry, mScope, {0, 1, 0x7FFF, 0x8000, 0xFFFF});
    }
    {
        SCOPED_TRACE("enum keys");
        trackFetchAndUntrack<KeyedBy<Shade>>(mRegistry, mScope, {DARK, LIGHT, WHITE});
    }
}

// A fetch remembers the type it asked for last; tracking a new type may move every type's table, and the
// remembered one with them.
template <int... N>
void trackNumbered(LifetimeRegistry& registry, WeakLifetimeScope scope, int key,
                   std::vector<StrongObjectHandle>& objects, std::integer_sequence<int, N...>)
{
    (
        [&]
        {
            StrongTypedObjectHandle<Numbered<N>> object = scope.makeObject<Numbered<N>>(N);
            HandleTracker::trackWith<Numbered<N>>(registry, object.getHandle(), key, false);
            objects.push_back(StrongTypedObjectHandle<Numbered<N>>::toGeneric(std::move(object)));
        }(),
        ...);
}

template <int... N>
std::vector<int> fetchNumbered(WeakLifetimeScope scope, int key, std::integer_sequence<int, N...>)
{
    std::vector<int> values;
    (
        [&]
        {
            const auto fetched = HandleTracker::fetch<Numbered<N>>(scope, key);
            values.push_back(fetched.has_value() ? (*fetched)->mValue : -1);
        }(),
        ...);
    return values;
}

TEST_F(LifetimeRegistryTest, FetchFindsItsTypeAfterNewTypesMovedTheTypeTables)
{
    std::vector<StrongObjectHandle> objects;
    std::vector<StrongTypedObjectHandle<Tracked>> tracked;
    for (int key = 1; key <= 3; ++key)
    {
        tracked.push_back(mScope.makeObject<Tracked>(key * 10));
        HandleTracker::trackWith<Tracked>(mRegistry, tracked.back().getHandle(), key, false);
    }
    ASSERT_TRUE(HandleTracker::fetch<Tracked>(mScope, 2).has_value());

    // One object of each of twenty more types under the same key: the table of types grows and reorders.
    trackNumbered(mRegistry, mScope, 2, objects, std::make_integer_sequence<int, 20>());
    for (int key = 1; key <= 3; ++key)
    {
        const auto fetched = HandleTracker::fetch<Tracked>(mScope, key);
        ASSERT_TRUE(fetched.has_value()) << "key " << key;
        EXPECT_EQ(fetched->getHandle(), tracked[key - 1].getHandle());
        EXPECT_EQ((*fetched)->mValue, key * 10);
    }
    std::vector<int> expected(20);
    std::iota(expected.begin(), expected.end(), 0);
    EXPECT_EQ(fetchNumbered(mScope, 2, std::make_integer_sequence<int, 20>()), expected);
    EXPECT_FALSE(HandleTracker::fetch<Numbered<0>>(mScope, 1).has_value()) << "Each type has its own keys";
}

// Counts are reached by the id in a handle, and a handle's version says whether the count is still its object's:
// however the first object died, its stale handle must not count the object that took its id.
TEST_F(LifetimeRegistryTest, AStaleHandleNeverCountsTheObjectThatTookItsId)
{
    using Traits = entt::entt_traits<ObjectHandleValue>;
    enum class Death
    {
        LAST_RELEASE,
        DESTROY_OBJECT,
        DESTROY_SCOPE,
        ENTITY_DESTROYED_BEHIND_THE_REGISTRY,
    };
    for (const Death death : {Death::LAST_RELEASE, Death::DESTROY_OBJECT, Death::DESTROY_SCOPE,
                              Death::ENTITY_DESTROYED_BEHIND_THE_REGISTRY})
    {
        SCOPED_TRACE("death " + std::to_string(static_cast<int>(death)));
        mLog.clear();
        StrongTypedObjectHandle<int> first = mScope.makeObject<int>(1);
        const ObjectHandle stale = first.getHandle();
        switch (death)
        {
        case Death::LAST_RELEASE:
            first = StrongTypedObjectHandle<int>();
            break;
        case Death::DESTROY_OBJECT:
            mRegistry.destroyObject(stale);
            break;
        case Death::DESTROY_SCOPE:
            mRegistry.destroyLifetimeScope(false);
            break;
        case Death::ENTITY_DESTROYED_BEHIND_THE_REGISTRY:
            mRegistry.registry.destroy(stale.value);
            break;
        }

        StrongTypedObjectHandle<int> second = mScope.makeObject<int>(2);
        ASSERT_EQ(Traits::to_entity(second.getHandle().value), Traits::to_entity(stale.value));
        ASSERT_NE(second.getHandle(), stale);
        mRegistry.setScriptRef(second.getHandle(), std::make_unique<RecordingScriptRef>(mLog, "second"));

        EXPECT_EQ(mRegistry.getReferenceCount(stale), 0u);
        mRegistry.addReference(stale);
        EXPECT_FALSE(mRegistry.removeReference(stale));
        EXPECT_FALSE(mRegistry.removeReference(stale));
        first = StrongTypedObjectHandle<int>();
        EXPECT_EQ(second.getReferenceCount(), 1u);
        EXPECT_TRUE(second.valid());
        EXPECT_THAT(mLog, IsEmpty()) << "The stale handle moved the second object's count";

        second = StrongTypedObjectHandle<int>();
        EXPECT_THAT(mLog, ElementsAre("script ref told second", "script ref deleted second"));
    }
}

// An object's entity destroyed through the entity registry leaves its count behind; the last release of it
// finds no object to destroy and clears the count instead.
TEST_F(LifetimeRegistryTest, TheLastReleaseOfAnObjectDestroyedBehindTheRegistryDestroysNothing)
{
    StrongTypedObjectHandle<int> first = mScope.makeObject<int>(1);
    const StrongTypedObjectHandle<int> other = mScope.makeObject<int>(2);
    const ObjectHandle handle = first.getHandle();
    mRegistry.registry.destroy(handle.value);
    EXPECT_FALSE(first.valid());
    const auto asserts = collectAsserts([&] { EXPECT_FALSE(mRegistry.removeReference(first.release())); });
    EXPECT_THAT(asserts, IsEmpty());
    EXPECT_EQ(mRegistry.getReferenceCount(handle), 0u);
    EXPECT_EQ(other.getReferenceCount(), 1u);
    EXPECT_EQ(*other, 2);
}

// Replacing a script reference deletes the old one, whose destructor may make objects enough to move every
// count: the registry must not hold on to the object's count across the replacement (a sanitizer build sees a
// write to the moved counts), and the new reference hears its object's count cross between 1 and 2.
TEST_F(LifetimeRegistryTest, AScriptRefSetWhileTheOldOneMakesObjectsHearsTheCrossings)
{
    class MakingScriptRef : public IScriptRef
    {
    public:
        MakingScriptRef(WeakLifetimeScope scope, std::vector<StrongTypedObjectHandle<int>>& made)
            : mScope(std::move(scope)), mMade(made)
        {
        }
        ~MakingScriptRef() override
        {
            for (int i = 0; i < 1000; ++i)
            {
                mMade.push_back(mScope.makeObject<int>(i));
            }
        }
        void onReferenceCountLoweredToOne() override {}
        void onReferenceCountRaisedToTwo() override {}
        void onObjectDestroyed() override {}

    private:
        WeakLifetimeScope mScope;
        std::vector<StrongTypedObjectHandle<int>>& mMade;
    };

    std::vector<StrongTypedObjectHandle<int>> made;
    const StrongTypedObjectHandle<int> handle = mScope.makeObject<int>(1);
    mRegistry.setScriptRef(handle.getHandle(), std::make_unique<MakingScriptRef>(mScope, made));
    mRegistry.setScriptRef(handle.getHandle(), std::make_unique<RecordingScriptRef>(mLog, "new"));
    ASSERT_EQ(made.size(), 1000u);
    {
        const StrongTypedObjectHandle<int> copy = handle;
    }
    EXPECT_THAT(mLog, ElementsAre("raised to two new", "lowered to one new"));

    mLog.clear();
    mRegistry.setScriptRef(handle.getHandle(), nullptr);
    {
        const StrongTypedObjectHandle<int> copy = handle;
    }
    EXPECT_THAT(mLog, ElementsAre("script ref deleted new")) << "No reference is left to tell";
}
} // namespace
