#pragma once

#include "Scripting/BindingType/ConstantFactory.h"
#include "Scripting/BindingType/FunctionBinding.h"
#include "Scripting/BindingType/PropertyBinding.h"

#include <entt/meta/meta.hpp>

#include <memory>
#include <string>
#include <vector>

namespace Scripting
{
struct ClassBinding : TaggedBinding
{
    std::string name;
    entt::meta_type type;
    // Invalid for a class without a bound base.
    entt::meta_type baseType;
    // At most one may survive a build.
    std::vector<FunctionBinding> constructors;
    // Carried along by copies; nothing in the library sets it.
    std::shared_ptr<void> classExtra;
    // Methods and static functions, properties and constants, each in order of declaration.
    std::vector<FunctionBinding> functions;
    std::vector<PropertyBinding> properties;
    std::vector<ConstantFactory> constants;
    std::vector<std::string> runtimeConditions;
    std::vector<std::string> missingRuntimeConditions;
};
} // namespace Scripting
