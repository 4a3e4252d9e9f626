#ifndef ENTT_CORE_TYPE_TRAITS_HPP
#define ENTT_CORE_TYPE_TRAITS_HPP

#include "../config/config.h"
#include "fwd.hpp"
#include <concepts>
#include <cstddef>
#include <iterator>
#include <tuple>
#include <type_traits>
#include <utility>

namespace entt
{

template <typename Type>
struct type_identity
{
    using type = Type;
};

template <typename Type>
using type_identity_t = typename type_identity<Type>::type;

/*! @brief `sizeof` that answers 0 for types without a size (void, functions, incomplete types). */
template <typename Type, typename = void>
struct size_of : std::integral_constant<std::size_t, 0u>
{
};

template <typename Type>
struct size_of<Type, std::void_t<decltype(sizeof(Type))>> : std::integral_constant<std::size_t, sizeof(Type)>
{
};

template <typename Type>
inline constexpr std::size_t size_of_v = size_of<Type>::value;

/*! @brief A compile-time list of types. */
template <typename... Type>
struct type_list
{
    using type = type_list;
    static constexpr auto size = sizeof...(Type);
};

template <std::size_t, typename>
struct type_list_element;

template <std::size_t Index, typename First, typename... Other>
struct type_list_element<Index, type_list<First, Other...>> : type_list_element<Index - 1u, type_list<Other...>>
{
};

template <typename First, typename... Other>
struct type_list_element<0u, type_list<First, Other...>>
{
    using type = First;
};

template <std::size_t Index, typename List>
using type_list_element_t = typename type_list_element<Index, List>::type;

template <typename, typename>
struct type_list_index;

template <typename Type, typename First, typename... Other>
struct type_list_index<Type, type_list<First, Other...>>
{
    using value_type = std::size_t;
    static constexpr value_type value = 1u + type_list_index<Type, type_list<Other...>>::value;
};

template <typename Type, typename... Other>
struct type_list_index<Type, type_list<Type, Other...>>
{
    static_assert(type_list_index<Type, type_list<Other...>>::value == sizeof...(Other), "Non-unique type");
    using value_type = std::size_t;
    static constexpr value_type value = 0u;
};

template <typename Type>
struct type_list_index<Type, type_list<>>
{
    using value_type = std::size_t;
    static constexpr value_type value = 0u;
};

template <typename Type, typename List>
inline constexpr std::size_t type_list_index_v = type_list_index<Type, List>::value;

template <typename... Type, typename... Other>
constexpr type_list<Type..., Other...> operator+(type_list<Type...>, type_list<Other...>)
{
    return {};
}

template <typename...>
struct type_list_cat;

template <>
struct type_list_cat<>
{
    using type = type_list<>;
};

template <typename... Type>
struct type_list_cat<type_list<Type...>>
{
    using type = type_list<Type...>;
};

template <typename... Type, typename... Other, typename... List>
struct type_list_cat<type_list<Type...>, type_list<Other...>, List...>
{
    using type = typename type_list_cat<type_list<Type..., Other...>, List...>::type;
};

template <typename... List>
using type_list_cat_t = typename type_list_cat<List...>::type;

template <typename, typename>
struct type_list_contains;

template <typename... Type, typename Other>
struct type_list_contains<type_list<Type...>, Other> : std::bool_constant<(std::is_same_v<Type, Other> || ...)>
{
};

template <typename List, typename Type>
inline constexpr bool type_list_contains_v = type_list_contains<List, Type>::value;

template <typename, template <typename...> class>
struct type_list_transform;

template <typename... Type, template <typename...> class Op>
struct type_list_transform<type_list<Type...>, Op>
{
    using type = type_list<typename Op<Type>::type...>;
};

template <typename List, template <typename...> class Op>
using type_list_transform_t = typename type_list_transform<List, Op>::type;

/*! @brief Whether a type is complete at the point of the check. */
template <typename, typename = void>
struct is_complete : std::false_type
{
};

template <typename Type>
struct is_complete<Type, std::void_t<decltype(sizeof(Type))>> : std::true_type
{
};

template <typename Type>
inline constexpr bool is_complete_v = is_complete<Type>::value;

namespace internal
{

template <typename Type>
concept has_equality_operator = requires(const Type& value)
{
    {
        value == value
        } -> std::convertible_to<bool>;
};

template <typename Type>
concept iterator_like = requires
{
    typename std::iterator_traits<Type>::iterator_category;
};

template <typename Type>
[[nodiscard]] constexpr bool equality_comparable_dispatch() noexcept;

template <typename Type, std::size_t... Index>
[[nodiscard]] constexpr bool equality_comparable_tuple(std::index_sequence<Index...>) noexcept
{
    return (equality_comparable_dispatch<std::tuple_element_t<Index, Type>>() && ...);
}

// Containers and wrappers declare operator== unconditionally, so the element types decide.
template <typename Type>
[[nodiscard]] constexpr bool equality_comparable_dispatch() noexcept
{
    if constexpr (std::is_array_v<Type> || !has_equality_operator<Type>)
    {
        return false;
    }
    else if constexpr (iterator_like<Type>)
    {
        return true;
    }
    else if constexpr (requires { typename Type::value_type; })
    {
        if constexpr (std::is_same_v<typename Type::value_type, Type>)
        {
            return true;
        }
        else
        {
            return equality_comparable_dispatch<typename Type::value_type>();
        }
    }
    else if constexpr (requires { std::tuple_size<Type>::value; })
    {
        return equality_comparable_tuple<Type>(std::make_index_sequence<std::tuple_size<Type>::value>{});
    }
    else
    {
        return true;
    }
}

} // namespace internal

/*! @brief Whether two objects of a type can be compared, looking into standard containers. */
template <typename Type>
struct is_equality_comparable : std::bool_constant<internal::equality_comparable_dispatch<Type>()>
{
};

template <typename Type>
inline constexpr bool is_equality_comparable_v = is_equality_comparable<Type>::value;

/*! @brief Transcribes the constness of one type onto another. */
template <typename To, typename From>
struct constness_as
{
    using type = std::remove_const_t<To>;
};

template <typename To, typename From>
struct constness_as<To, const From>
{
    using type = const To;
};

template <typename To, typename From>
using constness_as_t = typename constness_as<To, From>::type;

} // namespace entt

#endif
