#include "Scripting/LifetimeRegistry/HandleTracker.h"

#include "ZentaryUnitTest/Assert.h"
#include "ZentaryUnitTest/TestClass.h"

#include <vector>

using namespace Ovelith::CoreTestFramework;
using namespace Scripting;

namespace
{
struct PerfTrackedClass
{
    using HandleKey = int;

    int mValue = 0;
};
} // namespace

ZUT_REGISTER_TEST_CLASS(Scripting_HandleTrackerPerfTests, "suite:perf");
struct Scripting_HandleTrackerPerfTestsBase : ZentaryUnitTest::TestClass<Scripting_HandleTrackerPerfTests>
{
    static constexpr int OBJECT_COUNT = 100000;

    // One registry with id 1 per case.
    struct Context
    {
        LifetimeRegistryReference reference;
        LifetimeRegistry registry{ContextId{1}, reference};
        WeakLifetimeScope scope{&reference};
    };

    // Makes and tracks OBJECT_COUNT objects under their loop index; the tracker alone holds them.
    static void makeTracked(Context& context)
    {
        for (int key = 0; key < OBJECT_COUNT; ++key)
        {
            const StrongTypedObjectHandle<PerfTrackedClass> handle = context.scope.makeObject<PerfTrackedClass>(key);
            HandleTracker::trackWith<PerfTrackedClass>(context.registry, handle.getHandle(), key, true);
        }
        Assert::AreEqual(HandleTracker::getTrackedHandleCount<PerfTrackedClass>(context.registry),
                         static_cast<size_t>(OBJECT_COUNT), true);
    }
};

class Scripting_HandleTrackerPerfTests final : public Scripting_HandleTrackerPerfTestsBase
{
    ZUT_TEST(HandleTracker_CreateHandles_DoNothing)
    {
        Context context;
        std::vector<StrongTypedObjectHandle<PerfTrackedClass>> handles;
        handles.reserve(OBJECT_COUNT);
        for (int key = 0; key < OBJECT_COUNT; ++key)
        {
            handles.push_back(context.scope.makeObject<PerfTrackedClass>(key));
        }
        Assert::AreEqual(static_cast<int>(handles.size()), OBJECT_COUNT);
        Assert::AreEqual(handles.back()->mValue, OBJECT_COUNT - 1);
    }

    ZUT_TEST(HandleTracker_CreateHandles_TrackHandles)
    {
        Context context;
        makeTracked(context);
        context.registry.destroyLifetimeScope(false);
        Assert::AreEqual(HandleTracker::getTrackedHandleCount<PerfTrackedClass>(context.registry), size_t{0});
    }

    ZUT_TEST(HandleTracker_CreateHandles_FetchHandles)
    {
        Context context;
        makeTracked(context);
        for (int key = 0; key < OBJECT_COUNT; ++key)
        {
            const auto fetched = HandleTracker::fetch<PerfTrackedClass>(context.scope, key);
            Assert::IsTrue(fetched.has_value(), true, "Key {} was not found", key);
        }
        context.registry.destroyLifetimeScope(false);
    }

    ZUT_TEST(HandleTracker_CreateHandles_FetchSameHandle)
    {
        Context context;
        makeTracked(context);
        for (int round = 0; round < OBJECT_COUNT; ++round)
        {
            const auto fetched = HandleTracker::fetch<PerfTrackedClass>(context.scope, 0);
            Assert::IsTrue(fetched.has_value(), true, "Round {} did not find key 0", round);
        }
        context.registry.destroyLifetimeScope(false);
    }

    ZUT_TEST(HandleTracker_CreateHandles_FetchAndUntrackHandles)
    {
        Context context;
        makeTracked(context);
        for (int key = 0; key < OBJECT_COUNT; ++key)
        {
            const auto fetched = HandleTracker::fetch<PerfTrackedClass>(context.scope, key);
            Assert::IsTrue(fetched.has_value(), true, "Key {} was not found", key);
            HandleTracker::untrack<PerfTrackedClass>(context.registry, fetched->getHandle());
        }
        Assert::AreEqual(HandleTracker::getTrackedHandleCount<PerfTrackedClass>(context.registry), size_t{0});
    }

    ZUT_TEST(HandleTracker_CreateHandles_UntrackAll)
    {
        Context context;
        makeTracked(context);
        HandleTracker::untrackAll<PerfTrackedClass>(context.registry);
        Assert::AreEqual(HandleTracker::getTrackedHandleCount<PerfTrackedClass>(context.registry), size_t{0});
    }
};
