#ifndef ENTT_CORE_ID_TABLE_HPP
#define ENTT_CORE_ID_TABLE_HPP

// Not an upstream header: an internal helper of this subset, included only by its own headers.

#include "fwd.hpp"
#include <algorithm>
#include <cstddef>
#include <vector>

namespace entt
{

namespace internal
{

// Open-addressing index from identifiers to non-owning pointers, at most half full so that a miss ends after a
// probe or two. Identifiers are type hashes already, so their low bits pick the slot directly. Entries are never
// removed one by one.
template <typename Value>
class id_table
{
    struct slot
    {
        id_type key;
        Value* value;
    };

    void place(const id_type key, Value* value) noexcept
    {
        const auto mask = slots.size() - 1u;
        auto pos = static_cast<std::size_t>(key) & mask;
        while (slots[pos].value != nullptr)
        {
            pos = (pos + 1u) & mask;
        }
        slots[pos] = slot{key, value};
    }

public:
    [[nodiscard]] Value* find(const id_type key) const noexcept
    {
        if (slots.empty())
        {
            return nullptr;
        }
        const auto mask = slots.size() - 1u;
        for (auto pos = static_cast<std::size_t>(key) & mask;; pos = (pos + 1u) & mask)
        {
            const auto& curr = slots[pos];
            if (curr.value == nullptr || curr.key == key)
            {
                return curr.value;
            }
        }
    }

    void insert(const id_type key, Value* value)
    {
        if ((count + 1u) * 2u > slots.size())
        {
            std::vector<slot> old(std::max<std::size_t>(slots.size() * 2u, 16u), slot{0u, nullptr});
            old.swap(slots);
            for (auto&& curr : old)
            {
                if (curr.value != nullptr)
                {
                    place(curr.key, curr.value);
                }
            }
        }
        place(key, value);
        ++count;
    }

    void clear() noexcept
    {
        slots.clear();
        count = 0u;
    }

private:
    std::vector<slot> slots{};
    std::size_t count{};
};

} // namespace internal

} // namespace entt

#endif
