#ifndef ENTT_ENTITY_COMPONENT_HPP
#define ENTT_ENTITY_COMPONENT_HPP

#include "../config/config.h"
#include "fwd.hpp"
#include <cstddef>
#include <type_traits>

namespace entt
{

namespace internal
{

// Components that cannot be moved must stay where they are: they are deleted in place.
template <typename Type, typename = void>
struct in_place_delete : std::bool_constant<!(std::is_move_constructible_v<Type> && std::is_move_assignable_v<Type>)>
{
};

template <>
struct in_place_delete<void> : std::false_type
{
};

template <typename Type>
struct in_place_delete<Type, std::enable_if_t<Type::in_place_delete>> : std::true_type
{
};

template <typename Type, typename = void>
struct page_size : std::integral_constant<std::size_t, !std::is_empty_v<ENTT_ETO_TYPE(Type)> * ENTT_PACKED_PAGE>
{
};

template <>
struct page_size<void> : std::integral_constant<std::size_t, 0u>
{
};

template <typename Type>
struct page_size<Type, std::void_t<decltype(Type::page_size)>> : std::integral_constant<std::size_t, Type::page_size>
{
};

} // namespace internal

/**
 * @brief How components of a type are stored: `page_size` elements per packed page (0 for
 * empty types, which get no storage) and whether removal leaves them in place.
 * Either specialize it or give the type static members of these names.
 */
template <typename Type, typename>
struct component_traits
{
    static_assert(std::is_same_v<std::decay_t<Type>, Type>, "Unsupported type");

    using type = Type;

    static constexpr bool in_place_delete = internal::in_place_delete<Type>::value;
    static constexpr std::size_t page_size = internal::page_size<Type>::value;
};

} // namespace entt

#endif
