#ifndef ENTT_META_CONTEXT_HPP
#define ENTT_META_CONTEXT_HPP

#include "../core/fwd.hpp"
#include "node.hpp"
#include <algorithm>
#include <atomic>
#include <cstddef>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace entt
{

class meta_ctx;

namespace internal
{

// The index of a context's types, read without a lock while one writer at a time adds to it: a thread may look
// types up while another registers new ones. Each generation of slots stays alive until the index dies, since a
// reader may still be probing an older one; keys are published before their values.
template <typename Value>
class published_index
{
    struct slot
    {
        std::atomic<id_type> key{0u};
        std::atomic<Value*> value{nullptr};
    };

    struct generation
    {
        explicit generation(const std::size_t length) : slots{std::make_unique<slot[]>(length)}, size{length} {}

        std::unique_ptr<slot[]> slots;
        std::size_t size;
    };

    static void place(generation& where, const id_type key, Value* value) noexcept
    {
        const auto mask = where.size - 1u;
        auto pos = static_cast<std::size_t>(key) & mask;
        while (where.slots[pos].value.load(std::memory_order_relaxed) != nullptr)
        {
            pos = (pos + 1u) & mask;
        }
        where.slots[pos].key.store(key, std::memory_order_relaxed);
        where.slots[pos].value.store(value, std::memory_order_release);
    }

public:
    // Out of line for g++ 12: inlined into callers whose context may be null, its atomic load draws a false
    // -Wstringop-overflow (GCC bug 104475).
#if defined(__GNUC__) && !defined(__clang__)
    [[gnu::noinline]]
#endif
    [[nodiscard]] Value*
    find(const id_type key) const noexcept
    {
        const generation* where = current.load(std::memory_order_acquire);
        if (where == nullptr)
        {
            return nullptr;
        }
        const auto mask = where->size - 1u;
        for (auto pos = static_cast<std::size_t>(key) & mask;; pos = (pos + 1u) & mask)
        {
            const auto& curr = where->slots[pos];
            Value* const value = curr.value.load(std::memory_order_acquire);
            if (value == nullptr || curr.key.load(std::memory_order_relaxed) == key)
            {
                return value;
            }
        }
    }

    // Writers hold the context's registration lock.
    void insert(const id_type key, Value* value)
    {
        generation* where = current.load(std::memory_order_relaxed);
        if (where == nullptr || (count + 1u) * 2u > where->size)
        {
            auto next = std::make_unique<generation>(where == nullptr ? 16u : where->size * 2u);
            if (where != nullptr)
            {
                for (std::size_t pos = 0u; pos < where->size; ++pos)
                {
                    if (Value* const old = where->slots[pos].value.load(std::memory_order_relaxed); old != nullptr)
                    {
                        place(*next, where->slots[pos].key.load(std::memory_order_relaxed), old);
                    }
                }
            }
            where = next.get();
            generations.push_back(std::move(next));
            current.store(where, std::memory_order_release);
        }
        place(*where, key, value);
        ++count;
    }

    void clear() noexcept
    {
        current.store(nullptr, std::memory_order_release);
        count = 0u;
    }

private:
    std::vector<std::unique_ptr<generation>> generations{};
    std::atomic<generation*> current{nullptr};
    std::size_t count{};
};

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
    published_index<meta_type_descriptor> index{};
    std::vector<std::unique_ptr<meta_type_descriptor>> retired{};
    // Held by every change of the context; lookups by hash go without it.
    mutable std::recursive_mutex registration{};
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
