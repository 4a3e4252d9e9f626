#pragma once

#include "TestHost/TestPlan.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace Ovelith::TestHost
{
// Keeps the classes of shard `index` of `count`, in their order. Whole classes are dealt out, since a class's
// cases share one object: the largest first, each to the shard with the fewest cases so far. The same
// selection always deals the same way, and every class lands in exactly one shard.
std::vector<PlannedClass> shardClasses(std::vector<PlannedClass> classes, size_t count, size_t index);

// Orders the classes, and the cases within each class, by a hash of each name with `seed`. Where two names go
// depends on those names and the seed alone, so leaving cases out does not reorder the rest.
void shuffleClasses(std::vector<PlannedClass>& classes, uint64_t seed);

// The classes `times` over, one round after another. With a seed, round r is shuffled with seed + r, so that
// rounds differ and one seed replays them all.
std::vector<PlannedClass> repeatClasses(const std::vector<PlannedClass>& classes, size_t times,
                                        const std::optional<uint64_t>& seed);
} // namespace Ovelith::TestHost
