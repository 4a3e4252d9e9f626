#pragma once

#include "Scripting/BindingType/ContextConfig.h"
#include "Scripting/BindingType/ModuleBinding.h"
#include "Scripting/BindingType/ModuleDescriptor.h"
#include "Scripting/Version.h"

#include "UUID.h"

#include <optional>
#include <string>
#include <vector>

namespace Scripting
{
// One script module in all the versions it is offered in. An unknown version is no failure: it gives an
// empty list or no binding.
class IModuleBindingFactory
{
public:
    virtual ~IModuleBindingFactory() = default;

    virtual std::string getName() const = 0;
    // The identity the engine and the resolver go by.
    virtual quv::UUID getUUID() const = 0;
    virtual bool isAlias(const std::string& name) const = 0;
    virtual std::vector<Version> getSupportedVersions() const = 0;
    virtual std::vector<ModuleDependency> getDependencies(Version version) const = 0;
    virtual std::optional<ModuleBinding> createModuleBinding(Version version,
                                                             const std::optional<ContextConfig>& config) = 0;
};
} // namespace Scripting
