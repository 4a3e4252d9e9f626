// What ModuleBindingBuilder::build costs for a module described over five versions, beside a deep copy of the
// same records (what filling a builder from one full description costs anyway), and how it grows with the
// number of classes. Heap use is counted (AllocationCounter.h).

#include "AllocationCounter.h"

#include "Scripting/BindingType/ModuleBindingBuilder.h"
#include "Scripting/Reflection/Function.h"
#include "Scripting/Reflection/Property.h"

#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

// Wrapped types stay out of the anonymous namespace, as wrappers capture them in their lambdas.
namespace ModuleBuilderBench
{
struct Widget
{
    int value = 0;
    int poke(int delta) { return value += delta; }
};

// One native type per bound class, so that bases are told apart as in a real module.
template <std::size_t N>
struct BoundClass
{
};
} // namespace ModuleBuilderBench

namespace
{
using namespace Scripting;
using namespace ModuleBuilderBench;

constexpr int MEMBERS_OF_A_KIND = 50;
constexpr int MAX_CLASSES = 2000;
// Chains of bases this long, each given derived first.
constexpr int CHAIN = 10;
const Version BUILT_VERSION(3, 0, 0);

template <std::size_t... I>
std::vector<entt::meta_type> classTypes(std::index_sequence<I...>)
{
    return {Reflection::resolve<BoundClass<I>>()...};
}

// Five versions: from 1, from 2 until 4, from 3, from 4, from 1 until 3. Three in five are in version 3.
void tagForVersions(TaggedBinding& tag, int index)
{
    switch (index % 5)
    {
    case 0:
        tag.release(Version(1, 0, 0));
        break;
    case 1:
        tag.release(Version(2, 0, 0), RemovedInMajorVersion(4));
        break;
    case 2:
        tag.release(Version(3, 0, 0));
        break;
    case 3:
        tag.release(Version(4, 0, 0));
        break;
    default:
        tag.release(Version(1, 0, 0), RemovedInMajorVersion(3));
        break;
    }
}

ClassBinding makeClass(int index, const std::vector<entt::meta_type>& types)
{
    // Derived first within each chain: class 9 of a chain derives from 8, ..., 1 from 0.
    const int chainStart = index - index % CHAIN;
    const int link = CHAIN - 1 - index % CHAIN;
    ClassBinding binding;
    binding.name = fmt::format("Class{}", index);
    binding.type = types[static_cast<std::size_t>(chainStart + link)];
    if (link > 0)
    {
        binding.baseType = types[static_cast<std::size_t>(chainStart + link - 1)];
    }
    tagForVersions(binding, index / CHAIN);
    for (int member = 0; member < MEMBERS_OF_A_KIND; ++member)
    {
        FunctionBinding& method = binding.functions.emplace_back();
        method.name = fmt::format("method{}", member);
        method.function = std::make_shared<Reflection::MemberFunction<&Widget::poke>>(Privilege::None,
                                                                                      std::vector<ArgumentDetails>(1));
        method.arguments.push_back(ArgumentBinding{"delta", Reflection::resolve<int>(), {}});
        tagForVersions(method, member);

        PropertyBinding& property = binding.properties.emplace_back();
        property.name = fmt::format("property{}", member);
        property.type = Reflection::resolve<int>();
        property.getter =
            std::make_shared<Reflection::MemberPropertyGetter<Widget, false, &Widget::value>>(Privilege::ReadOnly);
        property.setter = std::make_shared<Reflection::MemberPropertySetter<Widget, &Widget::value>>(Privilege::None);
        tagForVersions(property, member + 2);
    }
    return binding;
}

struct Description
{
    std::vector<ClassBinding> classes;
    std::size_t members = 0;
    std::size_t liveBytes = 0;
};

// One full description per size, made once: the benchmarks copy it.
const Description& description(int classCount)
{
    static std::map<int, Description> made;
    auto [it, inserted] = made.try_emplace(classCount);
    if (inserted)
    {
        static const std::vector<entt::meta_type> types = classTypes(std::make_index_sequence<MAX_CLASSES>());
        const Bench::AllocationCounts before = Bench::allocationCounts();
        it->second.classes.reserve(static_cast<std::size_t>(classCount));
        for (int index = 0; index < classCount; ++index)
        {
            it->second.classes.push_back(makeClass(index, types));
        }
        it->second.liveBytes = (Bench::allocationCounts() - before).liveBytes();
        it->second.members = static_cast<std::size_t>(classCount) * 2 * MEMBERS_OF_A_KIND;
    }
    return it->second;
}

std::unique_ptr<ModuleBindingBuilder> filledBuilder(const Description& full)
{
    auto builder = std::make_unique<ModuleBindingBuilder>(quv::UUID(1, 2), "bench-module", BUILT_VERSION, false);
    for (const ClassBinding& binding : full.classes)
    {
        builder->classBinding(binding);
    }
    return builder;
}

std::size_t boundMembers(const ModuleBinding& module)
{
    std::size_t count = 0;
    for (const ClassBinding& binding : module.classBindings)
    {
        count += binding.functions.size() + binding.properties.size();
    }
    return count;
}

// ---- Build of one version ----

void BM_Build(benchmark::State& state)
{
    const Description& full = description(static_cast<int>(state.range(0)));
    std::size_t kept = 0;
    std::size_t allocatedBytes = 0;
    std::size_t allocations = 0;
    for (auto _ : state)
    {
        state.PauseTiming();
        auto builder = filledBuilder(full);
        const Bench::AllocationCounts before = Bench::allocationCounts();
        state.ResumeTiming();

        ModuleBinding module = builder->build(false, {}, {});

        state.PauseTiming();
        const Bench::AllocationCounts spent = Bench::allocationCounts() - before;
        allocatedBytes = spent.allocatedBytes;
        allocations = spent.allocations;
        kept = boundMembers(module);
        benchmark::DoNotOptimize(module);
        // The result and the spent builder go while the clock stands.
        {
            ModuleBinding dropped = std::move(module);
            builder.reset();
        }
        state.ResumeTiming();
    }
    state.counters["members"] = static_cast<double>(full.members);
    state.counters["kept"] = static_cast<double>(kept);
    state.counters["ns_per_member"] = benchmark::Counter(
        static_cast<double>(full.members), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
    state.counters["description_B_per_member"] =
        static_cast<double>(full.liveBytes) / static_cast<double>(full.members);
    state.counters["build_alloc_B_per_kept"] = static_cast<double>(allocatedBytes) / static_cast<double>(kept);
    state.counters["build_allocs"] = static_cast<double>(allocations);
}
BENCHMARK(BM_Build)->Arg(20)->Arg(200)->Arg(2000)->Unit(benchmark::kMillisecond);

// The same records copied whole, as a factory copies a stored description into a builder.
void BM_Baseline_CopyRecords(benchmark::State& state)
{
    const Description& full = description(static_cast<int>(state.range(0)));
    for (auto _ : state)
    {
        std::vector<ClassBinding> copy = full.classes;
        benchmark::DoNotOptimize(copy);
        state.PauseTiming();
        {
            std::vector<ClassBinding> dropped = std::move(copy);
        }
        state.ResumeTiming();
    }
    state.counters["ns_per_member"] = benchmark::Counter(
        static_cast<double>(full.members), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_Baseline_CopyRecords)->Arg(20)->Arg(200)->Arg(2000)->Unit(benchmark::kMillisecond);

// ---- The name check as a pairwise scan ----

// Every record looks through the names of its name space for another record of its name: the check as
// simply written, quadratic in the records of one module and in the members of one class.
template <typename Records>
void appendNames(std::vector<const std::string*>& names, const Records& records)
{
    for (const auto& record : records)
    {
        names.push_back(&record.name);
    }
}

std::size_t pairwiseCollisions(const std::vector<const std::string*>& names)
{
    std::size_t collisions = 0;
    for (std::size_t i = 0; i < names.size(); ++i)
    {
        for (std::size_t j = 0; j < names.size(); ++j)
        {
            if (i != j && *names[i] == *names[j])
            {
                ++collisions;
                break;
            }
        }
    }
    return collisions;
}

// The module's own name space: functions, object factories, constants, enums and classes.
void BM_Reference_PairwiseModuleNames(benchmark::State& state)
{
    auto builder = filledBuilder(description(static_cast<int>(state.range(0))));
    const ModuleBinding module = builder->build(false, {}, {});
    std::vector<const std::string*> names;
    for (auto _ : state)
    {
        names.clear();
        appendNames(names, module.functionBindings);
        appendNames(names, module.objectFactories);
        appendNames(names, module.constants);
        appendNames(names, module.enumBindings);
        appendNames(names, module.classBindings);
        benchmark::DoNotOptimize(pairwiseCollisions(names));
    }
}
BENCHMARK(BM_Reference_PairwiseModuleNames)->Arg(20)->Arg(200)->Arg(2000)->Unit(benchmark::kMillisecond);

// The members of each class: functions, properties and constants.
void BM_Reference_PairwiseClassMemberNames(benchmark::State& state)
{
    auto builder = filledBuilder(description(static_cast<int>(state.range(0))));
    const ModuleBinding module = builder->build(false, {}, {});
    std::vector<const std::string*> names;
    for (auto _ : state)
    {
        std::size_t collisions = 0;
        for (const ClassBinding& binding : module.classBindings)
        {
            names.clear();
            appendNames(names, binding.functions);
            appendNames(names, binding.properties);
            appendNames(names, binding.constants);
            collisions += pairwiseCollisions(names);
        }
        benchmark::DoNotOptimize(collisions);
    }
}
BENCHMARK(BM_Reference_PairwiseClassMemberNames)->Arg(20)->Arg(200)->Arg(2000)->Unit(benchmark::kMillisecond);
} // namespace
