#pragma once

#include "Scripting/BindingType/PropertyBinding.h"

#include <entt/meta/meta.hpp>

#include <string>
#include <vector>

namespace Scripting
{
/// A plain data shape that a script passes as an object whose properties are read into a native struct.
struct InterfaceBinding : TaggedBinding
{
    /** @brief Script name. */
    std::string name;
    /** @brief The native struct. */
    entt::meta_type type;
    /** @brief For the runtime; no builder sets it. */
    entt::meta_type baseType;
    /** @brief Fields, in order of declaration. */
    std::vector<PropertyBinding> properties;
    /** @brief Conditions the runtime must offer. */
    std::vector<std::string> runtimeConditions;
    /** @brief The conditions the last build found missing. */
    std::vector<std::string> missingRuntimeConditions;
};
} // namespace Scripting
