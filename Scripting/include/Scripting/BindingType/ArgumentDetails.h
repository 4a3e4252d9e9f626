#pragma once

#include <entt/meta/meta.hpp>

#include <string>

namespace Scripting
{
/// What a callable needs at call time to check and complete one described argument.
struct ArgumentDetails
{
    /** @brief Tests a converted argument against the details. */
    using Validator = bool (*)(const ArgumentDetails& details, const entt::meta_any& value);

    /// Null lets every value through.
    Validator validator = nullptr;
    /// Valid when the argument may be left out.
    entt::meta_any defaultValue;
    /** @brief Lower bound; empty without one. */
    entt::meta_any minValue;
    /** @brief Upper bound; empty without one. */
    entt::meta_any maxValue;
    /// The accepted strings, a std::array<std::string, N>; empty otherwise.
    entt::meta_any validValues;
};

/// One script-visible argument of a function record. Injected arguments have none.
struct ArgumentBinding
{
    /** @brief Name in messages and in the script-facing description. */
    std::string name;
    /// The native type without reference and const.
    entt::meta_type type;
    /** @brief Default, bounds and validator. */
    ArgumentDetails details;

    // Out of line: a function that describes many records calls these instead of expanding every member's.
    ArgumentBinding();
    /**
     * @brief A described argument.
     * @param argumentName Name in messages.
     * @param argumentType The native type without reference and const.
     * @param argumentDetails Default, bounds and validator.
     */
    ArgumentBinding(std::string argumentName, entt::meta_type argumentType, ArgumentDetails argumentDetails);
    /// @brief Copied, moved and destroyed out of line: a function that describes many records calls these
    /// instead of expanding every member's.
    ///@{
    ArgumentBinding(const ArgumentBinding&);
    ArgumentBinding(ArgumentBinding&&) noexcept;
    ArgumentBinding& operator=(const ArgumentBinding&);
    ArgumentBinding& operator=(ArgumentBinding&&) noexcept;
    ~ArgumentBinding();
    ///@}
};
} // namespace Scripting
