#ifndef ENTT_META_FACTORY_HPP
#define ENTT_META_FACTORY_HPP

#include "../config/config.h"
#include "../core/fwd.hpp"
#include "../core/type_info.hpp"
#include "../core/type_traits.hpp"
#include "../locator/locator.hpp"
#include "context.hpp"
#include "meta.hpp"
#include "node.hpp"
#include "policy.hpp"
#include "utility.hpp"
#include <functional>
#include <memory>
#include <mutex>
#include <type_traits>
#include <utility>

namespace entt
{

namespace internal
{

[[nodiscard]] inline bool meta_same(const meta_base_node& lhs, const meta_base_node& rhs) noexcept
{
    return lhs.type == rhs.type && lhs.cast == rhs.cast;
}

[[nodiscard]] inline bool meta_same(const meta_conv_node& lhs, const meta_conv_node& rhs) noexcept
{
    return lhs.conv == rhs.conv;
}

[[nodiscard]] inline bool meta_same(const meta_ctor_node& lhs, const meta_ctor_node& rhs) noexcept
{
    return lhs.arity == rhs.arity && lhs.args == rhs.args && lhs.invoke == rhs.invoke;
}

// Registering an element whose id is already there replaces it in place. The same element registered again
// writes nothing: other threads may be reading it.
template <typename Node>
void meta_upsert(std::vector<Node>& container, Node node)
{
    for (auto&& curr : container)
    {
        if (curr.id == node.id)
        {
            if (!meta_same(curr, node))
            {
                curr = std::move(node);
            }
            return;
        }
    }
    container.push_back(std::move(node));
}

} // namespace internal

/**
 * @brief Adds reflection data for `Type` to a context. Every function returns the factory,
 * so that calls chain.
 * @tparam Type Reflected type.
 */
template <typename Type>
class meta_factory
{
    static_assert(std::is_same_v<Type, std::remove_cv_t<std::remove_reference_t<Type>>>, "Invalid type");

    [[nodiscard]] std::unique_lock<std::recursive_mutex> hold() const
    {
        return std::unique_lock<std::recursive_mutex>{internal::meta_context::from(*ctx).registration};
    }

    [[nodiscard]] internal::meta_type_descriptor& owner() const
    {
        return internal::meta_context::from(*ctx).assure(internal::resolve_node<Type>());
    }

public:
    meta_factory() noexcept : meta_factory{locator<meta_ctx>::value_or()} {}

    meta_factory(meta_ctx& area) noexcept : ctx{&area}
    {
        const auto held = hold();
        [[maybe_unused]] auto& elem = owner();
    }

    /*! @brief Makes the type searchable by `resolve(id)`. */
    meta_factory type(const id_type id) noexcept
    {
        const auto held = hold();
        auto& elem = owner();
        [[maybe_unused]] const auto other = resolve_id(id);
        ENTT_ASSERT(other == nullptr || other == &elem, "Duplicate identifier");
        if (elem.id != id)
        {
            elem.id = id;
        }
        return *this;
    }

    template <typename Base>
    meta_factory base() noexcept
    {
        static_assert(!std::is_same_v<Type, Base> && std::is_base_of_v<Base, Type>, "Invalid base type");
        const auto held = hold();
        internal::meta_upsert(owner().base,
                              internal::meta_base_node{type_hash<Base>::value(), &internal::resolve_node<Base>,
                                                       &internal::meta_base_cast<Type, Base>});
        return *this;
    }

    /*! @brief A conversion through a member function or a free function of the object. */
    template <auto Candidate>
    meta_factory conv() noexcept
    {
        using conv_type =
            std::remove_cv_t<std::remove_reference_t<std::invoke_result_t<decltype(Candidate), const Type&>>>;
        const auto held = hold();
        internal::meta_upsert(owner().conv, internal::meta_conv_node{type_hash<conv_type>::value(),
                                                                     &internal::meta_conv_fn_thunk<Type, Candidate>});
        return *this;
    }

    /*! @brief A conversion by `static_cast<To>`. */
    template <typename To>
    meta_factory conv() noexcept
    {
        using conv_type = std::remove_cv_t<std::remove_reference_t<To>>;
        const auto held = hold();
        internal::meta_upsert(owner().conv, internal::meta_conv_node{type_hash<conv_type>::value(),
                                                                     &internal::meta_conv_thunk<Type, conv_type>});
        return *this;
    }

    /*! @brief A constructor through a free function that returns a `Type`. */
    template <auto Candidate, typename Policy = as_is_t>
    meta_factory ctor() noexcept
    {
        using descriptor = internal::meta_function_descriptor<Type, std::remove_cv_t<decltype(Candidate)>>;
        static_assert(Policy::template value<typename descriptor::return_type>,
                      "Invalid return type for the given policy");
        static_assert(std::is_same_v<std::remove_cv_t<std::remove_reference_t<typename descriptor::return_type>>, Type>,
                      "The function doesn't return an object of the required type");
        using args_type = typename descriptor::args_type;
        const auto held = hold();
        internal::meta_upsert(owner().ctor,
                              internal::meta_ctor_node{type_hash<args_type>::value(), args_type::size,
                                                       internal::meta_args_of<args_type>::value,
                                                       &internal::meta_ctor_fn_thunk<Type, Candidate, Policy>});
        return *this;
    }

    /*! @brief A constructor of `Type` from `Args...`. */
    template <typename... Args>
    meta_factory ctor() noexcept
    {
        using args_type = type_list<Args...>;
        const auto held = hold();
        internal::meta_upsert(owner().ctor, internal::meta_ctor_node{type_hash<args_type>::value(), args_type::size,
                                                                     internal::meta_args_of<args_type>::value,
                                                                     &internal::meta_ctor_thunk<Type, Args...>});
        return *this;
    }

    /**
     * @brief A function under `id`. Several functions on one id form an overload set; the
     * same function registered again replaces its entry.
     */
    template <auto Candidate, typename Policy = as_is_t>
    meta_factory func(const id_type id) noexcept
    {
        using descriptor = internal::meta_function_descriptor<Type, std::remove_cv_t<decltype(Candidate)>>;
        static_assert(Policy::template value<typename descriptor::return_type>,
                      "Invalid return type for the given policy");
        using args_type = typename descriptor::args_type;

        auto node = std::make_unique<internal::meta_func_node>();
        node->id = id;
        node->traits = (descriptor::is_const ? internal::meta_traits::is_const : internal::meta_traits::is_none) |
                       (descriptor::is_static ? internal::meta_traits::is_static : internal::meta_traits::is_none);
        node->arity = args_type::size;
        node->ret = &internal::resolve_node<
            std::conditional_t<std::is_same_v<Policy, as_void_t>, void,
                               std::remove_cv_t<std::remove_reference_t<typename descriptor::return_type>>>>;
        node->args = internal::meta_args_of<args_type>::value;
        node->invoke = &internal::meta_func_thunk<Type, Candidate, Policy>;

        const auto held = hold();
        auto& container = owner().func;
        for (auto&& head : container)
        {
            if (head->id == id)
            {
                for (auto* curr = head.get(); curr != nullptr; curr = curr->next.get())
                {
                    if (curr->invoke == node->invoke)
                    {
                        if (curr->traits == node->traits && curr->arity == node->arity && curr->ret == node->ret &&
                            curr->args == node->args)
                        {
                            return *this;
                        }
                        node->next = std::move(curr->next);
                        *curr = std::move(*node);
                        return *this;
                    }
                }
                node->next = std::move(head);
                head = std::move(node);
                return *this;
            }
        }
        container.push_back(std::move(node));
        return *this;
    }

private:
    [[nodiscard]] const internal::meta_type_descriptor* resolve_id(const id_type id) const noexcept
    {
        for (auto&& curr : internal::meta_context::from(*ctx).value)
        {
            if (curr->id == id)
            {
                return curr.get();
            }
        }
        return nullptr;
    }

    meta_ctx* ctx;
};

template <typename Type>
[[nodiscard]] auto meta(meta_ctx& ctx) noexcept
{
    return meta_factory<Type>{ctx};
}

/*! @brief Entry point of the registration of `Type` in the default context. */
template <typename Type>
[[nodiscard]] auto meta() noexcept
{
    return meta<Type>(locator<meta_ctx>::value_or());
}

/*! @brief Forgets the types registered under an identifier; their bases stay. */
inline void meta_reset(meta_ctx& ctx, const id_type id) noexcept
{
    const std::lock_guard<std::recursive_mutex> held{internal::meta_context::from(ctx).registration};
    internal::meta_context::from(ctx).erase_if([id](const internal::meta_type_descriptor& elem)
                                               { return elem.id == id; });
}

inline void meta_reset(const id_type id) noexcept
{
    meta_reset(locator<meta_ctx>::value_or(), id);
}

template <typename Type>
void meta_reset(meta_ctx& ctx) noexcept
{
    const std::lock_guard<std::recursive_mutex> held{internal::meta_context::from(ctx).registration};
    internal::meta_context::from(ctx).erase_if([](const internal::meta_type_descriptor& elem)
                                               { return elem.node->hash == type_hash<Type>::value(); });
}

template <typename Type>
void meta_reset() noexcept
{
    meta_reset<Type>(locator<meta_ctx>::value_or());
}

/*! @brief Forgets every registered type. */
inline void meta_reset(meta_ctx& ctx) noexcept
{
    const std::lock_guard<std::recursive_mutex> held{internal::meta_context::from(ctx).registration};
    internal::meta_context::from(ctx).erase_if([](const internal::meta_type_descriptor&) { return true; });
}

inline void meta_reset() noexcept
{
    meta_reset(locator<meta_ctx>::value_or());
}

} // namespace entt

#endif
