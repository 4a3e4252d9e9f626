#ifndef ENTT_META_TEMPLATE_HPP
#define ENTT_META_TEMPLATE_HPP

#include "../core/type_traits.hpp"
#include "type_traits.hpp"

namespace entt
{

/*! @brief Stands for a class template as a type, so that it can be resolved. */
template <template <typename...> class>
struct meta_class_template_tag
{
};

/*! @brief Every specialization of a class template with type parameters only. */
template <template <typename...> class Clazz, typename... Args>
struct meta_template_traits<Clazz<Args...>>
{
    using class_type = meta_class_template_tag<Clazz>;
    using args_type = type_list<Args...>;
};

} // namespace entt

#endif
