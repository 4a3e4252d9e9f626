// What results do to the object they hold: copies only when a result is copied, no move when a value is built in
// place, and at most one move per hand-over, which only a value stored inside the meta_any needs.
#include "Scripting/Runtime/Result.h"

#include <gtest/gtest.h>

#include <functional>
#include <type_traits>
#include <utility>

namespace
{
using namespace Scripting;

struct Counts
{
    int copies = 0;
    int moves = 0;
};

// Eight bytes: with a noexcept move it fits the meta_any's buffer, without one it goes to the heap.
template <bool NothrowMove>
struct Counted
{
    explicit Counted(Counts& counts) : counts(&counts) {}
    Counted(const Counted& other) : counts(other.counts) { ++counts->copies; }
    Counted(Counted&& other) noexcept(NothrowMove) : counts(other.counts) { ++counts->moves; }
    Counted& operator=(const Counted&) = delete;
    Counted& operator=(Counted&&) = delete;

    Counts* counts;
};

using Inline = Counted<true>;
using OnHeap = Counted<false>;

struct OtherError : Error
{
    OtherError() : Error("OtherError", "other") {}
};

struct Case
{
    const char* name;
    // Counts for a value inside the meta_any, then for one on the heap.
    Counts inlineValue;
    Counts heapValue;
    std::function<void(Counts&, bool)> run;
};

// `body(counts, type)` runs with `typename decltype(type)::type` the inline or the heap type.
template <typename Body>
Case makeCase(const char* name, const Counts inlineValue, const Counts heapValue, Body body)
{
    return {name, inlineValue, heapValue,
            [body](Counts& counts, const bool isInline)
            {
                if (isInline)
                {
                    body(counts, std::type_identity<Inline>{});
                }
                else
                {
                    body(counts, std::type_identity<OnHeap>{});
                }
            }};
}

// Every source is built in place, which counts nothing, so the counts are those of the operation alone.
const Case CASES[] = {
    makeCase("ResultAny::makeResult", {0, 0}, {0, 0},
             [](Counts& counts, auto type)
             { [[maybe_unused]] const auto result = ResultAny::makeResult<typename decltype(type)::type>(counts); }),
    makeCase("ResultAny copy", {1, 0}, {1, 0},
             [](Counts& counts, auto type)
             {
                 const auto source = ResultAny::makeResult<typename decltype(type)::type>(counts);
                 [[maybe_unused]] const ResultAny copy = source;
             }),
    makeCase("ResultAny move", {0, 1}, {0, 0},
             [](Counts& counts, auto type)
             {
                 auto source = ResultAny::makeResult<typename decltype(type)::type>(counts);
                 [[maybe_unused]] const ResultAny moved = std::move(source);
             }),
    makeCase("ResultAny move assignment", {0, 1}, {0, 0},
             [](Counts& counts, auto type)
             {
                 auto source = ResultAny::makeResult<typename decltype(type)::type>(counts);
                 ResultAny target;
                 target = std::move(source);
             }),
    makeCase("ResultAny::toAny", {0, 1}, {0, 0},
             [](Counts& counts, auto type)
             {
                 auto source = ResultAny::makeResult<typename decltype(type)::type>(counts);
                 [[maybe_unused]] const entt::meta_any any = std::move(source).toAny();
             }),
    makeCase("ResultAny::makeResultFromAny of an rvalue", {0, 1}, {0, 0},
             [](Counts& counts, auto type)
             {
                 entt::meta_any any{std::in_place_type<typename decltype(type)::type>, counts};
                 [[maybe_unused]] const auto result = ResultAny::makeResultFromAny(std::move(any));
             }),
    makeCase("Result::makeResult", {0, 0}, {0, 0},
             [](Counts& counts, auto type)
             { [[maybe_unused]] const auto result = Result<typename decltype(type)::type>::makeResult(counts); }),
    makeCase("Result from a value, which moves the argument in", {0, 1}, {0, 1},
             [](Counts& counts, auto type)
             {
                 using T = typename decltype(type)::type;
                 T value(counts);
                 [[maybe_unused]] const Result<T> result(std::move(value));
             }),
    makeCase("Result::fromCopy", {1, 0}, {1, 0},
             [](Counts& counts, auto type)
             {
                 using T = typename decltype(type)::type;
                 const T value(counts);
                 [[maybe_unused]] const auto result = Result<T>::fromCopy(value);
             }),
    makeCase("Result copy", {1, 0}, {1, 0},
             [](Counts& counts, auto type)
             {
                 using T = typename decltype(type)::type;
                 const auto source = Result<T>::makeResult(counts);
                 [[maybe_unused]] const Result<T> copy = source;
             }),
    makeCase("Result move", {0, 1}, {0, 0},
             [](Counts& counts, auto type)
             {
                 using T = typename decltype(type)::type;
                 auto source = Result<T>::makeResult(counts);
                 [[maybe_unused]] const Result<T> moved = std::move(source);
             }),
    makeCase("Result moved into a wider error list", {0, 1}, {0, 0},
             [](Counts& counts, auto type)
             {
                 using T = typename decltype(type)::type;
                 auto source = Result<T>::makeResult(counts);
                 [[maybe_unused]] const Result<T, OtherError> wider = std::move(source);
             }),
    makeCase("Result copied into a wider error list", {1, 0}, {1, 0},
             [](Counts& counts, auto type)
             {
                 using T = typename decltype(type)::type;
                 const auto source = Result<T>::makeResult(counts);
                 [[maybe_unused]] const Result<T, OtherError> wider = source;
             }),
    makeCase("Result copied into a void result, which then drops the copy", {1, 0}, {1, 0},
             [](Counts& counts, auto type)
             {
                 const auto source = Result<typename decltype(type)::type>::makeResult(counts);
                 [[maybe_unused]] const Result<void> dropped = source;
             }),
    makeCase("Result moved into a void result", {0, 0}, {0, 0},
             [](Counts& counts, auto type)
             {
                 auto source = Result<typename decltype(type)::type>::makeResult(counts);
                 [[maybe_unused]] const Result<void> dropped = std::move(source);
             }),
    makeCase("Result::fromResultAny", {0, 1}, {0, 0},
             [](Counts& counts, auto type)
             {
                 using T = typename decltype(type)::type;
                 auto source = ResultAny::makeResult<T>(counts);
                 [[maybe_unused]] const auto result = Result<T>::fromResultAny(std::move(source));
             }),
    makeCase("Result_deprecated::fromResultAny", {0, 1}, {0, 0},
             [](Counts& counts, auto type)
             {
                 using T = typename decltype(type)::type;
                 auto source = ResultAny::makeResult<T>(counts);
                 [[maybe_unused]] const auto result = Result_deprecated<T>::fromResultAny(std::move(source));
             }),
    makeCase("Result moved into a ResultAny", {0, 1}, {0, 0},
             [](Counts& counts, auto type)
             {
                 auto source = Result<typename decltype(type)::type>::makeResult(counts);
                 [[maybe_unused]] const ResultAny any = std::move(source);
             }),
};

TEST(ResultMoves, CopiesOnlyWhenCopiedAndMovesAnInlineValueAtMostOncePerHandOver)
{
    for (const Case& entry : CASES)
    {
        for (const bool inlineValue : {true, false})
        {
            Counts counts;
            entry.run(counts, inlineValue);
            const Counts& expected = inlineValue ? entry.inlineValue : entry.heapValue;
            EXPECT_EQ(counts.copies, expected.copies) << entry.name << (inlineValue ? " (inline)" : " (heap)");
            EXPECT_EQ(counts.moves, expected.moves) << entry.name << (inlineValue ? " (inline)" : " (heap)");
        }
    }
}

TEST(ResultMoves, InlineAndHeapTypesAreStoredAsExpected)
{
    Counts counts;
    auto inlineResult = ResultAny::makeResult<Inline>(counts);
    auto heapResult = ResultAny::makeResult<OnHeap>(counts);
    const void* inlineAddress = inlineResult.any().data();
    const void* heapAddress = heapResult.any().data();

    const ResultAny inlineMoved = std::move(inlineResult);
    const ResultAny heapMoved = std::move(heapResult);
    EXPECT_NE(inlineMoved.any().data(), inlineAddress) << "an inline value lives in the result that holds it";
    EXPECT_EQ(heapMoved.any().data(), heapAddress) << "a heap value stays where it is";
}
} // namespace
