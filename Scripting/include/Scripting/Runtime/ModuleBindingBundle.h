#pragma once

#include "Scripting/BindingType/ModuleBinding.h"

#include <string>
#include <utility>
#include <vector>

namespace Scripting
{
/// Everything a runtime gets to set a context up with. The engine fills only the modules; the other
/// members are for an application that talks to a runtime directly.
struct ModuleBindingBundle
{
    /// In creation order: a module's dependencies stand before it.
    std::vector<ModuleBinding> moduleBindings;
    /// Members placed in the global scope rather than in a module.
    std::vector<FunctionBinding> globalFunctions;
    /** @brief Constants placed in the global scope. */
    std::vector<ConstantFactory> globalConstants;
    /** @brief Type maps that apply to every module. */
    std::vector<TypeMapBinding> globalTypeMaps;
    /// Script text run before any module is loaded, with the name it runs under.
    std::vector<std::pair<std::string, std::string>> preludeScripts;
    /// Further names under which a module can be imported: alias, then the module's name.
    std::vector<std::pair<std::string, std::string>> moduleAliases;
    /// Modules that scripts cannot import by name.
    std::vector<ModuleDescriptor> hiddenModules;
};
} // namespace Scripting
