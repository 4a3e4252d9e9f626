#ifndef ENTT_META_UTILITY_HPP
#define ENTT_META_UTILITY_HPP

#include "../core/type_traits.hpp"
#include "meta.hpp"
#include "node.hpp"
#include "policy.hpp"
#include <cstddef>
#include <functional>
#include <type_traits>
#include <utility>

namespace entt
{

namespace internal
{

template <typename Ret, typename Args, bool Static, bool Const>
struct meta_function_traits
{
    using return_type = Ret;
    using args_type = Args;
    static constexpr bool is_static = Static;
    static constexpr bool is_const = Const;
};

template <typename Type, typename First>
inline constexpr bool meta_is_self_or_base = std::is_same_v<std::remove_cv_t<std::remove_reference_t<First>>, Type> ||
                                             std::is_base_of_v<std::remove_cv_t<std::remove_reference_t<First>>, Type>;

// A free function whose first parameter is the registered type itself (a class or not) or one of its bases acts as
// a member function of it; its constness is that of the parameter.
template <typename Type, typename Ret, typename First, typename... Args>
using meta_free_function_traits = std::conditional_t<
    meta_is_self_or_base<Type, First>,
    meta_function_traits<Ret, type_list<Args...>, false, std::is_const_v<std::remove_reference_t<First>>>,
    meta_function_traits<Ret, type_list<First, Args...>, true, false>>;

template <typename Type, typename Candidate, typename = void>
struct meta_function_descriptor;

template <typename Type, typename Ret, typename Class, typename... Args>
struct meta_function_descriptor<Type, Ret (Class::*)(Args...) const>
    : meta_function_traits<Ret, type_list<Args...>, false, true>
{
};

template <typename Type, typename Ret, typename Class, typename... Args>
struct meta_function_descriptor<Type, Ret (Class::*)(Args...) const noexcept>
    : meta_function_traits<Ret, type_list<Args...>, false, true>
{
};

template <typename Type, typename Ret, typename Class, typename... Args>
struct meta_function_descriptor<Type, Ret (Class::*)(Args...)>
    : meta_function_traits<Ret, type_list<Args...>, false, false>
{
};

template <typename Type, typename Ret, typename Class, typename... Args>
struct meta_function_descriptor<Type, Ret (Class::*)(Args...) noexcept>
    : meta_function_traits<Ret, type_list<Args...>, false, false>
{
};

template <typename Type, typename Ret>
struct meta_function_descriptor<Type, Ret (*)()> : meta_function_traits<Ret, type_list<>, true, false>
{
};

template <typename Type, typename Ret>
struct meta_function_descriptor<Type, Ret (*)() noexcept> : meta_function_traits<Ret, type_list<>, true, false>
{
};

template <typename Type, typename Ret, typename First, typename... Args>
struct meta_function_descriptor<Type, Ret (*)(First, Args...)> : meta_free_function_traits<Type, Ret, First, Args...>
{
};

template <typename Type, typename Ret, typename First, typename... Args>
struct meta_function_descriptor<Type, Ret (*)(First, Args...) noexcept>
    : meta_free_function_traits<Type, Ret, First, Args...>
{
};

template <typename>
struct meta_call_operator;

template <typename Ret, typename Class, typename... Args>
struct meta_call_operator<Ret (Class::*)(Args...) const>
{
    using type = Ret (*)(Args...);
};

template <typename Ret, typename Class, typename... Args>
struct meta_call_operator<Ret (Class::*)(Args...) const noexcept>
{
    using type = Ret (*)(Args...);
};

// Stateless function objects (such as captureless lambdas) are called like free functions.
template <typename Type, typename Candidate>
struct meta_function_descriptor<Type, Candidate, std::enable_if_t<std::is_class_v<Candidate>>>
    : meta_function_descriptor<Type, typename meta_call_operator<decltype(&Candidate::operator())>::type>
{
};

template <typename Policy, typename Type>
[[nodiscard]] meta_any meta_dispatch(const meta_ctx& ctx, [[maybe_unused]] Type&& value)
{
    if constexpr (std::is_same_v<Policy, as_void_t>)
    {
        return meta_any{ctx, std::in_place_type<void>};
    }
    else if constexpr (std::is_same_v<Policy, as_ref_t>)
    {
        return meta_any{ctx, std::in_place_type<Type>, value};
    }
    else if constexpr (std::is_same_v<Policy, as_cref_t>)
    {
        static_assert(std::is_lvalue_reference_v<Type>, "Invalid type");
        return meta_any{ctx, std::in_place_type<const std::remove_reference_t<Type>&>, std::as_const(value)};
    }
    else
    {
        return meta_any{ctx, std::forward<Type>(value)};
    }
}

template <typename Policy, typename Candidate, typename... Args>
[[nodiscard]] meta_any meta_invoke_with_args(const meta_ctx& ctx, Candidate&& candidate, Args&&... args)
{
    if constexpr (std::is_void_v<std::invoke_result_t<Candidate, Args...>>)
    {
        std::invoke(std::forward<Candidate>(candidate), std::forward<Args>(args)...);
        return meta_any{ctx, std::in_place_type<void>};
    }
    else
    {
        return meta_dispatch<Policy>(ctx, std::invoke(std::forward<Candidate>(candidate), std::forward<Args>(args)...));
    }
}

// Arguments are checked (and converted in place) all before the call: nothing of the
// function runs unless every argument fits.
template <typename Type, auto Candidate, typename Policy, std::size_t... Index>
[[nodiscard]] meta_any meta_invoke(const meta_ctx& ctx, meta_handle& instance, [[maybe_unused]] meta_any* const args,
                                   std::index_sequence<Index...>)
{
    using candidate_type = std::remove_cv_t<decltype(Candidate)>;
    using args_type = typename meta_function_descriptor<Type, candidate_type>::args_type;

    if constexpr (std::is_invocable_v<const candidate_type&, const Type&, type_list_element_t<Index, args_type>...>)
    {
        if (const auto* const clazz = instance->template try_cast<const Type>();
            clazz && ((args + Index)->template allow_cast<type_list_element_t<Index, args_type>>() && ...))
        {
            return meta_invoke_with_args<Policy>(
                ctx, Candidate, *clazz, (args + Index)->template cast<type_list_element_t<Index, args_type>>()...);
        }
    }
    else if constexpr (std::is_invocable_v<const candidate_type&, Type&, type_list_element_t<Index, args_type>...>)
    {
        if (auto* const clazz = instance->template try_cast<Type>();
            clazz && ((args + Index)->template allow_cast<type_list_element_t<Index, args_type>>() && ...))
        {
            return meta_invoke_with_args<Policy>(
                ctx, Candidate, *clazz, (args + Index)->template cast<type_list_element_t<Index, args_type>>()...);
        }
    }
    else
    {
        if (((args + Index)->template allow_cast<type_list_element_t<Index, args_type>>() && ...))
        {
            return meta_invoke_with_args<Policy>(
                ctx, Candidate, (args + Index)->template cast<type_list_element_t<Index, args_type>>()...);
        }
    }

    return meta_any{meta_ctx_arg, ctx};
}

template <typename Type, auto Candidate, typename Policy>
[[nodiscard]] meta_any meta_func_thunk(const meta_ctx& ctx, meta_handle instance, meta_any* const args)
{
    using args_type = typename meta_function_descriptor<Type, std::remove_cv_t<decltype(Candidate)>>::args_type;
    return meta_invoke<Type, Candidate, Policy>(ctx, instance, args, std::make_index_sequence<args_type::size>{});
}

template <typename Type, auto Candidate, typename Policy>
[[nodiscard]] meta_any meta_ctor_fn_thunk(const meta_ctx& ctx, meta_any* const args)
{
    meta_handle instance{};
    return meta_func_thunk<Type, Candidate, Policy>(ctx, std::move(instance), args);
}

template <typename Type, typename... Args, std::size_t... Index>
[[nodiscard]] meta_any meta_construct(const meta_ctx& ctx, [[maybe_unused]] meta_any* const args,
                                      std::index_sequence<Index...>)
{
    if (((args + Index)->template allow_cast<Args>() && ...))
    {
        return meta_any{ctx, std::in_place_type<Type>, (args + Index)->template cast<Args>()...};
    }
    return meta_any{meta_ctx_arg, ctx};
}

template <typename Type, typename... Args>
[[nodiscard]] meta_any meta_ctor_thunk(const meta_ctx& ctx, meta_any* const args)
{
    return meta_construct<Type, Args...>(ctx, args, std::index_sequence_for<Args...>{});
}

template <typename Type, typename To>
[[nodiscard]] meta_any meta_conv_thunk(const meta_ctx& ctx, const void* instance)
{
    return meta_any{ctx, std::in_place_type<To>, static_cast<To>(*static_cast<const Type*>(instance))};
}

template <typename Type, auto Candidate>
[[nodiscard]] meta_any meta_conv_fn_thunk(const meta_ctx& ctx, const void* instance)
{
    return meta_any{ctx, std::invoke(Candidate, *static_cast<const Type*>(instance))};
}

template <typename Type, typename Base>
[[nodiscard]] const void* meta_base_cast(const void* instance) noexcept
{
    return static_cast<const Base*>(static_cast<const Type*>(instance));
}

} // namespace internal

} // namespace entt

#endif
