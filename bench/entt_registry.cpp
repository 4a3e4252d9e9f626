// Hot operations of the entity subset on the library's handle layout (32 id bits, 24 version
// bits), each next to a plain standard-library equivalent measured in the same run.

#include <cstddef>
#include <cstdint>
#include <unordered_map>
#include <vector>

#include <benchmark/benchmark.h>
#include <entt/entity/registry.hpp>

namespace
{
enum class Handle : std::uint64_t
{
};

struct HandleTraits
{
    using value_type = Handle;
    using entity_type = std::uint64_t;
    using version_type = std::uint32_t;
    static constexpr entity_type entity_mask = 0xFFFFFFFF;
    static constexpr entity_type version_mask = 0xFFFFFF;
};
} // namespace

template <>
struct entt::entt_traits<Handle> : entt::basic_entt_traits<HandleTraits>
{
    static constexpr std::size_t page_size = 4096;
};

namespace
{
using Registry = entt::basic_registry<Handle>;
constexpr std::size_t MANY = 1'000'000;

struct Position
{
    static constexpr std::size_t page_size = 128;
    float x;
    float y;
};

struct Velocity
{
    static constexpr std::size_t page_size = 128;
    float dx;
    float dy;
};

// Baseline: ids with versions in a vector and a free list, as one would write it by hand.
class SlotMap
{
public:
    std::uint64_t create()
    {
        if (!mFree.empty())
        {
            const auto id = mFree.back();
            mFree.pop_back();
            return id | (static_cast<std::uint64_t>(mVersions[id]) << 32u);
        }
        mVersions.push_back(0u);
        return mVersions.size() - 1u;
    }

    void destroy(std::uint64_t handle)
    {
        const auto id = handle & 0xFFFFFFFFu;
        ++mVersions[id];
        mFree.push_back(id);
    }

private:
    std::vector<std::uint32_t> mVersions;
    std::vector<std::uint64_t> mFree;
};

void Registry_CreateDestroy1M(benchmark::State& state)
{
    std::vector<Handle> entities(MANY);
    for (auto _ : state)
    {
        Registry registry;
        for (auto& entity : entities)
        {
            entity = registry.create();
        }
        for (const auto entity : entities)
        {
            registry.destroy(entity);
        }
        benchmark::DoNotOptimize(registry);
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * MANY));
}
BENCHMARK(Registry_CreateDestroy1M)->Unit(benchmark::kMillisecond);

void SlotMap_CreateDestroy1M(benchmark::State& state)
{
    std::vector<std::uint64_t> entities(MANY);
    for (auto _ : state)
    {
        SlotMap slots;
        for (auto& entity : entities)
        {
            entity = slots.create();
        }
        for (const auto entity : entities)
        {
            slots.destroy(entity);
        }
        benchmark::DoNotOptimize(slots);
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * MANY));
}
BENCHMARK(SlotMap_CreateDestroy1M)->Unit(benchmark::kMillisecond);

void Registry_Emplace1M(benchmark::State& state)
{
    std::vector<Handle> entities(MANY);
    for (auto _ : state)
    {
        state.PauseTiming();
        Registry registry;
        for (auto& entity : entities)
        {
            entity = registry.create();
        }
        state.ResumeTiming();
        for (const auto entity : entities)
        {
            registry.emplace<Position>(entity, 1.0f, 2.0f);
        }
        benchmark::DoNotOptimize(registry);
        state.PauseTiming();
        registry = Registry{};
        state.ResumeTiming();
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * MANY));
}
BENCHMARK(Registry_Emplace1M)->Unit(benchmark::kMillisecond);

void UnorderedMap_Emplace1M(benchmark::State& state)
{
    for (auto _ : state)
    {
        std::unordered_map<std::uint64_t, Position> positions;
        for (std::uint64_t entity = 0; entity < MANY; ++entity)
        {
            positions.emplace(entity, Position{1.0f, 2.0f});
        }
        benchmark::DoNotOptimize(positions);
        state.PauseTiming();
        positions = {};
        state.ResumeTiming();
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * MANY));
}
BENCHMARK(UnorderedMap_Emplace1M)->Unit(benchmark::kMillisecond);

struct Populated
{
    Populated()
    {
        entities.resize(MANY);
        for (auto& entity : entities)
        {
            entity = registry.create();
            registry.emplace<Position>(entity, 1.0f, 2.0f);
            positions.emplace(static_cast<std::uint64_t>(entity), Position{1.0f, 2.0f});
            if ((static_cast<std::uint64_t>(entity) & 1u) == 0u)
            {
                registry.emplace<Velocity>(entity, 0.5f, 0.5f);
                velocities.emplace(static_cast<std::uint64_t>(entity), Velocity{0.5f, 0.5f});
                plainVelocities.push_back(Velocity{0.5f, 0.5f});
            }
            plainPositions.push_back(Position{1.0f, 2.0f});
        }
    }

    Registry registry;
    std::vector<Handle> entities;
    std::unordered_map<std::uint64_t, Position> positions;
    std::unordered_map<std::uint64_t, Velocity> velocities;
    std::vector<Position> plainPositions;
    std::vector<Velocity> plainVelocities;
};

Populated& populated()
{
    static Populated data;
    return data;
}

void Registry_Get1M(benchmark::State& state)
{
    auto& data = populated();
    for (auto _ : state)
    {
        float sum = 0.0f;
        for (const auto entity : data.entities)
        {
            sum += data.registry.get<Position>(entity).x;
        }
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * MANY));
}
BENCHMARK(Registry_Get1M)->Unit(benchmark::kMillisecond);

void Registry_TryGet1M(benchmark::State& state)
{
    auto& data = populated();
    for (auto _ : state)
    {
        float sum = 0.0f;
        for (const auto entity : data.entities)
        {
            if (const auto* velocity = data.registry.try_get<Velocity>(entity); velocity != nullptr)
            {
                sum += velocity->dx;
            }
        }
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * MANY));
}
BENCHMARK(Registry_TryGet1M)->Unit(benchmark::kMillisecond);

void UnorderedMap_Find1M(benchmark::State& state)
{
    auto& data = populated();
    for (auto _ : state)
    {
        float sum = 0.0f;
        for (const auto entity : data.entities)
        {
            if (const auto it = data.velocities.find(static_cast<std::uint64_t>(entity)); it != data.velocities.end())
            {
                sum += it->second.dx;
            }
        }
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * MANY));
}
BENCHMARK(UnorderedMap_Find1M)->Unit(benchmark::kMillisecond);

void Registry_ViewOne1M(benchmark::State& state)
{
    auto& data = populated();
    for (auto _ : state)
    {
        float sum = 0.0f;
        data.registry.view<Position>().each([&sum](const Position& position) { sum += position.x; });
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * MANY));
}
BENCHMARK(Registry_ViewOne1M)->Unit(benchmark::kMillisecond);

void Vector_Iterate1M(benchmark::State& state)
{
    auto& data = populated();
    for (auto _ : state)
    {
        float sum = 0.0f;
        for (const auto& position : data.plainPositions)
        {
            sum += position.x;
        }
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * MANY));
}
BENCHMARK(Vector_Iterate1M)->Unit(benchmark::kMillisecond);

void Registry_ViewTwo1M(benchmark::State& state)
{
    auto& data = populated();
    for (auto _ : state)
    {
        float sum = 0.0f;
        data.registry.view<Position, Velocity>().each([&sum](const Position& position, const Velocity& velocity)
                                                      { sum += position.x * velocity.dx; });
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * MANY));
}
BENCHMARK(Registry_ViewTwo1M)->Unit(benchmark::kMillisecond);

void UnorderedMap_Join1M(benchmark::State& state)
{
    auto& data = populated();
    for (auto _ : state)
    {
        float sum = 0.0f;
        for (const auto& [entity, velocity] : data.velocities)
        {
            sum += data.positions.find(entity)->second.x * velocity.dx;
        }
        benchmark::DoNotOptimize(sum);
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * MANY));
}
BENCHMARK(UnorderedMap_Join1M)->Unit(benchmark::kMillisecond);
} // namespace
