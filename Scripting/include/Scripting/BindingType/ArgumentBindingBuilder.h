#pragma once

#include "Scripting/BindingType/ArgumentDetails.h"
#include "Scripting/BindingType/internal/Bounds.h"
#include "Scripting/Reflection/Reflection.h"

#include <array>
#include <cstddef>
#include <limits>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace Scripting
{
namespace internal
{
// Inclusive bounds of `T` (a number, a vector of numbers, or an optional of either) from the details.
template <typename T>
bool rangeValidator(const ArgumentDetails& details, const entt::meta_any& value)
{
    using Shape = NumericShape<T>;
    using Element = typename Shape::Element;
    entt::meta_any convertedValue;
    entt::meta_any convertedMin;
    entt::meta_any convertedMax;
    const T* checked = valueAs<T>(value, convertedValue);
    const Element* min = valueAs<Element>(details.minValue, convertedMin);
    const Element* max = valueAs<Element>(details.maxValue, convertedMax);
    return checked != nullptr && min != nullptr && max != nullptr && Shape::within(*checked, *min, *max);
}

// A string equal, byte for byte, to one of the accepted ones.
template <std::size_t N>
bool validValuesValidator(const ArgumentDetails& details, const entt::meta_any& value)
{
    entt::meta_any convertedValue;
    entt::meta_any convertedValues;
    const std::string* text = valueAs<std::string>(value, convertedValue);
    const auto* accepted = valueAs<std::array<std::string, N>>(details.validValues, convertedValues);
    if (text == nullptr || accepted == nullptr)
    {
        return false;
    }
    for (const std::string& candidate : *accepted)
    {
        if (candidate == *text)
        {
            return true;
        }
    }
    return false;
}

// A default must be of the argument's type or convert to it without narrowing: a default that would change
// its value on the way in is a mistake caught at compile time.
template <typename V, typename Value>
concept DefaultFor = std::is_same_v<std::remove_cvref_t<V>, Value> ||
    (std::is_convertible_v<V, Value>&& requires(V&& value) { Value{std::forward<V>(value)}; });

template <typename T>
struct IsOptional : std::false_type
{
};
template <typename T>
struct IsOptional<std::optional<T>> : std::true_type
{
};

// Reports each defaulted argument that stands before one without a default.
void checkDefaultArgumentOrder(const std::vector<ArgumentDetails>& details);
} // namespace internal

/// Describes one script-visible argument of type `T`, spelled as in the native signature.
/// Passed to the class and module builders beside the callable; builders for fewer arguments than the callable has
/// describe the leading ones.
/// @tparam T The parameter's native type.
template <typename T>
class ArgumentBindingBuilder : public ArgumentBinding
{
    using Value = std::remove_cvref_t<T>;
    using Shape = internal::NumericShape<Value>;
    using Element = typename Shape::Element;

public:
    /// Numbers are range-checked against their own limits from the start, and an optional is a defaulted
    /// argument from the start.
    /// @param argumentName Name in messages.
    explicit ArgumentBindingBuilder(const std::string& argumentName)
    {
        name = argumentName;
        type = Reflection::resolve<T>();
        if constexpr (internal::BoundableNumber<Value>)
        {
            details.minValue = entt::meta_any{Reflection::context(), std::numeric_limits<Value>::lowest()};
            details.maxValue = entt::meta_any{Reflection::context(), std::numeric_limits<Value>::max()};
            details.validator = &internal::rangeValidator<Value>;
        }
        else if constexpr (internal::IsOptional<Value>::value)
        {
            // Made in place: moving a disengaged temporary in has GCC 12 warn about its never-read payload.
            details.defaultValue = entt::meta_any{Reflection::context(), std::in_place_type<Value>};
        }
    }

    /**
     * @brief A value used when the script leaves the argument out; later arguments need defaults too.
     * @tparam V Type of the default; must convert to the parameter's type without narrowing.
     * @param value The default.
     * @return This builder.
     */
    template <typename V>
    requires internal::DefaultFor<V, Value> ArgumentBindingBuilder& defaultValue(V&& value) &
    {
        details.defaultValue = entt::meta_any{Reflection::context(), std::in_place_type<Value>, std::forward<V>(value)};
        return *this;
    }
    /**
     * @brief A value used when the script leaves the argument out, on a temporary builder.
     * @tparam V Type of the default; must convert to the parameter's type without narrowing.
     * @param value The default.
     * @return This builder.
     */
    template <typename V>
    requires internal::DefaultFor<V, Value> ArgumentBindingBuilder && defaultValue(V&& value) && {
        return std::move(defaultValue(std::forward<V>(value)));
    }

    /// Inclusive at both ends; for numbers, vectors of numbers and optionals of either.
    /// A value outside is an ArgumentOutOfBoundsError for the script.
    /// @param min Lower bound.
    /// @param max Upper bound.
    /// @return This builder.
    ArgumentBindingBuilder& bounds(Element min, Element max) & requires Shape::VALID
    {
        details.minValue = entt::meta_any{Reflection::context(), min};
        details.maxValue = entt::meta_any{Reflection::context(), max};
        details.validator = &internal::rangeValidator<Value>;
        return *this;
    }
    /** @brief Inclusive bounds, on a temporary builder. */
    ArgumentBindingBuilder&& bounds(Element min, Element max) && requires Shape::VALID
    {
        return std::move(bounds(min, max));
    }

    /// The accepted strings, compared byte for byte.
    /// Another string is an InvalidArgumentError for the script.
    /// @tparam N Number of strings.
    /// @param values The strings.
    /// @return This builder.
    template <std::size_t N>
    requires std::is_same_v<Value, std::string> ArgumentBindingBuilder& validValues(const std::string (&values)[N]) &
    {
        std::array<std::string, N> accepted;
        for (std::size_t index = 0; index < N; ++index)
        {
            accepted[index] = values[index];
        }
        details.validValues = entt::meta_any{Reflection::context(), std::move(accepted)};
        details.minValue = entt::meta_any{};
        details.maxValue = entt::meta_any{};
        details.validator = &internal::validValuesValidator<N>;
        return *this;
    }
    /**
     * @brief The accepted strings, on a temporary builder.
     * @tparam N Number of strings.
     * @param values The strings.
     * @return This builder.
     */
    template <std::size_t N>
    requires std::is_same_v<Value, std::string> ArgumentBindingBuilder && validValues(const std::string (&values)[N]) &&
    {
        return std::move(validValues(values));
    }
};

/** @brief Collects argument descriptions for the callable wrappers. */
struct ArgumentBindingHelper
{
    /// The details of each builder by copy, in parameter order.
    /// A defaulted argument before one without a default asserts.
    /// @tparam Ts Parameter types.
    /// @param builders The builders.
    /// @return Their details.
    template <typename... Ts>
    static std::vector<ArgumentDetails> getArgumentDetails(ArgumentBindingBuilder<Ts>&... builders)
    {
        std::vector<ArgumentDetails> details;
        details.reserve(sizeof...(Ts));
        (details.push_back(builders.details), ...);
        internal::checkDefaultArgumentOrder(details);
        return details;
    }
};
} // namespace Scripting
