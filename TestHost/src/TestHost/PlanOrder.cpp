#include "TestHost/PlanOrder.h"

#include "Hash/Fnv1a.h"

#include <algorithm>
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

std::vector<PlannedClass> shardCases(std::vector<PlannedClass> classes, size_t count, size_t index)
{
    size_t position = 0;
    std::vector<PlannedClass> shard;
    for (PlannedClass& testClass : classes)
    {
        std::vector<PlannedCase> kept;
        for (PlannedCase& testCase : testClass.cases)
        {
            if (position++ % count == index)
            {
                kept.push_back(std::move(testCase));
            }
        }
        if (!kept.empty())
        {
            testClass.cases = std::move(kept);
            shard.push_back(std::move(testClass));
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
        for (PlannedClass& testClass : copy)
        {
            testClass.round = round;
        }
        std::move(copy.begin(), copy.end(), std::back_inserter(repeated));
    }
    return repeated;
}
} // namespace Ovelith::TestHost
