// Heap bytes the lifetime layer holds for its objects, beside what the standard library holds for as many
// objects of the same type. Every allocation of the program is counted (AllocationCounter.h), so the figures
// are exact requested sizes (without the allocator's own overhead); the times Google
// Benchmark prints for these rows mean nothing.

#include "AllocationCounter.h"

#include "Scripting/LifetimeRegistry/HandleTracker.h"

#include <benchmark/benchmark.h>

#include <array>
#include <cstddef>
#include <memory>
#include <optional>
#include <vector>

namespace
{
using namespace Scripting;

constexpr int MANY_OBJECTS = 100000;

struct Payload
{
    using HandleKey = int;

    std::array<char, 200> mBytes{};
};
static_assert(sizeof(Payload) == 200);

struct Registry
{
    LifetimeRegistryReference reference;
    LifetimeRegistry registry{ContextId{1}, reference};
    WeakLifetimeScope scope{&reference};

    ~Registry() { registry.destroyLifetimeScope(false); }
};

// Live heap bytes that `makeObjects(count)` adds to a fresh registry, which itself is not counted.
template <typename MakeObjects>
void reportBytes(benchmark::State& state, int count, MakeObjects makeObjects)
{
    std::size_t bytes = 0;
    for (auto _ : state)
    {
        state.PauseTiming();
        auto context = std::make_unique<Registry>();
        std::vector<StrongTypedObjectHandle<Payload>> handles;
        handles.reserve(count);
        const Bench::AllocationCounts before = Bench::allocationCounts();
        state.ResumeTiming();
        makeObjects(*context, handles, count);
        state.PauseTiming();
        bytes = (Bench::allocationCounts() - before).liveBytes();
        handles.clear();
        context.reset();
        state.ResumeTiming();
    }
    state.counters["bytes"] = static_cast<double>(bytes);
    state.counters["bytes_per_object"] = static_cast<double>(bytes) / count;
}

void makePlain(Registry& context, std::vector<StrongTypedObjectHandle<Payload>>& handles, int count)
{
    for (int i = 0; i < count; ++i)
    {
        handles.push_back(context.scope.makeObject<Payload>());
    }
}

void makeTracked(Registry& context, std::vector<StrongTypedObjectHandle<Payload>>& handles, int count)
{
    for (int key = 0; key < count; ++key)
    {
        handles.push_back(context.scope.makeObject<Payload>());
        HandleTracker::trackWith<Payload>(context.registry, handles.back().getHandle(), key, false);
    }
}

void BM_Memory_MakeObject(benchmark::State& state)
{
    reportBytes(state, static_cast<int>(state.range(0)), makePlain);
}
BENCHMARK(BM_Memory_MakeObject)->ArgName("objects")->Arg(1)->Arg(MANY_OBJECTS)->Iterations(1);

void BM_Memory_MakeAndTrackObject(benchmark::State& state)
{
    reportBytes(state, static_cast<int>(state.range(0)), makeTracked);
}
BENCHMARK(BM_Memory_MakeAndTrackObject)->ArgName("objects")->Arg(1)->Arg(MANY_OBJECTS)->Iterations(1);

// The same number of objects, each in its own std::make_shared block. As above, the vector of holders is
// reserved before counting starts.
void BM_Baseline_Memory_MakeShared(benchmark::State& state)
{
    const auto count = static_cast<std::size_t>(state.range(0));
    std::size_t bytes = 0;
    for (auto _ : state)
    {
        std::vector<std::shared_ptr<Payload>> objects;
        objects.reserve(count);
        const Bench::AllocationCounts before = Bench::allocationCounts();
        for (std::size_t i = 0; i < count; ++i)
        {
            objects.push_back(std::make_shared<Payload>());
        }
        bytes = (Bench::allocationCounts() - before).liveBytes();
    }
    state.counters["bytes"] = static_cast<double>(bytes);
    state.counters["bytes_per_object"] = static_cast<double>(bytes) / static_cast<double>(count);
}
BENCHMARK(BM_Baseline_Memory_MakeShared)->ArgName("objects")->Arg(1)->Arg(MANY_OBJECTS)->Iterations(1);
} // namespace
