// Hot operations of the reflection subset, each next to a hand-written baseline built on
// the standard library, measured in the same run.

#include <any>
#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <unordered_map>

#include <benchmark/benchmark.h>
#include <entt/core/hashed_string.hpp>
#include <entt/meta/factory.hpp>
#include <entt/meta/meta.hpp>
#include <entt/meta/resolve.hpp>
#include <entt/meta/template.hpp>

namespace
{
using namespace entt::literals;

struct Large
{
    std::array<double, 8> values{};
};

struct Base
{
    virtual ~Base() = default;
    int base = 1;
};

struct Derived : Base
{
    int derived = 2;
};

struct Counter
{
    int value = 0;
    int add(int amount) { return value += amount; }
};

void registerTypes()
{
    static const bool done = []
    {
        entt::meta<Derived>().base<Base>();
        entt::meta<Counter>().func<&Counter::add>("add"_hs);
        return true;
    }();
    benchmark::DoNotOptimize(done);
}

void MetaAny_ConstructSmall(benchmark::State& state)
{
    int value = 0;
    for (auto _ : state)
    {
        entt::meta_any any{++value};
        benchmark::DoNotOptimize(any);
    }
}
BENCHMARK(MetaAny_ConstructSmall);

void StdAny_ConstructSmall(benchmark::State& state)
{
    int value = 0;
    for (auto _ : state)
    {
        std::any any{++value};
        benchmark::DoNotOptimize(any);
    }
}
BENCHMARK(StdAny_ConstructSmall);

void MetaAny_ConstructLarge(benchmark::State& state)
{
    Large value{};
    for (auto _ : state)
    {
        value.values[0] += 1.0;
        entt::meta_any any{value};
        benchmark::DoNotOptimize(any);
    }
}
BENCHMARK(MetaAny_ConstructLarge);

void StdAny_ConstructLarge(benchmark::State& state)
{
    Large value{};
    for (auto _ : state)
    {
        value.values[0] += 1.0;
        std::any any{value};
        benchmark::DoNotOptimize(any);
    }
}
BENCHMARK(StdAny_ConstructLarge);

void MetaAny_CopySmall(benchmark::State& state)
{
    const entt::meta_any source{42};
    for (auto _ : state)
    {
        entt::meta_any copy{source};
        benchmark::DoNotOptimize(copy);
    }
}
BENCHMARK(MetaAny_CopySmall);

void StdAny_CopySmall(benchmark::State& state)
{
    const std::any source{42};
    for (auto _ : state)
    {
        std::any copy{source};
        benchmark::DoNotOptimize(copy);
    }
}
BENCHMARK(StdAny_CopySmall);

void MetaAny_CopyString(benchmark::State& state)
{
    const entt::meta_any source{std::string(64, 'x')};
    for (auto _ : state)
    {
        entt::meta_any copy{source};
        benchmark::DoNotOptimize(copy);
    }
}
BENCHMARK(MetaAny_CopyString);

void StdAny_CopyString(benchmark::State& state)
{
    const std::any source{std::string(64, 'x')};
    for (auto _ : state)
    {
        std::any copy{source};
        benchmark::DoNotOptimize(copy);
    }
}
BENCHMARK(StdAny_CopyString);

void MetaAny_TryCast(benchmark::State& state)
{
    entt::meta_any any{42};
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(any);
        benchmark::DoNotOptimize(any.try_cast<int>());
    }
}
BENCHMARK(MetaAny_TryCast);

void StdAny_AnyCastPointer(benchmark::State& state)
{
    std::any any{42};
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(any);
        benchmark::DoNotOptimize(std::any_cast<int>(&any));
    }
}
BENCHMARK(StdAny_AnyCastPointer);

void MetaAny_TryCastToBase(benchmark::State& state)
{
    registerTypes();
    Derived object;
    entt::meta_any any = entt::forward_as_meta(object);
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(any);
        benchmark::DoNotOptimize(any.try_cast<Base>());
    }
}
BENCHMARK(MetaAny_TryCastToBase);

void Cpp_DynamicCastToBase(benchmark::State& state)
{
    Derived object;
    Base* base = &object;
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(base);
        benchmark::DoNotOptimize(dynamic_cast<Derived*>(base));
    }
}
BENCHMARK(Cpp_DynamicCastToBase);

void MetaAny_AllowCastArithmetic(benchmark::State& state)
{
    int value = 0;
    for (auto _ : state)
    {
        entt::meta_any any{++value};
        const bool converted = any.allow_cast<double>();
        benchmark::DoNotOptimize(converted);
        benchmark::DoNotOptimize(any);
    }
}
BENCHMARK(MetaAny_AllowCastArithmetic);

void StdAny_ConvertArithmetic(benchmark::State& state)
{
    int value = 0;
    for (auto _ : state)
    {
        std::any any{++value};
        // What a hand-written converter does: find the source type, replace the value.
        if (const int* source = std::any_cast<int>(&any); source != nullptr)
        {
            any = static_cast<double>(*source);
        }
        benchmark::DoNotOptimize(any);
    }
}
BENCHMARK(StdAny_ConvertArithmetic);

void MetaType_InvokeById(benchmark::State& state)
{
    registerTypes();
    Counter counter;
    entt::meta_any instance = entt::forward_as_meta(counter);
    const auto type = entt::resolve<Counter>();
    for (auto _ : state)
    {
        auto result = type.invoke("add"_hs, instance, 1);
        benchmark::DoNotOptimize(result);
    }
}
BENCHMARK(MetaType_InvokeById);

void StdFunction_InvokeById(benchmark::State& state)
{
    // The usual hand-made registry: a hash map from ids to type-erased callables.
    std::unordered_map<entt::id_type, std::function<std::any(void*, std::any&)>> functions;
    functions["add"_hs] = [](void* self, std::any& arg) -> std::any
    {
        const int* amount = std::any_cast<int>(&arg);
        if (amount == nullptr)
        {
            return {};
        }
        return static_cast<Counter*>(self)->add(*amount);
    };
    Counter counter;
    for (auto _ : state)
    {
        std::any arg{1};
        auto result = functions.find("add"_hs)->second(&counter, arg);
        benchmark::DoNotOptimize(result);
    }
}
BENCHMARK(StdFunction_InvokeById);
} // namespace
