#ifndef ENTT_ENTITY_STORAGE_HPP
#define ENTT_ENTITY_STORAGE_HPP

#include "../config/config.h"
#include "../core/iterator.hpp"
#include "../core/type_info.hpp"
#include "component.hpp"
#include "entity.hpp"
#include "fwd.hpp"
#include "sparse_set.hpp"
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

// Components in packed pages, visited in the same back-to-front order as the entities.
template <typename Container, typename Element, std::size_t Page>
class storage_iterator final
{
    template <typename, typename, std::size_t>
    friend class storage_iterator;

public:
    using value_type = std::remove_const_t<Element>;
    using pointer = Element*;
    using reference = Element&;
    using difference_type = std::ptrdiff_t;
    using iterator_category = std::random_access_iterator_tag;

    constexpr storage_iterator() noexcept : payload{}, offset{} {}

    constexpr storage_iterator(const Container* ref, const difference_type idx) noexcept : payload{ref}, offset{idx} {}

    template <typename Other, typename = std::enable_if_t<std::is_const_v<Element> &&
                                                          std::is_same_v<Other, std::remove_const_t<Element>>>>
    constexpr storage_iterator(const storage_iterator<Container, Other, Page>& other) noexcept
        : payload{other.payload}, offset{other.offset}
    {
    }

    constexpr storage_iterator& operator++() noexcept
    {
        --offset;
        return *this;
    }

    constexpr storage_iterator operator++(int) noexcept
    {
        storage_iterator orig = *this;
        --offset;
        return orig;
    }

    constexpr storage_iterator& operator--() noexcept
    {
        ++offset;
        return *this;
    }

    constexpr storage_iterator operator--(int) noexcept
    {
        storage_iterator orig = *this;
        ++offset;
        return orig;
    }

    constexpr storage_iterator& operator+=(const difference_type value) noexcept
    {
        offset -= value;
        return *this;
    }

    constexpr storage_iterator operator+(const difference_type value) const noexcept
    {
        storage_iterator copy = *this;
        return (copy += value);
    }

    constexpr storage_iterator& operator-=(const difference_type value) noexcept { return (*this += -value); }

    constexpr storage_iterator operator-(const difference_type value) const noexcept { return (*this + -value); }

    [[nodiscard]] constexpr reference operator[](const difference_type value) const noexcept
    {
        const auto pos = static_cast<std::size_t>(index() - value);
        return (*payload)[pos / Page][pos & (Page - 1u)];
    }

    [[nodiscard]] constexpr pointer operator->() const noexcept { return std::addressof(operator[](0)); }

    [[nodiscard]] constexpr reference operator*() const noexcept { return operator[](0); }

    [[nodiscard]] constexpr difference_type index() const noexcept { return offset - 1; }

    [[nodiscard]] constexpr difference_type operator-(const storage_iterator& other) const noexcept
    {
        return other.index() - index();
    }

    [[nodiscard]] constexpr bool operator==(const storage_iterator& other) const noexcept
    {
        return index() == other.index();
    }

    [[nodiscard]] constexpr bool operator<(const storage_iterator& other) const noexcept
    {
        return index() > other.index();
    }

    [[nodiscard]] constexpr bool operator>(const storage_iterator& other) const noexcept { return other < *this; }

    [[nodiscard]] constexpr bool operator<=(const storage_iterator& other) const noexcept { return !(other < *this); }

    [[nodiscard]] constexpr bool operator>=(const storage_iterator& other) const noexcept { return !(*this < other); }

private:
    const Container* payload;
    difference_type offset;
};

// Entities with their components, as tuples; holes of in-place storages are skipped.
template <bool Holes, typename It, typename... Other>
class extended_storage_iterator final
{
    void skip_holes() noexcept
    {
        if constexpr (Holes)
        {
            while (it != last && *it == tombstone)
            {
                ++it;
                std::apply([](auto&... curr) { (++curr, ...); }, other);
            }
        }
    }

public:
    using iterator_type = It;
    using difference_type = std::ptrdiff_t;
    using value_type = decltype(std::tuple_cat(std::make_tuple(*std::declval<It>()),
                                               std::forward_as_tuple(*std::declval<Other>()...)));
    using pointer = input_iterator_pointer<value_type>;
    using reference = value_type;
    using iterator_category = std::input_iterator_tag;
    using iterator_concept = std::forward_iterator_tag;

    constexpr extended_storage_iterator() : it{}, last{}, other{} {}

    constexpr extended_storage_iterator(It base, It end, Other... curr) : it{base}, last{end}, other{curr...}
    {
        skip_holes();
    }

    constexpr extended_storage_iterator& operator++() noexcept
    {
        ++it;
        std::apply([](auto&... curr) { (++curr, ...); }, other);
        skip_holes();
        return *this;
    }

    constexpr extended_storage_iterator operator++(int) noexcept
    {
        extended_storage_iterator orig = *this;
        ++(*this);
        return orig;
    }

    [[nodiscard]] constexpr reference operator*() const noexcept
    {
        return std::apply([this](auto&... curr)
                          { return std::tuple_cat(std::make_tuple(*it), std::forward_as_tuple(*curr...)); },
                          other);
    }

    [[nodiscard]] constexpr pointer operator->() const noexcept { return operator*(); }

    [[nodiscard]] constexpr iterator_type base() const noexcept { return it; }

    [[nodiscard]] constexpr bool operator==(const extended_storage_iterator& rhs) const noexcept
    {
        return it == rhs.it;
    }

private:
    It it;
    It last;
    std::tuple<Other...> other;
};

template <typename Type, typename... Args>
void storage_construct(Type* elem, Args&&... args)
{
    if constexpr (std::is_aggregate_v<Type> && (sizeof...(Args) != 0u || !std::is_default_constructible_v<Type>))
    {
        ::new (static_cast<void*>(elem)) Type{std::forward<Args>(args)...};
    }
    else
    {
        ::new (static_cast<void*>(elem)) Type(std::forward<Args>(args)...);
    }
}

} // namespace internal

/**
 * @brief Components of one type assigned to entities: a sparse set whose packed array has
 * a parallel array of components in pages of `component_traits<Type>::page_size`.
 *
 * Removal either moves the last component into the hole or, for types that cannot be moved
 * (or ask for it), destroys the component in place and leaves a tombstone behind.
 * A removed component is destroyed when the storage is consistent again, so that its
 * destructor may use the storage and the registry.
 *
 * @tparam Type Element type.
 * @tparam Entity A valid entity type.
 * @tparam Allocator Type of allocator used to manage memory and elements.
 */
template <typename Type, typename Entity, typename Allocator, typename>
class basic_storage
    : public basic_sparse_set<Entity, typename std::allocator_traits<Allocator>::template rebind_alloc<Entity>>
{
    using alloc_traits = std::allocator_traits<Allocator>;
    static_assert(std::is_same_v<typename alloc_traits::value_type, Type>, "Invalid value type");
    static_assert(std::is_pointer_v<typename alloc_traits::pointer>, "Fancy pointers are not supported");
    using container_type = std::vector<typename alloc_traits::pointer,
                                       typename alloc_traits::template rebind_alloc<typename alloc_traits::pointer>>;
    using underlying_type = basic_sparse_set<Entity, typename alloc_traits::template rebind_alloc<Entity>>;
    using underlying_iterator = typename underlying_type::basic_iterator;

    static constexpr std::size_t packed_page = component_traits<Type>::page_size;
    static_assert((packed_page & (packed_page - 1u)) == 0u, "Packed page size must be a power of two");

    [[nodiscard]] auto& element_at(const std::size_t pos) const
    {
        return payload[pos / packed_page][pos & (packed_page - 1u)];
    }

    auto assure_at_least(const std::size_t pos)
    {
        const auto idx = pos / packed_page;

        if (!(idx < payload.size()))
        {
            auto curr = payload.size();
            allocator_type allocator{get_allocator()};
            payload.resize(idx + 1u, nullptr);

            try
            {
                for (const auto last = payload.size(); curr < last; ++curr)
                {
                    payload[curr] = alloc_traits::allocate(allocator, packed_page);
                }
            }
            catch (...)
            {
                payload.resize(curr);
                throw;
            }
        }

        return payload[idx] + (pos & (packed_page - 1u));
    }

    template <typename... Args>
    auto emplace_element(const Entity entt, const bool force_back, Args&&... args)
    {
        const auto it = underlying_type::try_emplace(entt, force_back);

        try
        {
            auto* elem = assure_at_least(static_cast<size_type>(it.index()));
            internal::storage_construct(elem, std::forward<Args>(args)...);
        }
        catch (...)
        {
            // the slot has no component yet: only the set has to forget it
            underlying_type::pop(it, it + 1);
            throw;
        }

        return it;
    }

    void shrink_to_size(const std::size_t sz)
    {
        const auto len = underlying_type::size();

        for (auto pos = sz; pos < len; ++pos)
        {
            if constexpr (traits_type::in_place_delete)
            {
                if (underlying_type::data()[pos] == tombstone)
                {
                    continue;
                }
            }
            std::destroy_at(std::addressof(element_at(pos)));
        }

        allocator_type allocator{get_allocator()};
        const auto from = (sz + packed_page - 1u) / packed_page;

        for (auto pos = from, last = payload.size(); pos < last; ++pos)
        {
            alloc_traits::deallocate(allocator, payload[pos], packed_page);
        }

        payload.resize(from);
    }

private:
    [[nodiscard]] const void* get_at(const std::size_t pos) const final { return std::addressof(element_at(pos)); }

    void swap_or_move(const std::size_t from, const std::size_t to) override
    {
        // compact moves the element at `from` into the hole at `to`
        if constexpr (std::is_move_constructible_v<Type>)
        {
            auto& elem = element_at(from);
            internal::storage_construct(std::addressof(element_at(to)), std::move(elem));
            std::destroy_at(std::addressof(elem));
        }
        else
        {
            ENTT_ASSERT(false, "Elements of this type cannot be moved");
        }
    }

protected:
    void pop(underlying_iterator first, underlying_iterator last) override
    {
        for (; first != last; ++first)
        {
            if constexpr (traits_type::in_place_delete)
            {
                // the slot joins the free list only once the component is gone
                std::destroy_at(std::addressof(element_at(static_cast<size_type>(first.index()))));
                underlying_type::in_place_pop(first);
            }
            else
            {
                auto& back = element_at(underlying_type::size() - 1u);
                auto& slot = element_at(static_cast<size_type>(first.index()));
                [[maybe_unused]] Type removed(std::move(slot));

                if (std::addressof(slot) != std::addressof(back))
                {
                    slot = std::move(back);
                }

                std::destroy_at(std::addressof(back));
                underlying_type::swap_and_pop(first);
            }
        }
    }

    void pop_all() override
    {
        for (auto first = underlying_type::begin(), last = underlying_type::end(); first != last; ++first)
        {
            if constexpr (traits_type::in_place_delete)
            {
                if (*first == tombstone)
                {
                    continue;
                }
            }
            std::destroy_at(std::addressof(element_at(static_cast<size_type>(first.index()))));
        }

        underlying_type::pop_all();
    }

    underlying_iterator try_emplace([[maybe_unused]] const Entity entt, [[maybe_unused]] const bool force_back,
                                    const void* value) final
    {
        if (value != nullptr)
        {
            if constexpr (std::is_copy_constructible_v<Type>)
            {
                return emplace_element(entt, force_back, *static_cast<const Type*>(value));
            }
            else
            {
                return underlying_type::end();
            }
        }
        else
        {
            if constexpr (std::is_default_constructible_v<Type>)
            {
                return emplace_element(entt, force_back);
            }
            else
            {
                return underlying_type::end();
            }
        }
    }

public:
    using base_type = underlying_type;
    using value_type = Type;
    using traits_type = component_traits<value_type>;
    using entity_type = Entity;
    using size_type = std::size_t;
    using allocator_type = Allocator;
    using pointer = typename container_type::const_pointer;
    using const_pointer =
        typename alloc_traits::template rebind_traits<typename alloc_traits::const_pointer>::const_pointer;
    using iterator = internal::storage_iterator<container_type, Type, packed_page>;
    using const_iterator = internal::storage_iterator<container_type, const Type, packed_page>;
    using reverse_iterator = std::reverse_iterator<iterator>;
    using const_reverse_iterator = std::reverse_iterator<const_iterator>;
    using iterable = iterable_adaptor<
        internal::extended_storage_iterator<traits_type::in_place_delete, typename base_type::iterator, iterator>>;
    using const_iterable =
        iterable_adaptor<internal::extended_storage_iterator<traits_type::in_place_delete,
                                                             typename base_type::const_iterator, const_iterator>>;

    basic_storage() : basic_storage{allocator_type{}} {}

    explicit basic_storage(const allocator_type& allocator)
        : base_type{type_id<value_type>(),
                    traits_type::in_place_delete ? deletion_policy::in_place : deletion_policy::swap_and_pop,
                    allocator},
          payload{allocator}
    {
    }

    basic_storage(basic_storage&& other) noexcept : base_type{std::move(other)}, payload{std::move(other.payload)} {}

    ~basic_storage() override { shrink_to_size(0u); }

    basic_storage& operator=(basic_storage&& other) noexcept
    {
        shrink_to_size(0u);
        base_type::operator=(std::move(other));
        payload = std::move(other.payload);
        return *this;
    }

    [[nodiscard]] constexpr allocator_type get_allocator() const noexcept
    {
        return allocator_type{payload.get_allocator()};
    }

    void reserve(const size_type cap) override
    {
        if (cap != 0u)
        {
            base_type::reserve(cap);
            assure_at_least(cap - 1u);
        }
    }

    [[nodiscard]] size_type capacity() const noexcept override { return payload.size() * packed_page; }

    void shrink_to_fit() override
    {
        base_type::shrink_to_fit();
        shrink_to_size(base_type::size());
    }

    [[nodiscard]] const_pointer raw() const noexcept { return payload.data(); }

    [[nodiscard]] pointer raw() noexcept { return payload.data(); }

    /*! @brief The component of the last entity of the packed array, as for the entities. */
    [[nodiscard]] const_iterator cbegin() const noexcept
    {
        return const_iterator{&payload, static_cast<typename iterator::difference_type>(base_type::size())};
    }

    [[nodiscard]] const_iterator begin() const noexcept { return cbegin(); }

    [[nodiscard]] iterator begin() noexcept
    {
        return iterator{&payload, static_cast<typename iterator::difference_type>(base_type::size())};
    }

    [[nodiscard]] const_iterator cend() const noexcept { return const_iterator{&payload, {}}; }

    [[nodiscard]] const_iterator end() const noexcept { return cend(); }

    [[nodiscard]] iterator end() noexcept { return iterator{&payload, {}}; }

    [[nodiscard]] const_reverse_iterator crbegin() const noexcept { return std::make_reverse_iterator(cend()); }

    [[nodiscard]] const_reverse_iterator rbegin() const noexcept { return crbegin(); }

    [[nodiscard]] reverse_iterator rbegin() noexcept { return std::make_reverse_iterator(end()); }

    [[nodiscard]] const_reverse_iterator crend() const noexcept { return std::make_reverse_iterator(cbegin()); }

    [[nodiscard]] const_reverse_iterator rend() const noexcept { return crend(); }

    [[nodiscard]] reverse_iterator rend() noexcept { return std::make_reverse_iterator(begin()); }

    [[nodiscard]] const value_type& get(const entity_type entt) const noexcept
    {
        return element_at(base_type::index(entt));
    }

    [[nodiscard]] value_type& get(const entity_type entt) noexcept
    {
        return const_cast<value_type&>(std::as_const(*this).get(entt));
    }

    [[nodiscard]] std::tuple<const value_type&> get_as_tuple(const entity_type entt) const noexcept
    {
        return std::forward_as_tuple(get(entt));
    }

    [[nodiscard]] std::tuple<value_type&> get_as_tuple(const entity_type entt) noexcept
    {
        return std::forward_as_tuple(get(entt));
    }

    /*! @brief Assigns a component built from the arguments; aggregates are list-initialized. */
    template <typename... Args>
    value_type& emplace(const entity_type entt, Args&&... args)
    {
        const auto it = emplace_element(entt, false, std::forward<Args>(args)...);
        return element_at(static_cast<size_type>(it.index()));
    }

    template <typename... Func>
    value_type& patch(const entity_type entt, Func&&... func)
    {
        const auto idx = base_type::index(entt);
        auto& elem = element_at(idx);
        (std::forward<Func>(func)(elem), ...);
        return elem;
    }

    template <typename It>
    void insert(It first, It last, const value_type& value = {})
    {
        for (; first != last; ++first)
        {
            emplace_element(*first, true, value);
        }
    }

    /*! @brief (entity, component) tuples, back to front, without the holes of in-place storages. */
    [[nodiscard]] iterable each() noexcept
    {
        using iterator_type = typename iterable::iterator;
        return {iterator_type{base_type::begin(), base_type::end(), begin()},
                iterator_type{base_type::end(), base_type::end(), end()}};
    }

    [[nodiscard]] const_iterable each() const noexcept
    {
        using iterator_type = typename const_iterable::iterator;
        return {iterator_type{base_type::cbegin(), base_type::cend(), cbegin()},
                iterator_type{base_type::cend(), base_type::cend(), cend()}};
    }

private:
    container_type payload;
};

/*! @brief Storage of an empty type: only the entities are kept. */
template <typename Type, typename Entity, typename Allocator>
class basic_storage<Type, Entity, Allocator, std::enable_if_t<component_traits<Type>::page_size == 0u>>
    : public basic_sparse_set<Entity, typename std::allocator_traits<Allocator>::template rebind_alloc<Entity>>
{
    using alloc_traits = std::allocator_traits<Allocator>;
    static_assert(std::is_same_v<typename alloc_traits::value_type, Type>, "Invalid value type");

public:
    using base_type = basic_sparse_set<Entity, typename alloc_traits::template rebind_alloc<Entity>>;
    using value_type = Type;
    using traits_type = component_traits<value_type>;
    using entity_type = Entity;
    using size_type = std::size_t;
    using allocator_type = Allocator;
    using iterable = iterable_adaptor<
        internal::extended_storage_iterator<traits_type::in_place_delete, typename base_type::iterator>>;
    using const_iterable = iterable;

    basic_storage() : basic_storage{allocator_type{}} {}

    explicit basic_storage(const allocator_type& allocator)
        : base_type{type_id<value_type>(),
                    traits_type::in_place_delete ? deletion_policy::in_place : deletion_policy::swap_and_pop, allocator}
    {
    }

    basic_storage(basic_storage&& other) noexcept = default;

    basic_storage& operator=(basic_storage&& other) noexcept = default;

    [[nodiscard]] constexpr allocator_type get_allocator() const noexcept
    {
        return allocator_type{base_type::get_allocator()};
    }

    void get([[maybe_unused]] const entity_type entt) const noexcept
    {
        ENTT_ASSERT(base_type::contains(entt), "Invalid entity");
    }

    [[nodiscard]] std::tuple<> get_as_tuple([[maybe_unused]] const entity_type entt) const noexcept
    {
        ENTT_ASSERT(base_type::contains(entt), "Invalid entity");
        return std::tuple{};
    }

    template <typename... Args>
    void emplace(const entity_type entt, Args&&...)
    {
        base_type::try_emplace(entt, false);
    }

    template <typename... Func>
    void patch([[maybe_unused]] const entity_type entt, Func&&... func)
    {
        ENTT_ASSERT(base_type::contains(entt), "Invalid entity");
        (std::forward<Func>(func)(), ...);
    }

    template <typename It, typename... Args>
    void insert(It first, It last, Args&&...)
    {
        for (; first != last; ++first)
        {
            base_type::try_emplace(*first, true);
        }
    }

    [[nodiscard]] iterable each() const noexcept
    {
        using iterator_type = typename iterable::iterator;
        return {iterator_type{base_type::begin(), base_type::end()}, iterator_type{base_type::end(), base_type::end()}};
    }
};

/**
 * @brief Storage of the identifiers themselves: those in use come first in the packed
 * array, released ones follow with their next version, ready for reuse.
 */
template <typename Entity, typename Allocator>
class basic_storage<Entity, Entity, Allocator> : public basic_sparse_set<Entity, Allocator>
{
    using alloc_traits = std::allocator_traits<Allocator>;
    static_assert(std::is_same_v<typename alloc_traits::value_type, Entity>, "Invalid value type");
    using underlying_type = basic_sparse_set<Entity, Allocator>;
    using underlying_iterator = typename underlying_type::basic_iterator;
    using local_traits_type = entt_traits<Entity>;

    [[nodiscard]] static Entity entity_at(const std::size_t pos) noexcept
    {
        ENTT_ASSERT(pos < local_traits_type::to_entity(null), "Invalid element");
        return local_traits_type::construct(static_cast<typename local_traits_type::entity_type>(pos), {});
    }

protected:
    underlying_iterator try_emplace(const Entity hint, const bool, const void*) override
    {
        return underlying_type::find(emplace(hint));
    }

public:
    using base_type = basic_sparse_set<Entity, Allocator>;
    using value_type = Entity;
    using entity_type = Entity;
    using size_type = std::size_t;
    using allocator_type = Allocator;
    using iterable = iterable_adaptor<internal::extended_storage_iterator<false, typename base_type::iterator>>;
    using const_iterable = iterable;

    basic_storage() : basic_storage{allocator_type{}} {}

    explicit basic_storage(const allocator_type& allocator)
        : base_type{type_id<void>(), deletion_policy::swap_only, allocator}
    {
    }

    basic_storage(basic_storage&& other) noexcept = default;

    basic_storage& operator=(basic_storage&& other) noexcept = default;

    void get([[maybe_unused]] const entity_type entt) const noexcept
    {
        ENTT_ASSERT(base_type::index(entt) < base_type::free_list(), "The requested entity is not a live one");
    }

    [[nodiscard]] std::tuple<> get_as_tuple([[maybe_unused]] const entity_type entt) const noexcept
    {
        ENTT_ASSERT(base_type::index(entt) < base_type::free_list(), "The requested entity is not a live one");
        return std::tuple{};
    }

    template <typename... Func>
    void patch([[maybe_unused]] const entity_type entt, Func&&... func)
    {
        ENTT_ASSERT(base_type::index(entt) < base_type::free_list(), "The requested entity is not a live one");
        (std::forward<Func>(func)(), ...);
    }

    /*! @brief A released identifier (with its next version) if there is one, a new one otherwise. */
    entity_type emplace()
    {
        const auto len = base_type::free_list();
        const auto entt = (len == base_type::size()) ? entity_at(len) : base_type::data()[len];
        return *underlying_type::try_emplace(entt, true);
    }

    /*! @brief The given identifier if its entity part is not in use, any other otherwise. */
    entity_type emplace(const entity_type hint)
    {
        if (hint == null || hint == tombstone)
        {
            return emplace();
        }

        const auto pos = static_cast<size_type>(local_traits_type::to_entity(hint));

        if (!(pos < base_type::size()))
        {
            // identifiers below the hint become known as released ones, with version 0
            const auto len = base_type::free_list();
            for (auto next = base_type::size(); next < pos; ++next)
            {
                underlying_type::try_emplace(entity_at(next), true);
            }
            base_type::free_list(len);
            return *underlying_type::try_emplace(hint, true);
        }

        const auto curr = local_traits_type::construct(static_cast<typename local_traits_type::entity_type>(pos),
                                                       base_type::current(hint));
        if (base_type::index(curr) < base_type::free_list())
        {
            return emplace();
        }

        return *underlying_type::try_emplace(hint, true);
    }

    template <typename It>
    void insert(It first, It last)
    {
        for (; first != last; ++first)
        {
            *first = emplace();
        }
    }

    /*! @brief The identifiers in use, as one-element tuples. */
    [[nodiscard]] iterable each() const noexcept
    {
        using iterator_type = typename iterable::iterator;
        return {iterator_type{base_type::begin(0), base_type::end(0)},
                iterator_type{base_type::end(0), base_type::end(0)}};
    }
};

} // namespace entt

#endif
