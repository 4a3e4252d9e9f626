#pragma once

#include <entt/locator/locator.hpp>
#include <entt/meta/context.hpp>
#include <entt/meta/meta.hpp>
#include <entt/meta/resolve.hpp>
// Every unit that reflects types sees the generic template information, so that a type such as std::optional<T>
// gets the same meta node, with its template, in all of them.
#include <entt/meta/template.hpp>

#include <cstdint>
#include <string>

namespace Scripting::Reflection
{
/// The process's one meta context. Every registration and lookup of the library goes through it.
inline entt::meta_ctx& context()
{
    return entt::locator<entt::meta_ctx>::value_or();
}

/// The meta type of `T`, registered or not; cv-qualifiers, references and pointers are handled as EnTT does.
/// @tparam T Any type.
/// @return Its meta type, possibly an unregistered one.
template <typename T>
entt::meta_type resolve()
{
    return entt::resolve<T>(context());
}

/// Whether `baseType` is a direct or indirect registered base of `type`. A type is not its own base.
/// @param baseType Possible base.
/// @param type Type to test.
/// @return Whether baseType is a base of type.
bool HasBaseType(const entt::meta_type& baseType, const entt::meta_type& type);

/// How a property getter hands out its value.
enum class ReturnPolicy : uint8_t
{
    /** @brief A copy. */
    ByValue = 0,
    /** @brief A reference into the object, valid while the object lives. */
    ByReference = 1,
};

/**
 * @brief Name of a policy, for messages.
 * @param policy The policy.
 * @return Its name.
 */
std::string toString(ReturnPolicy policy);
} // namespace Scripting::Reflection
