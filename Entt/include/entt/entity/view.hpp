#ifndef ENTT_ENTITY_VIEW_HPP
#define ENTT_ENTITY_VIEW_HPP

#include "../config/config.h"
#include "../core/iterator.hpp"
#include "../core/type_traits.hpp"
#include "component.hpp"
#include "entity.hpp"
#include "fwd.hpp"
#include <array>
#include <cstddef>
#include <iterator>
#include <tuple>
#include <type_traits>
#include <utility>

namespace entt
{

namespace internal
{

// Whether every set of `pools` holds `entt` and no set of `filter` does.
template <typename Entity, typename Pools, typename Filter>
[[nodiscard]] bool view_accepts(const Entity entt, const Pools& pools, const Filter& filter) noexcept
{
    for (const auto* curr : pools)
    {
        if (!curr->contains(entt))
        {
            return false;
        }
    }
    for (const auto* curr : filter)
    {
        if (curr->contains(entt))
        {
            return false;
        }
    }
    return true;
}

// Entities of the leading set that every other set holds and no excluded set holds.
template <typename Type, std::size_t Get, std::size_t Exclude>
class view_iterator final
{
    using iterator_type = typename Type::const_iterator;

    [[nodiscard]] bool valid(const typename iterator_type::value_type entt) const noexcept
    {
        if (entt == tombstone)
        {
            return false;
        }
        return view_accepts(entt, pools, filter);
    }

public:
    using value_type = typename iterator_type::value_type;
    using pointer = typename iterator_type::pointer;
    using reference = typename iterator_type::reference;
    using difference_type = typename iterator_type::difference_type;
    using iterator_category = std::forward_iterator_tag;

    constexpr view_iterator() noexcept : it{}, last{}, pools{}, filter{} {}

    view_iterator(iterator_type curr, iterator_type to, std::array<const Type*, Get> value,
                  std::array<const Type*, Exclude> excl) noexcept
        : it{curr}, last{to}, pools{value}, filter{excl}
    {
        while (it != last && !valid(*it))
        {
            ++it;
        }
    }

    view_iterator& operator++() noexcept
    {
        while (++it != last && !valid(*it))
        {
        }
        return *this;
    }

    view_iterator operator++(int) noexcept
    {
        view_iterator orig = *this;
        ++(*this);
        return orig;
    }

    [[nodiscard]] pointer operator->() const noexcept { return &*it; }

    [[nodiscard]] reference operator*() const noexcept { return *operator->(); }

    [[nodiscard]] bool operator==(const view_iterator& other) const noexcept { return it == other.it; }

private:
    iterator_type it;
    iterator_type last;
    std::array<const Type*, Get> pools;
    std::array<const Type*, Exclude> filter;
};

// Entities of a view with their components, as tuples (empty types contribute nothing).
template <typename It, typename View>
class extended_view_iterator final
{
public:
    using iterator_type = It;
    using difference_type = std::ptrdiff_t;
    using value_type = decltype(std::tuple_cat(std::make_tuple(*std::declval<It>()),
                                               std::declval<const View&>().get(*std::declval<It>())));
    using pointer = input_iterator_pointer<value_type>;
    using reference = value_type;
    using iterator_category = std::input_iterator_tag;
    using iterator_concept = std::forward_iterator_tag;

    constexpr extended_view_iterator() : it{}, view{} {}

    extended_view_iterator(It from, const View& ref) : it{from}, view{&ref} {}

    extended_view_iterator& operator++() noexcept
    {
        ++it;
        return *this;
    }

    extended_view_iterator operator++(int) noexcept
    {
        extended_view_iterator orig = *this;
        ++it;
        return orig;
    }

    [[nodiscard]] reference operator*() const noexcept { return std::tuple_cat(std::make_tuple(*it), view->get(*it)); }

    [[nodiscard]] pointer operator->() const noexcept { return operator*(); }

    [[nodiscard]] constexpr iterator_type base() const noexcept { return it; }

    [[nodiscard]] bool operator==(const extended_view_iterator& other) const noexcept { return it == other.it; }

private:
    It it;
    const View* view;
};

} // namespace internal

/**
 * @brief View over several storages: the entities that all `Get` storages hold and no
 * `Exclude` storage holds. The smallest storage leads the iteration.
 */
template <typename... Get, typename... Exclude>
class basic_view<get_t<Get...>, exclude_t<Exclude...>>
{
    template <typename Type>
    static constexpr std::size_t index_of =
        type_list_index_v<std::remove_const_t<Type>,
                          type_list<typename Get::value_type..., typename Exclude::value_type...>>;

public:
    using common_type = std::common_type_t<typename Get::base_type...>;
    using entity_type = std::common_type_t<typename Get::entity_type...>;
    using size_type = std::size_t;
    using iterator = internal::view_iterator<common_type, sizeof...(Get), sizeof...(Exclude)>;
    using iterable = iterable_adaptor<internal::extended_view_iterator<iterator, basic_view>>;

    basic_view() noexcept : storages{}, excluded{}, pools{}, filter{}, leading{} {}

    basic_view(Get&... value, Exclude&... excl) noexcept
        : storages{&value...}, excluded{&excl...}, pools{&value...}, filter{&excl...}, leading{}
    {
        refresh();
    }

    basic_view(std::tuple<Get&...> value, std::tuple<Exclude&...> excl = {}) noexcept
        : basic_view{std::apply(
              [&excl](auto&... get) {
                  return std::apply([&get...](auto&... other) { return basic_view{get..., other...}; }, excl);
              },
              value)}
    {
    }

    /*! @brief Picks the smallest storage to lead the iteration again. */
    void refresh() noexcept
    {
        leading = nullptr;
        for (const auto* curr : pools)
        {
            if (leading == nullptr || curr->size() < leading->size())
            {
                leading = curr;
            }
        }
    }

    [[nodiscard]] const common_type* handle() const noexcept { return leading; }

    template <typename Type>
    [[nodiscard]] auto* storage() const noexcept
    {
        return storage<index_of<Type>>();
    }

    template <std::size_t Index>
    [[nodiscard]] auto* storage() const noexcept
    {
        if constexpr (Index < sizeof...(Get))
        {
            return std::get<Index>(storages);
        }
        else
        {
            return std::get<Index - sizeof...(Get)>(excluded);
        }
    }

    [[nodiscard]] size_type size_hint() const noexcept { return leading ? leading->size() : size_type{}; }

    [[nodiscard]] iterator begin() const noexcept
    {
        return leading ? iterator{leading->begin(0), leading->end(0), pools, filter} : iterator{};
    }

    [[nodiscard]] iterator end() const noexcept
    {
        return leading ? iterator{leading->end(0), leading->end(0), pools, filter} : iterator{};
    }

    [[nodiscard]] entity_type front() const noexcept
    {
        const auto it = begin();
        return it != end() ? *it : null;
    }

    [[nodiscard]] entity_type back() const noexcept
    {
        if (leading)
        {
            for (auto it = leading->rbegin(), last = leading->rend(); it != last; ++it)
            {
                if (contains(*it))
                {
                    return *it;
                }
            }
        }
        return null;
    }

    [[nodiscard]] iterator find(const entity_type entt) const noexcept
    {
        return contains(entt) ? iterator{leading->find(entt), leading->end(), pools, filter} : end();
    }

    [[nodiscard]] decltype(auto) operator[](const entity_type entt) const { return get(entt); }

    [[nodiscard]] explicit operator bool() const noexcept { return leading != nullptr; }

    [[nodiscard]] bool contains(const entity_type entt) const noexcept
    {
        if (leading == nullptr || entt == tombstone)
        {
            return false;
        }
        return internal::view_accepts(entt, pools, filter);
    }

    /*! @brief One component by reference, or a tuple of them (of all, without arguments). */
    template <typename Type, typename... Other>
    [[nodiscard]] decltype(auto) get(const entity_type entt) const
    {
        return get<index_of<Type>, index_of<Other>...>(entt);
    }

    template <std::size_t... Index>
    [[nodiscard]] decltype(auto) get(const entity_type entt) const
    {
        if constexpr (sizeof...(Index) == 0u)
        {
            return std::apply([entt](auto*... curr) { return std::tuple_cat(curr->get_as_tuple(entt)...); }, storages);
        }
        else if constexpr (sizeof...(Index) == 1u)
        {
            return (std::get<Index>(storages)->get(entt), ...);
        }
        else
        {
            return std::tuple_cat(std::get<Index>(storages)->get_as_tuple(entt)...);
        }
    }

    /*! @brief Calls `func` with (entity, components...) or (components...); empty types are left out. */
    template <typename Func>
    void each(Func func) const
    {
        for (const auto entt : *this)
        {
            if constexpr (is_applicable_v<Func, decltype(std::tuple_cat(std::make_tuple(entt), get(entt)))>)
            {
                std::apply(func, std::tuple_cat(std::make_tuple(entt), get(entt)));
            }
            else
            {
                std::apply(func, get(entt));
            }
        }
    }

    [[nodiscard]] iterable each() const noexcept
    {
        using extended = internal::extended_view_iterator<iterator, basic_view>;
        return iterable{extended{begin(), *this}, extended{end(), *this}};
    }

private:
    template <typename Func, typename Tuple>
    static constexpr bool is_applicable_v = []<typename... Args>(std::type_identity<std::tuple<Args...>>)
    { return std::is_invocable_v<Func, Args...>; }(std::type_identity<Tuple>{});

    std::tuple<Get*...> storages;
    std::tuple<Exclude*...> excluded;
    std::array<const common_type*, sizeof...(Get)> pools;
    std::array<const common_type*, sizeof...(Exclude)> filter;
    const common_type* leading;
};

/*! @brief View over one storage; holes of in-place storages are skipped. */
template <typename Get>
class basic_view<get_t<Get>, exclude_t<>>
{
    static constexpr bool skip_holes = component_traits<std::remove_const_t<typename Get::value_type>>::in_place_delete;

public:
    using common_type = typename Get::base_type;
    using entity_type = typename Get::entity_type;
    using size_type = std::size_t;
    using iterator =
        std::conditional_t<skip_holes, internal::view_iterator<common_type, 1u, 0u>, typename common_type::iterator>;
    using iterable = decltype(std::declval<Get&>().each());

    basic_view() noexcept : leading{} {}

    basic_view(Get& value) noexcept : leading{&value} {}

    basic_view(std::tuple<Get&> value, std::tuple<> = {}) noexcept : basic_view{std::get<0>(value)} {}

    [[nodiscard]] const common_type* handle() const noexcept { return leading; }

    template <typename Type = typename Get::value_type>
    [[nodiscard]] auto* storage() const noexcept
    {
        static_assert(std::is_same_v<std::remove_const_t<Type>, std::remove_const_t<typename Get::value_type>>,
                      "Invalid component type");
        return leading;
    }

    template <std::size_t Index>
    [[nodiscard]] auto* storage() const noexcept
    {
        static_assert(Index == 0u, "Index out of bounds");
        return leading;
    }

    /*! @brief Number of entities, holes of in-place storages included. */
    [[nodiscard]] size_type size_hint() const noexcept { return leading ? leading->size() : size_type{}; }

    [[nodiscard]] size_type size() const noexcept requires(!skip_holes) { return size_hint(); }

    [[nodiscard]] bool empty() const noexcept { return begin() == end(); }

    [[nodiscard]] iterator begin() const noexcept
    {
        if constexpr (skip_holes)
        {
            return leading ? iterator{handle()->begin(), handle()->end(), {handle()}, {}} : iterator{};
        }
        else
        {
            return leading ? handle()->begin() : iterator{};
        }
    }

    [[nodiscard]] iterator end() const noexcept
    {
        if constexpr (skip_holes)
        {
            return leading ? iterator{handle()->end(), handle()->end(), {handle()}, {}} : iterator{};
        }
        else
        {
            return leading ? handle()->end() : iterator{};
        }
    }

    [[nodiscard]] entity_type front() const noexcept
    {
        const auto it = begin();
        return it != end() ? *it : null;
    }

    [[nodiscard]] entity_type back() const noexcept
    {
        if (leading)
        {
            for (auto it = handle()->rbegin(), last = handle()->rend(); it != last; ++it)
            {
                if (*it != tombstone)
                {
                    return *it;
                }
            }
        }
        return null;
    }

    [[nodiscard]] iterator find(const entity_type entt) const noexcept
    {
        if constexpr (skip_holes)
        {
            return contains(entt) ? iterator{handle()->find(entt), handle()->end(), {handle()}, {}} : end();
        }
        else
        {
            return contains(entt) ? handle()->find(entt) : end();
        }
    }

    [[nodiscard]] decltype(auto) operator[](const entity_type entt) const { return leading->get(entt); }

    [[nodiscard]] explicit operator bool() const noexcept { return leading != nullptr; }

    [[nodiscard]] bool contains(const entity_type entt) const noexcept { return leading && leading->contains(entt); }

    template <typename Type = typename Get::value_type>
    [[nodiscard]] decltype(auto) get(const entity_type entt) const
    {
        static_assert(std::is_same_v<std::remove_const_t<Type>, std::remove_const_t<typename Get::value_type>>,
                      "Invalid component type");
        return leading->get(entt);
    }

    template <std::size_t... Index>
    [[nodiscard]] decltype(auto) get(const entity_type entt) const
    {
        if constexpr (sizeof...(Index) == 0u)
        {
            return leading->get_as_tuple(entt);
        }
        else
        {
            return leading->get(entt);
        }
    }

    /*! @brief Calls `func` with (entity, component) or (component); (entity) or () for empty types. */
    template <typename Func>
    void each(Func func) const
    {
        if (leading == nullptr)
        {
            return;
        }
        using element_type = std::remove_const_t<typename Get::value_type>;
        constexpr std::size_t page = component_traits<element_type>::page_size;
        if constexpr (page != 0u && !skip_holes && !is_tuple_applicable<Func, decltype(*leading->each().begin())>())
        {
            // Without the entity and without holes, the components are visited a page at a time: one page lookup
            // per page rather than per component, and nothing else to step alongside.
            const auto pages = leading->raw();
            for (std::size_t pos = leading->size(); pos != 0u;)
            {
                const std::size_t first = (pos - 1u) / page * page;
                const auto elements = pages[first / page];
                for (; pos != first; --pos)
                {
                    func(elements[pos - 1u - first]);
                }
            }
            return;
        }
        for (auto&& elem : leading->each())
        {
            if constexpr (is_tuple_applicable<Func, decltype(elem)>())
            {
                std::apply(func, elem);
            }
            else
            {
                std::apply([&func](auto, auto&&... rest) { func(std::forward<decltype(rest)>(rest)...); }, elem);
            }
        }
    }

    [[nodiscard]] iterable each() const noexcept { return leading ? leading->each() : iterable{}; }

private:
    template <typename Func, typename Tuple>
    [[nodiscard]] static constexpr bool is_tuple_applicable() noexcept
    {
        return []<typename... Args>(std::type_identity<std::tuple<Args...>>)
        { return std::is_invocable_v<Func, Args...>; }(std::type_identity<std::remove_cvref_t<Tuple>>{});
    }

    Get* leading;
};

} // namespace entt

#endif
