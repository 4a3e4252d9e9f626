#ifndef ENTT_META_POLICY_HPP
#define ENTT_META_POLICY_HPP

#include <type_traits>

namespace entt
{

/*! @brief Return values are wrapped as references to the returned object. */
struct as_ref_t final
{
    template <typename Type>
    static constexpr bool value = std::is_reference_v<Type> && !std::is_const_v<std::remove_reference_t<Type>>;
};

/*! @brief Return values are wrapped as const references to the returned object. */
struct as_cref_t final
{
    template <typename Type>
    static constexpr bool value = std::is_reference_v<Type>;
};

/*! @brief Return values are wrapped by copy; the default. */
struct as_is_t final
{
    template <typename>
    static constexpr bool value = true;
};

/*! @brief Return values are discarded. */
struct as_void_t final
{
    template <typename>
    static constexpr bool value = true;
};

template <typename Type>
struct is_meta_policy : std::bool_constant<std::is_same_v<Type, as_ref_t> || std::is_same_v<Type, as_cref_t> ||
                                           std::is_same_v<Type, as_is_t> || std::is_same_v<Type, as_void_t>>
{
};

template <typename Type>
inline constexpr bool is_meta_policy_v = is_meta_policy<Type>::value;

} // namespace entt

#endif
