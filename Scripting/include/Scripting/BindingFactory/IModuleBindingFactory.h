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
/// One script module in all the versions it is offered in. An unknown version is no failure: it gives an
/// empty list or no binding.
class IModuleBindingFactory
{
public:
    /** @brief Virtual, as the engine owns factories through this interface. */
    virtual ~IModuleBindingFactory() = default;

    /**
     * @brief The module's name.
     * @return The name.
     */
    virtual std::string getName() const = 0;
    /// The identity the engine and the resolver go by.
    /// @return The UUID.
    virtual quv::UUID getUUID() const = 0;
    /**
     * @brief Whether the module answers to a name.
     * @param name A name.
     * @return True for one of its aliases.
     */
    virtual bool isAlias(const std::string& name) const = 0;
    /**
     * @brief Versions offered.
     * @return The versions.
     */
    virtual std::vector<Version> getSupportedVersions() const = 0;
    /**
     * @brief What a version depends on.
     * @param version A version.
     * @return Its dependencies; empty for an unknown version.
     */
    virtual std::vector<ModuleDependency> getDependencies(Version version) const = 0;
    /**
     * @brief Builds a version.
     * @param version A version.
     * @param config The configuration of the context being made.
     * @return The module, or empty for an unknown version or a creator that gave none.
     */
    virtual std::optional<ModuleBinding> createModuleBinding(Version version,
                                                             const std::optional<ContextConfig>& config) = 0;
};
} // namespace Scripting
