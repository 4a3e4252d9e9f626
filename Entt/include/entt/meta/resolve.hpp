#ifndef ENTT_META_RESOLVE_HPP
#define ENTT_META_RESOLVE_HPP

#include "../core/type_info.hpp"
#include "../locator/locator.hpp"
#include "context.hpp"
#include "meta.hpp"
#include "range.hpp"
#include <memory>
#include <mutex>
#include <type_traits>
#include <vector>

namespace entt
{

/*! @brief The meta type of `Type`, registered or not; cv-qualifiers and references are dropped. */
template <typename Type>
[[nodiscard]] meta_type resolve(const meta_ctx& ctx) noexcept
{
    return meta_type{ctx, internal::resolve_node<std::remove_cv_t<std::remove_reference_t<Type>>>()};
}

template <typename Type>
[[nodiscard]] meta_type resolve() noexcept
{
    return resolve<Type>(locator<meta_ctx>::value_or());
}

/*! @brief All registered types, as (type hash, meta type) pairs in order of registration. */
[[nodiscard]] inline meta_range<meta_type, std::vector<std::unique_ptr<internal::meta_type_descriptor>>::const_iterator>
resolve(const meta_ctx& ctx) noexcept
{
    using iterator =
        typename meta_range<meta_type,
                            std::vector<std::unique_ptr<internal::meta_type_descriptor>>::const_iterator>::iterator;
    const auto& context = internal::meta_context::from(ctx);
    return {iterator{ctx, context.value.cbegin()}, iterator{ctx, context.value.cend()}};
}

[[nodiscard]] inline meta_range<meta_type, std::vector<std::unique_ptr<internal::meta_type_descriptor>>::const_iterator>
resolve() noexcept
{
    return resolve(locator<meta_ctx>::value_or());
}

/*! @brief The registered type with the given identifier, or an invalid type. */
[[nodiscard]] inline meta_type resolve(const meta_ctx& ctx, const id_type id) noexcept
{
    // The list of types grows while another thread registers.
    const std::lock_guard<std::recursive_mutex> held{internal::meta_context::from(ctx).registration};
    for (auto&& curr : internal::meta_context::from(ctx).value)
    {
        if (curr->id == id)
        {
            return meta_type{ctx, *curr->node};
        }
    }
    return meta_type{};
}

[[nodiscard]] inline meta_type resolve(const id_type id) noexcept
{
    return resolve(locator<meta_ctx>::value_or(), id);
}

/*! @brief The registered type with the given type info, or an invalid type. */
[[nodiscard]] inline meta_type resolve(const meta_ctx& ctx, const type_info& info) noexcept
{
    const auto* elem = internal::meta_context::from(ctx).find(info.hash());
    return (elem != nullptr) ? meta_type{ctx, *elem->node} : meta_type{};
}

[[nodiscard]] inline meta_type resolve(const type_info& info) noexcept
{
    return resolve(locator<meta_ctx>::value_or(), info);
}

} // namespace entt

#endif
