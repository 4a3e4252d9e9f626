#ifndef ENTT_CORE_TYPE_INFO_HPP
#define ENTT_CORE_TYPE_INFO_HPP

#include "../config/config.h"
#include "fwd.hpp"
#include "hashed_string.hpp"
#include <string_view>
#include <type_traits>
#include <utility>

namespace entt
{

namespace internal
{

struct type_index final
{
    [[nodiscard]] static id_type next() noexcept
    {
        static ENTT_MAYBE_ATOMIC(id_type) counter{};
        return counter++;
    }
};

// The compiler spells the template argument into the decorated function name; the
// name of a type is the text between the prefix character and the closing suffix.
template <typename Type>
[[nodiscard]] constexpr auto stripped_type_name() noexcept
{
#if defined ENTT_PRETTY_FUNCTION
    const std::string_view full{static_cast<const char*>(ENTT_PRETTY_FUNCTION)};
    const auto first = full.find_first_not_of(' ', full.find_first_of(ENTT_PRETTY_FUNCTION_PREFIX) + 1u);
    return full.substr(first, full.find_last_of(ENTT_PRETTY_FUNCTION_SUFFIX) - first);
#else
    return std::string_view{};
#endif
}

} // namespace internal

/*! @brief Sequential identifier of a type, assigned on first request at run time. */
template <typename Type, typename = void>
struct type_index final
{
    [[nodiscard]] static id_type value() noexcept
    {
        static const id_type value = internal::type_index::next();
        return value;
    }

    [[nodiscard]] constexpr operator id_type() const noexcept { return value(); }
};

/*! @brief Name of a type as the compiler spells it. */
template <typename Type, typename = void>
struct type_name final
{
    [[nodiscard]] static constexpr std::string_view value() noexcept { return internal::stripped_type_name<Type>(); }

    [[nodiscard]] constexpr operator std::string_view() const noexcept { return value(); }
};

/*! @brief Hash of the name of a type, stable across builds and binaries. */
template <typename Type, typename = void>
struct type_hash final
{
#if defined ENTT_PRETTY_FUNCTION
    [[nodiscard]] static constexpr id_type value() noexcept
    {
        constexpr auto name = internal::stripped_type_name<Type>();
        constexpr id_type hash = hashed_string::value(name.data(), name.size());
        return hash;
    }
#else
    [[nodiscard]] static id_type value() noexcept
    {
        return type_index<Type>::value();
    }
#endif

    [[nodiscard]] constexpr operator id_type() const noexcept
    {
        return value();
    }
};

/*! @brief Index, hash and name of a type. */
struct type_info final
{
    template <typename Type>
    constexpr type_info(std::in_place_type_t<Type>) noexcept
        : seq{type_index<std::remove_cv_t<std::remove_reference_t<Type>>>::value()},
          identifier{type_hash<std::remove_cv_t<std::remove_reference_t<Type>>>::value()},
          alias{type_name<std::remove_cv_t<std::remove_reference_t<Type>>>::value()}
    {
    }

    [[nodiscard]] constexpr id_type index() const noexcept { return seq; }

    [[nodiscard]] constexpr id_type hash() const noexcept { return identifier; }

    [[nodiscard]] constexpr std::string_view name() const noexcept { return alias; }

private:
    id_type seq;
    id_type identifier;
    std::string_view alias;
};

[[nodiscard]] inline constexpr bool operator==(const type_info& lhs, const type_info& rhs) noexcept
{
    return lhs.hash() == rhs.hash();
}

[[nodiscard]] constexpr bool operator<(const type_info& lhs, const type_info& rhs) noexcept
{
    return lhs.index() < rhs.index();
}

[[nodiscard]] constexpr bool operator<=(const type_info& lhs, const type_info& rhs) noexcept
{
    return !(rhs < lhs);
}

[[nodiscard]] constexpr bool operator>(const type_info& lhs, const type_info& rhs) noexcept
{
    return rhs < lhs;
}

[[nodiscard]] constexpr bool operator>=(const type_info& lhs, const type_info& rhs) noexcept
{
    return !(lhs < rhs);
}

/*! @brief The one `type_info` object of a type; cv-qualifiers and references are dropped. */
template <typename Type>
[[nodiscard]] const type_info& type_id() noexcept
{
    if constexpr (std::is_same_v<Type, std::remove_cv_t<std::remove_reference_t<Type>>>)
    {
        static const type_info instance{std::in_place_type<Type>};
        return instance;
    }
    else
    {
        return type_id<std::remove_cv_t<std::remove_reference_t<Type>>>();
    }
}

template <typename Type>
[[nodiscard]] const type_info& type_id(Type&&) noexcept
{
    return type_id<std::remove_cv_t<std::remove_reference_t<Type>>>();
}

} // namespace entt

#endif
