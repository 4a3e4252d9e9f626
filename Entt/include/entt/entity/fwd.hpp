#ifndef ENTT_ENTITY_FWD_HPP
#define ENTT_ENTITY_FWD_HPP

#include "../config/config.h"
#include "../core/fwd.hpp"
#include "../core/type_traits.hpp"
#include <cstdint>
#include <memory>
#include <type_traits>

namespace entt
{

/*! @brief Default entity identifier. */
enum class entity : id_type
{
};

/*! @brief How a set removes an element. */
enum class deletion_policy : std::uint8_t
{
    /*! @brief Moves the last element into the hole. */
    swap_and_pop = 0u,
    /*! @brief Leaves a tombstone where the element was; elements never move. */
    in_place = 1u,
    /*! @brief Swaps the element out of the range in use, keeping it (for identifiers). */
    swap_only = 2u
};

template <typename Type, typename = void>
struct component_traits;

template <typename Entity = entity, typename = std::allocator<Entity>>
class basic_sparse_set;

template <typename Type, typename = entity, typename = std::allocator<Type>, typename = void>
class basic_storage;

template <typename Entity = entity, typename = std::allocator<Entity>>
class basic_registry;

template <typename, typename, typename = void>
class basic_view;

using sparse_set = basic_sparse_set<>;

template <typename Type>
using storage = basic_storage<Type>;

using registry = basic_registry<>;

/*! @brief Types excluded from a view. */
template <typename... Type>
struct exclude_t final : type_list<Type...>
{
    explicit constexpr exclude_t() {}
};

template <typename... Type>
inline constexpr exclude_t<Type...> exclude{};

/*! @brief Types a view iterates. */
template <typename... Type>
struct get_t final : type_list<Type...>
{
    explicit constexpr get_t() {}
};

template <typename... Type>
inline constexpr get_t<Type...> get{};

/*! @brief The storage a registry uses for a type. */
template <typename Type, typename Entity = entity, typename Allocator = std::allocator<Type>, typename = void>
struct storage_type
{
    using type = basic_storage<Type, Entity, Allocator>;
};

template <typename... Args>
using storage_type_t = typename storage_type<Args...>::type;

/*! @brief As storage_type, with the constness of `Type` carried onto the storage. */
template <typename Type, typename Entity = entity, typename Allocator = std::allocator<std::remove_const_t<Type>>>
struct storage_for
{
    using type = constness_as_t<storage_type_t<std::remove_const_t<Type>, Entity, Allocator>, Type>;
};

template <typename... Args>
using storage_for_t = typename storage_for<Args...>::type;

namespace internal
{

template <typename>
struct view_of;

template <typename... Get, typename... Exclude>
struct view_of<type_list<get_t<Get...>, exclude_t<Exclude...>>>
{
    using type = basic_view<get_t<storage_for_t<Get>...>, exclude_t<storage_for_t<Exclude>...>>;
};

} // namespace internal

/*! @brief A view over the default storages of the given types. */
template <typename Get, typename Exclude = exclude_t<>>
using view = typename internal::view_of<type_list<Get, Exclude>>::type;

} // namespace entt

#endif
