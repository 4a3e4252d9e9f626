#include "Scripting/Reflection/Reflection.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <optional>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

using namespace Scripting;

namespace
{
// Each case names its containers through element types no other test of the executable uses, so that the first
// resolve of the case is the one that describes them.
enum class Shade : short
{
    Dark = 1,
    Light = 2,
};
struct Plain
{
    int value = 0;
};

template <typename T>
struct Holder
{
};

TEST(ValueAdapters, NamedContainersAreDescribedByTheFirstResolve)
{
    ASSERT_EQ(Reflection::findSequenceAdapter(entt::resolve<std::vector<Shade>>(Reflection::context())), nullptr);
    ASSERT_EQ(Reflection::findOptionalAdapter(entt::resolve<std::optional<Shade>>(Reflection::context())), nullptr);
    // Only inside the arguments of a template and of a function pointer, a level down.
    Reflection::resolve<const Holder<std::tuple<int, void (*)(const std::vector<Shade>&, std::optional<Shade>)>>&>();

    const Reflection::SequenceAdapter* sequence =
        Reflection::findSequenceAdapter(Reflection::resolve<std::vector<Shade>>());
    const Reflection::OptionalAdapter* optional =
        Reflection::findOptionalAdapter(Reflection::resolve<std::optional<Shade>>());
    ASSERT_NE(sequence, nullptr);
    ASSERT_NE(optional, nullptr);
    EXPECT_EQ(sequence->element, Reflection::resolve<Shade>());
    EXPECT_EQ(optional->element, Reflection::resolve<Shade>());
    // The optional is not mistaken for a vector nor the other way round.
    EXPECT_EQ(Reflection::findSequenceAdapter(Reflection::resolve<std::optional<Shade>>()), nullptr);
    EXPECT_EQ(Reflection::findOptionalAdapter(Reflection::resolve<std::vector<Shade>>()), nullptr);
}

TEST(ValueAdapters, SequenceOperationsWorkOnTheVector)
{
    const Reflection::SequenceAdapter* sequence =
        Reflection::findSequenceAdapter(Reflection::resolve<std::vector<Plain>>());
    ASSERT_NE(sequence, nullptr);
    entt::meta_any vector = sequence->makeEmpty(2);
    entt::meta_any first{Reflection::context(), Plain{7}};
    entt::meta_any wrong{Reflection::context(), 3.5};
    EXPECT_TRUE(sequence->append(vector, first));
    EXPECT_FALSE(sequence->append(vector, wrong));
    ASSERT_EQ(sequence->size(vector), 1u);
    EXPECT_EQ(sequence->at(vector, 0).cast<const Plain&>().value, 7);
    EXPECT_FALSE(sequence->at(vector, 1));
    // Another type in the any: no size, no element, nothing appended.
    entt::meta_any other{Reflection::context(), 5};
    EXPECT_EQ(sequence->size(other), 0u);
    EXPECT_FALSE(sequence->at(other, 0));
    EXPECT_FALSE(sequence->append(other, first));
}

TEST(ValueAdapters, BooleanVectorHandsOutCopies)
{
    const Reflection::SequenceAdapter* sequence =
        Reflection::findSequenceAdapter(Reflection::resolve<std::vector<bool>>());
    ASSERT_NE(sequence, nullptr);
    entt::meta_any vector = sequence->makeEmpty(0);
    entt::meta_any yes{Reflection::context(), true};
    ASSERT_TRUE(sequence->append(vector, yes));
    const entt::meta_any element = sequence->at(vector, 0);
    ASSERT_EQ(element.type(), Reflection::resolve<bool>());
    EXPECT_TRUE(element.cast<bool>());
}

TEST(ValueAdapters, OptionalOperationsAndNesting)
{
    const auto* outer = Reflection::findOptionalAdapter(Reflection::resolve<std::optional<std::vector<Plain>>>());
    ASSERT_NE(outer, nullptr);
    // The vector inside was described with it.
    const auto* inner = Reflection::findSequenceAdapter(outer->element);
    ASSERT_NE(inner, nullptr);

    const entt::meta_any empty = outer->makeEmpty();
    EXPECT_FALSE(outer->value(empty));
    entt::meta_any vector = inner->makeEmpty(0);
    entt::meta_any element{Reflection::context(), Plain{4}};
    ASSERT_TRUE(inner->append(vector, element));
    const entt::meta_any engaged = outer->makeWith(vector);
    ASSERT_TRUE(engaged);
    const entt::meta_any held = outer->value(engaged);
    ASSERT_EQ(inner->size(held), 1u);
    EXPECT_EQ(inner->at(held, 0).cast<const Plain&>().value, 4);
    entt::meta_any wrong{Reflection::context(), 1};
    EXPECT_FALSE(outer->makeWith(wrong));
}

template <size_t N>
struct Tag
{
};

template <size_t... N>
void describeTags(std::index_sequence<N...>)
{
    (Reflection::resolve<std::vector<Tag<N>>>(), ...);
}

// Each new container type publishes a new table; a reader on another thread may still be inside an older one,
// which must stay valid (ASan would see it freed).
TEST(ValueAdapters, ReadersKeepFindingAdaptersWhileOthersAreDescribed)
{
    const entt::meta_type known = Reflection::resolve<std::vector<Plain>>();
    std::atomic<bool> done{false};
    std::atomic<int> misses{0};
    std::thread reader(
        [&]
        {
            while (!done.load())
            {
                const Reflection::SequenceAdapter* adapter = Reflection::findSequenceAdapter(known);
                if (adapter == nullptr || adapter->element != Reflection::resolve<Plain>())
                {
                    ++misses;
                }
            }
        });
    describeTags(std::make_index_sequence<64>{});
    done = true;
    reader.join();
    EXPECT_EQ(misses.load(), 0);
    EXPECT_NE(Reflection::findSequenceAdapter(Reflection::resolve<std::vector<Tag<63>>>()), nullptr);
}

TEST(ValueAdapters, ElementsThatCannotBeCopiedGetNoAdapter)
{
    EXPECT_EQ(Reflection::findOptionalAdapter(Reflection::resolve<std::optional<std::unique_ptr<Plain>>>()), nullptr);
}
} // namespace
