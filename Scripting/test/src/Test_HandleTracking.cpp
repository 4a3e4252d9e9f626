#include "Scripting/LifetimeRegistry/HandleTracker.h"

#include "ZentaryUnitTest/Assert.h"
#include "ZentaryUnitTest/TestClass.h"

#include <functional>
#include <vector>

using namespace Ovelith::CoreTestFramework;
using namespace Scripting;

namespace Fixtures
{
struct TestClass
{
    using HandleKey = int;

    int mValue = 0;
};

// Counts its copies; moves are free, as the storage may move components around.
struct TestKey
{
    static inline int sCopies = 0;

    explicit TestKey(int id) : mId(id) {}
    TestKey(const TestKey& other) : mId(other.mId) { ++sCopies; }
    TestKey& operator=(const TestKey& other)
    {
        mId = other.mId;
        ++sCopies;
        return *this;
    }
    TestKey(TestKey&&) noexcept = default;
    TestKey& operator=(TestKey&&) noexcept = default;
    ~TestKey() = default;

    int mId;
};

struct TestClassKeyCopy
{
    using HandleKey = TestKey;

    int mValue = 0;
};

struct TrackingContext
{
    LifetimeRegistryReference reference;
    LifetimeRegistry registry{ContextId{1}, reference};
    WeakLifetimeScope scope{&reference};

    // Objects of TestClass with the values 0..count-1, each tracked under its value and held by the tracker
    // alone.
    std::vector<ObjectHandle> makeTracked(int count)
    {
        std::vector<ObjectHandle> handles;
        for (int key = 0; key < count; ++key)
        {
            StrongTypedObjectHandle<TestClass> handle = scope.makeObject<TestClass>(key);
            HandleTracker::trackWith<TestClass>(registry, handle.getHandle(), key, true);
            handles.push_back(handle.getHandle());
        }
        return handles;
    }
};
} // namespace Fixtures

using namespace Fixtures;

template <>
struct std::hash<Fixtures::TestKey>
{
    size_t operator()(const Fixtures::TestKey& key) const noexcept { return std::hash<int>{}(key.mId); }
};

ZUT_TEST_CLASS(Scripting_HandleTrackingTests);
class Scripting_HandleTrackingTests final : public Scripting_HandleTrackingTestsBase
{
    // The framework's base is also called TestClass; the cases mean the fixture.
    using TestClass = Fixtures::TestClass;

    ZUT_TEST(HandleTracker_CreateHandle_FetchNothing)
    {
        TrackingContext context;
        const StrongTypedObjectHandle<TestClass> handle = context.scope.makeObject<TestClass>(1);
        Assert::IsFalse(HandleTracker::fetch<TestClass>(context.scope, 1).has_value());
    }

    ZUT_TEST(HandleTracker_TrackHandle_FetchSomething)
    {
        TrackingContext context;
        {
            const StrongTypedObjectHandle<TestClass> handle = context.scope.makeObject<TestClass>(5);
            HandleTracker::trackWith<TestClass>(context.registry, handle.getHandle(), 1, true);
        }
        const auto fetched = HandleTracker::fetch<TestClass>(context.scope, 1);
        Assert::IsTrue(fetched.has_value(), true, "The tracking reference keeps the object alive");
        Assert::AreEqual((*fetched)->mValue, 5);
        Assert::AreEqual(fetched->getReferenceCount(), 2u);
        // Tracking holds a reference, which only the scope's destruction takes away here.
        context.registry.destroyLifetimeScope(false);
        Assert::IsFalse(fetched->valid());
        Assert::IsFalse(HandleTracker::fetch<TestClass>(context.scope, 1).has_value(), false,
                        "A dead object leaves the cache");
    }

    ZUT_TEST(HandleTracker_TrackAndFetchHandles_HandlesMatch)
    {
        TrackingContext context;
        const std::vector<ObjectHandle> handles = context.makeTracked(5);
        for (int key = 0; key < 5; ++key)
        {
            const auto fetched = HandleTracker::fetch<TestClass>(context.scope, key);
            Assert::IsTrue(fetched.has_value(), true, "Key {}", key);
            Assert::AreEqual(fetched->getHandle(), handles[key]);
            Assert::AreEqual((*fetched)->mValue, key);
        }
        HandleTracker::untrackAll<TestClass>(context.registry);
    }

    ZUT_TEST(HandleTracker_TrackAndUntrackHandle_TryFetchFails)
    {
        TrackingContext context;
        const std::vector<ObjectHandle> handles = context.makeTracked(1);
        HandleTracker::untrack<TestClass>(context.registry, handles[0]);
        Assert::IsFalse(HandleTracker::fetch<TestClass>(context.scope, 0).has_value());
        Assert::IsFalse(context.registry.isValid(handles[0]), false, "Untracking gave up the last reference");
    }

    ZUT_TEST(HandleTracker_TrackAndUntrackMultipleHandles_TryFetchFails)
    {
        TrackingContext context;
        const std::vector<ObjectHandle> handles = context.makeTracked(4);
        for (int untracked = 0; untracked < 4; ++untracked)
        {
            HandleTracker::untrack<TestClass>(context.registry, handles[untracked]);
            for (int key = 0; key < 4; ++key)
            {
                const bool found = HandleTracker::fetch<TestClass>(context.scope, key).has_value();
                Assert::AreEqual(found, key > untracked, false, "Key {} after untracking key {}", key, untracked);
            }
        }
    }

    ZUT_TEST(HandleTracker_TrackAndUntrackMultipleHandles_CountIsCorrect)
    {
        TrackingContext context;
        Assert::AreEqual(HandleTracker::getTrackedHandleCount<TestClass>(context.registry), size_t{0});
        const std::vector<ObjectHandle> handles = context.makeTracked(4);
        Assert::AreEqual(HandleTracker::getTrackedHandleCount<TestClass>(context.registry), size_t{4});
        for (size_t untracked = 0; untracked < handles.size(); ++untracked)
        {
            HandleTracker::untrack<TestClass>(context.registry, handles[untracked]);
            Assert::AreEqual(HandleTracker::getTrackedHandleCount<TestClass>(context.registry), 3 - untracked);
        }
        Assert::AreEqual(HandleTracker::getTrackedHandleCount<TestClassKeyCopy>(context.registry), size_t{0}, false,
                         "A type never tracked counts 0");
    }

    ZUT_TEST(HandleTracker_TrackMultipleHandlesAndUntrackAll_TryFetchFails)
    {
        TrackingContext context;
        const std::vector<ObjectHandle> handles = context.makeTracked(6);
        HandleTracker::untrackAll<TestClass>(context.registry);
        for (int key = 0; key < 6; ++key)
        {
            Assert::IsFalse(HandleTracker::fetch<TestClass>(context.scope, key).has_value(), false, "Key {}", key);
            Assert::IsFalse(context.registry.isValid(handles[key]));
        }
        Assert::AreEqual(HandleTracker::getTrackedHandleCount<TestClass>(context.registry), size_t{0});
    }

    ZUT_TEST(HandleTracker_TrackAndUntrackHandle_TrackAndUntrackAgainSucceeds)
    {
        TrackingContext context;
        const StrongTypedObjectHandle<TestClass> handle = context.scope.makeObject<TestClass>(8);
        for (int round = 0; round < 2; ++round)
        {
            HandleTracker::trackWith<TestClass>(context.registry, handle.getHandle(), 3, true);
            const auto fetched = HandleTracker::fetch<TestClass>(context.scope, 3);
            Assert::IsTrue(fetched.has_value(), true, "Round {}", round);
            Assert::IsTrue(*fetched == handle);
            HandleTracker::untrack<TestClass>(context.registry, handle.getHandle());
            Assert::IsFalse(HandleTracker::fetch<TestClass>(context.scope, 3).has_value());
        }
        Assert::IsTrue(handle.valid(), false, "The strong handle keeps the object through untracking");
        Assert::AreEqual(handle.getReferenceCount(), 1u);
    }

    ZUT_TEST(HandleTracker_TrackAndUntrack_NoCopiesOfHandleMade)
    {
        TrackingContext context;
        TestKey::sCopies = 0;
        const StrongTypedObjectHandle<TestClassKeyCopy> handle = context.scope.makeObject<TestClassKeyCopy>();
        const TestKey key(77);
        HandleTracker::trackWith<TestClassKeyCopy>(context.registry, handle.getHandle(), key, true);
        const auto fetched = HandleTracker::fetch<TestClassKeyCopy>(context.scope, key);
        Assert::IsTrue(fetched.has_value(), true);
        HandleTracker::untrack<TestClassKeyCopy>(context.registry, handle.getHandle());
        Assert::AreEqual(TestKey::sCopies, 1, false, "One copy into the component, none on fetch");
    }
};
