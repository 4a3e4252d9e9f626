// A typed script closure called through a runtime, beside a direct std::function call, with the heap
// allocations each call makes (AllocationCounter.h).
#include "AllocationCounter.h"
#include "TestClosureRuntime.h"

#include "Scripting/Runtime/ScriptClosure.h"

#include <benchmark/benchmark.h>

#include <cstddef>
#include <functional>

namespace
{
// Runs the loop with allocations counted and reports them per call.
template <typename Call>
void runCounted(benchmark::State& state, Call&& call)
{
    const Bench::AllocationCounts before = Bench::allocationCounts();
    for (auto _ : state)
    {
        call();
    }
    const Bench::AllocationCounts spent = Bench::allocationCounts() - before;
    state.counters["allocs_per_call"] =
        benchmark::Counter(static_cast<double>(spent.allocations) / static_cast<double>(state.iterations()));
}

void BM_Closure_IntIntToInt(benchmark::State& state)
{
    Scripting::TestClosureRuntime<int, int, int> runtime([](int a, int b) { return a + b; });
    const auto closure = runtime.makeClosure<Scripting::Closure<int (*)(int, int)>>();
    int a = 1;
    int b = 2;
    runCounted(state,
               [&]
               {
                   benchmark::DoNotOptimize(a);
                   Scripting::Result<int> result = closure(a, b);
                   benchmark::DoNotOptimize(result.value());
               });
}
BENCHMARK(BM_Closure_IntIntToInt);

void BM_ClosureAny_IntIntToInt(benchmark::State& state)
{
    Scripting::TestClosureRuntime<int, int, int> runtime([](int a, int b) { return a + b; });
    const Scripting::ClosureAny closure = runtime.makeClosure();
    const entt::meta_type intType = Scripting::Reflection::resolve<int>();
    int a = 1;
    int b = 2;
    runCounted(state,
               [&]
               {
                   benchmark::DoNotOptimize(a);
                   entt::meta_any arguments[2] = {entt::forward_as_meta(a), entt::forward_as_meta(b)};
                   Scripting::ResultAny result = closure.call(arguments, 2, intType, std::nullopt);
                   benchmark::DoNotOptimize(result);
               });
}
BENCHMARK(BM_ClosureAny_IntIntToInt);

void BM_StdFunction_IntIntToInt(benchmark::State& state)
{
    const std::function<int(int, int)> function = [](int a, int b) { return a + b; };
    int a = 1;
    int b = 2;
    runCounted(state,
               [&]
               {
                   benchmark::DoNotOptimize(a);
                   int result = function(a, b);
                   benchmark::DoNotOptimize(result);
               });
}
BENCHMARK(BM_StdFunction_IntIntToInt);

// What a call costs when its closure has gone stale: the error value is built on the heap.
void BM_Closure_Stale(benchmark::State& state)
{
    const Scripting::Closure<int (*)(int, int)> closure;
    runCounted(state,
               [&]
               {
                   Scripting::Result<int> result = closure(1, 2);
                   benchmark::DoNotOptimize(result);
               });
}
BENCHMARK(BM_Closure_Stale);
} // namespace
