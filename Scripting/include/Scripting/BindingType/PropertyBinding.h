#pragma once

#include "Scripting/BindingType/TaggedBinding.h"

#include <entt/meta/meta.hpp>

#include <functional>
#include <memory>
#include <string>

namespace Scripting
{
namespace Reflection
{
class IPropertyGetter;
class IPropertySetter;
} // namespace Reflection

struct PropertyBinding : TaggedBinding
{
    std::string name;
    // The declared value type: std::optional and std::vector stay, a Result_deprecated<X> getter gives X.
    entt::meta_type type;
    // Empty for a read-only property.
    std::shared_ptr<Reflection::IPropertySetter> setter;
    std::shared_ptr<Reflection::IPropertyGetter> getter;
    // Bounds test of a new value; empty without bounds.
    std::function<bool(const entt::meta_any&)> valueValidator;
    entt::meta_any minValue;
    entt::meta_any maxValue;
    entt::meta_any extraValue;

    // Inclusive bounds for a property of `U`, std::optional<U>, std::vector<U> or std::optional<std::vector<U>>,
    // with `U` int or float. A read-only property or another type reports and keeps the property unbounded.
    template <typename U>
    PropertyBinding& bounds(U min, U max);
};
} // namespace Scripting
