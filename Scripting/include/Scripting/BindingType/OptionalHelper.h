#pragma once

#include "Scripting/Reflection/Reflection.h"

#include <entt/core/hashed_string.hpp>
#include <entt/meta/factory.hpp>
#include <entt/meta/template.hpp>

#include <optional>

namespace Scripting::OptionalHelper
{
namespace internal
{
// Views of the engaged value, never copies; empty when disengaged.
template <typename T>
entt::meta_any getValue(std::optional<T>& optional)
{
    return optional ? entt::forward_as_meta(Reflection::context(), *optional) : entt::meta_any{};
}

template <typename T>
entt::meta_any getConstValue(const std::optional<T>& optional)
{
    return optional ? entt::forward_as_meta(Reflection::context(), *optional) : entt::meta_any{};
}
} // namespace internal

/// Makes std::optional<T> known to code that only holds a meta_any: a constructor from T and "getValue"
/// for const and non-const access. Registering again replaces the same entries.
/// @tparam T Value type.
template <typename T>
void registerOptional()
{
    using namespace entt::literals;
    entt::meta<std::optional<T>>(Reflection::context())
        .template ctor<T>()
        .template func<&internal::getValue<T>>("getValue"_hs)
        .template func<&internal::getConstValue<T>>("getValue"_hs);
}

/**
 * @brief Whether a type is a `std::optional` specialisation, registered or not.
 * @param type A meta type.
 * @return True for any `std::optional`.
 */
bool isOptionalAny(const entt::meta_type& type);

/// The value inside an optional held by `optionalAny`, as a view into it: it must not outlive the argument.
/// @param optionalAny Holds a registered optional.
/// @return The value; empty when disengaged or unregistered. Another type asserts.
entt::meta_any getValue(entt::meta_any& optionalAny);
/**
 * @brief The value inside an optional, read-only, as a view into the argument.
 * @param optionalAny Holds a registered optional.
 * @return The value; empty when disengaged or unregistered. Another type asserts.
 */
entt::meta_any getValue(const entt::meta_any& optionalAny);
} // namespace Scripting::OptionalHelper
