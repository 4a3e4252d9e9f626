#include "Scripting/BindingFactory/GenericModuleBindingFactory.h"

#include "Scripting/BindingFactory/CommonModuleFactory.h"

#include "Diagnostics/Assert.h"

#include <utility>

namespace Scripting
{
GenericModuleBindingFactory::GenericModuleBindingFactory(std::string name, quv::UUID uuid)
    : mName(std::move(name)), mUuid(uuid)
{
}

void GenericModuleBindingFactory::addVersionedModuleBinding(ModuleBinding binding, Version commonVersion,
                                                            std::vector<ModuleDependency> dependencies,
                                                            bool builderFlag)
{
    Version version = binding.descriptor.version;
    _addVersion(
        mName, std::move(version),
        [binding = std::move(binding)](ModuleBindingBuilder&, const std::optional<ContextConfig>&)
        { return std::optional<ModuleBinding>(binding); },
        std::move(commonVersion), std::move(dependencies), builderFlag);
}

void GenericModuleBindingFactory::addVersionedModuleBinding(Version version, ModuleCreatorFn creator,
                                                            Version commonVersion,
                                                            std::vector<ModuleDependency> dependencies,
                                                            bool builderFlag)
{
    _addVersion(mName, std::move(version), std::move(creator), std::move(commonVersion), std::move(dependencies),
                builderFlag);
}

void GenericModuleBindingFactory::addVersionedModuleBinding(std::string alias, Version version, ModuleCreatorFn creator,
                                                            Version commonVersion,
                                                            std::vector<ModuleDependency> dependencies,
                                                            bool builderFlag)
{
    _addVersion(std::move(alias), std::move(version), std::move(creator), std::move(commonVersion),
                std::move(dependencies), builderFlag);
}

void GenericModuleBindingFactory::_addVersion(std::string name, Version version, ModuleCreatorFn creator,
                                              Version commonVersion, std::vector<ModuleDependency> dependencies,
                                              bool builderFlag)
{
    if (_findVersion(version) != nullptr)
    {
        OV_ASSERT(false, "Module '%s' with version '%s' was already added.", mName.c_str(), version.toString().c_str());
        return;
    }
    if (mUuid != CommonModuleFactory::MODULE_UUID)
    {
        ModuleDependency common;
        common.name = CommonModuleFactory::MODULE_NAME;
        common.uuid = CommonModuleFactory::MODULE_UUID;
        common.versions = {std::move(commonVersion)};
        common.isInternal = true;
        dependencies.push_back(std::move(common));
    }
    mVersions.push_back(VersionedModuleData{std::move(name), std::move(version), std::move(creator),
                                            std::move(dependencies), builderFlag});
}

const GenericModuleBindingFactory::VersionedModuleData*
GenericModuleBindingFactory::_findVersion(const Version& version) const
{
    for (const VersionedModuleData& data : mVersions)
    {
        if (data.version == version)
        {
            return &data;
        }
    }
    return nullptr;
}

bool GenericModuleBindingFactory::isAlias(const std::string& name) const
{
    for (const VersionedModuleData& data : mVersions)
    {
        if (data.name == name)
        {
            return true;
        }
    }
    return false;
}

std::vector<Version> GenericModuleBindingFactory::getSupportedVersions() const
{
    std::vector<Version> versions;
    versions.reserve(mVersions.size());
    for (const VersionedModuleData& data : mVersions)
    {
        versions.push_back(data.version);
    }
    return versions;
}

std::vector<ModuleDependency> GenericModuleBindingFactory::getDependencies(Version version) const
{
    const VersionedModuleData* data = _findVersion(version);
    return data != nullptr ? data->dependencies : std::vector<ModuleDependency>();
}

std::optional<ModuleBinding>
GenericModuleBindingFactory::createModuleBinding(Version version, const std::optional<ContextConfig>& config)
{
    const VersionedModuleData* found = _findVersion(version);
    if (found == nullptr)
    {
        return std::nullopt;
    }
    const VersionedModuleData& data = *found;
    OV_ASSERT(data.moduleCreatorFn, "Missing callback");
    if (!data.moduleCreatorFn)
    {
        return std::nullopt;
    }
    ModuleBindingBuilder builder(mUuid, data.name, version, data.builderFlag);
    for (const ModuleDependency& dependency : data.dependencies)
    {
        builder.dependency(dependency);
    }
    return data.moduleCreatorFn(builder, config);
}
} // namespace Scripting
