#include "Scripting/BindingType/OptionalHelper.h"
#include "Scripting/BindingType/VariantHelper.h"

#include "Diagnostics/Assert.h"

#include <entt/meta/template.hpp>

namespace Scripting
{
namespace
{
using namespace entt::literals;

template <template <typename...> class Template>
bool isSpecializationOf(const entt::meta_type& type)
{
    static const entt::meta_type sTag = Reflection::resolve<entt::meta_class_template_tag<Template>>();
    return type && type.is_template_specialization() && type.template_type() == sTag;
}

// Calls "getValue" on a view of `any`: non-const or const as the argument is, so that the meta type picks
// the overload of the same constness. The result refers into `any`.
template <typename Any>
entt::meta_any invokeGetValue(Any& any)
{
    auto view = any.as_ref();
    return any.type().invoke("getValue"_hs, view);
}
} // namespace

bool OptionalHelper::isOptionalAny(const entt::meta_type& type)
{
    return isSpecializationOf<std::optional>(type);
}

entt::meta_any OptionalHelper::getValue(entt::meta_any& optionalAny)
{
    OV_ASSERT(isOptionalAny(optionalAny.type()), "Expected optional");
    return invokeGetValue(optionalAny);
}

entt::meta_any OptionalHelper::getValue(const entt::meta_any& optionalAny)
{
    OV_ASSERT(isOptionalAny(optionalAny.type()), "Expected optional");
    return invokeGetValue(optionalAny);
}

bool VariantHelper::isVariantAny(const entt::meta_type& type)
{
    return isSpecializationOf<std::variant>(type);
}

entt::meta_any VariantHelper::getValue(entt::meta_any& variantAny)
{
    OV_ASSERT(isVariantAny(variantAny.type()), "Expected variant");
    return invokeGetValue(variantAny);
}

entt::meta_any VariantHelper::getValue(const entt::meta_any& variantAny)
{
    OV_ASSERT(isVariantAny(variantAny.type()), "Expected variant");
    return invokeGetValue(variantAny);
}
} // namespace Scripting
