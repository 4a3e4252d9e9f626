#pragma once

#include "Scripting/BindingType/PropertyBinding.h"

#include <entt/meta/meta.hpp>

#include <string>
#include <vector>

namespace Scripting
{
// A plain data shape that a script passes as an object whose properties are read into a native struct.
struct InterfaceBinding : TaggedBinding
{
    std::string name;
    entt::meta_type type;
    entt::meta_type baseType;
    std::vector<PropertyBinding> properties;
    std::vector<std::string> runtimeConditions;
    std::vector<std::string> missingRuntimeConditions;
};
} // namespace Scripting
