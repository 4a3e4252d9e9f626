#pragma once

namespace Scripting
{
// The range of a bound, as the common module shows it to scripts.
struct NumberRange
{
    float min = 0.0f;
    float max = 0.0f;
};
} // namespace Scripting
