#pragma once

namespace Scripting
{
/// The range of a bound, as the common module shows it to scripts.
struct NumberRange
{
    /** @brief Lower bound. */
    float min = 0.0f;
    /** @brief Upper bound. */
    float max = 0.0f;
};
} // namespace Scripting
