#ifndef ENTT_META_CONTEXT_HPP
#define ENTT_META_CONTEXT_HPP

#include "../core/fwd.hpp"
#include "../core/id_table.hpp"
#include "node.hpp"
#include <algorithm>
#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

namespace entt
{

class meta_ctx;

namespace internal
{

struct meta_context
{
    [[nodiscard]] inline static meta_context& from(meta_ctx& ctx);
    [[nodiscard]] inline static const meta_context& from(const meta_ctx& ctx);

    [[nodiscard]] const meta_type_descriptor* find(const id_type hash) const noexcept { return index.find(hash); }

    meta_type_descriptor& assure(const meta_type_node& node)
    {
        if (auto* elem = index.find(node.hash); elem)
        {
            return *elem;
        }
        auto elem = std::make_unique<meta_type_descriptor>();
        elem->node = &node;
        elem->id = node.hash;
        auto* const ptr = elem.get();
        value.push_back(std::move(elem));
        index.insert(node.hash, ptr);
        return *ptr;
    }

    // Removed descriptors stay alive until the context dies, so that meta objects taken
    // from them before a reset never dangle.
    template <typename Func>
    void erase_if(Func pred)
    {
        std::size_t kept{};
        for (auto&& curr : value)
        {
            if (pred(*curr))
            {
                retired.push_back(std::move(curr));
            }
            else
            {
                value[kept++] = std::move(curr);
            }
        }
        value.resize(kept);
        index.clear();
        for (auto&& curr : value)
        {
            index.insert(curr->node->hash, curr.get());
        }
    }

    std::vector<std::unique_ptr<meta_type_descriptor>> value{};
    id_table<meta_type_descriptor> index{};
    std::vector<std::unique_ptr<meta_type_descriptor>> retired{};
};

} // namespace internal

/*! @brief Disambiguation tag for constructors that take a context. */
struct meta_ctx_arg_t final
{
};

inline constexpr meta_ctx_arg_t meta_ctx_arg{};

/*! @brief Opaque container of the meta types of one reflection context. */
class meta_ctx : private internal::meta_context
{
    friend struct internal::meta_context;
};

[[nodiscard]] inline internal::meta_context& internal::meta_context::from(meta_ctx& ctx)
{
    return ctx;
}

[[nodiscard]] inline const internal::meta_context& internal::meta_context::from(const meta_ctx& ctx)
{
    return ctx;
}

} // namespace entt

#endif
