#pragma once

#include <cstdint>
#include <string_view>

namespace Ovelith::Hash
{
// 64-bit FNV-1a: the string hash of the whole system.
/** @brief Starting value of the hash. */
constexpr uint64_t FNV_OFFSET_BASIS = 0xcbf29ce484222325ull;
/** @brief Multiplier of each step. */
constexpr uint64_t FNV_PRIME = 0x100000001b3ull;

/**
 * @brief Hashes bytes with 64-bit FNV-1a.
 * @param bytes The bytes.
 * @return Their hash; usable at compile time.
 */
constexpr uint64_t fnv1a64(std::string_view bytes) noexcept
{
    uint64_t hash = FNV_OFFSET_BASIS;
    for (char c : bytes)
    {
        hash ^= static_cast<unsigned char>(c);
        hash *= FNV_PRIME;
    }
    return hash;
}
} // namespace Ovelith::Hash
