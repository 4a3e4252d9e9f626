#pragma once

#include "Scripting/Reflection/Reflection.h"

#include <entt/core/type_traits.hpp>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <type_traits>
#include <utility>

namespace Scripting::Reflection::internal
{
template <typename List>
struct SplitFirst;
template <typename First, typename... Rest>
struct SplitFirst<entt::type_list<First, Rest...>>
{
    using Head = First;
    using Tail = entt::type_list<Rest...>;
};

// The parameters a caller passes: all of them, or all but the object of an instanced function.
template <bool instanced, typename List>
struct PassedArguments
{
    using Type = List;
};
template <typename List>
struct PassedArguments<true, List>
{
    static_assert(List::size > 0, "An instanced function takes the object as its first parameter");
    using Type = typename SplitFirst<List>::Tail;
};

// What a callable's signature says, for free functions, member functions and call operators alike.
template <typename F>
struct FunctionTraits;

template <typename R, typename... A>
struct FunctionTraits<R (*)(A...)>
{
    using Return = R;
    using Arguments = entt::type_list<A...>;
    static constexpr bool IS_CONST = false;
};
template <typename R, typename... A>
struct FunctionTraits<R (*)(A...) noexcept> : FunctionTraits<R (*)(A...)>
{
};

template <typename R, typename C, typename... A>
struct FunctionTraits<R (C::*)(A...)>
{
    using Return = R;
    using Class = C;
    using Arguments = entt::type_list<A...>;
    static constexpr bool IS_CONST = false;
};
template <typename R, typename C, typename... A>
struct FunctionTraits<R (C::*)(A...) const> : FunctionTraits<R (C::*)(A...)>
{
    static constexpr bool IS_CONST = true;
};
template <typename R, typename C, typename... A>
struct FunctionTraits<R (C::*)(A...) noexcept> : FunctionTraits<R (C::*)(A...)>
{
};
template <typename R, typename C, typename... A>
struct FunctionTraits<R (C::*)(A...) const noexcept> : FunctionTraits<R (C::*)(A...) const>
{
};

// A lambda or function object with one call operator. A mutable one could not be called from a const wrapper.
template <typename Lambda>
struct CallableTraits : FunctionTraits<decltype(&Lambda::operator())>
{
    static_assert(FunctionTraits<decltype(&Lambda::operator())>::IS_CONST,
                  "A bound lambda must not be mutable: wrappers call it from const operations");
};

// A non-const reference parameter needs a mutable object; a copy or a const reference can come from anything
// that converts.
template <typename P>
inline constexpr bool NEEDS_MUTABLE = std::is_rvalue_reference_v<P> ||
                                      (std::is_lvalue_reference_v<P> && !std::is_const_v<std::remove_reference_t<P>>);

template <typename P>
using CheckedAs = std::conditional_t<NEEDS_MUTABLE<P>, std::remove_cvref_t<P>&, std::remove_cvref_t<P>>;

// The conversions below are shared by every callable whose parameter or result has their type, and kept out of
// line: inlined, each would add its meta_any code to every callable of a binding.

// Converts in place where a conversion is registered; false when the argument cannot become a `Checked`.
template <typename Checked>
[[gnu::noinline]] bool fitsAs(entt::meta_any& any)
{
    return any.template allow_cast<Checked>();
}

template <typename P>
bool fits(entt::meta_any& any)
{
    return fitsAs<CheckedAs<P>>(any);
}

template <typename Value>
[[gnu::noinline]] Value& heldMutable(entt::meta_any& any)
{
    return any.template cast<Value&>();
}

template <typename Value>
[[gnu::noinline]] const Value& heldConst(entt::meta_any& any)
{
    return any.template cast<const Value&>();
}

// Only after `fits`: reference parameters bind to the object in the any, by-value ones copy it.
template <typename P>
decltype(auto) argumentAs(entt::meta_any& any)
{
    using Value = std::remove_cvref_t<P>;
    if constexpr (NEEDS_MUTABLE<P>)
    {
        return static_cast<P>(heldMutable<Value>(any));
    }
    else
    {
        return heldConst<Value>(any);
    }
}

// The object a method is called on, null when the any holds no `Class`.
template <typename Class>
[[gnu::noinline]] Class* objectIn(entt::meta_any& any)
{
    return any.template try_cast<Class>();
}

// An any of void, the result of every void callable.
entt::meta_any voidResult();

// A view of a returned lvalue reference.
template <typename R>
[[gnu::noinline]] entt::meta_any heldReference(R value)
{
    return entt::meta_any{context(), std::in_place_type<R>, value};
}

// A returned value, moved in.
template <typename V>
[[gnu::noinline]] entt::meta_any heldValue(V value)
{
    return entt::meta_any{context(), std::in_place_type<V>, std::move(value)};
}

// Calls `native` with `values` and holds what it gives: an any of void, a view of a returned lvalue reference,
// or the value.
template <typename R, typename Native, typename... Values>
entt::meta_any wrapResult(Native&& native, Values&&... values)
{
    if constexpr (std::is_void_v<R>)
    {
        std::invoke(std::forward<Native>(native), std::forward<Values>(values)...);
        return voidResult();
    }
    else if constexpr (std::is_lvalue_reference_v<R>)
    {
        return heldReference<R>(std::invoke(std::forward<Native>(native), std::forward<Values>(values)...));
    }
    else
    {
        return heldValue<std::remove_cvref_t<R>>(
            std::invoke(std::forward<Native>(native), std::forward<Values>(values)...));
    }
}

// Checks every argument left to right, stopping at the first that does not fit, and only then calls `native`
// with `leading` (the object, if any) and the arguments.
template <typename R, typename... P, std::size_t... I, typename Native, typename... Leading>
entt::meta_any invokeChecked(entt::meta_any* args, entt::type_list<P...>, std::index_sequence<I...>, Native&& native,
                             Leading&&... leading)
{
    if (!(fits<P>(args[I]) && ...))
    {
        return entt::meta_any{};
    }
    return wrapResult<R>(std::forward<Native>(native), std::forward<Leading>(leading)..., argumentAs<P>(args[I])...);
}

template <typename R, typename... P, typename Native, typename... Leading>
entt::meta_any invokeChecked(entt::meta_any* args, entt::type_list<P...> list, Native&& native, Leading&&... leading)
{
    return invokeChecked<R>(args, list, std::index_sequence_for<P...>{}, std::forward<Native>(native),
                            std::forward<Leading>(leading)...);
}

using TypeResolver = entt::meta_type (*)();

// One resolver per parameter, in order; a list of no parameters still has an address to hand out.
template <typename List>
struct TypeResolvers;
template <typename... P>
struct TypeResolvers<entt::type_list<P...>>
{
    static constexpr TypeResolver VALUES[sizeof...(P) + 1] = {&resolve<P>..., nullptr};
};
} // namespace Scripting::Reflection::internal
