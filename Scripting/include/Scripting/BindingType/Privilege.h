#pragma once

#include <cstdint>

namespace Scripting
{
// What a runtime may let a script do through a callable. The library only carries it.
enum class Privilege : uint8_t
{
    None = 0,
    ReadOnly = 1,
};
} // namespace Scripting
