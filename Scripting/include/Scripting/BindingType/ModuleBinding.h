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
// One built version of a module.
struct ModuleBinding
{
    ModuleDescriptor descriptor;
    std::vector<ModuleDependency> dependencies;
    // Non-empty for a module made of script text, which holds no bindings.
    std::string scriptSource;
    // A base stands before its derived classes.
    std::vector<ClassBinding> classBindings;
    std::vector<InterfaceBinding> interfaceBindings;
    std::vector<ErrorBinding> errorBindings;
    std::vector<EnumBinding> enumBindings;
    std::vector<FunctionBinding> functionBindings;
    std::vector<ObjectFactoryBinding> objectFactories;
    std::vector<ConstantFactory> constants;
    std::vector<TypeMapBinding> typeMaps;
    bool builderFlag = false;
};
} // namespace Scripting
