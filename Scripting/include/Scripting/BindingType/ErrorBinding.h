#pragma once

#include "Scripting/BindingType/PropertyBinding.h"

#include <entt/meta/meta.hpp>

#include <string>
#include <vector>

namespace Scripting
{
// A native error type as scripts see it.
struct ErrorBinding : TaggedBinding
{
    std::string name;
    entt::meta_type type;
    std::vector<PropertyBinding> properties;
};
} // namespace Scripting
