#pragma once

#include "Hash/Fnv1a.h"

namespace Scripting::internal
{
using Ovelith::Hash::fnv1a64;

// Folds `hash` into `seed`, in the form the library's composite hashes use.
constexpr uint64_t combineHash(uint64_t seed, uint64_t hash) noexcept
{
    return (hash ^ seed) + (seed << 6) + 0x9e3779b9ull + (seed >> 2);
}
} // namespace Scripting::internal
