#pragma once

#include <entt/locator/locator.hpp>
#include <entt/meta/context.hpp>
#include <entt/meta/meta.hpp>
#include <entt/meta/resolve.hpp>
// Every unit that reflects types sees the generic template information, so that a type such as std::optional<T>
// gets the same meta node, with its template, in all of them.
#include <entt/meta/template.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

namespace Scripting::Reflection
{
/// The process's one meta context. Every registration and lookup of the library goes through it.
inline entt::meta_ctx& context()
{
    return entt::locator<entt::meta_ctx>::value_or();
}

namespace internal
{
template <typename T>
void registerValueContainers();

// The vectors and optionals a type names, itself or in its template or function arguments (a Result<std::vector<int>>,
// a Closure<void (*)(std::optional<float>)>): a runtime meets their values without being told their types.
template <typename T>
struct ValueContainerWalk
{
    static constexpr bool IS_VECTOR = false;
    static constexpr bool IS_OPTIONAL = false;
    static constexpr bool HOLDS = false;
    static void registerArguments() {}
};

template <typename... A>
struct ValueContainerArguments
{
    static constexpr bool IS_VECTOR = false;
    static constexpr bool IS_OPTIONAL = false;
    static constexpr bool HOLDS = (ValueContainerWalk<std::remove_cvref_t<A>>::HOLDS || ...);
    static void registerArguments()
    {
        (
            []
            {
                if constexpr (ValueContainerWalk<std::remove_cvref_t<A>>::HOLDS)
                {
                    registerValueContainers<std::remove_cvref_t<A>>();
                }
            }(),
            ...);
    }
};

template <template <typename...> class C, typename... A>
struct ValueContainerWalk<C<A...>> : ValueContainerArguments<A...>
{
};

template <typename R, typename... A>
struct ValueContainerWalk<R(A...)> : ValueContainerArguments<R, A...>
{
};

template <typename R, typename... A>
struct ValueContainerWalk<R (*)(A...)> : ValueContainerArguments<R, A...>
{
};

template <typename U>
struct ValueContainerWalk<std::vector<U>>
{
    static constexpr bool IS_VECTOR = true;
    static constexpr bool IS_OPTIONAL = false;
    static constexpr bool HOLDS = true;
    using Element = U;
};

template <typename U>
struct ValueContainerWalk<std::optional<U>>
{
    static constexpr bool IS_VECTOR = false;
    static constexpr bool IS_OPTIONAL = true;
    static constexpr bool HOLDS = true;
    using Element = U;
};
} // namespace internal

/// The meta type of `T`, registered or not; cv-qualifiers, references and pointers are handled as EnTT does.
/// The first call for a type that names a std::vector or std::optional also describes those containers to the
/// runtimes (ValueAdapters.h), so that a program carries the conversions of the containers it binds and no others.
/// @tparam T Any type.
/// @return Its meta type, possibly an unregistered one.
template <typename T>
entt::meta_type resolve()
{
    using Plain = std::remove_cv_t<std::remove_reference_t<T>>;
    if constexpr (internal::ValueContainerWalk<Plain>::HOLDS)
    {
        static const bool sDescribed = (internal::registerValueContainers<Plain>(), true);
        static_cast<void>(sDescribed);
    }
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

#include "Scripting/Reflection/ValueAdapters.h"
