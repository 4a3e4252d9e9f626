// What making and ending a script context costs on the native runtime, each figure beside a baseline
// measured in the same run.

#include "Scripting/BindingFactory/CommonModuleFactory.h"
#include "Scripting/BindingFactory/GenericModuleBindingFactory.h"
#include "Scripting/BindingType/ClassBindingBuilder.h"
#include "Scripting/Runtime/NativeRuntime.h"
#include "Scripting/ScriptEngine/DependencyResolver.h"
#include "Scripting/ScriptEngine/ScriptEngine.h"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

// Bound types stay out of the anonymous namespace, as the wrappers of their members capture them.
namespace EngineBench
{
struct BoundClass
{
    int value = 0;
    std::string name;

    int getValue() const { return value; }
    int reset() { return value = 0; }
};
} // namespace EngineBench

namespace
{
using namespace Scripting;
using EngineBench::BoundClass;

constexpr int LIVE_OBJECTS = 10000;
constexpr int MODULES = 10;
constexpr int CLASSES_PER_MODULE = 50;
const Version MODULE_VERSION(1, 0, 0);

quv::UUID moduleUuid(int index)
{
    return quv::UUID(0xBE, static_cast<uint64_t>(index) + 1);
}

// Ten modules of fifty classes, each class with two methods and two properties, and the common module. Every
// module but the first depends on the one before it, and all of them silently on the common module.
std::vector<std::unique_ptr<IModuleBindingFactory>> makeFactories()
{
    std::vector<std::unique_ptr<IModuleBindingFactory>> factories;
    factories.push_back(std::make_unique<CommonModuleFactory>());
    for (int index = 0; index < MODULES; ++index)
    {
        auto factory =
            std::make_unique<GenericModuleBindingFactory>("bench_module_" + std::to_string(index), moduleUuid(index));
        std::vector<ModuleDependency> dependencies;
        if (index > 0)
        {
            ModuleDependency previous;
            previous.name = "bench_module_" + std::to_string(index - 1);
            previous.uuid = moduleUuid(index - 1);
            previous.versions = {MODULE_VERSION};
            dependencies.push_back(std::move(previous));
        }
        factory->addVersionedModuleBinding(
            MODULE_VERSION,
            [](ModuleBindingBuilder& builder, const std::optional<ContextConfig>&)
            {
                for (int classIndex = 0; classIndex < CLASSES_PER_MODULE; ++classIndex)
                {
                    ClassBindingBuilder<BoundClass> bound("Class" + std::to_string(classIndex));
                    bound.release(MODULE_VERSION);
                    bound.method<&BoundClass::getValue>("getValue").release(MODULE_VERSION);
                    bound.method<&BoundClass::reset>("reset").release(MODULE_VERSION);
                    bound.property<&BoundClass::value>("value").release(MODULE_VERSION);
                    bound.property<&BoundClass::name>("name").release(MODULE_VERSION);
                    builder.classBinding(bound.finish());
                }
                return std::optional<ModuleBinding>(builder.build(false, {}, {}));
            },
            CommonModuleFactory::LATEST_VERSION, std::move(dependencies), false);
        factories.push_back(std::move(factory));
    }
    return factories;
}

// Asked for last first, so that the resolver's ordering has work to do.
std::vector<ModuleDescriptor> requestedModules()
{
    std::vector<ModuleDescriptor> requested;
    for (int index = MODULES - 1; index >= 0; --index)
    {
        requested.push_back(
            ModuleDescriptor{"bench_module_" + std::to_string(index), moduleUuid(index), MODULE_VERSION});
    }
    return requested;
}

const ModuleDescriptor REQUESTER{"bench_plugin", quv::UUID(0xB0, 1), Version(1, 0, 0)};

// ---- createScriptingContext end to end ----

// Resolve, runtime, eleven module builds and the context, which then dies with the result (an empty
// context's teardown is BM_ContextTeardown/0).
void BM_CreateScriptingContext(benchmark::State& state)
{
    ScriptEngine engine;
    engine.setRuntimeFactory([&engine](const ContextConfig&, const std::vector<ModuleDescriptor>&)
                             { return std::make_shared<NativeRuntime>(engine.getRegistryManager()); });
    for (std::unique_ptr<IModuleBindingFactory>& factory : makeFactories())
    {
        engine.addModuleBindingFactory(std::move(factory));
    }
    ContextConfig config;
    config.runtimeName = "native";
    const std::vector<ModuleDescriptor> requested = requestedModules();
    for (auto _ : state)
    {
        ScriptContextResult result = engine.createScriptingContext(config, REQUESTER, requested, nullptr, nullptr);
        if (!result.context.has_value())
        {
            state.SkipWithError(result.getErrorText().c_str());
            break;
        }
        benchmark::DoNotOptimize(result);
    }
}
BENCHMARK(BM_CreateScriptingContext)->Unit(benchmark::kMicrosecond);

// The resolve step alone, over the same factories.
void BM_Baseline_ResolveOnly(benchmark::State& state)
{
    const std::vector<std::unique_ptr<IModuleBindingFactory>> factories = makeFactories();
    const std::vector<ModuleDescriptor> requested = requestedModules();
    for (auto _ : state)
    {
        const DependencyResolver resolver(factories, VersionSelection::LowestSatisfying);
        ModuleResolveResult result = resolver.resolve(REQUESTER, requested);
        benchmark::DoNotOptimize(result);
    }
}
BENCHMARK(BM_Baseline_ResolveOnly)->Unit(benchmark::kMicrosecond);

// The eleven builds alone, asked of the factories directly in creation order.
void BM_Baseline_BuildModulesOnly(benchmark::State& state)
{
    const std::vector<std::unique_ptr<IModuleBindingFactory>> factories = makeFactories();
    const ContextConfig config;
    for (auto _ : state)
    {
        std::vector<ModuleBinding> bindings;
        bindings.reserve(factories.size());
        bindings.push_back(*factories[0]->createModuleBinding(CommonModuleFactory::LATEST_VERSION, config));
        for (size_t index = 1; index < factories.size(); ++index)
        {
            bindings.push_back(*factories[index]->createModuleBinding(MODULE_VERSION, config));
        }
        benchmark::DoNotOptimize(bindings);
    }
}
BENCHMARK(BM_Baseline_BuildModulesOnly)->Unit(benchmark::kMicrosecond);

// A plain deep copy of the eleven finished bindings: the size of what the context is made from.
void BM_Baseline_CopyModuleBindings(benchmark::State& state)
{
    const std::vector<std::unique_ptr<IModuleBindingFactory>> factories = makeFactories();
    std::vector<ModuleBinding> built;
    built.push_back(*factories[0]->createModuleBinding(CommonModuleFactory::LATEST_VERSION, std::nullopt));
    for (size_t index = 1; index < factories.size(); ++index)
    {
        built.push_back(*factories[index]->createModuleBinding(MODULE_VERSION, std::nullopt));
    }
    for (auto _ : state)
    {
        std::vector<ModuleBinding> copy = built;
        benchmark::DoNotOptimize(copy);
    }
}
BENCHMARK(BM_Baseline_CopyModuleBindings)->Unit(benchmark::kMicrosecond);

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
