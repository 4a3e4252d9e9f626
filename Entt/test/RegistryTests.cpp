#include <cstddef>
#include <cstdint>
#include <mutex>
#include <set>
#include <utility>
#include <vector>

#include <entt/entity/component.hpp>
#include <entt/entity/entity.hpp>
#include <entt/entity/registry.hpp>
#include <entt/entity/storage.hpp>
#include <entt/entity/view.hpp>
#include <gtest/gtest.h>

namespace
{
// The library's handle layout: 32 id bits and 24 version bits in a 64-bit word.
enum class Handle : std::uint64_t
{
};

struct HandleTraits
{
    using value_type = Handle;
    using entity_type = std::uint64_t;
    using version_type = std::uint32_t;
    static constexpr entity_type entity_mask = 0xFFFFFFFF;
    static constexpr entity_type version_mask = 0xFFFFFF;
};
} // namespace

template <>
struct entt::entt_traits<Handle> : entt::basic_entt_traits<HandleTraits>
{
    static constexpr std::size_t page_size = 4096;
};

namespace
{
using Registry = entt::basic_registry<Handle>;
using Traits = entt::entt_traits<Handle>;

constexpr Handle makeHandle(std::uint64_t id, std::uint32_t version)
{
    return Traits::construct(id, version);
}

TEST(EnttRegistry, CustomTraitsSplitTheWordAsDeclared)
{
    EXPECT_EQ(static_cast<std::uint64_t>(makeHandle(5u, 7u)), (7ull << 32u) | 5ull);
    EXPECT_EQ(Traits::to_entity(makeHandle(5u, 7u)), 5u);
    EXPECT_EQ(Traits::to_version(makeHandle(5u, 7u)), 7u);
    EXPECT_EQ(Traits::to_version(makeHandle(5u, 0x1FFFFFFu)), 0xFFFFFFu) << "versions are 24 bits";

    const Handle null = entt::null;
    EXPECT_EQ(static_cast<std::uint64_t>(null), 0x00FFFFFFFFFFFFFFull);
    EXPECT_TRUE(makeHandle(0xFFFFFFFFu, 3u) == entt::null) << "null is decided by the id bits alone";
    EXPECT_FALSE(makeHandle(1u, 3u) == entt::null);
    EXPECT_TRUE(makeHandle(1u, 0xFFFFFFu) == entt::tombstone) << "the tombstone by the version bits alone";

    // The next version never is the tombstone one.
    EXPECT_EQ(Traits::to_version(Traits::next(makeHandle(1u, 3u))), 4u);
    EXPECT_EQ(Traits::to_version(Traits::next(makeHandle(1u, 0xFFFFFEu))), 0u);
    EXPECT_EQ(Traits::to_entity(Traits::next(makeHandle(9u, 0xFFFFFEu))), 9u);
}

TEST(EnttRegistry, DestroyedIdsComeBackWithTheNextVersion)
{
    Registry registry;
    const Handle first = registry.create();
    const Handle second = registry.create();
    const Handle third = registry.create();
    EXPECT_EQ(first, makeHandle(0u, 0u));
    EXPECT_EQ(second, makeHandle(1u, 0u));
    EXPECT_EQ(third, makeHandle(2u, 0u));

    EXPECT_EQ(registry.destroy(second), 1u);
    EXPECT_FALSE(registry.valid(second));
    EXPECT_EQ(registry.current(second), 1u);
    EXPECT_EQ(registry.destroy(third), 1u);

    // The most recently released id is reused first, with its new version.
    const Handle reused = registry.create();
    EXPECT_EQ(reused, makeHandle(2u, 1u));
    EXPECT_EQ(registry.create(), makeHandle(1u, 1u));
    EXPECT_EQ(registry.create(), makeHandle(3u, 0u));

    // An old handle stays dead although its id lives again.
    EXPECT_FALSE(registry.valid(third));
    EXPECT_TRUE(registry.valid(reused));
    EXPECT_EQ(registry.current(makeHandle(77u, 0u)), 0xFFFFFFu) << "an unknown id has the tombstone version";

    registry.destroy(reused, 41u);
    EXPECT_EQ(registry.current(reused), 41u);
    EXPECT_EQ(registry.create(), makeHandle(2u, 41u));

    // A hint far beyond the first sparse page is honoured.
    const Handle hinted = registry.create(makeHandle(10000u, 5u));
    EXPECT_EQ(hinted, makeHandle(10000u, 5u));
    EXPECT_TRUE(registry.valid(hinted));
    registry.emplace<int>(hinted, 3);
    EXPECT_EQ(registry.get<int>(hinted), 3);
    EXPECT_NE(registry.create(), hinted);
}

struct Logged
{
    Logged(std::vector<int>* log, Registry* registry, Handle owner, int tag)
        : log{log}, registry{registry}, owner{owner}, tag{tag}
    {
    }
    Logged(Logged&& other) noexcept
        : log{std::exchange(other.log, nullptr)}, registry{other.registry}, owner{other.owner}, tag{other.tag}
    {
    }
    Logged& operator=(Logged&& other) noexcept
    {
        log = std::exchange(other.log, nullptr);
        registry = other.registry;
        owner = other.owner;
        tag = other.tag;
        return *this;
    }
    ~Logged()
    {
        if (log != nullptr)
        {
            // The entity is still alive while its components go.
            log->push_back(registry->valid(owner) ? tag : -tag);
        }
    }

    std::vector<int>* log;
    Registry* registry;
    Handle owner;
    int tag;
};

template <int N>
struct LoggedAs : Logged
{
    using Logged::Logged;
};

TEST(EnttRegistry, DestroyGoesThroughStoragesNewestFirst)
{
    Registry registry;
    std::vector<int> log;

    // Storages are made in the order 1, 2, 3 by a first entity...
    const Handle early = registry.create();
    registry.emplace<LoggedAs<1>>(early, nullptr, &registry, early, 1);
    registry.emplace<LoggedAs<2>>(early, nullptr, &registry, early, 2);
    registry.emplace<LoggedAs<3>>(early, nullptr, &registry, early, 3);

    // ...and filled in another order for the second.
    const Handle entity = registry.create();
    registry.emplace<LoggedAs<2>>(entity, &log, &registry, entity, 2);
    registry.emplace<LoggedAs<3>>(entity, &log, &registry, entity, 3);
    registry.emplace<LoggedAs<1>>(entity, &log, &registry, entity, 1);

    registry.destroy(entity);
    EXPECT_EQ(log, (std::vector<int>{3, 2, 1}));
    EXPECT_TRUE((registry.all_of<LoggedAs<1>, LoggedAs<2>, LoggedAs<3>>(early)));
}

struct Link
{
    Registry* registry;
    Handle target;
    int value;

    Link(Registry* r, Handle t, int v) : registry{r}, target{t}, value{v} {}
    Link(Link&& other) noexcept
        : registry{other.registry}, target{std::exchange(other.target, Handle(entt::null))}, value{other.value}
    {
    }
    Link& operator=(Link&& other) noexcept
    {
        registry = other.registry;
        target = std::exchange(other.target, Handle(entt::null));
        value = other.value;
        return *this;
    }
    ~Link()
    {
        // Like a handle releasing the last reference of another object.
        if (target != entt::null && registry->valid(target))
        {
            registry->destroy(target);
        }
    }
};

struct Phoenix
{
    Registry* registry;
    int generation;
    bool armed;

    Phoenix(Registry* r, int g) : registry{r}, generation{g}, armed{true} {}
    Phoenix(Phoenix&& other) noexcept
        : registry{other.registry}, generation{other.generation}, armed{std::exchange(other.armed, false)}
    {
    }
    Phoenix& operator=(Phoenix&& other) noexcept
    {
        registry = other.registry;
        generation = other.generation;
        armed = std::exchange(other.armed, false);
        return *this;
    }
    ~Phoenix()
    {
        if (armed && generation == 0)
        {
            const Handle next = registry->create();
            registry->emplace<Phoenix>(next, registry, generation + 1);
        }
    }
};

TEST(EnttRegistry, ComponentDestructorsMayUseTheRegistry)
{
    Registry registry;
    const Handle bystander = registry.create();
    registry.emplace<Link>(bystander, &registry, Handle(entt::null), 7);

    // a -> b -> c: destroying a takes the others along, from inside the same storage.
    const Handle a = registry.create();
    const Handle b = registry.create();
    const Handle c = registry.create();
    registry.emplace<Link>(c, &registry, Handle(entt::null), 3);
    registry.emplace<Link>(b, &registry, c, 2);
    registry.emplace<Link>(a, &registry, b, 1);

    registry.destroy(a);
    EXPECT_FALSE(registry.valid(a));
    EXPECT_FALSE(registry.valid(b));
    EXPECT_FALSE(registry.valid(c));
    ASSERT_EQ(registry.storage<Link>().size(), 1u);
    EXPECT_EQ(registry.get<Link>(bystander).value, 7);

    // A destructor that adds a component of its own type while being removed.
    const Handle phoenix = registry.create();
    registry.emplace<Phoenix>(phoenix, &registry, 0);
    registry.destroy(phoenix);
    const auto& phoenixes = registry.storage<Phoenix>();
    ASSERT_EQ(phoenixes.size(), 1u);
    const Handle reborn = *phoenixes.data();
    EXPECT_TRUE(registry.valid(reborn));
    EXPECT_EQ(registry.get<Phoenix>(reborn).generation, 1);
}

// Not movable: removal must leave a hole instead of moving the others.
struct Pinned
{
    explicit Pinned(int v) : value{v} {}
    Pinned(const Pinned&) = delete;
    Pinned& operator=(const Pinned&) = delete;

    int value;
    std::mutex guard;
};

template <typename Storage>
std::vector<Handle> liveBackToFront(const Storage& storage)
{
    std::vector<Handle> result;
    const Handle* packed = storage.data();
    for (auto pos = storage.size(); pos > 0u; --pos)
    {
        if (packed[pos - 1u] != entt::tombstone)
        {
            result.push_back(packed[pos - 1u]);
        }
    }
    return result;
}

TEST(EnttRegistry, StoragesIterateBackToFrontAndKeepHolesOfPinnedTypes)
{
    Registry registry;
    std::vector<Handle> entities(5u);
    for (std::size_t i = 0; i < entities.size(); ++i)
    {
        entities[i] = registry.create();
        registry.emplace<int>(entities[i], static_cast<int>(i));
        registry.emplace<Pinned>(entities[i], static_cast<int>(i));
    }

    // Swap-and-pop: the last element fills the hole.
    registry.erase<int>(entities[1]);
    const auto& numbers = registry.storage<int>();
    const std::vector<Handle> expected{entities[3], entities[2], entities[4], entities[0]};
    EXPECT_EQ(liveBackToFront(numbers), expected);
    std::vector<Handle> visited;
    for (auto [entity, value] : registry.storage<int>().each())
    {
        visited.push_back(entity);
        EXPECT_EQ(static_cast<std::size_t>(value), Traits::to_entity(entity));
    }
    EXPECT_EQ(visited, expected);

    // In place: a tombstone stays, nothing moves, the hole is reused.
    Pinned* last = &registry.get<Pinned>(entities[4]);
    registry.erase<Pinned>(entities[1]);
    const auto& pinned = registry.storage<Pinned>();
    EXPECT_EQ(pinned.size(), 5u);
    EXPECT_TRUE(pinned.data()[1] == entt::tombstone);
    EXPECT_EQ(liveBackToFront(pinned), (std::vector<Handle>{entities[4], entities[3], entities[2], entities[0]}));
    EXPECT_EQ(&registry.get<Pinned>(entities[4]), last);

    std::vector<Handle> viewed;
    for (const Handle entity : registry.view<Pinned>())
    {
        viewed.push_back(entity);
    }
    EXPECT_EQ(viewed, liveBackToFront(pinned));

    const Handle late = registry.create();
    registry.emplace<Pinned>(late, 99);
    EXPECT_EQ(pinned.data()[1], late);
    EXPECT_EQ(registry.get<Pinned>(late).value, 99);
    EXPECT_EQ(registry.get<Pinned>(entities[4]).value, 4);
}

struct PagedMember
{
    static constexpr std::size_t page_size = 128;
    int value;
};

struct PagedByTraits
{
    int value;
};
} // namespace

template <>
struct entt::component_traits<PagedByTraits>
{
    using type = PagedByTraits;
    static constexpr bool in_place_delete = false;
    static constexpr std::size_t page_size = 128;
};

namespace
{
template <typename Component>
void expectPagesOf128KeepAddresses()
{
    static_assert(entt::component_traits<Component>::page_size == 128u);
    Registry registry;
    std::vector<Handle> entities;
    for (int i = 0; i < 300; ++i)
    {
        entities.push_back(registry.create());
        registry.emplace<Component>(entities.back(), i);
    }
    const Component* first = &registry.get<Component>(entities.front());
    EXPECT_EQ(registry.storage<Component>().capacity(), 3u * 128u) << "pages are added one at a time";

    for (int i = 0; i < 1000; ++i)
    {
        registry.emplace<Component>(registry.create(), i);
    }

    // Pages never move, and within a page components sit next to each other.
    EXPECT_EQ(&registry.get<Component>(entities.front()), first);
    EXPECT_EQ(&registry.get<Component>(entities[127]), first + 127);
    EXPECT_EQ(registry.get<Component>(entities[299]).value, 299);
}

// With and without the entity, over partial and whole pages, after a swap-and-pop: each component once, in the
// storage's order, writable through a mutable view.
TEST(EnttRegistry, SingleTypeViewVisitsEveryComponentInStorageOrder)
{
    for (const int count : {0, 1, 127, 128, 129, 300})
    {
        Registry registry;
        std::vector<Handle> entities;
        for (int i = 0; i < count; ++i)
        {
            entities.push_back(registry.create());
            registry.emplace<PagedMember>(entities.back(), i);
        }
        if (count > 1)
        {
            registry.erase<PagedMember>(entities[0]);
        }

        std::vector<int> withEntity;
        registry.view<PagedMember>().each(
            [&](const Handle entity, const PagedMember& component)
            {
                EXPECT_EQ(static_cast<int>(Traits::to_entity(entity)), component.value);
                withEntity.push_back(component.value);
            });
        std::vector<int> alone;
        registry.view<PagedMember>().each([&](PagedMember& component) { alone.push_back(component.value++); });
        EXPECT_EQ(alone, withEntity) << count << " components";
        EXPECT_EQ(alone.size(), registry.storage<PagedMember>().size());

        std::vector<int> throughConst;
        std::as_const(registry).view<const PagedMember>().each([&](const PagedMember& component)
                                                               { throughConst.push_back(component.value - 1); });
        EXPECT_EQ(throughConst, alone) << "the mutable view wrote each component once";
    }
}

TEST(EnttRegistry, PackedPageSizeComesFromTheComponentOrItsTraits)
{
    expectPagesOf128KeepAddresses<PagedMember>();
    expectPagesOf128KeepAddresses<PagedByTraits>();
    static_assert(entt::component_traits<int>::page_size == ENTT_PACKED_PAGE);
    static_assert(entt::component_traits<Pinned>::in_place_delete);
    static_assert(!entt::component_traits<int>::in_place_delete);
}

// Movable, but asks to be deleted in place: compact may then move it into the holes.
struct Stable
{
    static constexpr bool in_place_delete = true;
    int value;
};

TEST(EnttRegistry, CompactClearAndHintsKeepIdsAndComponentsConsistent)
{
    Registry registry;
    std::vector<Handle> entities;
    for (int i = 0; i < 6; ++i)
    {
        entities.push_back(registry.create());
        registry.emplace<Stable>(entities.back(), i);
    }
    registry.erase<Stable>(entities[0]);
    registry.erase<Stable>(entities[3]);
    auto& stable = registry.storage<Stable>();
    ASSERT_EQ(stable.size(), 6u);

    registry.compact<Stable>();
    EXPECT_EQ(stable.size(), 4u);
    EXPECT_EQ(liveBackToFront(stable).size(), 4u);
    for (const int i : {1, 2, 4, 5})
    {
        EXPECT_EQ(registry.get<Stable>(entities[static_cast<std::size_t>(i)]).value, i);
    }

    // A released id can be asked for with any version; an id in use cannot.
    registry.destroy(entities[2]);
    EXPECT_EQ(registry.create(makeHandle(2u, 7u)), makeHandle(2u, 7u));
    const Handle other = registry.create(entities[1]);
    EXPECT_NE(Traits::to_entity(other), Traits::to_entity(entities[1]));

    registry.clear();
    for (const Handle entity : entities)
    {
        EXPECT_FALSE(registry.valid(entity));
    }
    EXPECT_TRUE(stable.empty());
    const Handle fresh = registry.create();
    EXPECT_EQ(Traits::to_version(fresh), registry.current(fresh));
    EXPECT_NE(Traits::to_version(fresh), 0u) << "every id was released once by clear";
}

struct Tag
{
};

TEST(EnttRegistry, QueriesAndViewsSeeExactlyTheMatchingEntities)
{
    Registry registry;
    const Handle both = registry.create();
    const Handle onlyInt = registry.create();
    const Handle excluded = registry.create();

    registry.emplace<int>(both, 1);
    registry.emplace<double>(both, 1.5);
    registry.emplace<Tag>(both);
    registry.emplace<int>(onlyInt, 2);
    registry.emplace<int>(excluded, 3);
    registry.emplace<double>(excluded, 3.5);
    registry.emplace<char>(excluded, 'x');

    EXPECT_TRUE((registry.all_of<int, double>(both)));
    EXPECT_FALSE((registry.all_of<int, double>(onlyInt)));
    EXPECT_TRUE((registry.any_of<double, char>(both)));
    EXPECT_FALSE((registry.any_of<double, char>(onlyInt)));

    auto [number, real] = registry.get<int, double>(both);
    number = 10;
    EXPECT_EQ(registry.get<int>(both), 10);
    EXPECT_EQ(real, 1.5);
    EXPECT_EQ(registry.try_get<double>(onlyInt), nullptr);
    EXPECT_EQ(registry.get_or_emplace<double>(onlyInt, 2.5), 2.5);
    EXPECT_EQ(*registry.try_get<double>(onlyInt), 2.5);

    std::set<std::pair<int, double>> seen;
    registry.view<int, double>(entt::exclude<char>)
        .each(
            [&](const Handle entity, int& i, double& d)
            {
                EXPECT_NE(entity, excluded);
                seen.emplace(i, d);
            });
    EXPECT_EQ(seen, (std::set<std::pair<int, double>>{{10, 1.5}, {2, 2.5}}));

    int tagged = 0;
    registry.view<int, Tag>().each(
        [&](int& value)
        {
            ++tagged;
            EXPECT_EQ(value, 10);
        });
    EXPECT_EQ(tagged, 1);

    EXPECT_EQ((registry.remove<int, char, Tag>(excluded)), 2u);
    EXPECT_FALSE(registry.all_of<int>(excluded));
    registry.erase<double>(excluded);
    EXPECT_FALSE((registry.any_of<int, double, char>(excluded)));
    EXPECT_TRUE(registry.valid(excluded));

    // Asking a const registry about an unknown type creates no storage.
    std::size_t storages = 0;
    for ([[maybe_unused]] auto&& pool : registry.storage())
    {
        ++storages;
    }
    const Registry& constRegistry = registry;
    EXPECT_EQ(constRegistry.try_get<float>(both), nullptr);
    EXPECT_FALSE(constRegistry.all_of<float>(both));
    EXPECT_EQ(constRegistry.view<const float>().begin(), constRegistry.view<const float>().end());
    std::size_t constMatches = 0;
    constRegistry.view<const int, const double>().each([&](const int&, const double&) { ++constMatches; });
    EXPECT_EQ(constMatches, 2u);
    std::size_t after = 0;
    for ([[maybe_unused]] auto&& pool : registry.storage())
    {
        ++after;
    }
    EXPECT_EQ(after, storages);
}
} // namespace
