#include "Scripting/LifetimeRegistry/LifetimeRegistry.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <stdexcept>
#include <type_traits>
#include <vector>

namespace
{
using Scripting::ObjectHandleValue;
using Scripting::internal::EntityRegistry;
using Scripting::internal::ObjectRegistryUtilities;
using Scripting::internal::Stored;

// An element of a chosen size and alignment that counts the live ones of its kind, so that a storage that loses,
// doubles or forgets to destroy an element shows.
template <std::size_t Size, std::size_t Align, bool Movable, bool InPlace = false>
struct Element
{
    static constexpr bool in_place_delete = InPlace;
    static inline int sLive = 0;

    explicit Element(int value) : value(value) { ++sLive; }
    Element(Element&& other) noexcept requires Movable : value(other.value)
    {
        other.value = -1;
        ++sLive;
    }
    Element& operator=(Element&& other) noexcept requires Movable
    {
        value = other.value;
        other.value = -1;
        return *this;
    }
    Element(const Element&) = delete;
    Element& operator=(const Element&) = delete;
    ~Element() { --sLive; }

    alignas(Align) int value;
    std::byte padding[Size];
};

using Small = Element<4, alignof(int), true>;
using Pinned = Element<16, alignof(int), false>;
using OverAligned = Element<8, 64, true>;
// More than a removal's scratch room on the stack.
using Large = Element<400, alignof(int), true>;
using StaysPut = Element<8, alignof(int), true, true>;

template <typename T>
class ObjectStorageTest : public testing::Test
{
protected:
    ~ObjectStorageTest() override { registry.clear(); }

    EntityRegistry registry;
};

using Kinds = testing::Types<Small, Pinned, OverAligned, Large, StaysPut, int>;
TYPED_TEST_SUITE(ObjectStorageTest, Kinds);

template <typename T>
int valueOf(const T& element)
{
    if constexpr (std::is_same_v<T, int>)
    {
        return element;
    }
    else
    {
        return element.value;
    }
}

template <typename T>
int liveOf()
{
    if constexpr (std::is_same_v<T, int>)
    {
        return 0;
    }
    else
    {
        return T::sLive;
    }
}

// Objects over several pages, a third removed from everywhere in the storage, then more made: every survivor
// keeps its value, in-place kinds keep their address and reuse the holes, and nothing is left alive after clear.
TYPED_TEST(ObjectStorageTest, KeepsEveryValueThroughRemovalsAcrossPages)
{
    using T = TypeParam;
    constexpr int COUNT = 300;
    const int liveBefore = liveOf<T>();
    std::vector<ObjectHandleValue> entities;
    std::vector<const void*> addresses;
    for (int i = 0; i < COUNT; ++i)
    {
        entities.push_back(this->registry.create());
        T& made = ObjectRegistryUtilities::emplace<T>(this->registry, entities.back(), i);
        addresses.push_back(&made);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(&made) % alignof(T), 0u);
    }
    auto& storage = this->registry.template storage<Stored<T>>();
    EXPECT_GE(storage.capacity(), static_cast<std::size_t>(COUNT));

    for (int i = 0; i < COUNT; i += 3)
    {
        ObjectRegistryUtilities::remove<T>(this->registry, entities[static_cast<std::size_t>(i)]);
    }
    const std::size_t sizeAfterRemoval = storage.size();
    for (int i = 0; i < COUNT; ++i)
    {
        const ObjectHandleValue entity = entities[static_cast<std::size_t>(i)];
        T* found = ObjectRegistryUtilities::tryGet<T>(this->registry, entity);
        if (i % 3 == 0)
        {
            EXPECT_EQ(found, nullptr) << i;
            continue;
        }
        ASSERT_NE(found, nullptr) << i;
        EXPECT_EQ(valueOf(*found), i);
        EXPECT_EQ(storage.value(entity), found) << "The type-erased access finds the same element";
        if (entt::component_traits<Stored<T>>::in_place_delete)
        {
            EXPECT_EQ(static_cast<const void*>(found), addresses[static_cast<std::size_t>(i)]) << i;
        }
    }
    if constexpr (!std::is_same_v<T, int>)
    {
        EXPECT_EQ(liveOf<T>() - liveBefore, COUNT - (COUNT + 2) / 3);
    }

    const ObjectHandleValue extra = this->registry.create();
    ObjectRegistryUtilities::emplace<T>(this->registry, extra, 1000);
    EXPECT_EQ(storage.size(),
              entt::component_traits<Stored<T>>::in_place_delete ? sizeAfterRemoval : sizeAfterRemoval + 1)
        << "An in-place storage fills a hole before it grows";
    EXPECT_EQ(valueOf(*ObjectRegistryUtilities::tryGet<T>(this->registry, extra)), 1000);

    this->registry.clear();
    EXPECT_EQ(liveOf<T>(), liveBefore);
}

// A throwing constructor leaves the storage as it was, and the next object takes the slot.
TYPED_TEST(ObjectStorageTest, AThrowingConstructorLeavesNoElement)
{
    using T = TypeParam;
    const ObjectHandleValue first = this->registry.create();
    ObjectRegistryUtilities::emplace<T>(this->registry, first, 1);
    auto& storage = this->registry.template storage<Stored<T>>();
    const std::size_t size = storage.size();
    const int live = liveOf<T>();

    struct Boom
    {
        operator int() const { throw std::runtime_error("boom"); }
    };
    const ObjectHandleValue failed = this->registry.create();
    EXPECT_THROW(ObjectRegistryUtilities::emplace<T>(this->registry, failed, Boom{}), std::runtime_error);
    EXPECT_FALSE(storage.contains(failed));
    EXPECT_EQ(liveOf<T>(), live);

    ObjectRegistryUtilities::emplace<T>(this->registry, failed, 2);
    EXPECT_EQ(storage.size(), size + 1) << "An in-place storage's failed slot is a hole the next object fills";
    EXPECT_EQ(valueOf(*ObjectRegistryUtilities::tryGet<T>(this->registry, failed)), 2);
    EXPECT_EQ(valueOf(*ObjectRegistryUtilities::tryGet<T>(this->registry, first)), 1);
}

// What a destructor finds when it looks at its own storage: the element is gone from it already, and the last
// element stands whole in the hole, so that a destructor that reaches other objects (or makes new ones) works.
struct Watching
{
    static inline std::function<void(int)> sOnDestroy;

    explicit Watching(int value) : value(value) {}
    Watching(Watching&& other) noexcept : value(other.value) { other.value = -1; }
    Watching& operator=(Watching&& other) noexcept
    {
        value = other.value;
        other.value = -1;
        return *this;
    }
    ~Watching()
    {
        if (value >= 0 && sOnDestroy)
        {
            sOnDestroy(value);
        }
    }

    int value;
};

TEST(ObjectStorage, ARemovedElementDiesAfterItLeftItsStorage)
{
    EntityRegistry registry;
    std::vector<ObjectHandleValue> entities;
    for (int i = 0; i < 3; ++i)
    {
        entities.push_back(registry.create());
        ObjectRegistryUtilities::emplace<Watching>(registry, entities.back(), i);
    }
    std::vector<int> seenBackValues;
    bool containedWhileDying = true;
    Watching::sOnDestroy = [&](int value)
    {
        containedWhileDying =
            ObjectRegistryUtilities::has<Watching>(registry, entities[static_cast<std::size_t>(value)]);
        seenBackValues.push_back(ObjectRegistryUtilities::tryGet<Watching>(registry, entities[2])->value);
        // A destructor may make an object of its own type.
        const ObjectHandleValue made = registry.create();
        ObjectRegistryUtilities::emplace<Watching>(registry, made, 100 + value);
    };
    registry.destroy(entities[0]);
    Watching::sOnDestroy = nullptr;

    EXPECT_FALSE(containedWhileDying);
    EXPECT_EQ(seenBackValues, std::vector<int>{2}) << "The last element was moved into the hole before";
    EXPECT_EQ(ObjectRegistryUtilities::tryGet<Watching>(registry, entities[1])->value, 1);
    EXPECT_EQ(ObjectRegistryUtilities::tryGet<Watching>(registry, entities[2])->value, 2);
    EXPECT_EQ(registry.storage<Stored<Watching>>().size(), 3u);
}

TEST(ObjectStorage, CompactMovesInPlaceElementsIntoTheHoles)
{
    EntityRegistry registry;
    std::vector<ObjectHandleValue> entities;
    for (int i = 0; i < 6; ++i)
    {
        entities.push_back(registry.create());
        ObjectRegistryUtilities::emplace<StaysPut>(registry, entities.back(), i);
    }
    const int live = StaysPut::sLive;
    registry.remove<Stored<StaysPut>>(entities[1]);
    registry.remove<Stored<StaysPut>>(entities[3]);
    auto& storage = registry.storage<Stored<StaysPut>>();
    EXPECT_EQ(storage.size(), 6u) << "Holes stay until compacted";

    storage.compact();
    EXPECT_EQ(storage.size(), 4u);
    EXPECT_EQ(StaysPut::sLive, live - 2);
    for (int i : {0, 2, 4, 5})
    {
        EXPECT_EQ(ObjectRegistryUtilities::tryGet<StaysPut>(registry, entities[static_cast<std::size_t>(i)])->value, i);
    }
    EXPECT_EQ(ObjectRegistryUtilities::entitiesWith<StaysPut>(registry).size(), 4u);
    registry.clear();
    EXPECT_EQ(StaysPut::sLive, live - 6);
}

TEST(ObjectStorage, ShrinkingKeepsThePagesInUse)
{
    EntityRegistry registry;
    std::vector<ObjectHandleValue> entities;
    for (int i = 0; i < 300; ++i)
    {
        entities.push_back(registry.create());
        ObjectRegistryUtilities::emplace<Small>(registry, entities.back(), i);
    }
    for (int i = 0; i < 250; ++i)
    {
        ObjectRegistryUtilities::remove<Small>(registry, entities[static_cast<std::size_t>(i)]);
    }
    auto& storage = registry.storage<Stored<Small>>();
    storage.shrink_to_fit();
    EXPECT_EQ(storage.capacity(), Scripting::internal::ErasedStorage::PAGE_SIZE);
    for (int i = 250; i < 300; ++i)
    {
        EXPECT_EQ(ObjectRegistryUtilities::tryGet<Small>(registry, entities[static_cast<std::size_t>(i)])->value, i);
    }
    storage.reserve(1000);
    EXPECT_GE(storage.capacity(), 1000u);
    registry.clear();
}
} // namespace
