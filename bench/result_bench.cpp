// ResultAny: building a value in place, bringing in a meta_any, errors, and moves, beside std::any.
#include "Scripting/Runtime/ResultAny.h"

#include <benchmark/benchmark.h>

#include <any>
#include <array>
#include <memory>
#include <string>

namespace
{
struct Large
{
    std::array<int, 32> values{};
};

void BM_ResultAny_MakeResult_Int(benchmark::State& state)
{
    for (auto _ : state)
    {
        auto result = Scripting::ResultAny::makeResult<int>(42);
        benchmark::DoNotOptimize(result);
    }
}
BENCHMARK(BM_ResultAny_MakeResult_Int);

void BM_StdAny_Int(benchmark::State& state)
{
    for (auto _ : state)
    {
        std::any value = 42;
        benchmark::DoNotOptimize(value);
    }
}
BENCHMARK(BM_StdAny_Int);

void BM_ResultAny_MakeResult_Large(benchmark::State& state)
{
    for (auto _ : state)
    {
        auto result = Scripting::ResultAny::makeResult<Large>();
        benchmark::DoNotOptimize(result);
    }
}
BENCHMARK(BM_ResultAny_MakeResult_Large);

void BM_StdAny_Large(benchmark::State& state)
{
    for (auto _ : state)
    {
        std::any value = Large{};
        benchmark::DoNotOptimize(value);
    }
}
BENCHMARK(BM_StdAny_Large);

void BM_ResultAny_FromAny_String(benchmark::State& state)
{
    for (auto _ : state)
    {
        auto result = Scripting::ResultAny::makeResultFromAny(entt::meta_any{std::string("short")});
        benchmark::DoNotOptimize(result);
    }
}
BENCHMARK(BM_ResultAny_FromAny_String);

void BM_ResultAny_Error(benchmark::State& state)
{
    for (auto _ : state)
    {
        Scripting::ResultAny result(Scripting::Error("failed"));
        benchmark::DoNotOptimize(result);
    }
}
BENCHMARK(BM_ResultAny_Error);

// A heap-held value changes hands without being moved.
void BM_ResultAny_Move_Large(benchmark::State& state)
{
    auto result = Scripting::ResultAny::makeResult<Large>();
    for (auto _ : state)
    {
        Scripting::ResultAny moved(std::move(result));
        benchmark::DoNotOptimize(moved);
        result = std::move(moved);
    }
}
BENCHMARK(BM_ResultAny_Move_Large);

// A small value lives inside the meta_any, so a move of the result moves it; keeping it on the heap instead (here a
// meta_any behind a unique_ptr) would hand over a pointer but allocate for every result.
void BM_ResultAny_MakeAndMove_Int(benchmark::State& state)
{
    for (auto _ : state)
    {
        auto result = Scripting::ResultAny::makeResult<int>(42);
        Scripting::ResultAny moved(std::move(result));
        benchmark::DoNotOptimize(moved);
    }
}
BENCHMARK(BM_ResultAny_MakeAndMove_Int);

void BM_HeapHeldAny_MakeAndMove_Int(benchmark::State& state)
{
    for (auto _ : state)
    {
        auto held = std::make_unique<entt::meta_any>(std::in_place_type<int>, 42);
        auto moved(std::move(held));
        benchmark::DoNotOptimize(moved);
    }
}
BENCHMARK(BM_HeapHeldAny_MakeAndMove_Int);

void BM_StdAny_Move_Large(benchmark::State& state)
{
    std::any value = Large{};
    for (auto _ : state)
    {
        std::any moved(std::move(value));
        benchmark::DoNotOptimize(moved);
        value = std::move(moved);
    }
}
BENCHMARK(BM_StdAny_Move_Large);
} // namespace
