#pragma once

#include "Scripting/BindingFactory/IModuleBindingFactory.h"
#include "Scripting/BindingType/ModuleBindingBuilder.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace Scripting
{
/// A module that an application fills version by version, each with a creator that describes it. Every
/// version silently depends on the common module in the version it names.
class GenericModuleBindingFactory : public IModuleBindingFactory
{
public:
    /** @brief Describes one version into the builder and returns `builder.build(...)`; empty for no module. */
    using ModuleCreatorFn =
        std::function<std::optional<ModuleBinding>(ModuleBindingBuilder&, const std::optional<ContextConfig>&)>;

    /**
     * @brief A factory with no version yet.
     * @param name Module name.
     * @param uuid Module identity.
     */
    GenericModuleBindingFactory(std::string name, quv::UUID uuid);

    /// A finished binding, under its own version. Every build hands out a copy of it.
    /// @param binding The module.
    /// @param commonVersion Version of the common module it depends on.
    /// @param dependencies Other modules it depends on.
    /// @param builderFlag Handed to the builder.
    void addVersionedModuleBinding(ModuleBinding binding, Version commonVersion,
                                   std::vector<ModuleDependency> dependencies, bool builderFlag);
    /**
     * @brief A version described by a creator, under the factory's name. A version added twice asserts.
     * @param version The version.
     * @param creator Describes it.
     * @param commonVersion Version of the common module it depends on (CommonModuleFactory::LATEST_VERSION, usually).
     * @param dependencies Other modules it depends on.
     * @param builderFlag Handed to the builder.
     */
    void addVersionedModuleBinding(Version version, ModuleCreatorFn creator, Version commonVersion,
                                   std::vector<ModuleDependency> dependencies, bool builderFlag);
    /// The module built for this version carries the alias as its name.
    /// @param alias Another name the module answers to.
    /// @param version The version.
    /// @param creator Describes it.
    /// @param commonVersion Version of the common module it depends on.
    /// @param dependencies Other modules it depends on.
    /// @param builderFlag Handed to the builder.
    void addVersionedModuleBinding(std::string alias, Version version, ModuleCreatorFn creator, Version commonVersion,
                                   std::vector<ModuleDependency> dependencies, bool builderFlag);

    /**
     * @brief The module's name.
     * @return The name given at construction.
     */
    std::string getName() const override { return mName; }
    /**
     * @brief The module's identity.
     * @return The UUID given at construction.
     */
    quv::UUID getUUID() const override { return mUuid; }
    // Also true for the factory's own name once a version was added under it.
    bool isAlias(const std::string& name) const override;
    std::vector<Version> getSupportedVersions() const override;
    std::vector<ModuleDependency> getDependencies(Version version) const override;
    std::optional<ModuleBinding> createModuleBinding(Version version,
                                                     const std::optional<ContextConfig>& config) override;

private:
    struct VersionedModuleData
    {
        std::string name;
        Version version;
        ModuleCreatorFn moduleCreatorFn;
        std::vector<ModuleDependency> dependencies;
        bool builderFlag = false;
    };

    void _addVersion(std::string name, Version version, ModuleCreatorFn creator, Version commonVersion,
                     std::vector<ModuleDependency> dependencies, bool builderFlag);
    const VersionedModuleData* _findVersion(const Version& version) const;

    std::string mName;
    quv::UUID mUuid;
    std::vector<VersionedModuleData> mVersions;
};
} // namespace Scripting
