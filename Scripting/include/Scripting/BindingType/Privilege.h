#pragma once

#include <cstdint>

namespace Scripting
{
/// What a runtime may let a script do through a callable. The library only carries it.
enum class Privilege : uint8_t
{
    /** @brief No restriction. */
    None = 0,
    /** @brief The script may only read. */
    ReadOnly = 1,
};
} // namespace Scripting
