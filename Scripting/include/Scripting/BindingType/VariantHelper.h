#pragma once

#include "Scripting/Reflection/Reflection.h"

#include <entt/core/hashed_string.hpp>
#include <entt/meta/factory.hpp>
#include <entt/meta/template.hpp>

#include <variant>

namespace Scripting::VariantHelper
{
namespace internal
{
// Views of the active alternative, never copies.
template <typename... Ts>
entt::meta_any getValue(std::variant<Ts...>& variant)
{
    return std::visit([](auto& value) { return entt::forward_as_meta(Reflection::context(), value); }, variant);
}

template <typename... Ts>
entt::meta_any getConstValue(const std::variant<Ts...>& variant)
{
    return std::visit([](const auto& value) { return entt::forward_as_meta(Reflection::context(), value); }, variant);
}
} // namespace internal

/// Makes std::variant<Ts...> known to code that only holds a meta_any: a constructor per alternative and
/// "getValue" for const and non-const access. Registering again replaces the same entries.
/// @tparam Ts The alternatives.
template <typename... Ts>
void registerVariant()
{
    using namespace entt::literals;
    auto factory = entt::meta<std::variant<Ts...>>(Reflection::context());
    (factory.template ctor<Ts>(), ...);
    factory.template func<&internal::getValue<Ts...>>("getValue"_hs)
        .template func<&internal::getConstValue<Ts...>>("getValue"_hs);
}

/**
 * @brief Whether a type is a `std::variant` specialisation, registered or not.
 * @param type A meta type.
 * @return True for any `std::variant`.
 */
bool isVariantAny(const entt::meta_type& type);

/// The active alternative of a variant held by `variantAny`, as a view into it.
/// @param variantAny Holds a registered variant; must outlive the result.
/// @return The alternative; empty when unregistered. Another type asserts.
entt::meta_any getValue(entt::meta_any& variantAny);
/**
 * @brief The active alternative, read-only, as a view into the argument.
 * @param variantAny Holds a registered variant; must outlive the result.
 * @return The alternative; empty when unregistered. Another type asserts.
 */
entt::meta_any getValue(const entt::meta_any& variantAny);
} // namespace Scripting::VariantHelper
