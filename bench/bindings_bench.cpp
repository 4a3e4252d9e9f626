// Bindings: a call through the callable and property wrappers beside a direct C++ call and beside EnTT's own
// meta invoke of the same function, with the heap allocations of each call counted; and the cost of describing a
// class of 50 methods and 50 properties.
#include "AllocationCounter.h"

#include "Scripting/BindingType/ClassBindingBuilder.h"
#include "Scripting/Reflection/Function.h"
#include "Scripting/Reflection/Property.h"

#include <benchmark/benchmark.h>

#include <entt/core/hashed_string.hpp>
#include <entt/meta/factory.hpp>

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace
{
// Reports the allocations per iteration made since construction.
class AllocationCounter
{
public:
    explicit AllocationCounter(benchmark::State& state) : mState(state), mStart(Bench::allocationCounts()) {}
    ~AllocationCounter()
    {
        const auto iterations = static_cast<double>(mState.iterations());
        const Bench::AllocationCounts spent = Bench::allocationCounts() - mStart;
        mState.counters["allocs_per_call"] = iterations > 0 ? static_cast<double>(spent.allocations) / iterations : 0.0;
    }

private:
    benchmark::State& mState;
    Bench::AllocationCounts mStart;
};
} // namespace

namespace
{
using namespace entt::literals;
using namespace Scripting;

[[gnu::noinline]] int add(int left, int right)
{
    return left + right;
}

struct Counter
{
    int value = 1;

    [[gnu::noinline]] int add(int left, int right) { return value + left + right; }
    [[gnu::noinline]] int getValue() const { return value; }
    [[gnu::noinline]] void setValue(int newValue) { value = newValue; }
};

// The same functions, registered with EnTT's meta system once.
entt::meta_type registeredCounter()
{
    static const bool sRegistered = []
    {
        entt::meta<Counter>(Reflection::context())
            .func<&::add>("add_free"_hs)
            .func<&Counter::add>("add"_hs)
            .func<&Counter::getValue>("getValue"_hs)
            .func<&Counter::setValue>("setValue"_hs);
        return true;
    }();
    benchmark::DoNotOptimize(sRegistered);
    return Reflection::resolve<Counter>();
}

void BM_Direct_FreeFunction(benchmark::State& state)
{
    int left = 1;
    int right = 2;
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(left);
        benchmark::DoNotOptimize(add(left, right));
    }
}
BENCHMARK(BM_Direct_FreeFunction);

void BM_EnttInvoke_FreeFunction(benchmark::State& state)
{
    const entt::meta_type type = registeredCounter();
    std::array args{entt::meta_any{1}, entt::meta_any{2}};
    AllocationCounter counter(state);
    for (auto _ : state)
    {
        entt::meta_any result = type.invoke("add_free"_hs, {}, args.data(), args.size());
        benchmark::DoNotOptimize(result);
    }
}
BENCHMARK(BM_EnttInvoke_FreeFunction);

void BM_Wrapper_FreeFunction(benchmark::State& state)
{
    const Reflection::StaticFunction<&add, false> function(Privilege::None, {});
    const Reflection::IFunction& callable = function;
    std::array args{entt::meta_any{1}, entt::meta_any{2}};
    AllocationCounter counter(state);
    for (auto _ : state)
    {
        entt::meta_any result = callable.call(entt::meta_any{}, args.data(), 2);
        benchmark::DoNotOptimize(result);
    }
}
BENCHMARK(BM_Wrapper_FreeFunction);

void BM_Direct_Method(benchmark::State& state)
{
    Counter object;
    int left = 1;
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(left);
        benchmark::DoNotOptimize(object.add(left, 2));
    }
}
BENCHMARK(BM_Direct_Method);

void BM_EnttInvoke_Method(benchmark::State& state)
{
    const entt::meta_type type = registeredCounter();
    Counter object;
    entt::meta_any instance = entt::forward_as_meta(object);
    std::array args{entt::meta_any{1}, entt::meta_any{2}};
    AllocationCounter counter(state);
    for (auto _ : state)
    {
        entt::meta_any result = type.invoke("add"_hs, instance, args.data(), args.size());
        benchmark::DoNotOptimize(result);
    }
}
BENCHMARK(BM_EnttInvoke_Method);

void BM_Wrapper_Method(benchmark::State& state)
{
    const Reflection::MemberFunction<&Counter::add> function(Privilege::None, {});
    const Reflection::IFunction& callable = function;
    Counter object;
    entt::meta_any instance = entt::forward_as_meta(object);
    std::array args{entt::meta_any{1}, entt::meta_any{2}};
    AllocationCounter counter(state);
    for (auto _ : state)
    {
        entt::meta_any result = callable.call(instance.as_ref(), args.data(), 2);
        benchmark::DoNotOptimize(result);
    }
}
BENCHMARK(BM_Wrapper_Method);

void BM_Direct_PropertyGet(benchmark::State& state)
{
    Counter object;
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(object);
        benchmark::DoNotOptimize(object.getValue());
    }
}
BENCHMARK(BM_Direct_PropertyGet);

void BM_EnttInvoke_PropertyGet(benchmark::State& state)
{
    const entt::meta_type type = registeredCounter();
    Counter object;
    entt::meta_any instance = entt::forward_as_meta(object);
    AllocationCounter counter(state);
    for (auto _ : state)
    {
        entt::meta_any result = type.invoke("getValue"_hs, instance, nullptr, 0);
        benchmark::DoNotOptimize(result);
    }
}
BENCHMARK(BM_EnttInvoke_PropertyGet);

template <typename Getter>
void wrapperGet(benchmark::State& state)
{
    const Getter getter(Privilege::ReadOnly);
    const Reflection::IPropertyGetter& property = getter;
    Counter object;
    entt::meta_any instance = entt::forward_as_meta(object);
    AllocationCounter counter(state);
    for (auto _ : state)
    {
        entt::meta_any result = property.get(instance.as_ref());
        benchmark::DoNotOptimize(result);
    }
}

// The getter over the same member function as the EnTT baseline.
void BM_Wrapper_PropertyGet_Method(benchmark::State& state)
{
    wrapperGet<Reflection::MemberPropertyGetter<Counter, false, &Counter::getValue>>(state);
}
BENCHMARK(BM_Wrapper_PropertyGet_Method);

// The getter over the member object: a reference into the object, no call.
void BM_Wrapper_PropertyGet_Member(benchmark::State& state)
{
    wrapperGet<Reflection::MemberPropertyGetter<Counter, false, &Counter::value>>(state);
}
BENCHMARK(BM_Wrapper_PropertyGet_Member);

void BM_Direct_PropertySet(benchmark::State& state)
{
    Counter object;
    int value = 3;
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(value);
        object.setValue(value);
        benchmark::DoNotOptimize(object);
    }
}
BENCHMARK(BM_Direct_PropertySet);

void BM_EnttInvoke_PropertySet(benchmark::State& state)
{
    const entt::meta_type type = registeredCounter();
    Counter object;
    entt::meta_any instance = entt::forward_as_meta(object);
    entt::meta_any value{3};
    AllocationCounter counter(state);
    for (auto _ : state)
    {
        entt::meta_any result = type.invoke("setValue"_hs, instance, &value, 1);
        benchmark::DoNotOptimize(result);
    }
}
BENCHMARK(BM_EnttInvoke_PropertySet);

// `set` takes its value by value; a view of it stands for the pointer that EnTT's invoke reads, so that neither
// side copies the value.
template <typename Setter>
void wrapperSet(benchmark::State& state)
{
    const Setter setter(Privilege::None);
    const Reflection::IPropertySetter& property = setter;
    Counter object;
    entt::meta_any instance = entt::forward_as_meta(object);
    const entt::meta_any value{3};
    AllocationCounter counter(state);
    for (auto _ : state)
    {
        ResultAny result = property.set(instance.as_ref(), value.as_ref());
        benchmark::DoNotOptimize(result);
    }
}

// The setter over the same member function as the EnTT baseline.
void BM_Wrapper_PropertySet_Method(benchmark::State& state)
{
    wrapperSet<Reflection::MemberPropertySetter<Counter, &Counter::setValue>>(state);
}
BENCHMARK(BM_Wrapper_PropertySet_Method);

void BM_Wrapper_PropertySet_Member(benchmark::State& state)
{
    wrapperSet<Reflection::MemberPropertySetter<Counter, &Counter::value>>(state);
}
BENCHMARK(BM_Wrapper_PropertySet_Member);

// A class with 50 methods and 50 properties, each a distinct native function.
constexpr std::size_t MEMBERS = 50;

struct Wide
{
    std::array<int, MEMBERS> values{};

    template <std::size_t I>
    int method(int argument)
    {
        return values[I] + argument;
    }
    template <std::size_t I>
    int get() const
    {
        return values[I];
    }
    template <std::size_t I>
    void set(int value)
    {
        values[I] = value;
    }
};

const std::vector<std::string>& memberNames(const char* prefix)
{
    static std::vector<std::string> sMethods;
    static std::vector<std::string> sProperties;
    std::vector<std::string>& names = prefix[0] == 'm' ? sMethods : sProperties;
    if (names.empty())
    {
        for (std::size_t index = 0; index < MEMBERS; ++index)
        {
            names.push_back(prefix + std::to_string(index));
        }
    }
    return names;
}

template <std::size_t... I>
ClassBinding buildWide(std::index_sequence<I...>)
{
    const std::vector<std::string>& methods = memberNames("method");
    const std::vector<std::string>& properties = memberNames("property");
    ClassBindingBuilder<Wide> builder("Wide");
    (builder.template method<&Wide::template method<I>>(methods[I], ArgumentBindingBuilder<int>("argument")), ...);
    (builder.template property<&Wide::template get<I>, &Wide::template set<I>>(properties[I]), ...);
    return builder.finish();
}

// What a hand-written table of the same members holds: a name and a type-erased callable each.
template <std::size_t... I>
std::vector<std::pair<std::string, std::function<int(Wide&, int)>>> buildWideTable(std::index_sequence<I...>)
{
    const std::vector<std::string>& methods = memberNames("method");
    const std::vector<std::string>& properties = memberNames("property");
    std::vector<std::pair<std::string, std::function<int(Wide&, int)>>> table;
    (table.emplace_back(methods[I], [](Wide& object, int argument) { return object.method<I>(argument); }), ...);
    (table.emplace_back(properties[I],
                        [](Wide& object, int value)
                        {
                            object.set<I>(value);
                            return object.get<I>();
                        }),
     ...);
    return table;
}

// Times `build` and reports, per member, the allocations and bytes of a build and the bytes its result keeps.
template <typename Build>
void measureBuild(benchmark::State& state, const Build& build)
{
    const double members = 2.0 * MEMBERS;
    const Bench::AllocationCounts before = Bench::allocationCounts();
    for (auto _ : state)
    {
        auto built = build();
        benchmark::DoNotOptimize(built);
    }
    const auto iterations = static_cast<double>(state.iterations());
    const Bench::AllocationCounts spent = Bench::allocationCounts() - before;
    state.counters["allocs_per_member"] = static_cast<double>(spent.allocations) / iterations / members;
    state.counters["allocated_bytes_per_member"] = static_cast<double>(spent.allocatedBytes) / iterations / members;

    const Bench::AllocationCounts beforeKept = Bench::allocationCounts();
    auto kept = build();
    state.counters["retained_bytes_per_member"] =
        static_cast<double>((Bench::allocationCounts() - beforeKept).liveBytes()) / members;
    benchmark::DoNotOptimize(kept);
}

void BM_Build_ClassBinding_50Methods_50Properties(benchmark::State& state)
{
    measureBuild(state, [] { return buildWide(std::make_index_sequence<MEMBERS>{}); });
}
BENCHMARK(BM_Build_ClassBinding_50Methods_50Properties);

void BM_Build_FunctionTable_100Entries(benchmark::State& state)
{
    measureBuild(state, [] { return buildWideTable(std::make_index_sequence<MEMBERS>{}); });
}
BENCHMARK(BM_Build_FunctionTable_100Entries);
} // namespace
