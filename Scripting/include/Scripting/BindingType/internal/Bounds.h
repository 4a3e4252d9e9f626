#pragma once

#include <entt/meta/meta.hpp>

#include <optional>
#include <type_traits>
#include <vector>

namespace Scripting::internal
{
// Numbers that bounds apply to.
template <typename U>
concept BoundableNumber = std::is_arithmetic_v<U> && !std::is_same_v<U, bool>;

// Stands in for the element type of a value that takes no bounds, so that signatures stay well-formed.
struct NotANumber
{
};

// How a value of `T` holds numbers: itself, a vector of them, or an optional of either.
template <typename T>
struct NumericShape
{
    static constexpr bool VALID = false;
    using Element = NotANumber;
};

template <BoundableNumber U>
struct NumericShape<U>
{
    static constexpr bool VALID = true;
    using Element = U;
    static bool within(const U& value, const U& min, const U& max) { return !(value < min || value > max); }
};

template <BoundableNumber U>
struct NumericShape<std::vector<U>>
{
    static constexpr bool VALID = true;
    using Element = U;
    // An empty vector passes.
    static bool within(const std::vector<U>& values, const U& min, const U& max)
    {
        for (const U& value : values)
        {
            if (!NumericShape<U>::within(value, min, max))
            {
                return false;
            }
        }
        return true;
    }
};

template <typename T>
requires NumericShape<T>::VALID struct NumericShape<std::optional<T>>
{
    static constexpr bool VALID = true;
    using Element = typename NumericShape<T>::Element;
    // A disengaged optional passes.
    static bool within(const std::optional<T>& value, const Element& min, const Element& max)
    {
        return !value.has_value() || NumericShape<T>::within(*value, min, max);
    }
};

// The value of `any` as a `T`, converting a copy into `converted` when needed; null when it does not convert.
template <typename T>
const T* valueAs(const entt::meta_any& any, entt::meta_any& converted)
{
    if (const T* held = any.template try_cast<const T>(); held != nullptr)
    {
        return held;
    }
    converted = any;
    return converted.template allow_cast<T>() ? converted.template try_cast<const T>() : nullptr;
}
} // namespace Scripting::internal
