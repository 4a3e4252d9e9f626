// What the subset does differently from upstream EnTT 3.13, each row with what either answers. The rows run in
// both builds, so that a difference that goes away, or one that appears, fails here and in Entt/README.md's list.
#include <cstddef>
#include <memory>
#include <utility>

#include <entt/core/hashed_string.hpp>
#include <entt/core/type_info.hpp>
#include <entt/entity/registry.hpp>
#include <entt/entity/storage.hpp>
#include <entt/meta/factory.hpp>
#include <entt/meta/meta.hpp>
#include <entt/meta/resolve.hpp>
#include <gtest/gtest.h>

namespace
{
using namespace entt::literals;

constexpr bool UPSTREAM = SCRIPTING_ENTT_UPSTREAM != 0;

// Picks what the EnTT this test is built against answers.
template <typename T>
T expected(T subset, T upstream)
{
    return UPSTREAM ? upstream : subset;
}

struct Widget
{
    int value = 0;
    int twice() const { return 2 * value; }
};

struct Unique
{
    std::unique_ptr<int> value;
};

struct Stable
{
    static constexpr bool in_place_delete = true;
    int value = 0;
};

TEST(EnttDifferences, MovedFromReferenceAny)
{
    entt::meta_ctx ctx;
    Widget widget;
    for (const bool constant : {false, true})
    {
        entt::meta_any ref =
            constant ? entt::forward_as_meta(ctx, std::as_const(widget)) : entt::forward_as_meta(ctx, widget);
        const entt::meta_any target = std::move(ref);
        EXPECT_EQ(target.data(), &widget);
        const auto kept = constant ? entt::meta_any_policy::cref : entt::meta_any_policy::ref;
        EXPECT_EQ(ref.policy(), expected(entt::meta_any_policy::owner, kept)) << "const " << constant;
    }
}

TEST(EnttDifferences, CopyOfAnyWhoseTypeCannotBeCopied)
{
    entt::meta_ctx ctx;
    const entt::meta_any original{ctx, std::in_place_type<Unique>};
    const entt::meta_any copy = original; // NOLINT(performance-unnecessary-copy-initialization)
    EXPECT_EQ(copy.data(), nullptr);
    EXPECT_EQ(copy.type() == entt::resolve<Unique>(ctx), UPSTREAM) << "upstream keeps the type, without a value";
}

TEST(EnttDifferences, TypeMadeBeforeItsRegistration)
{
    entt::meta_ctx ctx;
    const entt::meta_type early = entt::resolve<Widget>(ctx);
    entt::meta<Widget>(ctx).type("widget"_hs).func<&Widget::twice>("twice"_hs);
    const entt::meta_type late = entt::resolve<Widget>(ctx);

    EXPECT_TRUE(late.func("twice"_hs));
    EXPECT_EQ(static_cast<bool>(early.func("twice"_hs)), !UPSTREAM) << "upstream keeps what it saw when made";
    EXPECT_EQ(late.id(), "widget"_hs);
    EXPECT_EQ(early.id(), expected<entt::id_type>("widget"_hs, entt::type_id<Widget>().hash()));

    entt::meta_reset<Widget>(ctx);
    EXPECT_FALSE(entt::resolve<Widget>(ctx).func("twice"_hs));
    EXPECT_EQ(static_cast<bool>(late.func("twice"_hs)), UPSTREAM) << "and after a reset, still sees it";
}

TEST(EnttDifferences, EachOfAnInPlaceStorageAfterAnErase)
{
    entt::registry registry;
    entt::entity entities[3];
    for (int i = 0; i < 3; ++i)
    {
        entities[i] = registry.create();
        registry.emplace<Stable>(entities[i], i);
    }
    auto& storage = registry.storage<Stable>();
    storage.erase(entities[1]);
    ASSERT_EQ(storage.size(), 3u) << "the erased component leaves a tombstone";
    std::size_t visited = 0;
    for ([[maybe_unused]] auto&& [entity, stable] : storage.each())
    {
        ++visited;
    }
    EXPECT_EQ(visited, expected<std::size_t>(2u, 3u)) << "upstream visits the tombstone's slot too";
}
} // namespace
