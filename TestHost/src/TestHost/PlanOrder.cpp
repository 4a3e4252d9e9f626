#include "TestHost/PlanOrder.h"

#include "Hash/Fnv1a.h"

#include <algorithm>
#include <numeric>
#include <optional>

namespace Ovelith::TestHost
{
namespace
{
// The finaliser of splitmix64: spreads every input bit over the whole word.
uint64_t mix(uint64_t value)
{
    value += 0x9e3779b97f4a7c15ull;
    value = (value ^ (value >> 30)) * 0xbf58476d1ce4e5b9ull;
    value = (value ^ (value >> 27)) * 0x94d049bb133111ebull;
    return value ^ (value >> 31);
}

template <typename Item, typename Name>
void sortByKey(std::vector<Item>& items, uint64_t seed, Name name)
{
    const uint64_t salt = mix(seed);
    std::vector<std::pair<uint64_t, size_t>> keys;
    keys.reserve(items.size());
    for (size_t index = 0; index < items.size(); ++index)
    {
        keys.emplace_back(mix(Hash::fnv1a64(name(items[index])) ^ salt), index);
    }
    // Equal keys keep the names' order, which depends on nothing else either.
    std::sort(keys.begin(), keys.end(),
              [&](const auto& left, const auto& right)
              {
                  return left.first != right.first ? left.first < right.first
                                                   : name(items[left.second]) < name(items[right.second]);
              });
    std::vector<Item> sorted;
    sorted.reserve(items.size());
    for (const auto& key : keys)
    {
        sorted.push_back(std::move(items[key.second]));
    }
    items = std::move(sorted);
}
} // namespace

std::vector<PlannedClass> shardClasses(std::vector<PlannedClass> classes, size_t count, size_t index)
{
    std::vector<size_t> bySize(classes.size());
    std::iota(bySize.begin(), bySize.end(), size_t{0});
    std::stable_sort(bySize.begin(), bySize.end(),
                     [&](size_t left, size_t right)
                     { return classes[left].cases.size() > classes[right].cases.size(); });
    std::vector<size_t> load(count, 0);
    std::vector<bool> kept(classes.size(), false);
    for (size_t classIndex : bySize)
    {
        const size_t shard = static_cast<size_t>(std::min_element(load.begin(), load.end()) - load.begin());
        load[shard] += classes[classIndex].cases.size();
        kept[classIndex] = shard == index;
    }
    std::vector<PlannedClass> shard;
    for (size_t classIndex = 0; classIndex < classes.size(); ++classIndex)
    {
        if (kept[classIndex])
        {
            shard.push_back(std::move(classes[classIndex]));
        }
    }
    return shard;
}

void shuffleClasses(std::vector<PlannedClass>& classes, uint64_t seed)
{
    sortByKey(classes, seed, [](const PlannedClass& testClass) -> const std::string& { return testClass.name; });
    for (PlannedClass& testClass : classes)
    {
        sortByKey(testClass.cases, seed,
                  [](const PlannedCase& testCase) -> const std::string& { return testCase.name; });
    }
}

std::vector<PlannedClass> repeatClasses(const std::vector<PlannedClass>& classes, size_t times,
                                        const std::optional<uint64_t>& seed)
{
    std::vector<PlannedClass> repeated;
    repeated.reserve(classes.size() * times);
    for (size_t round = 0; round < times; ++round)
    {
        std::vector<PlannedClass> copy = classes;
        if (seed)
        {
            shuffleClasses(copy, *seed + round);
        }
        std::move(copy.begin(), copy.end(), std::back_inserter(repeated));
    }
    return repeated;
}
} // namespace Ovelith::TestHost
