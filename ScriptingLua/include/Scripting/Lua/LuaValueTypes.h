#pragma once

#include "Scripting/Reflection/Reflection.h"

#include <entt/meta/meta.hpp>

#include <cstddef>
#include <optional>
#include <type_traits>
#include <vector>

namespace Scripting::Lua
{
/// How the runtime reaches into a std::vector whose element type it only knows as a meta type. The meta
/// system carries no container support, so each vector type that crosses into Lua is described once.
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

namespace internal
{
void addSequenceAdapter(const entt::meta_type& type, const SequenceAdapter& adapter);
void addOptionalAdapter(const entt::meta_type& type, const OptionalAdapter& adapter);

template <typename T>
struct IsVector : std::false_type
{
};
template <typename U>
struct IsVector<std::vector<U>> : std::true_type
{
    using Element = U;
};
template <typename T>
struct IsOptional : std::false_type
{
};
template <typename U>
struct IsOptional<std::optional<U>> : std::true_type
{
    using Element = U;
};

template <typename U>
struct SequenceOperations
{
    using Vector = std::vector<U>;

    static entt::meta_any makeEmpty(std::size_t capacity)
    {
        Vector vector;
        vector.reserve(capacity);
        return entt::meta_any{Reflection::context(), std::move(vector)};
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
            return entt::meta_any{entt::meta_ctx_arg, Reflection::context()};
        }
        if constexpr (std::is_same_v<U, bool>)
        {
            return entt::meta_any{Reflection::context(), static_cast<bool>((*vector)[index])};
        }
        else
        {
            return entt::forward_as_meta(Reflection::context(), (*vector)[index]);
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
    static entt::meta_any makeEmpty() { return entt::meta_any{Reflection::context(), std::in_place_type<Optional>}; }
    static entt::meta_any makeWith(entt::meta_any& element)
    {
        if (!element.template allow_cast<const U&>())
        {
            return entt::meta_any{entt::meta_ctx_arg, Reflection::context()};
        }
        return entt::meta_any{Reflection::context(), Optional{element.template cast<const U&>()}};
    }
    static entt::meta_any value(const entt::meta_any& optional)
    {
        const Optional* held = optional.template try_cast<const Optional>();
        if (held == nullptr || !held->has_value())
        {
            return entt::meta_any{entt::meta_ctx_arg, Reflection::context()};
        }
        return entt::forward_as_meta(Reflection::context(), **held);
    }
};
} // namespace internal

/// Makes a std::vector or std::optional type, and the ones nested in it, convertible to and from Lua values:
/// a vector is a sequence table, an optional is nil or its value. Numbers, booleans, strings and their
/// vectors and optionals are known already; other element types convert as the runtime converts them on their
/// own (bound classes, enums, interfaces). Register before contexts run.
/// @tparam T A std::vector or std::optional type.
template <typename T>
void registerValueType()
{
    if constexpr (internal::IsVector<T>::value)
    {
        using U = typename internal::IsVector<T>::Element;
        using Operations = internal::SequenceOperations<U>;
        internal::addSequenceAdapter(Reflection::resolve<T>(),
                                     SequenceAdapter{Reflection::resolve<U>(), &Operations::makeEmpty,
                                                     &Operations::size, &Operations::at, &Operations::append});
        registerValueType<U>();
    }
    else if constexpr (internal::IsOptional<T>::value)
    {
        using U = typename internal::IsOptional<T>::Element;
        using Operations = internal::OptionalOperations<U>;
        internal::addOptionalAdapter(Reflection::resolve<T>(),
                                     OptionalAdapter{Reflection::resolve<U>(), &Operations::makeEmpty,
                                                     &Operations::makeWith, &Operations::value});
        registerValueType<U>();
    }
}
} // namespace Scripting::Lua
