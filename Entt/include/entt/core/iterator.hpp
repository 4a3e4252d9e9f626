#ifndef ENTT_CORE_ITERATOR_HPP
#define ENTT_CORE_ITERATOR_HPP

#include <iterator>
#include <memory>
#include <type_traits>
#include <utility>

namespace entt
{

/*! @brief Lets an iterator that yields values by copy offer `operator->`. */
template <typename Type>
struct input_iterator_pointer final
{
    using value_type = Type;
    using pointer = Type*;
    using reference = Type&;

    constexpr input_iterator_pointer(value_type&& val) noexcept(std::is_nothrow_move_constructible_v<value_type>)
        : value{std::move(val)}
    {
    }

    [[nodiscard]] constexpr pointer operator->() noexcept { return std::addressof(value); }

    [[nodiscard]] constexpr reference operator*() noexcept { return value; }

private:
    Type value;
};

/*! @brief A pair of iterators usable in a range-based for loop. */
template <typename It, typename Sentinel = It>
struct iterable_adaptor final
{
    using value_type = typename std::iterator_traits<It>::value_type;
    using iterator = It;
    using sentinel = Sentinel;

    constexpr iterable_adaptor() noexcept(
        std::is_nothrow_default_constructible_v<iterator>&& std::is_nothrow_default_constructible_v<sentinel>)
        : first{}, last{}
    {
    }

    constexpr iterable_adaptor(iterator from, sentinel to) noexcept(
        std::is_nothrow_move_constructible_v<iterator>&& std::is_nothrow_move_constructible_v<sentinel>)
        : first{std::move(from)}, last{std::move(to)}
    {
    }

    [[nodiscard]] constexpr iterator begin() const noexcept { return first; }

    [[nodiscard]] constexpr sentinel end() const noexcept { return last; }

    [[nodiscard]] constexpr iterator cbegin() const noexcept { return begin(); }

    [[nodiscard]] constexpr sentinel cend() const noexcept { return end(); }

private:
    It first;
    Sentinel last;
};

} // namespace entt

#endif
