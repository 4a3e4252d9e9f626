#ifndef ENTT_ENTITY_REGISTRY_HPP
#define ENTT_ENTITY_REGISTRY_HPP

#include "../config/config.h"
#include "../core/fwd.hpp"
#include "../core/id_table.hpp"
#include "../core/iterator.hpp"
#include "../core/type_info.hpp"
#include "../core/type_traits.hpp"
#include "component.hpp"
#include "entity.hpp"
#include "fwd.hpp"
#include "sparse_set.hpp"
#include "storage.hpp"
#include "view.hpp"
#include <algorithm>
#include <cstddef>
#include <iterator>
#include <memory>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

namespace entt
{

namespace internal
{

// Pools of a registry in order of creation, yielded as (identifier, storage) pairs.
template <typename It, typename Common>
class registry_storage_iterator final
{
public:
    using difference_type = std::ptrdiff_t;
    using value_type = std::pair<id_type, Common&>;
    using pointer = input_iterator_pointer<value_type>;
    using reference = value_type;
    using iterator_category = std::input_iterator_tag;
    using iterator_concept = std::forward_iterator_tag;

    constexpr registry_storage_iterator() noexcept : it{} {}

    constexpr registry_storage_iterator(It iter) noexcept : it{iter} {}

    constexpr registry_storage_iterator& operator++() noexcept
    {
        ++it;
        return *this;
    }

    constexpr registry_storage_iterator operator++(int) noexcept
    {
        registry_storage_iterator orig = *this;
        ++it;
        return orig;
    }

    [[nodiscard]] constexpr reference operator*() const noexcept { return {it->first, *it->second}; }

    [[nodiscard]] constexpr pointer operator->() const noexcept { return operator*(); }

    [[nodiscard]] constexpr bool operator==(const registry_storage_iterator& other) const noexcept
    {
        return it == other.it;
    }

private:
    It it;
};

} // namespace internal

/**
 * @brief Entities and their components.
 *
 * Each component type lives in its own storage, created on first use and kept in order of
 * creation; destroying an entity removes its components from the storages in the reverse
 * of that order, then releases the identifier with its next version.
 *
 * @tparam Entity A valid entity type.
 * @tparam Allocator Type of allocator used to manage memory and elements.
 */
template <typename Entity, typename Allocator>
class basic_registry
{
    using base_type = basic_sparse_set<Entity, Allocator>;
    using alloc_traits = std::allocator_traits<Allocator>;
    static_assert(std::is_same_v<typename alloc_traits::value_type, Entity>, "Invalid value type");
    using pool_container_type = std::vector<std::pair<id_type, std::unique_ptr<base_type>>>;

    template <typename Type>
    [[nodiscard]] auto& assure([[maybe_unused]] const id_type id = type_hash<Type>::value())
    {
        static_assert(std::is_same_v<Type, std::decay_t<Type>>, "Non-decayed types not allowed");

        if constexpr (std::is_same_v<Type, entity_type>)
        {
            ENTT_ASSERT(id == type_hash<Type>::value(), "User entity storage not allowed");
            return entities;
        }
        else
        {
            using storage_type = storage_for_type<Type>;

            if (auto* elem = index.find(id); elem)
            {
                ENTT_ASSERT(elem->type() == type_id<Type>(), "Unexpected type");
                return static_cast<storage_type&>(*elem);
            }

            // Held by its base from the start: a unique_ptr of each storage type would be a set of templates
            // per type, and the list's growth one more.
            std::unique_ptr<base_type> cpool{new storage_type(typename storage_type::allocator_type{get_allocator()})};
            auto& ref = static_cast<storage_type&>(*cpool);
            pools.emplace_back(id, std::move(cpool));
            index.insert(id, &ref);
            return ref;
        }
    }

    template <typename Type>
    [[nodiscard]] const auto* assure([[maybe_unused]] const id_type id = type_hash<Type>::value()) const
    {
        static_assert(std::is_same_v<Type, std::decay_t<Type>>, "Non-decayed types not allowed");

        if constexpr (std::is_same_v<Type, entity_type>)
        {
            ENTT_ASSERT(id == type_hash<Type>::value(), "User entity storage not allowed");
            return &entities;
        }
        else
        {
            const auto* elem = index.find(id);
            ENTT_ASSERT(elem == nullptr || elem->type() == type_id<Type>(), "Unexpected type");
            return static_cast<const storage_for_type<Type>*>(elem);
        }
    }

    // Views of a const registry need a storage also for types nobody used yet.
    template <typename Type>
    [[nodiscard]] const auto& const_pool() const
    {
        if (const auto* elem = assure<Type>(); elem)
        {
            return *elem;
        }
        static const storage_for_type<Type> placeholder{};
        return placeholder;
    }

public:
    using allocator_type = Allocator;
    using traits_type = typename base_type::traits_type;
    using entity_type = typename traits_type::value_type;
    using version_type = typename traits_type::version_type;
    using size_type = std::size_t;
    using common_type = base_type;

    template <typename Type>
    using storage_for_type =
        typename storage_for<Type, Entity,
                             typename alloc_traits::template rebind_alloc<std::remove_const_t<Type>>>::type;

    basic_registry() : basic_registry{allocator_type{}} {}

    explicit basic_registry(const allocator_type& allocator) : basic_registry{0u, allocator} {}

    basic_registry(const size_type count, const allocator_type& allocator = allocator_type{})
        : pools{}, index{}, entities{allocator}
    {
        pools.reserve(count);
    }

    basic_registry(const basic_registry&) = delete;

    basic_registry(basic_registry&& other) noexcept = default;

    ~basic_registry()
    {
        // newest storages first, as destroy does for one entity
        while (!pools.empty())
        {
            pools.pop_back();
        }
    }

    basic_registry& operator=(const basic_registry&) = delete;

    basic_registry& operator=(basic_registry&& other) noexcept = default;

    [[nodiscard]] constexpr allocator_type get_allocator() const noexcept { return entities.get_allocator(); }

    /*! @brief All storages as (identifier, storage) pairs in order of creation. */
    [[nodiscard]] auto storage() noexcept
    {
        using iterator = internal::registry_storage_iterator<typename pool_container_type::iterator, common_type>;
        return iterable_adaptor<iterator>{iterator{pools.begin()}, iterator{pools.end()}};
    }

    [[nodiscard]] auto storage() const noexcept
    {
        using iterator =
            internal::registry_storage_iterator<typename pool_container_type::const_iterator, const common_type>;
        return iterable_adaptor<iterator>{iterator{pools.cbegin()}, iterator{pools.cend()}};
    }

    [[nodiscard]] common_type* storage(const id_type id)
    {
        return const_cast<common_type*>(std::as_const(*this).storage(id));
    }

    [[nodiscard]] const common_type* storage(const id_type id) const { return index.find(id); }

    /*! @brief The storage of `Type`, created on first use. */
    template <typename Type>
    storage_for_type<Type>& storage(const id_type id = type_hash<Type>::value())
    {
        return assure<Type>(id);
    }

    /*! @brief The storage of `Type`, or null if nobody created it yet. */
    template <typename Type>
    [[nodiscard]] const storage_for_type<Type>* storage(const id_type id = type_hash<Type>::value()) const
    {
        return assure<Type>(id);
    }

    /*! @brief Whether the identifier is in use with this very version. */
    [[nodiscard]] bool valid(const entity_type entt) const
    {
        return entities.contains(entt) && (entities.index(entt) < entities.free_list());
    }

    /*! @brief The version of the entity part of the identifier, or the tombstone version if unknown. */
    [[nodiscard]] version_type current(const entity_type entt) const { return entities.current(entt); }

    [[nodiscard]] entity_type create() { return entities.emplace(); }

    [[nodiscard]] entity_type create(const entity_type hint) { return entities.emplace(hint); }

    template <typename It>
    void create(It first, It last)
    {
        entities.insert(std::move(first), std::move(last));
    }

    /**
     * @brief Removes the components of an entity from every storage, newest storage first,
     * then releases the identifier. Component destructors may use the registry meanwhile.
     * @return The version the identifier will have when reused.
     */
    version_type destroy(const entity_type entt)
    {
        for (size_type pos = pools.size(); pos; --pos)
        {
            pools[pos - 1u].second->remove(entt);
        }

        // a component destructor may have destroyed the entity already
        if (valid(entt))
        {
            entities.erase(entt);
        }

        return entities.current(entt);
    }

    version_type destroy(const entity_type entt, const version_type version)
    {
        destroy(entt);
        const auto elem = traits_type::construct(traits_type::to_entity(entt), version);
        return entities.bump((elem == tombstone) ? traits_type::next(elem) : elem);
    }

    template <typename It>
    void destroy(It first, It last)
    {
        for (; first != last; ++first)
        {
            destroy(*first);
        }
    }

    template <typename Type, typename... Args>
    decltype(auto) emplace(const entity_type entt, Args&&... args)
    {
        ENTT_ASSERT(valid(entt), "Invalid entity");
        return assure<Type>().emplace(entt, std::forward<Args>(args)...);
    }

    template <typename Type, typename It>
    void insert(It first, It last, const Type& value = {})
    {
        assure<Type>().insert(std::move(first), std::move(last), value);
    }

    template <typename Type, typename... Args>
    decltype(auto) emplace_or_replace(const entity_type entt, Args&&... args)
    {
        if (auto& cpool = assure<Type>(); cpool.contains(entt))
        {
            return cpool.patch(entt, [&args...](auto&... curr) { ((curr = Type{std::forward<Args>(args)...}), ...); });
        }
        else
        {
            return cpool.emplace(entt, std::forward<Args>(args)...);
        }
    }

    template <typename Type, typename... Func>
    decltype(auto) patch(const entity_type entt, Func&&... func)
    {
        return assure<Type>().patch(entt, std::forward<Func>(func)...);
    }

    template <typename Type, typename... Args>
    decltype(auto) replace(const entity_type entt, Args&&... args)
    {
        return patch<Type>(entt, [&args...](auto&... curr) { ((curr = Type{std::forward<Args>(args)...}), ...); });
    }

    /*! @brief Removes the components the entity has. @return How many were removed. */
    template <typename Type, typename... Other>
    size_type remove(const entity_type entt)
    {
        return (assure<Type>().remove(entt) + ... + assure<Other>().remove(entt));
    }

    template <typename Type, typename... Other, typename It>
    size_type remove(It first, It last)
    {
        size_type count{};
        for (; first != last; ++first)
        {
            count += remove<Type, Other...>(*first);
        }
        return count;
    }

    /*! @brief Removes components the entity must have. */
    template <typename Type, typename... Other>
    void erase(const entity_type entt)
    {
        (assure<Type>().erase(entt), (assure<Other>().erase(entt), ...));
    }

    template <typename Type, typename... Other, typename It>
    void erase(It first, It last)
    {
        for (; first != last; ++first)
        {
            erase<Type, Other...>(*first);
        }
    }

    template <typename... Type>
    void compact()
    {
        if constexpr (sizeof...(Type) == 0u)
        {
            for (auto&& curr : pools)
            {
                curr.second->compact();
            }
        }
        else
        {
            (assure<Type>().compact(), ...);
        }
    }

    template <typename... Type>
    [[nodiscard]] bool all_of(const entity_type entt) const
    {
        if constexpr (sizeof...(Type) == 1u)
        {
            const auto* cpool = assure<std::remove_const_t<Type>...>();
            return cpool && cpool->contains(entt);
        }
        else
        {
            return (all_of<Type>(entt) && ...);
        }
    }

    template <typename... Type>
    [[nodiscard]] bool any_of(const entity_type entt) const
    {
        return (all_of<Type>(entt) || ...);
    }

    /*! @brief Components the entity must have: a reference for one type, a tuple for more. */
    template <typename... Type>
    [[nodiscard]] decltype(auto) get([[maybe_unused]] const entity_type entt) const
    {
        if constexpr (sizeof...(Type) == 1u)
        {
            return (assure<std::remove_const_t<Type>>()->get(entt), ...);
        }
        else
        {
            return std::forward_as_tuple(get<Type>(entt)...);
        }
    }

    template <typename... Type>
    [[nodiscard]] decltype(auto) get([[maybe_unused]] const entity_type entt)
    {
        if constexpr (sizeof...(Type) == 1u)
        {
            return (static_cast<storage_for_type<Type>&>(assure<std::remove_const_t<Type>>()).get(entt), ...);
        }
        else
        {
            return std::forward_as_tuple(get<Type>(entt)...);
        }
    }

    template <typename Type, typename... Args>
    [[nodiscard]] decltype(auto) get_or_emplace(const entity_type entt, Args&&... args)
    {
        if (auto& cpool = assure<Type>(); cpool.contains(entt))
        {
            return cpool.get(entt);
        }
        else
        {
            return cpool.emplace(entt, std::forward<Args>(args)...);
        }
    }

    /*! @brief Pointers to components, null where the entity has none; no storage is created. */
    template <typename... Type>
    [[nodiscard]] auto try_get([[maybe_unused]] const entity_type entt) const
    {
        if constexpr (sizeof...(Type) == 1u)
        {
            const auto* cpool = assure<std::remove_const_t<Type>...>();
            return (cpool && cpool->contains(entt)) ? std::addressof(cpool->get(entt)) : nullptr;
        }
        else
        {
            return std::make_tuple(try_get<Type>(entt)...);
        }
    }

    template <typename... Type>
    [[nodiscard]] auto try_get([[maybe_unused]] const entity_type entt)
    {
        if constexpr (sizeof...(Type) == 1u)
        {
            return (const_cast<Type*>(std::as_const(*this).template try_get<Type>(entt)), ...);
        }
        else
        {
            return std::make_tuple(try_get<Type>(entt)...);
        }
    }

    /*! @brief Removes all components of the given types, or destroys every entity. */
    template <typename... Type>
    void clear()
    {
        if constexpr (sizeof...(Type) == 0u)
        {
            for (size_type pos = pools.size(); pos; --pos)
            {
                pools[pos - 1u].second->clear();
            }

            while (entities.free_list() != 0u)
            {
                entities.erase(entities.data()[entities.free_list() - 1u]);
            }
        }
        else
        {
            (assure<Type>().clear(), ...);
        }
    }

    /*! @brief Whether the entity has no component at all. */
    [[nodiscard]] bool orphan(const entity_type entt) const
    {
        return std::none_of(pools.cbegin(), pools.cend(), [entt](auto&& curr) { return curr.second->contains(entt); });
    }

    template <typename Type, typename... Other, typename... Exclude>
    [[nodiscard]] basic_view<get_t<storage_for_type<const Type>, storage_for_type<const Other>...>,
                             exclude_t<storage_for_type<const Exclude>...>>
    view(exclude_t<Exclude...> = exclude_t{}) const
    {
        return {const_pool<std::remove_const_t<Type>>(), const_pool<std::remove_const_t<Other>>()...,
                const_pool<std::remove_const_t<Exclude>>()...};
    }

    template <typename Type, typename... Other, typename... Exclude>
    [[nodiscard]] basic_view<get_t<storage_for_type<Type>, storage_for_type<Other>...>,
                             exclude_t<storage_for_type<Exclude>...>>
    view(exclude_t<Exclude...> = exclude_t{})
    {
        return {assure<std::remove_const_t<Type>>(), assure<std::remove_const_t<Other>>()...,
                assure<std::remove_const_t<Exclude>>()...};
    }

private:
    pool_container_type pools;
    internal::id_table<base_type> index;
    storage_for_type<entity_type> entities;
};

} // namespace entt

#endif
