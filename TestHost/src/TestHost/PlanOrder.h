#pragma once

#include "TestHost/TestPlan.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace Ovelith::TestHost
{
// Keeps the cases of shard `index` of `count`, as GoogleTest deals them: case i of the selection, counted over
// all classes in order, goes to shard i mod count. A class stays whole only where its cases all land in one
// shard; each shard makes its own object for the cases it has. Classes left without a case are dropped.
std::vector<PlannedClass> shardCases(std::vector<PlannedClass> classes, size_t count, size_t index);

// Orders the classes, and the cases within each class, by a hash of each name with `seed`. Where two names go
// depends on those names and the seed alone, so leaving cases out does not reorder the rest.
void shuffleClasses(std::vector<PlannedClass>& classes, uint64_t seed);

// The classes `times` over, one round after another, each marked with its round. With a seed, round r is shuffled with
// seed + r, so that rounds differ and one seed replays them all.
std::vector<PlannedClass> repeatClasses(const std::vector<PlannedClass>& classes, size_t times,
                                        const std::optional<uint64_t>& seed);
} // namespace Ovelith::TestHost
