// What an embedding application pays for the lifetime layer, each figure beside a baseline of the standard
// library (or of the entity registry alone) measured in the same run.

#include "Scripting/LifetimeRegistry/HandleTracker.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <optional>
#include <random>
#include <unordered_map>
#include <vector>

namespace
{
using namespace Scripting;

constexpr int TRACKED_OBJECTS = 100000;

struct BenchObject
{
    using HandleKey = int;

    BenchObject() = default;
    explicit BenchObject(int value) : mValue(value) {}

    int mValue = 0;
};

struct Registry
{
    LifetimeRegistryReference reference;
    LifetimeRegistry registry{ContextId{1}, reference};
    WeakLifetimeScope scope{&reference};

    ~Registry() { registry.destroyLifetimeScope(false); }
};

// ---- Weak handle validity ----

void BM_WeakHandleValid(benchmark::State& state)
{
    Registry context;
    const StrongTypedObjectHandle<BenchObject> strong = context.scope.makeObject<BenchObject>();
    const WeakObjectHandle weak(strong.getScope(), strong.getHandle());
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(weak.valid());
    }
}
BENCHMARK(BM_WeakHandleValid);

void BM_Baseline_WeakPtrExpired(benchmark::State& state)
{
    const auto shared = std::make_shared<BenchObject>();
    const std::weak_ptr<BenchObject> weak = shared;
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(!weak.expired());
    }
}
BENCHMARK(BM_Baseline_WeakPtrExpired);

// ---- Strong handle copy and destruction ----

void BM_StrongHandleCopyDestroy(benchmark::State& state)
{
    Registry context;
    const StrongTypedObjectHandle<BenchObject> strong = context.scope.makeObject<BenchObject>();
    for (auto _ : state)
    {
        StrongTypedObjectHandle<BenchObject> copy(strong);
        benchmark::DoNotOptimize(copy);
    }
}
BENCHMARK(BM_StrongHandleCopyDestroy);

void BM_Baseline_SharedPtrCopyDestroy(benchmark::State& state)
{
    const auto shared = std::make_shared<BenchObject>();
    for (auto _ : state)
    {
        std::shared_ptr<BenchObject> copy(shared);
        benchmark::DoNotOptimize(copy);
    }
}
BENCHMARK(BM_Baseline_SharedPtrCopyDestroy);

// ---- Creation and destruction of one object ----

void BM_MakeObjectAndDestroy(benchmark::State& state)
{
    Registry context;
    for (auto _ : state)
    {
        StrongTypedObjectHandle<BenchObject> handle = context.scope.makeObject<BenchObject>(1);
        benchmark::DoNotOptimize(handle);
    }
}
BENCHMARK(BM_MakeObjectAndDestroy);

void BM_Baseline_EntityRegistryCreateAndDestroy(benchmark::State& state)
{
    entt::basic_registry<ObjectHandleValue> registry;
    for (auto _ : state)
    {
        const ObjectHandleValue entity = registry.create();
        registry.emplace<BenchObject>(entity, 1);
        registry.destroy(entity);
    }
}
BENCHMARK(BM_Baseline_EntityRegistryCreateAndDestroy);

void BM_Baseline_MakeSharedAndDestroy(benchmark::State& state)
{
    for (auto _ : state)
    {
        auto object = std::make_shared<BenchObject>(1);
        benchmark::DoNotOptimize(object);
    }
}
BENCHMARK(BM_Baseline_MakeSharedAndDestroy);

// ---- Keyed lookup among 100,000 tracked objects ----

struct TrackedRegistry : Registry
{
    TrackedRegistry()
    {
        for (int key = 0; key < TRACKED_OBJECTS; ++key)
        {
            const StrongTypedObjectHandle<BenchObject> handle = scope.makeObject<BenchObject>(key);
            HandleTracker::trackWith<BenchObject>(registry, handle.getHandle(), key, true);
        }
    }
};

// The keys a lookup benchmark asks for, in order: every tracked key for hits, keys never tracked for misses,
// walked in key order or shuffled. A hashed lookup lands in a random bucket either way; a plain map of int
// keys with an identity hash walks its buckets in order when the keys come in order.
std::vector<int> lookupKeys(const benchmark::State& state)
{
    const bool hit = state.range(0) != 0;
    const bool shuffled = state.range(1) != 0;
    std::vector<int> keys(TRACKED_OBJECTS);
    for (int i = 0; i < TRACKED_OBJECTS; ++i)
    {
        keys[i] = hit ? i : i + TRACKED_OBJECTS;
    }
    if (shuffled)
    {
        std::shuffle(keys.begin(), keys.end(), std::mt19937(42));
    }
    return keys;
}

void lookupArguments(benchmark::internal::Benchmark* benchmark)
{
    benchmark->ArgNames({"hit", "shuffled"})->Args({1, 0})->Args({0, 0})->Args({1, 1})->Args({0, 1});
}

template <typename Hash>
std::unordered_map<int, ObjectHandle, Hash> makeHandleMap()
{
    std::unordered_map<int, ObjectHandle, Hash> map;
    for (int key = 0; key < TRACKED_OBJECTS; ++key)
    {
        map.emplace(key, ObjectHandle(static_cast<ObjectHandleValue>(key), ContextId{1}));
    }
    return map;
}

// One lookup of the plain map, giving a number as the cache does.
template <typename Map>
std::optional<ObjectHandle> findInMap(const Map& map, int key)
{
    const auto found = map.find(key);
    std::optional<ObjectHandle> result;
    if (found != map.end())
    {
        result = found->second;
    }
    return result;
}

// Wall time per lookup of the plain map over `keys`, `lookups` times: the baseline a fetch row prints beside
// itself, so that the ratio comes from one run under one load.
double timeMapLookups(const std::vector<int>& keys, size_t lookups)
{
    const auto map = makeHandleMap<std::hash<int>>();
    size_t next = 0;
    const auto start = std::chrono::steady_clock::now();
    for (size_t i = 0; i < lookups; ++i)
    {
        auto result = findInMap(map, keys[next]);
        benchmark::DoNotOptimize(result);
        next = next + 1 == keys.size() ? 0 : next + 1;
    }
    const std::chrono::duration<double, std::nano> spent = std::chrono::steady_clock::now() - start;
    return spent.count() / static_cast<double>(lookups);
}

void BM_HandleTrackerFetch(benchmark::State& state)
{
    const std::vector<int> keys = lookupKeys(state);
    TrackedRegistry context;
    size_t next = 0;
    const auto start = std::chrono::steady_clock::now();
    for (auto _ : state)
    {
        auto fetched = HandleTracker::fetch<BenchObject>(context.scope, keys[next]);
        benchmark::DoNotOptimize(fetched);
        next = next + 1 == keys.size() ? 0 : next + 1;
    }
    const std::chrono::duration<double, std::nano> spent = std::chrono::steady_clock::now() - start;
    const auto lookups = static_cast<size_t>(state.iterations());
    const double fetchNs = spent.count() / static_cast<double>(lookups);
    const double mapNs = timeMapLookups(keys, lookups);
    state.counters["map_ns"] = mapNs;
    state.counters["x_map"] = fetchNs / mapNs;
}
BENCHMARK(BM_HandleTrackerFetch)->Apply(lookupArguments);

// The cache's part of a fetch: the two lookups, without the counted handle a fetch returns.
void BM_HandleCacheFindOnly(benchmark::State& state)
{
    const std::vector<int> keys = lookupKeys(state);
    TrackedRegistry context;
    const HandleCache& cache = context.registry.getHandleCache();
    size_t next = 0;
    for (auto _ : state)
    {
        const uint64_t keyHash = internal::hashKey(keys[next]);
        auto found =
            cache._find(internal::hashTrackedType<BenchObject>(), keyHash, internal::placeOfKey(keys[next], keyHash));
        benchmark::DoNotOptimize(found);
        next = next + 1 == keys.size() ? 0 : next + 1;
    }
}
BENCHMARK(BM_HandleCacheFindOnly)->Apply(lookupArguments);

template <typename Hash>
void mapFind(benchmark::State& state)
{
    const std::vector<int> keys = lookupKeys(state);
    const auto map = makeHandleMap<Hash>();
    size_t next = 0;
    for (auto _ : state)
    {
        auto result = findInMap(map, keys[next]);
        benchmark::DoNotOptimize(result);
        next = next + 1 == keys.size() ? 0 : next + 1;
    }
}

void BM_Baseline_UnorderedMapFind(benchmark::State& state)
{
    mapFind<std::hash<int>>(state);
}
BENCHMARK(BM_Baseline_UnorderedMapFind)->Apply(lookupArguments);

// The same plain map with the cache's hash of integer keys: what the lookup costs before any handle is made.
struct Fnv1aKeyHash
{
    size_t operator()(int key) const noexcept { return static_cast<size_t>(internal::hashKey(key)); }
};

void BM_Baseline_UnorderedMapFindFnv1a(benchmark::State& state)
{
    mapFind<Fnv1aKeyHash>(state);
}
BENCHMARK(BM_Baseline_UnorderedMapFindFnv1a)->Apply(lookupArguments);

// A plain map that hands out an owner, as a fetch does: a copy of a std::shared_ptr, whose count lives with
// the object (std::make_shared), made and dropped per lookup.
void BM_Baseline_UnorderedMapFindSharedPtr(benchmark::State& state)
{
    const std::vector<int> keys = lookupKeys(state);
    std::unordered_map<int, std::shared_ptr<BenchObject>> map;
    for (int key = 0; key < TRACKED_OBJECTS; ++key)
    {
        map.emplace(key, std::make_shared<BenchObject>(key));
    }
    size_t next = 0;
    for (auto _ : state)
    {
        const auto found = map.find(keys[next]);
        std::shared_ptr<BenchObject> owner;
        if (found != map.end())
        {
            owner = found->second;
        }
        benchmark::DoNotOptimize(owner);
        next = next + 1 == keys.size() ? 0 : next + 1;
    }
}
BENCHMARK(BM_Baseline_UnorderedMapFindSharedPtr)->Apply(lookupArguments);

// ---- Tearing a scope of 100,000 objects down ----

void BM_DestroyLifetimeScope(benchmark::State& state)
{
    Registry context;
    for (auto _ : state)
    {
        state.PauseTiming();
        for (int i = 0; i < TRACKED_OBJECTS; ++i)
        {
            // Released: the scope's destruction alone ends these objects.
            context.scope.makeObject<BenchObject>(i).release();
        }
        state.ResumeTiming();
        context.registry.destroyLifetimeScope(false);
    }
    state.SetItemsProcessed(state.iterations() * TRACKED_OBJECTS);
}
BENCHMARK(BM_DestroyLifetimeScope)->Unit(benchmark::kMillisecond);

void BM_Baseline_DestroyVectorOfUniquePtr(benchmark::State& state)
{
    std::vector<std::unique_ptr<BenchObject>> objects;
    for (auto _ : state)
    {
        state.PauseTiming();
        objects.reserve(TRACKED_OBJECTS);
        for (int i = 0; i < TRACKED_OBJECTS; ++i)
        {
            objects.push_back(std::make_unique<BenchObject>(i));
        }
        state.ResumeTiming();
        objects.clear();
    }
    state.SetItemsProcessed(state.iterations() * TRACKED_OBJECTS);
}
BENCHMARK(BM_Baseline_DestroyVectorOfUniquePtr)->Unit(benchmark::kMillisecond);
} // namespace
