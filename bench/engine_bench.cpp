// What making and ending a script context costs on the native runtime, each figure beside a baseline
// measured in the same run.

#include "Scripting/Runtime/NativeRuntime.h"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace
{
using namespace Scripting;

constexpr int LIVE_OBJECTS = 10000;

// An object of a typical small size: a number and a name too long for the small-string buffer.
struct BenchObject
{
    BenchObject() = default;
    explicit BenchObject(int id) : mId(id), mName("bench object number " + std::to_string(id)) {}

    int mId = 0;
    std::string mName;
};

// ---- Context teardown with live objects ----

// A context whose objects are held by nobody but the context, as after a script made them.
void BM_ContextTeardown(benchmark::State& state)
{
    RegistryManager manager;
    const auto runtime = std::make_shared<NativeRuntime>(manager);
    for (auto _ : state)
    {
        state.PauseTiming();
        std::optional<ScriptContext> context = runtime->createContext({}, nullptr, nullptr, {});
        const WeakLifetimeScope scope = context->getScope();
        for (int i = 0; i < state.range(0); ++i)
        {
            scope.makeObject<BenchObject>(i).release();
        }
        state.ResumeTiming();
        context.reset();
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_ContextTeardown)->Arg(0)->Arg(LIVE_OBJECTS)->Unit(benchmark::kMicrosecond);

// The registry alone, without a context or runtime around it.
void BM_Baseline_RegistryScopeTeardown(benchmark::State& state)
{
    for (auto _ : state)
    {
        state.PauseTiming();
        auto reference = std::make_unique<LifetimeRegistryReference>();
        auto registry = std::make_unique<LifetimeRegistry>(ContextId{1}, *reference);
        const WeakLifetimeScope scope = registry->getScope();
        for (int i = 0; i < state.range(0); ++i)
        {
            scope.makeObject<BenchObject>(i).release();
        }
        state.ResumeTiming();
        registry->destroyLifetimeScope(false);
        registry.reset();
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_Baseline_RegistryScopeTeardown)->Arg(LIVE_OBJECTS)->Unit(benchmark::kMicrosecond);

// The same objects owned one by one by the standard library.
void BM_Baseline_VectorOfUniquePtrTeardown(benchmark::State& state)
{
    for (auto _ : state)
    {
        state.PauseTiming();
        std::vector<std::unique_ptr<BenchObject>> objects;
        objects.reserve(static_cast<size_t>(state.range(0)));
        for (int i = 0; i < state.range(0); ++i)
        {
            objects.push_back(std::make_unique<BenchObject>(i));
        }
        state.ResumeTiming();
        objects.clear();
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BM_Baseline_VectorOfUniquePtrTeardown)->Arg(LIVE_OBJECTS)->Unit(benchmark::kMicrosecond);
} // namespace
