#pragma once

// Included by Reflection.h, after `resolve`: the adapters of a vector or optional type are registered by the first
// `resolve` of any type that names it.
#include "Scripting/Reflection/Reflection.h"

#include <entt/core/type_info.hpp>
#include <entt/meta/meta.hpp>

#include <cstddef>
#include <optional>
#include <type_traits>
#include <vector>

namespace Scripting::Reflection
{
/// How a runtime reaches into a std::vector whose element type it only knows as a meta type. The meta system
/// carries no container support, so each vector type is described once, by the first `resolve` that names it.
struct SequenceAdapter
{
    /** @brief Meta type of the elements. */
    entt::meta_type element;
    /** @brief Makes an empty vector with room for `capacity` elements. */
    entt::meta_any (*makeEmpty)(std::size_t capacity);
    /** @brief Number of elements; 0 for an any that holds no such vector. */
    std::size_t (*size)(const entt::meta_any& sequence);
    /// A view of one element, or a copy where the vector hands out no reference (std::vector<bool>).
    entt::meta_any (*at)(const entt::meta_any& sequence, std::size_t index);
    /// False when `element` does not convert to the element type; the sequence is left alone then.
    bool (*append)(entt::meta_any& sequence, entt::meta_any& element);
};

/// The same for a std::optional.
struct OptionalAdapter
{
    /** @brief Meta type of the held value. */
    entt::meta_type element;
    /** @brief Makes an empty optional. */
    entt::meta_any (*makeEmpty)();
    /// An empty any when `element` does not convert to the element type.
    entt::meta_any (*makeWith)(entt::meta_any& element);
    /// A view of the held value, or an empty any when there is none.
    entt::meta_any (*value)(const entt::meta_any& optional);
};

/// The adapter of a vector type that a `resolve` of this process has named, or null. Lock-free: safe while
/// another thread binds a module.
/// @param type Any meta type.
/// @return The adapter, valid for the rest of the process.
const SequenceAdapter* findSequenceAdapter(const entt::meta_type& type);

/// The same for an optional type.
/// @param type Any meta type.
/// @return The adapter, valid for the rest of the process.
const OptionalAdapter* findOptionalAdapter(const entt::meta_type& type);

namespace internal
{
void addSequenceAdapter(entt::id_type type, const SequenceAdapter& adapter);
void addOptionalAdapter(entt::id_type type, const OptionalAdapter& adapter);

template <typename U>
struct SequenceOperations
{
    using Vector = std::vector<U>;

    static entt::meta_any makeEmpty(std::size_t capacity)
    {
        Vector vector;
        vector.reserve(capacity);
        return entt::meta_any{context(), std::move(vector)};
    }
    static std::size_t size(const entt::meta_any& sequence)
    {
        const Vector* vector = sequence.template try_cast<const Vector>();
        return vector != nullptr ? vector->size() : 0;
    }
    static entt::meta_any at(const entt::meta_any& sequence, std::size_t index)
    {
        const Vector* vector = sequence.template try_cast<const Vector>();
        if (vector == nullptr || index >= vector->size())
        {
            return entt::meta_any{entt::meta_ctx_arg, context()};
        }
        if constexpr (std::is_same_v<U, bool>)
        {
            return entt::meta_any{context(), static_cast<bool>((*vector)[index])};
        }
        else
        {
            return entt::forward_as_meta(context(), (*vector)[index]);
        }
    }
    static bool append(entt::meta_any& sequence, entt::meta_any& element)
    {
        Vector* vector = sequence.template try_cast<Vector>();
        if (vector == nullptr || !element.template allow_cast<const U&>())
        {
            return false;
        }
        vector->push_back(element.template cast<const U&>());
        return true;
    }
};

template <typename U>
struct OptionalOperations
{
    using Optional = std::optional<U>;

    // Made in place: moving a disengaged temporary in has GCC 12 warn about its never-read payload.
    static entt::meta_any makeEmpty() { return entt::meta_any{context(), std::in_place_type<Optional>}; }
    static entt::meta_any makeWith(entt::meta_any& element)
    {
        if (!element.template allow_cast<const U&>())
        {
            return entt::meta_any{entt::meta_ctx_arg, context()};
        }
        return entt::meta_any{context(), Optional{element.template cast<const U&>()}};
    }
    static entt::meta_any value(const entt::meta_any& optional)
    {
        const Optional* held = optional.template try_cast<const Optional>();
        if (held == nullptr || !held->has_value())
        {
            return entt::meta_any{entt::meta_ctx_arg, context()};
        }
        return entt::forward_as_meta(context(), **held);
    }
};

template <typename T>
void registerValueContainers()
{
    using Walk = ValueContainerWalk<T>;
    if constexpr (Walk::IS_VECTOR || Walk::IS_OPTIONAL)
    {
        using U = typename Walk::Element;
        registerValueContainers<U>();
        // An element that cannot be copied has no adapter: the runtimes could not hand such a value over.
        if constexpr (std::is_copy_constructible_v<U>)
        {
            if constexpr (Walk::IS_VECTOR)
            {
                using Operations = SequenceOperations<U>;
                addSequenceAdapter(entt::type_id<T>().hash(),
                                   SequenceAdapter{entt::resolve<U>(context()), &Operations::makeEmpty,
                                                   &Operations::size, &Operations::at, &Operations::append});
            }
            else
            {
                using Operations = OptionalOperations<U>;
                addOptionalAdapter(entt::type_id<T>().hash(),
                                   OptionalAdapter{entt::resolve<U>(context()), &Operations::makeEmpty,
                                                   &Operations::makeWith, &Operations::value});
            }
        }
    }
    else
    {
        Walk::registerArguments();
    }
}
} // namespace internal
} // namespace Scripting::Reflection
