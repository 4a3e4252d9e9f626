#include "Scripting/BindingType/ContextConfig.h"

#include <algorithm>

namespace Scripting
{
bool RuntimeConditions::contains(const std::string& name) const
{
    return std::find(names.begin(), names.end(), name) != names.end();
}

ContextConfig::ContextConfig() : ContextConfig(std::string(), std::string(), ModuleDescriptor()) {}

ContextConfig::ContextConfig(std::string runtimeName, std::string configParam, ModuleDescriptor module, bool enabled,
                             RuntimeConditions runtimeConditions, VersionSelection versionSelection,
                             ContextKey contextKey, std::optional<std::string> description)
    : runtimeName(std::move(runtimeName)), configParam(std::move(configParam)), module(std::move(module)),
      moduleUuidText(this->module.uuid.asString()), enabled(enabled), runtimeConditions(std::move(runtimeConditions)),
      versionSelection(versionSelection), contextKey(contextKey), description(std::move(description))
{
}
} // namespace Scripting
