#ifndef ENTT_META_TYPE_TRAITS_HPP
#define ENTT_META_TYPE_TRAITS_HPP

namespace entt
{

/**
 * @brief Template information of a class template specialization.
 *
 * Specializations provide `class_type` (a `meta_class_template_tag`) and `args_type`
 * (a `type_list` of the template arguments).
 */
template <typename>
struct meta_template_traits;

} // namespace entt

#endif
