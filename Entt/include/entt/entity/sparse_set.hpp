#ifndef ENTT_ENTITY_SPARSE_SET_HPP
#define ENTT_ENTITY_SPARSE_SET_HPP

#include "../config/config.h"
#include "../core/type_info.hpp"
#include "entity.hpp"
#include "fwd.hpp"
#include <cstddef>
#include <iterator>
#include <memory>
#include <type_traits>
#include <utility>
#include <vector>

namespace entt
{

namespace internal
{

// Walks a packed array from its back to its front: removing the element under the iterator
// only moves elements that were already visited.
template <typename Container>
struct sparse_set_iterator final
{
    using value_type = typename Container::value_type;
    using pointer = typename Container::const_pointer;
    using reference = typename Container::const_reference;
    using difference_type = typename Container::difference_type;
    using iterator_category = std::random_access_iterator_tag;

    constexpr sparse_set_iterator() noexcept : packed{}, offset{} {}

    constexpr sparse_set_iterator(const Container& ref, const difference_type idx) noexcept : packed{&ref}, offset{idx}
    {
    }

    constexpr sparse_set_iterator& operator++() noexcept
    {
        --offset;
        return *this;
    }

    constexpr sparse_set_iterator operator++(int) noexcept
    {
        sparse_set_iterator orig = *this;
        --offset;
        return orig;
    }

    constexpr sparse_set_iterator& operator--() noexcept
    {
        ++offset;
        return *this;
    }

    constexpr sparse_set_iterator operator--(int) noexcept
    {
        sparse_set_iterator orig = *this;
        ++offset;
        return orig;
    }

    constexpr sparse_set_iterator& operator+=(const difference_type value) noexcept
    {
        offset -= value;
        return *this;
    }

    constexpr sparse_set_iterator operator+(const difference_type value) const noexcept
    {
        sparse_set_iterator copy = *this;
        return (copy += value);
    }

    constexpr sparse_set_iterator& operator-=(const difference_type value) noexcept { return (*this += -value); }

    constexpr sparse_set_iterator operator-(const difference_type value) const noexcept { return (*this + -value); }

    [[nodiscard]] constexpr reference operator[](const difference_type value) const noexcept
    {
        return (*packed)[static_cast<typename Container::size_type>(index() - value)];
    }

    [[nodiscard]] constexpr pointer operator->() const noexcept { return packed->data() + index(); }

    [[nodiscard]] constexpr reference operator*() const noexcept { return *operator->(); }

    [[nodiscard]] constexpr pointer data() const noexcept { return packed ? packed->data() : nullptr; }

    [[nodiscard]] constexpr difference_type index() const noexcept { return offset - 1; }

    [[nodiscard]] constexpr difference_type operator-(const sparse_set_iterator& other) const noexcept
    {
        return other.index() - index();
    }

    [[nodiscard]] constexpr bool operator==(const sparse_set_iterator& other) const noexcept
    {
        return index() == other.index();
    }

    [[nodiscard]] constexpr bool operator<(const sparse_set_iterator& other) const noexcept
    {
        return index() > other.index();
    }

    [[nodiscard]] constexpr bool operator>(const sparse_set_iterator& other) const noexcept { return other < *this; }

    [[nodiscard]] constexpr bool operator<=(const sparse_set_iterator& other) const noexcept
    {
        return !(other < *this);
    }

    [[nodiscard]] constexpr bool operator>=(const sparse_set_iterator& other) const noexcept
    {
        return !(*this < other);
    }

private:
    const Container* packed;
    difference_type offset;
};

} // namespace internal

/**
 * @brief Set of entities with constant-time insertion, removal and lookup.
 *
 * A paged sparse array maps the entity part of an identifier to its position in a packed
 * array; the sparse entry also keeps the version, so that stale identifiers are not found.
 * Iteration runs over the packed array from back to front.
 *
 * @tparam Entity A valid entity type.
 * @tparam Allocator Type of allocator used to manage memory and elements.
 */
template <typename Entity, typename Allocator>
class basic_sparse_set
{
    using alloc_traits = std::allocator_traits<Allocator>;
    static_assert(std::is_same_v<typename alloc_traits::value_type, Entity>, "Invalid value type");
    using sparse_container_type =
        std::vector<typename alloc_traits::pointer,
                    typename alloc_traits::template rebind_alloc<typename alloc_traits::pointer>>;
    using packed_container_type = std::vector<Entity, Allocator>;

    [[nodiscard]] static constexpr std::size_t page_size() noexcept { return entt_traits<Entity>::page_size; }

    static_assert(page_size() != 0u && (page_size() & (page_size() - 1u)) == 0u,
                  "Sparse page size must be a power of two");

    [[nodiscard]] auto* sparse_ptr(const Entity entt) const noexcept
    {
        const auto pos = static_cast<size_type>(traits_type::to_entity(entt));
        const auto page = pos / page_size();
        return (page < sparse.size() && sparse[page]) ? (sparse[page] + (pos & (page_size() - 1u))) : nullptr;
    }

    [[nodiscard]] auto& sparse_ref(const Entity entt) const noexcept
    {
        ENTT_ASSERT(sparse_ptr(entt), "Invalid element");
        const auto pos = static_cast<size_type>(traits_type::to_entity(entt));
        return sparse[pos / page_size()][pos & (page_size() - 1u)];
    }

    [[nodiscard]] auto& assure_at_least(const Entity entt)
    {
        const auto pos = static_cast<size_type>(traits_type::to_entity(entt));
        const auto page = pos / page_size();

        if (!(page < sparse.size()))
        {
            sparse.resize(page + 1u, nullptr);
        }

        if (!sparse[page])
        {
            auto page_allocator{packed.get_allocator()};
            sparse[page] = alloc_traits::allocate(page_allocator, page_size());
            std::uninitialized_fill(sparse[page], sparse[page] + page_size(), null);
        }

        return sparse[page][pos & (page_size() - 1u)];
    }

    void release_sparse_pages()
    {
        auto page_allocator{packed.get_allocator()};

        for (auto&& page : sparse)
        {
            if (page != nullptr)
            {
                std::destroy(page, page + page_size());
                alloc_traits::deallocate(page_allocator, page, page_size());
                page = nullptr;
            }
        }
    }

    [[nodiscard]] static constexpr std::size_t max_size() noexcept
    {
        return static_cast<std::size_t>(entt_traits<Entity>::to_entity(null));
    }

    void swap_at(const std::size_t lhs, const std::size_t rhs)
    {
        auto& from = packed[lhs];
        auto& to = packed[rhs];

        sparse_ref(from) =
            traits_type::combine(static_cast<typename traits_type::entity_type>(rhs), traits_type::to_integral(from));
        sparse_ref(to) =
            traits_type::combine(static_cast<typename traits_type::entity_type>(lhs), traits_type::to_integral(to));

        std::swap(from, to);
    }

private:
    [[nodiscard]] virtual const void* get_at(const std::size_t) const { return nullptr; }

    // Storages move their payload along when compact relocates an element.
    virtual void swap_or_move(const std::size_t, const std::size_t) {}

protected:
    /*! @brief Random access iterator type. */
    using basic_iterator = internal::sparse_set_iterator<packed_container_type>;

    void swap_only(const basic_iterator it)
    {
        ENTT_ASSERT(mode == deletion_policy::swap_only, "Deletion policy mismatch");
        const auto pos = static_cast<size_type>(index(*it));
        ENTT_ASSERT(pos < head, "Element not in use");
        bump(traits_type::next(*it));
        --head;
        swap_at(pos, head);
    }

    void swap_and_pop(const basic_iterator it)
    {
        ENTT_ASSERT(mode == deletion_policy::swap_and_pop, "Deletion policy mismatch");
        const auto entt = *it;
        auto& self = sparse_ref(entt);
        const auto pos = traits_type::to_entity(self);
        const auto last = packed.back();
        sparse_ref(last) = traits_type::combine(pos, traits_type::to_integral(last));
        packed[static_cast<size_type>(pos)] = last;
        // after the line above, so that removing the last element nulls its own entry
        self = null;
        packed.pop_back();
    }

    void in_place_pop(const basic_iterator it)
    {
        ENTT_ASSERT(mode == deletion_policy::in_place, "Deletion policy mismatch");
        const auto entt = *it;
        const auto pos = static_cast<size_type>(traits_type::to_entity(std::exchange(sparse_ref(entt), null)));
        constexpr entity_type hole = tombstone;
        packed[pos] = traits_type::combine(static_cast<typename traits_type::entity_type>(std::exchange(head, pos)),
                                           traits_type::to_integral(hole));
    }

    /*! @brief Removes the elements of a range of this set. */
    virtual void pop(basic_iterator first, basic_iterator last)
    {
        switch (mode)
        {
        case deletion_policy::swap_and_pop:
            for (; first != last; ++first)
            {
                swap_and_pop(first);
            }
            break;
        case deletion_policy::in_place:
            for (; first != last; ++first)
            {
                in_place_pop(first);
            }
            break;
        case deletion_policy::swap_only:
            for (; first != last; ++first)
            {
                swap_only(first);
            }
            break;
        }
    }

    /*! @brief Removes all elements. */
    virtual void pop_all()
    {
        for (auto first = begin(), last = end(); first != last; ++first)
        {
            if (*first != tombstone)
            {
                sparse_ref(*first) = null;
            }
        }

        head = policy_to_head();
        packed.clear();
    }

    /**
     * @brief Adds an element, reusing a hole of an in-place set unless told otherwise.
     * @return An iterator to the element.
     */
    virtual basic_iterator try_emplace(const Entity entt, const bool force_back, const void* = nullptr)
    {
        ENTT_ASSERT(entt != null && entt != tombstone, "Invalid element");
        auto& elem = assure_at_least(entt);
        auto pos = size();

        switch (mode)
        {
        case deletion_policy::in_place:
            if (head != max_size() && !force_back)
            {
                pos = head;
                ENTT_ASSERT(elem == null, "Slot not available");
                elem = traits_type::combine(static_cast<typename traits_type::entity_type>(head),
                                            traits_type::to_integral(entt));
                head = static_cast<size_type>(traits_type::to_entity(std::exchange(packed[pos], entt)));
                break;
            }
            [[fallthrough]];
        case deletion_policy::swap_and_pop:
            packed.push_back(entt);
            ENTT_ASSERT(elem == null, "Slot not available");
            elem = traits_type::combine(static_cast<typename traits_type::entity_type>(packed.size() - 1u),
                                        traits_type::to_integral(entt));
            break;
        case deletion_policy::swap_only:
            if (elem == null)
            {
                packed.push_back(entt);
                elem = traits_type::combine(static_cast<typename traits_type::entity_type>(packed.size() - 1u),
                                            traits_type::to_integral(entt));
            }
            else
            {
                ENTT_ASSERT(!(static_cast<size_type>(traits_type::to_entity(elem)) < head), "Slot not available");
                bump(entt);
            }

            pos = head++;
            swap_at(static_cast<size_type>(traits_type::to_entity(elem)), pos);
            break;
        }

        return --(end() - static_cast<difference_type>(pos));
    }

public:
    using allocator_type = Allocator;
    using traits_type = entt_traits<Entity>;
    using entity_type = typename traits_type::value_type;
    using version_type = typename traits_type::version_type;
    using size_type = std::size_t;
    using difference_type = std::ptrdiff_t;
    using pointer = typename packed_container_type::const_pointer;
    using iterator = basic_iterator;
    using const_iterator = iterator;
    using reverse_iterator = std::reverse_iterator<iterator>;
    using const_reverse_iterator = reverse_iterator;

    basic_sparse_set() : basic_sparse_set{type_id<void>()} {}

    explicit basic_sparse_set(const allocator_type& allocator)
        : basic_sparse_set{type_id<void>(), deletion_policy::swap_and_pop, allocator}
    {
    }

    explicit basic_sparse_set(deletion_policy pol, const allocator_type& allocator = {})
        : basic_sparse_set{type_id<void>(), pol, allocator}
    {
    }

    explicit basic_sparse_set(const type_info& elem, deletion_policy pol = deletion_policy::swap_and_pop,
                              const allocator_type& allocator = {})
        : sparse{allocator}, packed{allocator}, info{&elem}, mode{pol}, head{policy_to_head()}
    {
    }

    basic_sparse_set(const basic_sparse_set&) = delete;

    basic_sparse_set(basic_sparse_set&& other) noexcept
        : sparse{std::move(other.sparse)}, packed{std::move(other.packed)}, info{other.info}, mode{other.mode},
          head{std::exchange(other.head, policy_to_head())}
    {
    }

    virtual ~basic_sparse_set() { release_sparse_pages(); }

    basic_sparse_set& operator=(const basic_sparse_set&) = delete;

    basic_sparse_set& operator=(basic_sparse_set&& other) noexcept
    {
        release_sparse_pages();
        sparse = std::move(other.sparse);
        packed = std::move(other.packed);
        info = other.info;
        mode = other.mode;
        head = std::exchange(other.head, policy_to_head());
        return *this;
    }

    [[nodiscard]] constexpr allocator_type get_allocator() const noexcept { return packed.get_allocator(); }

    [[nodiscard]] deletion_policy policy() const noexcept { return mode; }

    /**
     * @brief Head of the free list: for a swap-only set, the number of elements in use
     * (they come first in the packed array); for an in-place set, the first hole.
     */
    [[nodiscard]] size_type free_list() const noexcept { return head; }

    void free_list(const size_type len) noexcept
    {
        ENTT_ASSERT((mode == deletion_policy::swap_only) && !(len > packed.size()), "Invalid value");
        head = len;
    }

    virtual void reserve(const size_type cap) { packed.reserve(cap); }

    [[nodiscard]] virtual size_type capacity() const noexcept { return packed.capacity(); }

    virtual void shrink_to_fit() { packed.shrink_to_fit(); }

    [[nodiscard]] size_type extent() const noexcept { return sparse.size() * page_size(); }

    /*! @brief Number of elements, holes of an in-place set included. */
    [[nodiscard]] size_type size() const noexcept { return packed.size(); }

    [[nodiscard]] bool empty() const noexcept { return packed.empty(); }

    /*! @brief Whether the packed array has no holes. */
    [[nodiscard]] bool contiguous() const noexcept
    {
        return (mode != deletion_policy::in_place) || (head == max_size());
    }

    [[nodiscard]] pointer data() const noexcept { return packed.data(); }

    /*! @brief The last element of the packed array; iteration goes towards the first one. */
    [[nodiscard]] iterator begin() const noexcept
    {
        return iterator{packed, static_cast<difference_type>(packed.size())};
    }

    [[nodiscard]] const_iterator cbegin() const noexcept { return begin(); }

    [[nodiscard]] iterator end() const noexcept { return iterator{packed, {}}; }

    [[nodiscard]] const_iterator cend() const noexcept { return end(); }

    /*! @brief As begin, but a swap-only set starts at the last element in use. */
    [[nodiscard]] iterator begin(int) const noexcept
    {
        return (mode == deletion_policy::swap_only) ? iterator{packed, static_cast<difference_type>(head)} : begin();
    }

    [[nodiscard]] iterator end(int) const noexcept { return end(); }

    [[nodiscard]] reverse_iterator rbegin() const noexcept { return std::make_reverse_iterator(end()); }

    [[nodiscard]] const_reverse_iterator crbegin() const noexcept { return rbegin(); }

    [[nodiscard]] reverse_iterator rend() const noexcept { return std::make_reverse_iterator(begin()); }

    [[nodiscard]] const_reverse_iterator crend() const noexcept { return rend(); }

    [[nodiscard]] iterator find(const entity_type entt) const noexcept
    {
        return contains(entt) ? to_iterator(entt) : end();
    }

    /*! @brief Whether the set holds this entity with this very version. */
    [[nodiscard]] bool contains(const entity_type entt) const noexcept
    {
        if (traits_type::to_entity(entt) == traits_type::entity_mask)
        {
            return false;
        }
        const auto* elem = sparse_ptr(entt);
        return elem && (traits_type::to_entity(*elem) != traits_type::entity_mask) &&
               (traits_type::to_version(*elem) == traits_type::to_version(entt));
    }

    /*! @brief The version stored for the entity part of the identifier, or the tombstone version. */
    [[nodiscard]] version_type current(const entity_type entt) const noexcept
    {
        const auto* elem = sparse_ptr(entt);
        constexpr auto fallback = traits_type::to_version(tombstone);
        return elem ? traits_type::to_version(*elem) : fallback;
    }

    [[nodiscard]] size_type index(const entity_type entt) const noexcept
    {
        ENTT_ASSERT(contains(entt), "Set does not contain entity");
        return static_cast<size_type>(traits_type::to_entity(sparse_ref(entt)));
    }

    [[nodiscard]] entity_type at(const size_type pos) const noexcept
    {
        return pos < packed.size() ? packed[pos] : null;
    }

    [[nodiscard]] entity_type operator[](const size_type pos) const noexcept
    {
        ENTT_ASSERT(pos < packed.size(), "Position is out of bounds");
        return packed[pos];
    }

    [[nodiscard]] const void* value(const entity_type entt) const noexcept { return get_at(index(entt)); }

    [[nodiscard]] void* value(const entity_type entt) noexcept
    {
        return const_cast<void*>(std::as_const(*this).value(entt));
    }

    /*! @brief Adds an element; storages copy `elem` into the new component when it is given. */
    iterator push(const entity_type entt, const void* elem = nullptr) { return try_emplace(entt, false, elem); }

    template <typename It>
    iterator push(It first, It last)
    {
        for (auto it = first; it != last; ++it)
        {
            try_emplace(*it, true);
        }
        return first == last ? end() : find(*first);
    }

    /*! @brief Sets the version of an element that the set holds. */
    version_type bump(const entity_type entt)
    {
        auto& entity = sparse_ref(entt);
        ENTT_ASSERT(entt != tombstone && entity != null, "Cannot set the required version");
        entity = traits_type::combine(traits_type::to_integral(entity), traits_type::to_integral(entt));
        packed[static_cast<size_type>(traits_type::to_entity(entity))] = entt;
        return traits_type::to_version(entt);
    }

    void erase(const entity_type entt)
    {
        const auto it = to_iterator(entt);
        pop(it, it + 1);
    }

    template <typename It>
    void erase(It first, It last)
    {
        for (; first != last; ++first)
        {
            erase(*first);
        }
    }

    bool remove(const entity_type entt) { return contains(entt) && (erase(entt), true); }

    template <typename It>
    size_type remove(It first, It last)
    {
        size_type count{};
        for (; first != last; ++first)
        {
            count += remove(*first);
        }
        return count;
    }

    /*! @brief Fills the holes of an in-place set by moving the last elements into them. */
    void compact()
    {
        if (mode != deletion_policy::in_place)
        {
            return;
        }

        size_type from = packed.size();
        for (; from && packed[from - 1u] == tombstone; --from)
        {
        }

        for (size_type to{}; to < from; ++to)
        {
            if (packed[to] == tombstone)
            {
                --from;
                swap_or_move(from, to);
                const auto entt = packed[from];
                packed[to] = entt;
                sparse_ref(entt) = traits_type::combine(static_cast<typename traits_type::entity_type>(to),
                                                        traits_type::to_integral(entt));
                for (; from && packed[from - 1u] == tombstone; --from)
                {
                }
            }
        }

        head = max_size();
        packed.erase(packed.begin() + static_cast<difference_type>(from), packed.end());
    }

    void clear() { pop_all(); }

    [[nodiscard]] const type_info& type() const noexcept { return *info; }

    [[nodiscard]] iterator to_iterator(const entity_type entt) const
    {
        return --(end() - static_cast<difference_type>(index(entt)));
    }

private:
    [[nodiscard]] size_type policy_to_head() const noexcept
    {
        return (mode == deletion_policy::swap_only) ? size_type{} : max_size();
    }

    sparse_container_type sparse;
    packed_container_type packed;
    const type_info* info;
    deletion_policy mode;
    size_type head;
};

} // namespace entt

#endif
