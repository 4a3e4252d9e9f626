#pragma once

#include "Scripting/BindingFactory/IModuleBindingFactory.h"

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace Scripting
{
// A module that binds nothing: a name, a UUID and the dependencies of each version it offers.
class TestEmptyModuleBindingFactory final : public IModuleBindingFactory
{
public:
    using Versions = std::map<Version, std::vector<ModuleDependency>>;

    TestEmptyModuleBindingFactory(std::string name, quv::UUID uuid, Versions versions)
        : mName(std::move(name)), mUuid(uuid), mVersions(std::move(versions))
    {
    }

    std::string getName() const override { return mName; }
    quv::UUID getUUID() const override { return mUuid; }
    bool isAlias(const std::string&) const override { return false; }

    std::vector<Version> getSupportedVersions() const override
    {
        std::vector<Version> versions;
        versions.reserve(mVersions.size());
        for (const auto& entry : mVersions)
        {
            versions.push_back(entry.first);
        }
        return versions;
    }

    std::vector<ModuleDependency> getDependencies(Version version) const override
    {
        const auto found = mVersions.find(version);
        return found == mVersions.end() ? std::vector<ModuleDependency>() : found->second;
    }

    std::optional<ModuleBinding> createModuleBinding(Version version, const std::optional<ContextConfig>&) override
    {
        if (!mVersions.contains(version))
        {
            return std::nullopt;
        }
        return ModuleBinding();
    }

private:
    std::string mName;
    quv::UUID mUuid;
    Versions mVersions;
};
} // namespace Scripting
