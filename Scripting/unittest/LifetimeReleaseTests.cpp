// What scripts can do to the lifetime layer in bulk: long chains and wide trees of objects that hold each
// other, cycles torn down from outside, ids recycled until their versions run out, keys of common types.

#include "Diagnostics/Assert.h"
#include "Scripting/LifetimeRegistry/HandleTracker.h"
#include "Scripting/LifetimeRegistry/LifetimeRegistry.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace
{
using Ovelith::Diagnostics::collectAsserts;
using namespace Scripting;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using Traits = entt::entt_traits<ObjectHandleValue>;

// An object that holds up to two others and writes its index into a log when it dies. The storage moves
// objects around; only the one that was not moved from writes.
struct Node
{
    using HandleKey = uint32_t;
    static constexpr uint32_t MOVED_FROM = UINT32_MAX;

    Node(std::vector<uint32_t>& deaths, uint32_t index) : mDeaths(&deaths), mIndex(index) {}
    Node(Node&& other) noexcept
        : mChildren(std::move(other.mChildren)), mDeaths(other.mDeaths), mIndex(std::exchange(other.mIndex, MOVED_FROM))
    {
    }
    Node& operator=(Node&& other) noexcept
    {
        mChildren = std::move(other.mChildren);
        mDeaths = other.mDeaths;
        mIndex = std::exchange(other.mIndex, MOVED_FROM);
        return *this;
    }
    ~Node()
    {
        if (mIndex != MOVED_FROM)
        {
            mDeaths->push_back(mIndex);
        }
    }

    // Released back to front when the node dies, as members of an array are.
    std::array<StrongObjectHandle, 2> mChildren;
    std::vector<uint32_t>* mDeaths;
    uint32_t mIndex;
};

class CountingObjectListener : public ILifetimeObjectListener
{
public:
    void onObjectCreated(LifetimeRegistry&, ObjectHandle, const entt::meta_type&, unsigned) override {}
    void onObjectDestroyed(LifetimeRegistry&, ObjectHandle handle, const entt::meta_type&, unsigned) override
    {
        ++mDestroyed[handle.toU64()];
    }

    std::unordered_map<uint64_t, int> mDestroyed;
};

class CountingScriptRef : public IScriptRef
{
public:
    explicit CountingScriptRef(int& destroyed) : mDestroyed(destroyed) {}
    void onReferenceCountLoweredToOne() override {}
    void onReferenceCountRaisedToTwo() override {}
    void onObjectDestroyed() override { ++mDestroyed; }

private:
    int& mDestroyed;
};

// How the nodes 0..count-1 hold each other. Children always have higher numbers than their parent.
enum class Shape
{
    Chain,        // node i holds node i+1
    BalancedTree, // node i holds nodes 2i+1 and 2i+2
    Caterpillar,  // a chain of even nodes, each also holding the odd node after it
};

constexpr uint32_t NO_CHILD = UINT32_MAX;

std::array<uint32_t, 2> childrenOf(Shape shape, uint32_t index, uint32_t count)
{
    const auto existing = [count](uint32_t child) { return child < count ? child : NO_CHILD; };
    switch (shape)
    {
    case Shape::Chain:
        return {existing(index + 1), NO_CHILD};
    case Shape::BalancedTree:
        return {existing(2 * index + 1), existing(2 * index + 2)};
    case Shape::Caterpillar:
        return index % 2 == 0 ? std::array<uint32_t, 2>{existing(index + 1), existing(index + 2)}
                              : std::array<uint32_t, 2>{NO_CHILD, NO_CHILD};
    }
    return {NO_CHILD, NO_CHILD};
}

class LifetimeReleaseTest : public testing::Test
{
protected:
    ~LifetimeReleaseTest() override { mRegistry.destroyLifetimeScope(false); }

    StrongTypedObjectHandle<Node> makeNode(uint32_t index) { return mScope.makeObject<Node>(mDeaths, index); }

    // The nodes 0..count-1 of a shape, each holding its children; the caller holds node 0 alone.
    StrongObjectHandle makeShape(uint32_t count, Shape shape)
    {
        std::vector<StrongObjectHandle> handles(count);
        for (uint32_t index = count; index-- > 0;)
        {
            StrongTypedObjectHandle<Node> node = makeNode(index);
            const auto children = childrenOf(shape, index, count);
            for (size_t child = 0; child < children.size(); ++child)
            {
                if (children[child] != NO_CHILD)
                {
                    node->mChildren[child] = std::move(handles[children[child]]);
                }
            }
            handles[index] = std::move(node);
        }
        return std::move(handles[0]);
    }

    std::vector<uint32_t> mDeaths;
    LifetimeRegistryReference mReference;
    LifetimeRegistry mRegistry{ContextId{1}, mReference};
    WeakLifetimeScope mScope{&mReference};
};

class LifetimeShapeTest : public LifetimeReleaseTest, public testing::WithParamInterface<Shape>
{
};

// A million objects, however deep, die without a recursion, each once, in the order a recursive release
// would have had: a node, then what it released first with all that this holds, then what it released next.
// The second child goes first: array elements are destroyed back to front.
TEST_P(LifetimeShapeTest, DroppingTheRootOfAMillionNodesReleasesThemDepthFirst)
{
    constexpr uint32_t COUNT = 1'000'000;
    StrongObjectHandle root = makeShape(COUNT, GetParam());
    mDeaths.reserve(COUNT);
    root = StrongObjectHandle();

    std::vector<uint32_t> expected;
    expected.reserve(COUNT);
    std::vector<uint32_t> toVisit{0};
    while (!toVisit.empty())
    {
        const uint32_t index = toVisit.back();
        toVisit.pop_back();
        expected.push_back(index);
        for (const uint32_t child : childrenOf(GetParam(), index, COUNT))
        {
            if (child != NO_CHILD)
            {
                toVisit.push_back(child);
            }
        }
    }
    ASSERT_EQ(mDeaths.size(), COUNT);
    const auto firstDifference = std::mismatch(mDeaths.begin(), mDeaths.end(), expected.begin());
    EXPECT_EQ(firstDifference.first, mDeaths.end())
        << "Death " << (firstDifference.first - mDeaths.begin()) << " is node " << *firstDifference.first
        << ", expected node " << *firstDifference.second;
    EXPECT_THAT(collectAsserts([&] { mRegistry.destroyLifetimeScope(true); }), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Shapes, LifetimeShapeTest,
                         testing::Values(Shape::Chain, Shape::BalancedTree, Shape::Caterpillar),
                         [](const testing::TestParamInfo<Shape>& info) {
                             return info.param == Shape::Chain          ? "Chain"
                                    : info.param == Shape::BalancedTree ? "BalancedTree"
                                                                        : "Caterpillar";
                         });

// Holds one object and, when it dies, releases it and then looks around.
struct Holder
{
    Holder(StrongObjectHandle held, std::function<void()> afterRelease)
        : mHeld(std::move(held)), mAfterRelease(std::move(afterRelease))
    {
    }
    Holder(Holder&&) noexcept = default;
    Holder& operator=(Holder&&) noexcept = default;
    ~Holder()
    {
        mHeld = StrongObjectHandle();
        if (mAfterRelease)
        {
            mAfterRelease();
        }
    }

    StrongObjectHandle mHeld;
    std::function<void()> mAfterRelease;
};

// Tells which object dies and whether the registry marks it as the one being removed.
class MarkListener : public ILifetimeObjectListener
{
public:
    void onObjectCreated(LifetimeRegistry&, ObjectHandle, const entt::meta_type&, unsigned) override {}
    void onObjectDestroyed(LifetimeRegistry& registry, ObjectHandle handle, const entt::meta_type&, unsigned) override
    {
        mDestroyed.emplace_back(handle, registry.removingEntity == handle);
    }

    std::vector<std::pair<ObjectHandle, bool>> mDestroyed;
};

TEST_F(LifetimeReleaseTest, AnObjectReleasedDuringADestructionDiesAfterItAndIsInvalidMeanwhile)
{
    auto listener = std::make_shared<MarkListener>();
    mRegistry.addObjectListener(listener);
    StrongTypedObjectHandle<Node> inner = makeNode(1);
    const WeakObjectHandle weakInner(inner.getScope(), inner.getHandle());
    HandleTracker::trackWith<Node>(mRegistry, inner.getHandle(), 1, false);

    std::vector<ObjectHandle> marks;
    bool innerDiedWithin = true;
    bool innerValidWithin = true;
    bool innerFoundWithin = true;
    unsigned innerCountWithin = 1;
    StrongTypedObjectHandle<Holder> outer =
        mScope.makeObject<Holder>(std::move(inner),
                                  [&]
                                  {
                                      marks.push_back(mRegistry.removingEntity);
                                      innerDiedWithin = !mDeaths.empty();
                                      innerValidWithin = weakInner.valid();
                                      innerCountWithin = mRegistry.getReferenceCount(weakInner.getHandle());
                                      innerFoundWithin = HandleTracker::fetch<Node>(mScope, 1).has_value();
                                  });
    const ObjectHandle outerHandle = outer.getHandle();
    outer = StrongTypedObjectHandle<Holder>();

    EXPECT_EQ(marks, std::vector<ObjectHandle>{outerHandle}) << "The outer object stays marked until it is gone";
    EXPECT_FALSE(innerDiedWithin) << "The released object waits for the outer destruction to end";
    EXPECT_FALSE(innerValidWithin) << "A waiting object is no longer valid";
    EXPECT_EQ(innerCountWithin, 0u);
    EXPECT_FALSE(innerFoundWithin) << "A waiting object is gone for its key";
    EXPECT_EQ(mDeaths, std::vector<uint32_t>{1});
    EXPECT_EQ(listener->mDestroyed,
              (std::vector<std::pair<ObjectHandle, bool>>{{outerHandle, true}, {weakInner.getHandle(), true}}));
    EXPECT_FALSE(weakInner.valid());
}

TEST_F(LifetimeReleaseTest, AScopeDestroyedFromWithinADestructionEndsEveryObjectOnce)
{
    auto listener = std::make_shared<CountingObjectListener>();
    mRegistry.addObjectListener(listener);
    StrongTypedObjectHandle<Node> released = makeNode(0);
    const StrongTypedObjectHandle<Node> bystander = makeNode(1);
    const ObjectHandle releasedHandle = released.getHandle();
    // The holder releases its node, which then waits, and destroys the scope while it is itself being removed.
    StrongTypedObjectHandle<Holder> holder =
        mScope.makeObject<Holder>(std::move(released), [this] { mRegistry.destroyLifetimeScope(false); });
    const ObjectHandle holderHandle = holder.getHandle();

    EXPECT_THAT(collectAsserts([&] { holder = StrongTypedObjectHandle<Holder>(); }), IsEmpty());
    EXPECT_EQ(mDeaths, (std::vector<uint32_t>{1, 0})) << "The scope takes the newest first, then what waits";
    for (const ObjectHandle handle : {releasedHandle, bystander.getHandle(), holderHandle})
    {
        EXPECT_EQ(listener->mDestroyed[handle.toU64()], 1);
        EXPECT_FALSE(mRegistry.isValid(handle));
    }
    EXPECT_EQ(mRegistry.removingEntity, ObjectHandle());
    EXPECT_THAT(collectAsserts([&] { mRegistry.destroyLifetimeScope(true); }), IsEmpty());
}

TEST_F(LifetimeReleaseTest, ADestructionThatThrowsLeavesTheRegistryUsableAndTheScopeEndsWhatIsLeft)
{
    struct Throwing : ILifetimeObjectListener
    {
        void onObjectCreated(LifetimeRegistry&, ObjectHandle, const entt::meta_type&, unsigned) override {}
        void onObjectDestroyed(LifetimeRegistry&, ObjectHandle, const entt::meta_type&, unsigned) override
        {
            if (mThrow)
            {
                mThrow = false;
                throw std::runtime_error("listener failed");
            }
        }
        bool mThrow = true;
    };
    auto listener = std::make_shared<Throwing>();
    StrongTypedObjectHandle<Node> dying = makeNode(0);
    const StrongTypedObjectHandle<Node> bystander = makeNode(1);
    const ObjectHandle dyingHandle = dying.getHandle();
    mRegistry.addObjectListener(listener);

    EXPECT_THROW(mRegistry.destroyObject(dyingHandle), std::runtime_error);
    EXPECT_EQ(mRegistry.removingEntity, ObjectHandle());
    EXPECT_TRUE(bystander.valid()) << "No destruction is under way any more";
    EXPECT_TRUE(mDeaths.empty());

    mRegistry.destroyLifetimeScope(false);
    EXPECT_EQ(mDeaths, (std::vector<uint32_t>{1, 0})) << "The object whose destruction threw dies with the scope";
}

// How a cycle of objects, each holding the next, is ended from outside.
enum class Teardown
{
    Scope,
    DestroyFirst,
    DestroyLast,
};

struct CycleCase
{
    uint32_t length;
    Teardown teardown;
};

class LifetimeCycleTest : public LifetimeReleaseTest, public testing::WithParamInterface<CycleCase>
{
};

TEST_P(LifetimeCycleTest, EveryObjectOfACycleIsDestroyedAndAnnouncedOnce)
{
    const uint32_t length = GetParam().length;
    const Teardown teardown = GetParam().teardown;
    auto listener = std::make_shared<CountingObjectListener>();
    mRegistry.addObjectListener(listener);
    std::vector<int> scriptRefCalls(length, 0);

    std::vector<ObjectHandle> handles;
    {
        std::vector<StrongTypedObjectHandle<Node>> nodes;
        for (uint32_t index = 0; index < length; ++index)
        {
            nodes.push_back(makeNode(index));
            handles.push_back(nodes.back().getHandle());
            mRegistry.setScriptRef(handles.back(), std::make_unique<CountingScriptRef>(scriptRefCalls[index]));
        }
        // Node i holds node i+1 and the last holds the first: with one node, it holds itself.
        for (uint32_t index = 0; index < length; ++index)
        {
            nodes[index]->mChildren[0] = nodes[(index + 1) % length];
        }
    }
    for (const ObjectHandle handle : handles)
    {
        ASSERT_EQ(mRegistry.getReferenceCount(handle), 1u) << "Only the cycle holds its objects";
    }

    const auto asserts = collectAsserts(
        [&]
        {
            switch (teardown)
            {
            case Teardown::Scope:
                mRegistry.destroyLifetimeScope(false);
                break;
            case Teardown::DestroyFirst:
                mRegistry.destroyObject(handles.front());
                break;
            case Teardown::DestroyLast:
                mRegistry.destroyObject(handles.back());
                break;
            }
        });
    // Only an object holding itself releases a handle to the object under removal, and says so once.
    if (length == 1)
    {
        EXPECT_THAT(asserts, ElementsAre(HasSubstr("This handle is being removed")));
    }
    else
    {
        EXPECT_THAT(asserts, IsEmpty());
    }

    EXPECT_EQ(mDeaths.size(), length);
    EXPECT_EQ(listener->mDestroyed.size(), length);
    for (uint32_t index = 0; index < length; ++index)
    {
        EXPECT_EQ(listener->mDestroyed[handles[index].toU64()], 1) << "Object " << index;
        EXPECT_EQ(scriptRefCalls[index], 1) << "Object " << index;
        EXPECT_FALSE(mRegistry.isValid(handles[index]));
    }
    EXPECT_THAT(collectAsserts([&] { mRegistry.destroyLifetimeScope(true); }), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Cycles, LifetimeCycleTest,
                         testing::Values(CycleCase{1, Teardown::Scope}, CycleCase{1, Teardown::DestroyFirst},
                                         CycleCase{2, Teardown::Scope}, CycleCase{2, Teardown::DestroyFirst},
                                         CycleCase{3, Teardown::Scope}, CycleCase{3, Teardown::DestroyLast},
                                         CycleCase{1000, Teardown::Scope}, CycleCase{1000, Teardown::DestroyFirst}),
                         [](const testing::TestParamInfo<CycleCase>& info)
                         {
                             const char* teardown = info.param.teardown == Teardown::Scope          ? "Scope"
                                                    : info.param.teardown == Teardown::DestroyFirst ? "DestroyFirst"
                                                                                                    : "DestroyLast";
                             return "Length" + std::to_string(info.param.length) + "By" + teardown;
                         });

TEST_F(LifetimeReleaseTest, ASelfHeldObjectReleasedByItsLastOtherHolderIsDestroyedOnce)
{
    auto listener = std::make_shared<CountingObjectListener>();
    mRegistry.addObjectListener(listener);
    StrongTypedObjectHandle<Node> node = makeNode(0);
    node->mChildren[0] = node;
    node->mChildren[1] = node;
    const ObjectHandle handle = node.getHandle();
    const auto asserts = collectAsserts([&] { node = StrongTypedObjectHandle<Node>(); });
    EXPECT_EQ(mRegistry.getReferenceCount(handle), 2u) << "Still held by itself, twice";

    // One report per handle it held to itself, none for the release of the last other holder.
    EXPECT_THAT(collectAsserts([&] { mRegistry.destroyObject(handle); }),
                ElementsAre(HasSubstr("This handle is being removed"), HasSubstr("This handle is being removed")));
    EXPECT_THAT(asserts, IsEmpty());
    EXPECT_EQ(mDeaths, std::vector<uint32_t>{0});
    EXPECT_EQ(listener->mDestroyed[handle.toU64()], 1);
}

// ---- Ids whose versions run out ----

TEST_F(LifetimeReleaseTest, AnIdWhoseVersionsRanOutIsRetiredSoThatNoStaleHandleRevives)
{
    // The tombstone version is never handed out, and the one below it marks a spent id.
    constexpr auto LAST_VERSION = static_cast<Traits::version_type>(Traits::version_mask - 2);

    StrongTypedObjectHandle<int> first = mScope.makeObject<int>(1);
    const WeakObjectHandle firstWeak(first.getScope(), first.getHandle());
    const auto id = Traits::to_entity(first.getHandle().value);
    first = StrongTypedObjectHandle<int>();

    // Skip ahead through the versions instead of recycling the id sixteen million times: take the id as a
    // bare entity and release it with the version before the last.
    const ObjectHandleValue bare = mRegistry.registry.create();
    ASSERT_EQ(Traits::to_entity(bare), id);
    mRegistry.registry.destroy(bare, LAST_VERSION);

    StrongTypedObjectHandle<int> last = mScope.makeObject<int>(2);
    ASSERT_EQ(Traits::to_entity(last.getHandle().value), id);
    ASSERT_EQ(Traits::to_version(last.getHandle().value), LAST_VERSION);
    const WeakObjectHandle lastWeak(last.getScope(), last.getHandle());
    last = StrongTypedObjectHandle<int>();

    for (int round = 0; round < 3; ++round)
    {
        const StrongTypedObjectHandle<int> made = mScope.makeObject<int>(3);
        EXPECT_NE(Traits::to_entity(made.getHandle().value), id) << "Round " << round;
        EXPECT_FALSE(firstWeak.valid()) << "Round " << round;
        EXPECT_FALSE(lastWeak.valid()) << "Round " << round;
        EXPECT_EQ(*made, 3);
    }
    EXPECT_THAT(collectAsserts([&] { mRegistry.destroyLifetimeScope(true); }), IsEmpty())
        << "A retired id is no object";
}

// ---- Keys and storages ----

struct KeyedByInt
{
    using HandleKey = int;
    int mValue = 0;
};

struct AlsoKeyedByInt
{
    using HandleKey = int;
    int mValue = 0;
};

TEST_F(LifetimeReleaseTest, TrackingKeysLiveApartFromObjectsAndComponentsOfTheKeyType)
{
    const StrongTypedObjectHandle<int> plain = mScope.makeObject<int>(7);
    const StrongTypedObjectHandle<KeyedByInt> tracked = mScope.makeObject<KeyedByInt>(1);
    tracked.attach<int>(8);
    const StrongTypedObjectHandle<AlsoKeyedByInt> other = mScope.makeObject<AlsoKeyedByInt>(2);

    const auto asserts = collectAsserts(
        [&]
        {
            HandleTracker::trackWith<KeyedByInt>(mRegistry, tracked.getHandle(), 7, true);
            HandleTracker::trackWith<AlsoKeyedByInt>(mRegistry, other.getHandle(), 7, true);
            HandleTracker::untrackAll<KeyedByInt>(mRegistry);
        });
    EXPECT_THAT(asserts, IsEmpty());

    EXPECT_EQ(*plain, 7) << "A plain object of the key type is no key";
    EXPECT_EQ(plain.getReferenceCount(), 1u);
    ASSERT_TRUE(tracked.has<int>()) << "A component of the key type is no key";
    EXPECT_EQ(tracked.get<int>(), 8);
    EXPECT_EQ(tracked.getReferenceCount(), 1u);
    EXPECT_FALSE(HandleTracker::fetch<KeyedByInt>(mScope, 7).has_value());

    const auto stillTracked = HandleTracker::fetch<AlsoKeyedByInt>(mScope, 7);
    ASSERT_TRUE(stillTracked.has_value()) << "Another type's keys are not untracked";
    EXPECT_EQ(stillTracked->getHandle(), other.getHandle());
    HandleTracker::untrack<AlsoKeyedByInt>(mRegistry, other.getHandle());
}

TEST_F(LifetimeReleaseTest, EveryStorageOfARegistryGrowsInPagesOf128)
{
    struct Large
    {
        using HandleKey = int;
        std::array<char, 200> mBytes{};
    };
    struct Native
    {
        int mValue = 0;
    };

    const StrongTypedObjectHandle<Large> object = mScope.makeObject<Large>();
    HandleTracker::trackWith<Large>(mRegistry, object.getHandle(), 1, false);
    object.attach<double>(2.0);
    Native native;
    const StrongObjectHandle pointer = mRegistry.trackObjectWithPointer(&native);

    std::size_t used = 0;
    for (auto [id, storage] : mRegistry.registry.storage())
    {
        if (!storage.empty())
        {
            EXPECT_EQ(storage.capacity(), 128u) << storage.type().name();
            ++used;
        }
    }
    EXPECT_EQ(used, 5u) << "Base, object, key, component and pointer storages";
    HandleTracker::untrack<Large>(mRegistry, object.getHandle());
}
} // namespace
