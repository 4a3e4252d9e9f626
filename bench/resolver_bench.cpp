// What a resolve costs as module graphs grow, beside a plain topological sort of the same graph measured in
// the same run.

#include "Scripting/ScriptEngine/DependencyResolver.h"

#include "LiteralDependencyResolver.h"
#include "TestEmptyModuleBindingFactory.h"

#include <benchmark/benchmark.h>

#include <memory>
#include <queue>
#include <random>
#include <string>
#include <vector>

namespace
{
using namespace Scripting;

constexpr int VERSIONS_PER_MODULE = 5;
constexpr int DEPENDENCIES_PER_VERSION = 3;

const ModuleDescriptor PLUGIN{"plugin", quv::UUID(0xfeed, 1), Version(1, 0, 0), false};

quv::UUID uuidOf(size_t index)
{
    return quv::UUID(0x1000, index + 1);
}

// Modules 0..N-1 offering 1.0.0 to 1.4.0; every version depends on three modules of higher index at a
// random one of their versions, so the graph has no cycle and requests disagree on versions everywhere.
struct Graph
{
    std::vector<std::unique_ptr<IModuleBindingFactory>> factories;
    std::vector<ModuleDescriptor> requested;
    // Module-level edges, the union over all versions, for the baseline.
    std::vector<std::vector<size_t>> dependsOn;
};

Graph makeGraph(size_t modules)
{
    std::mt19937 random(1234);
    const auto pick = [&random](size_t low, size_t high)
    { return std::uniform_int_distribution<size_t>(low, high)(random); };
    Graph graph;
    graph.dependsOn.resize(modules);
    for (size_t module = 0; module < modules; ++module)
    {
        const std::string name = "module_" + std::to_string(module);
        TestEmptyModuleBindingFactory::Versions versions;
        for (uint16_t minor = 0; minor < VERSIONS_PER_MODULE; ++minor)
        {
            std::vector<ModuleDependency> dependencies;
            for (int d = 0; d < DEPENDENCIES_PER_VERSION && module + 1 < modules; ++d)
            {
                const size_t target = pick(module + 1, modules - 1);
                const auto targetMinor = static_cast<uint16_t>(pick(0, VERSIONS_PER_MODULE - 1));
                dependencies.push_back(ModuleDependency{
                    "module_" + std::to_string(target), uuidOf(target), {Version(1, targetMinor, 0)}, false, false});
                graph.dependsOn[module].push_back(target);
            }
            versions.emplace(Version(1, minor, 0), std::move(dependencies));
        }
        graph.factories.push_back(
            std::make_unique<TestEmptyModuleBindingFactory>(name, uuidOf(module), std::move(versions)));
        graph.requested.push_back(ModuleDescriptor{name, uuidOf(module), Version(1, 0, 0), false});
    }
    return graph;
}

// Times whole resolves of `graph`, each of which must give every module back.
void timeResolves(benchmark::State& state, const Graph& graph, VersionSelection selection)
{
    for (auto _ : state)
    {
        const ModuleResolveResult result =
            DependencyResolver(graph.factories, selection).resolve(PLUGIN, graph.requested);
        if (result.modules.size() != graph.factories.size())
        {
            state.SkipWithError("the graph did not resolve");
            break;
        }
        benchmark::DoNotOptimize(result.modules.data());
    }
    state.SetComplexityN(state.range(0));
}

void resolveGraph(benchmark::State& state, VersionSelection selection)
{
    const Graph graph = makeGraph(static_cast<size_t>(state.range(0)));
    timeResolves(state, graph, selection);
    // The size of the work: every request the walk recorded.
    size_t requests = 0;
    for (const auto& entry :
         DependencyResolver(graph.factories, selection)._buildVersionRequestTable(PLUGIN, graph.requested))
    {
        requests += entry.second.size();
    }
    state.counters["requests"] = static_cast<double>(requests);
}

void BM_Resolve_Lowest(benchmark::State& state)
{
    resolveGraph(state, VersionSelection::LowestSatisfying);
}
BENCHMARK(BM_Resolve_Lowest)->RangeMultiplier(10)->Range(10, 10000)->Unit(benchmark::kMicrosecond)->Complexity();

void BM_Resolve_Highest(benchmark::State& state)
{
    resolveGraph(state, VersionSelection::HighestSatisfying);
}
BENCHMARK(BM_Resolve_Highest)->RangeMultiplier(10)->Range(10, 1000)->Unit(benchmark::kMicrosecond)->Complexity();

// The same resolve with a linear search wherever the rules name one: what the indexes save.
void BM_LiteralResolve_Lowest(benchmark::State& state)
{
    const Graph graph = makeGraph(static_cast<size_t>(state.range(0)));
    for (auto _ : state)
    {
        LiteralDependencyResolver literal(graph.factories, VersionSelection::LowestSatisfying);
        const ModuleResolveResult result = literal.decide(literal.build(PLUGIN, graph.requested));
        if (result.modules.size() != graph.factories.size())
        {
            state.SkipWithError("the graph did not resolve");
            break;
        }
        benchmark::DoNotOptimize(result.modules.data());
    }
    state.SetComplexityN(state.range(0));
}
BENCHMARK(BM_LiteralResolve_Lowest)->RangeMultiplier(10)->Range(10, 1000)->Unit(benchmark::kMicrosecond)->Complexity();

// The walk alone, without deciding or ordering: where a resolve's time goes.
void BM_BuildRequestTable_Lowest(benchmark::State& state)
{
    const Graph graph = makeGraph(static_cast<size_t>(state.range(0)));
    const DependencyResolver resolver(graph.factories, VersionSelection::LowestSatisfying);
    for (auto _ : state)
    {
        const VersionRequestTable table = resolver._buildVersionRequestTable(PLUGIN, graph.requested);
        benchmark::DoNotOptimize(table.size());
    }
}
BENCHMARK(BM_BuildRequestTable_Lowest)->Arg(1000)->Unit(benchmark::kMicrosecond);

void BM_DecideAndOrder_Lowest(benchmark::State& state)
{
    const Graph graph = makeGraph(static_cast<size_t>(state.range(0)));
    const DependencyResolver resolver(graph.factories, VersionSelection::LowestSatisfying);
    const VersionRequestTable table = resolver._buildVersionRequestTable(PLUGIN, graph.requested);
    for (auto _ : state)
    {
        const ModuleResolveResult result = resolver._resolveDependencyRequests(table);
        benchmark::DoNotOptimize(result.modules.data());
    }
}
BENCHMARK(BM_DecideAndOrder_Lowest)->Arg(1000)->Unit(benchmark::kMicrosecond);

// Kahn's algorithm over the module-level edges: what ordering alone costs without versions, names or factories.
void BM_Baseline_TopologicalSort(benchmark::State& state)
{
    const Graph graph = makeGraph(static_cast<size_t>(state.range(0)));
    const size_t modules = graph.dependsOn.size();
    for (auto _ : state)
    {
        std::vector<size_t> unmet(modules);
        std::vector<std::vector<size_t>> dependents(modules);
        for (size_t module = 0; module < modules; ++module)
        {
            unmet[module] = graph.dependsOn[module].size();
            for (size_t target : graph.dependsOn[module])
            {
                dependents[target].push_back(module);
            }
        }
        std::queue<size_t> ready;
        for (size_t module = 0; module < modules; ++module)
        {
            if (unmet[module] == 0)
            {
                ready.push(module);
            }
        }
        std::vector<size_t> ordered;
        ordered.reserve(modules);
        while (!ready.empty())
        {
            const size_t module = ready.front();
            ready.pop();
            ordered.push_back(module);
            for (size_t dependent : dependents[module])
            {
                if (--unmet[dependent] == 0)
                {
                    ready.push(dependent);
                }
            }
        }
        benchmark::DoNotOptimize(ordered.data());
    }
    state.SetComplexityN(state.range(0));
}
BENCHMARK(BM_Baseline_TopologicalSort)
    ->RangeMultiplier(10)
    ->Range(10, 1000)
    ->Unit(benchmark::kMicrosecond)
    ->Complexity();

// One module that every other module depends on, as every generic module depends on the common module: its
// requests grow with the graph, and deciding it must not cost a check of every pair of them.
void BM_Resolve_SharedDependency(benchmark::State& state)
{
    const auto modules = static_cast<size_t>(state.range(0));
    Graph graph;
    graph.factories.push_back(std::make_unique<TestEmptyModuleBindingFactory>(
        "common", uuidOf(0),
        TestEmptyModuleBindingFactory::Versions{{{1, 0, 0}, {}}, {{1, 1, 0}, {}}, {{1, 2, 0}, {}}}));
    for (size_t module = 1; module <= modules; ++module)
    {
        const std::string name = "module_" + std::to_string(module);
        const ModuleDependency common{"common", uuidOf(0), {Version(1, static_cast<uint16_t>(module % 3), 0)}};
        graph.factories.push_back(std::make_unique<TestEmptyModuleBindingFactory>(
            name, uuidOf(module), TestEmptyModuleBindingFactory::Versions{{{1, 0, 0}, {common}}}));
        graph.requested.push_back(ModuleDescriptor{name, uuidOf(module), Version(1, 0, 0), false});
    }
    timeResolves(state, graph, VersionSelection::LowestSatisfying);
}
BENCHMARK(BM_Resolve_SharedDependency)
    ->RangeMultiplier(10)
    ->Range(100, 10000)
    ->Unit(benchmark::kMicrosecond)
    ->Complexity();
} // namespace
