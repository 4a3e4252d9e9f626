#ifndef ENTT_META_RANGE_HPP
#define ENTT_META_RANGE_HPP

#include "../core/fwd.hpp"
#include "../core/iterator.hpp"
#include "context.hpp"
#include <cstddef>
#include <iterator>
#include <utility>

namespace entt
{

namespace internal
{

// Walks a container of nodes and yields (identifier, meta object) pairs; the element
// conversion is found by argument-dependent lookup on the node type (see meta.hpp).
template <typename Type, typename It>
struct meta_range_iterator final
{
    using difference_type = std::ptrdiff_t;
    using value_type = std::pair<id_type, Type>;
    using pointer = input_iterator_pointer<value_type>;
    using reference = value_type;
    using iterator_category = std::input_iterator_tag;
    using iterator_concept = std::forward_iterator_tag;

    meta_range_iterator() noexcept : it{}, ctx{} {}

    meta_range_iterator(const meta_ctx& area, const It iter) noexcept : it{iter}, ctx{&area} {}

    meta_range_iterator& operator++() noexcept
    {
        ++it;
        return *this;
    }

    meta_range_iterator operator++(int) noexcept
    {
        meta_range_iterator orig = *this;
        ++(*this);
        return orig;
    }

    [[nodiscard]] reference operator*() const noexcept { return meta_range_item<Type>(*ctx, *it); }

    [[nodiscard]] pointer operator->() const noexcept { return operator*(); }

    [[nodiscard]] bool operator==(const meta_range_iterator& other) const noexcept { return it == other.it; }

private:
    It it;
    const meta_ctx* ctx;
};

} // namespace internal

/*! @brief Iterable range of (identifier, meta object) pairs. */
template <typename Type, typename It>
using meta_range = iterable_adaptor<internal::meta_range_iterator<Type, It>>;

} // namespace entt

#endif
