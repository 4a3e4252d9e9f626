#include "Diagnostics/Assert.h"
#include "Scripting/LifetimeRegistry/LifetimeRegistry.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <random>
#include <string>
#include <unordered_map>
#include <vector>

namespace
{
using Ovelith::Diagnostics::collectAsserts;
using namespace Scripting;
using testing::ElementsAre;
using testing::IsEmpty;

std::vector<int> drain(ContextIdFreeList& list, size_t count)
{
    std::vector<int> ids;
    for (size_t i = 0; i < count; ++i)
    {
        ids.push_back(list.nextId().value);
    }
    return ids;
}

TEST(LifetimeFreeListTest, HandsOutLowestFirstAndReturnedIdsNext)
{
    ContextIdFreeList list(1, 255);
    EXPECT_EQ(list.size(), 255u);
    EXPECT_THAT(drain(list, 3), ElementsAre(1, 2, 3));

    list.returnId(ContextId{2});
    list.returnId(ContextId{1});
    // A stack: the id returned last is handed out first, before any id never handed out.
    EXPECT_THAT(drain(list, 3), ElementsAre(1, 2, 4));
    EXPECT_EQ(list.size(), 251u);
}

TEST(LifetimeFreeListTest, ReturningAFreeIdAgainKeepsOneEntry)
{
    ContextIdFreeList list(1, 3);
    list.returnId(ContextId{2});
    list.returnId(ContextId{3});
    EXPECT_EQ(list.size(), 3u);
    EXPECT_THAT(drain(list, 3), ElementsAre(1, 2, 3));
    EXPECT_TRUE(list.empty());
}

TEST(LifetimeFreeListTest, OutOfBoundsIdsAssertAndAreIgnored)
{
    ContextIdFreeList list(3, 5);
    (void)drain(list, 3);
    for (const uint8_t outside : {uint8_t{0}, uint8_t{2}, uint8_t{6}, uint8_t{255}})
    {
        EXPECT_THAT(collectAsserts([&] { list.returnId(ContextId{outside}); }), ElementsAre("Invalid id"))
            << "id " << int{outside};
    }
    EXPECT_TRUE(list.empty());
}

TEST(LifetimeFreeListTest, NextIdOnAnEmptyListAssertsAndAnswersNoContext)
{
    ContextIdFreeList list(7, 7);
    EXPECT_EQ(list.nextId().value, 7);
    ContextId id{9};
    EXPECT_THAT(collectAsserts([&] { id = list.nextId(); }), ElementsAre("Invalid free list"));
    EXPECT_EQ(id.value, 0);
}

TEST(LifetimeContextIdTest, IndexAndIdDifferByOneAndOnlyOneToTwoHundredFiftyFiveAreIds)
{
    struct Row
    {
        uint64_t index;
        uint8_t id;
        bool asserts;
    };
    const Row rows[] = {{0, 1, false}, {1, 2, false}, {254, 255, false}, {255, 0, true}, {511, 0, true}};
    for (const Row& row : rows)
    {
        ContextId id;
        const auto asserted = collectAsserts([&] { id = indexToContextId(row.index); });
        EXPECT_EQ(id.value, row.id) << "index " << row.index;
        EXPECT_EQ(asserted.size(), row.asserts ? 1u : 0u) << "index " << row.index;
        if (!row.asserts)
        {
            EXPECT_EQ(contextIdToIndex(id), row.index);
        }
    }

    uint64_t index = 0;
    EXPECT_THAT(collectAsserts([&] { index = contextIdToIndex(ContextId{0}); }), ElementsAre("Invalid contextId"));
    EXPECT_EQ(index, UINT64_MAX) << "The arithmetic goes on after the assert";
}

TEST(LifetimeObjectHandleTest, PackedWordCarriesTheContextInTheTopByte)
{
    struct Row
    {
        uint64_t value;
        uint8_t context;
        uint64_t packed;
    };
    const Row rows[] = {
        {0x0000000000000000ull, 0, 0x0000000000000000ull},
        {0x0000000100000002ull, 1, 0x0100000100000002ull},
        {0x00FFFFFFFFFFFFFFull, 0, 0x00FFFFFFFFFFFFFFull},
        {0x00ABCDEF12345678ull, 255, 0xFFABCDEF12345678ull},
    };
    for (const Row& row : rows)
    {
        const ObjectHandle handle(static_cast<ObjectHandleValue>(row.value), ContextId{row.context});
        EXPECT_EQ(handle.toU64(), row.packed);
        const ObjectHandle unpacked(row.packed);
        EXPECT_EQ(unpacked, handle);
        EXPECT_EQ(static_cast<uint64_t>(unpacked.value), row.value);
        EXPECT_EQ(unpacked.contextId.value, row.context);
    }
}

TEST(LifetimeObjectHandleTest, EmptyLooksAtTheIdAlone)
{
    EXPECT_TRUE(ObjectHandle().empty());
    EXPECT_EQ(ObjectHandle().value, NULL_OBJECT_HANDLE_VALUE);
    EXPECT_EQ(ObjectHandle().contextId.value, 0);
    EXPECT_TRUE(ObjectHandle(ObjectHandleValue{0x00000005FFFFFFFFull}, ContextId{3}).empty());
    EXPECT_FALSE(ObjectHandle(ObjectHandleValue{0x00FFFFFF00000000ull}, ContextId{0}).empty());
    EXPECT_FALSE(ObjectHandle(ObjectHandleValue{0}, ContextId{0}).empty());
}

TEST(LifetimeObjectHandleTest, HashFoldsTheHalvesOfThePackedWord)
{
    const std::hash<ObjectHandle> hash;
    // hi = 0x01000002, lo = 0x00000003: ((hi << 6) + (hi >> 2) + 0x9E3779B9 + lo) ^ hi.
    EXPECT_EQ(hash(ObjectHandle(0x0100000200000003ull)), 0xDF777A3Eull);
    EXPECT_NE(hash(ObjectHandle(ObjectHandleValue{5}, ContextId{1})),
              hash(ObjectHandle(ObjectHandleValue{5}, ContextId{2})));
}

TEST(LifetimeObjectHandleTest, EntityTraitsSplitIdAndVersion)
{
    using Traits = entt::entt_traits<ObjectHandleValue>;
    EXPECT_EQ(Traits::page_size, 4096u);
    EXPECT_EQ(Traits::entity_mask, 0xFFFFFFFFull);
    EXPECT_EQ(Traits::version_mask, 0xFFFFFFull);
    const ObjectHandleValue value = Traits::construct(0x12345678u, 0xABCDEFu);
    EXPECT_EQ(static_cast<uint64_t>(value), 0x00ABCDEF12345678ull);
    EXPECT_EQ(Traits::to_entity(value), 0x12345678u);
    EXPECT_EQ(Traits::to_version(value), 0xABCDEFu);
    EXPECT_EQ(static_cast<ObjectHandleValue>(entt::null), NULL_OBJECT_HANDLE_VALUE);
}

TEST(LifetimeObjectHandleTest, ARecycledIdComesBackWithTheNextVersion)
{
    entt::basic_registry<ObjectHandleValue> registry;
    const ObjectHandleValue first = registry.create();
    EXPECT_EQ(static_cast<uint64_t>(first), 0u);
    registry.destroy(first);
    const ObjectHandleValue second = registry.create();
    EXPECT_EQ(static_cast<uint64_t>(second), 0x0000000100000000ull);
    EXPECT_FALSE(registry.valid(first));
    EXPECT_TRUE(registry.valid(second));
}

TEST(LifetimeRegistryReferenceTest, SettingATakenSlotAssertsAndOverwrites)
{
    int first = 0;
    int second = 0;
    auto* firstRegistry = reinterpret_cast<LifetimeRegistry*>(&first);
    auto* secondRegistry = reinterpret_cast<LifetimeRegistry*>(&second);
    auto reference = std::make_unique<LifetimeRegistryReference>();
    reference->set(firstRegistry);
    EXPECT_THAT(collectAsserts([&] { reference->set(secondRegistry); }),
                ElementsAre("LifetimeRegistryReference already set"));
    EXPECT_EQ(reference->getRegistry(), secondRegistry);
    EXPECT_EQ(reference->getGeneration(), 0u);
    EXPECT_THAT(collectAsserts([&] { reference.reset(); }),
                ElementsAre("Expected lifetime registry to be null when destroying lifetime registry reference"));
}

TEST(LifetimeRegistryReferenceTest, EachDeathOfARegistryMovesTheGenerationOn)
{
    LifetimeRegistryReference reference;
    for (uint32_t generation = 0; generation < 3; ++generation)
    {
        EXPECT_EQ(reference.getGeneration(), generation);
        LifetimeRegistry registry(ContextId{4}, reference);
        EXPECT_EQ(reference.getRegistry(), &registry);
        const WeakLifetimeScope scope(&reference);
        EXPECT_EQ(scope.getContextId().value, 4);
    }
    EXPECT_EQ(reference.getGeneration(), 3u);
    EXPECT_EQ(reference.getRegistry(), nullptr);
}

TEST(LifetimeRegistryManagerTest, IdsOfDeadRegistriesComeBackHighestFirstWhateverTheOrderOfDeath)
{
    for (const bool lowerDiesFirst : {true, false})
    {
        RegistryManager manager;
        std::vector<std::unique_ptr<LifetimeRegistry>> registries;
        for (int i = 0; i < 5; ++i)
        {
            registries.push_back(manager.createLifetimeRegistry());
        }
        // Ids 2 and 4 die.
        if (lowerDiesFirst)
        {
            registries[1].reset();
            registries[3].reset();
        }
        else
        {
            registries[3].reset();
            registries[1].reset();
        }
        std::vector<int> ids;
        for (int i = 0; i < 3; ++i)
        {
            registries.push_back(manager.createLifetimeRegistry());
            ids.push_back(registries.back()->getContextId().value);
        }
        EXPECT_THAT(ids, ElementsAre(4, 2, 6)) << (lowerDiesFirst ? "2 died first" : "4 died first");
    }
}

TEST(LifetimeRegistryManagerTest, IdZeroAssertsAndFindsNoRegistry)
{
    RegistryManager manager;
    const auto registry = manager.createLifetimeRegistry();
    LifetimeRegistry* found = registry.get();
    EXPECT_THAT(collectAsserts([&] { found = manager.getRegistry(ContextId{0}); }), ElementsAre("Invalid contextId"));
    EXPECT_EQ(found, nullptr);
    EXPECT_EQ(manager.getRegistry(ContextId{2}), nullptr);
    EXPECT_EQ(manager.getRegistry(ContextId{1}), registry.get());
}

TEST(LifetimeHandleCacheTest, UnknownTypesAndKeysAreNotFound)
{
    HandleCache cache;
    EXPECT_FALSE(cache._find(1, 2).has_value());
    EXPECT_EQ(cache._findType(1), nullptr);
    // Removing what was never added does nothing.
    cache.removeHandle(ObjectHandle(ObjectHandleValue{3}, ContextId{1}));
    cache._remove(1, 2);

    const ObjectHandle handle(ObjectHandleValue{3}, ContextId{1});
    cache._add(1, 2, handle);
    EXPECT_FALSE(cache._find(1, 3).has_value());
    EXPECT_FALSE(cache._find(2, 2).has_value()) << "A key is found under its own type only";
    EXPECT_EQ(cache._find(1, 2), handle);
    cache.removeHandle(handle);
}

TEST(LifetimeHandleCacheTest, ATypeKeepsItsEmptyMapAfterItsLastKeyLeaves)
{
    HandleCache cache;
    const ObjectHandle first(ObjectHandleValue{1}, ContextId{1});
    const ObjectHandle second(ObjectHandleValue{2}, ContextId{1});
    cache._add(7, 100, first);
    cache._add(7, 200, second);
    ASSERT_NE(cache._findType(7), nullptr);
    EXPECT_EQ(cache._findType(7)->size(), 2u);
    cache._remove(7, 100);
    cache.removeHandle(second);
    ASSERT_NE(cache._findType(7), nullptr);
    EXPECT_TRUE(cache._findType(7)->empty());
    EXPECT_FALSE(cache._find(7, 200).has_value());
}

// Random inserts and erasures over a small pool of keys, so that runs form, wrap past the end of the table and
// are shifted back by erasures; every key of the pool is checked against a plain map after every step.
TEST(LifetimeHashSlotTableTest, AgreesWithAMapThroughInsertsAndErasures)
{
    std::vector<uint64_t> pool = {0, UINT64_MAX, 1, 2, 3, 0x8000000000000000ull};
    std::mt19937_64 random(7);
    while (pool.size() < 96)
    {
        pool.push_back(random());
    }
    internal::HashSlotTable<int> table;
    std::unordered_map<uint64_t, int> model;
    std::uniform_int_distribution<size_t> pick(0, pool.size() - 1);
    for (int step = 0; step < 4000; ++step)
    {
        const uint64_t key = pool[pick(random)];
        if (random() % 3 != 0)
        {
            bool inserted = false;
            int& value = table.emplace(key, key, step, inserted);
            const auto [entry, modelInserted] = model.emplace(key, step);
            ASSERT_EQ(inserted, modelInserted) << "step " << step;
            ASSERT_EQ(value, entry->second) << "an existing key keeps its value";
        }
        else
        {
            ASSERT_EQ(table.erase(key, key), model.erase(key) == 1) << "step " << step;
        }
        ASSERT_EQ(table.size(), model.size());
        for (const uint64_t probe : pool)
        {
            const int* found = table.find(probe, probe);
            const auto expected = model.find(probe);
            ASSERT_EQ(found != nullptr, expected != model.end()) << "step " << step << ", key " << probe;
            if (found != nullptr)
            {
                ASSERT_EQ(*found, expected->second);
            }
        }
    }
}

// Keys are hash-like and distinct; places come from each case's rule. Every third key is erased again, and
// every key, erased or never added, is then looked up against a plain map.
TEST(LifetimeHashSlotTableTest, PlacesDecideHomesButHashesDecideIdentity)
{
    struct Case
    {
        const char* name;
        std::function<uint64_t(uint64_t)> place;
        bool scrambles;
    };
    const std::vector<Case> cases = {
        {"keys in order", [](uint64_t i) { return i; }, false},
        {"keys in order, far from zero", [](uint64_t i) { return 0xFFFFFFFF00000000ull + i; }, false},
        {"a stride of a power of two piles homes up", [](uint64_t i) { return i << 20; }, true},
        {"one place for every key", [](uint64_t) { return uint64_t{42}; }, true},
    };
    constexpr uint64_t COUNT = 3000;
    const auto keyOf = [](uint64_t i) { return (i + 1) * 0x9E3779B97F4A7C15ull; };
    for (const Case& testCase : cases)
    {
        SCOPED_TRACE(testCase.name);
        internal::HashSlotTable<uint64_t> table;
        std::unordered_map<uint64_t, uint64_t> model;
        for (uint64_t i = 0; i < COUNT; ++i)
        {
            bool inserted = false;
            table.emplace(keyOf(i), testCase.place(i), i, inserted);
            ASSERT_TRUE(inserted);
            model.emplace(keyOf(i), i);
        }
        for (uint64_t i = 0; i < COUNT; i += 3)
        {
            ASSERT_TRUE(table.erase(keyOf(i), testCase.place(i)));
            model.erase(keyOf(i));
        }
        EXPECT_EQ(table.isScrambled(), testCase.scrambles);
        ASSERT_EQ(table.size(), model.size());
        for (uint64_t i = 0; i < COUNT * 2; ++i)
        {
            const uint64_t* found = table.find(keyOf(i), testCase.place(i));
            const auto expected = model.find(keyOf(i));
            ASSERT_EQ(found != nullptr, expected != model.end()) << "key " << i;
            if (found != nullptr)
            {
                ASSERT_EQ(*found, expected->second);
            }
        }
        bool inserted = true;
        EXPECT_EQ(table.emplace(keyOf(1), testCase.place(1), 999, inserted), 1u) << "an existing key keeps its value";
        EXPECT_FALSE(inserted);
        EXPECT_FALSE(table.erase(keyOf(0), testCase.place(0))) << "erased already";
    }
}

TEST(LifetimeHandleCacheTest, ManyHandlesKeepTheirKeysThroughGrowthAndRemoval)
{
    HandleCache cache;
    constexpr uint64_t TYPE = 11;
    // The top context and a large version: the whole handle must come back out of the cache.
    const auto handleOf = [](uint64_t i)
    { return ObjectHandle(static_cast<ObjectHandleValue>((0xABCDEFull << 32) | i), ContextId{255}); };
    constexpr uint64_t COUNT = 1000;
    for (uint64_t i = 0; i < COUNT; ++i)
    {
        cache._add(TYPE, i * 0x10000, handleOf(i));
    }
    cache._add(TYPE + 1, 0, handleOf(COUNT));
    for (uint64_t i = 0; i < COUNT; i += 2)
    {
        cache.removeHandle(handleOf(i));
    }
    ASSERT_NE(cache._findType(TYPE), nullptr);
    EXPECT_EQ(cache._findType(TYPE)->size(), COUNT / 2);
    for (uint64_t i = 0; i < COUNT; ++i)
    {
        const std::optional<ObjectHandle> found = cache._find(TYPE, i * 0x10000);
        if (i % 2 == 0)
        {
            EXPECT_FALSE(found.has_value()) << i;
        }
        else
        {
            EXPECT_EQ(found, handleOf(i)) << i;
        }
    }
    EXPECT_EQ(cache._find(TYPE + 1, 0), handleOf(COUNT));
    for (uint64_t i = 1; i < COUNT; i += 2)
    {
        cache.removeHandle(handleOf(i));
    }
    cache.removeHandle(handleOf(COUNT));
    EXPECT_TRUE(cache._findType(TYPE)->empty());
    EXPECT_FALSE(cache._find(TYPE + 1, 0).has_value());
}

TEST(LifetimeHandleCacheTest, TwoKeysOfOneHandleLeaveTheReverseEntryOfTheSecond)
{
    std::vector<std::string> asserted;
    {
        HandleCache cache;
        const ObjectHandle handle(ObjectHandleValue{9}, ContextId{2});
        cache._add(1, 10, handle);
        cache._add(1, 20, handle);
        cache.removeHandle(handle);
        EXPECT_EQ(cache._find(1, 10), handle) << "The first key is no longer known from the handle";
        EXPECT_FALSE(cache._find(1, 20).has_value());

        // The forward entry left behind has no reverse entry any more.
        asserted = collectAsserts([&] { cache._remove(1, 10); });
        EXPECT_FALSE(cache._find(1, 10).has_value()) << "The forward entry goes all the same";
    }
    EXPECT_THAT(asserted, ElementsAre("Expected handle to remove from reverse map"));
}

TEST(LifetimeHandleCacheTest, AKeyAddedTwiceAssertsAndKeepsTheFirstHandle)
{
    const ObjectHandle first(ObjectHandleValue{1}, ContextId{1});
    const ObjectHandle second(ObjectHandleValue{2}, ContextId{1});
    auto cache = std::make_unique<HandleCache>();
    cache->_add(5, 6, first);
    EXPECT_THAT(collectAsserts([&] { cache->_add(5, 6, second); }),
                ElementsAre("Trying to add a key that already exists into the handle cache!"));
    EXPECT_EQ(cache->_find(5, 6), first);
    cache->removeHandle(first);
    // The second handle got its reverse entry, which nothing can reach now: the cache reports the leak.
    EXPECT_THAT(collectAsserts([&] { cache.reset(); }),
                ElementsAre("There are handles remaining in the handle cache but the handle cache is being destroyed, "
                            "this mean they are being leaked!"));
}
} // namespace
