#pragma once

#include "Scripting/BindingType/ClassBinding.h"
#include "Scripting/BindingType/ConstantFactory.h"
#include "Scripting/BindingType/EnumBinding.h"
#include "Scripting/BindingType/ErrorBinding.h"
#include "Scripting/BindingType/FunctionBinding.h"
#include "Scripting/BindingType/InterfaceBinding.h"
#include "Scripting/BindingType/ModuleDescriptor.h"
#include "Scripting/BindingType/ObjectFactoryBinding.h"
#include "Scripting/BindingType/TypeMapBinding.h"

#include <string>
#include <vector>

namespace Scripting
{
/// One built version of a module.
struct ModuleBinding
{
    /** @brief Name, UUID and version. */
    ModuleDescriptor descriptor;
    /** @brief Modules this version needs. */
    std::vector<ModuleDependency> dependencies;
    /// Non-empty for a module made of script text, which holds no bindings.
    std::string scriptSource;
    /// A base stands before its derived classes.
    std::vector<ClassBinding> classBindings;
    /** @brief Interfaces (data shapes) of this version. */
    std::vector<InterfaceBinding> interfaceBindings;
    /** @brief Errors of this version. */
    std::vector<ErrorBinding> errorBindings;
    /** @brief Enums of this version. */
    std::vector<EnumBinding> enumBindings;
    /** @brief Free functions of this version. */
    std::vector<FunctionBinding> functionBindings;
    /** @brief Objects made on first use. */
    std::vector<ObjectFactoryBinding> objectFactories;
    /** @brief Module-level constants. */
    std::vector<ConstantFactory> constants;
    /** @brief Type maps of this version. */
    std::vector<TypeMapBinding> typeMaps;
    /** @brief The flag the builder was made with, carried unchanged; nothing in the library reads it. */
    bool builderFlag = false;
};
} // namespace Scripting
