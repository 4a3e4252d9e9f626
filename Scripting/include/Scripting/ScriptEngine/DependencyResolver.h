#pragma once

#include "Scripting/BindingFactory/IModuleBindingFactory.h"
#include "Scripting/BindingType/ContextConfig.h"
#include "Scripting/BindingType/ModuleDescriptor.h"
#include "Scripting/Version.h"

#include "UUID.h"

#include <cstddef>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace Scripting
{
// A request for a module or a version that cannot be had.
struct ModuleRequestFailure
{
    // Name, UUID and the version asked for.
    ModuleDescriptor module;
    ModuleDescriptor requestedBy;
};

// Two requests for one module that no single version meets.
struct ModuleVersionConflict
{
    // Name and UUID; version 0.0.0.
    ModuleDescriptor module;
    ModuleDescriptor firstRequestedBy;
    ModuleDescriptor secondRequestedBy;
    // The module with the version each requester wrote.
    ModuleDescriptor firstRequested;
    ModuleDescriptor secondRequested;
};

// A request met by another version than the one asked for; informative only.
struct ModuleVersionPromotion
{
    // Name and UUID; version 0.0.0.
    ModuleDescriptor module;
    ModuleDescriptor requestedBy;
    Version fromVersion;
    Version toVersion;
};

struct ModuleResolveResult
{
    // What to create, dependencies first; empty whenever any failure list is not.
    std::vector<ModuleDescriptor> modules;
    std::vector<ModuleRequestFailure> missingModules;
    std::vector<ModuleRequestFailure> missingVersions;
    std::vector<ModuleVersionConflict> conflicts;
    std::vector<ModuleVersionPromotion> promotions;

    bool hasErrors() const;
    // One line per failure under a heading per failure list, coloured for the user's console.
    std::string getErrorText() const;
};

// Keys the request table by module; the name is that of the first request and only a label.
struct VersionRequestKey
{
    quv::UUID uuid;
    std::string name;

    bool operator==(const VersionRequestKey& other) const { return uuid == other.uuid; }
};

// One request for a module, as the table records it.
struct VersionRequestedBy
{
    // The version this entry stands for: the one requested or, for a promotion, the one promoted to.
    Version version;
    Version requestedVersion;
    ModuleDescriptor requestedBy;
    // `version` is what the selection would give out.
    bool isAvailable = false;
    // `version` is not offered, or nobody provides the module.
    bool isMissing = false;
    // Stands for what the user asked for, directly or through dependencies that inherit it.
    bool isExplicit = false;
    // Added by the resolver for a promotion; takes no part in the conflict check.
    bool isPromotion = false;
};

// Every request for every module, keyed by module. Keys iterate in the order they were first added and each
// module's requests in the order they were made: the decisions, the failure lists and the creation order
// all follow that order.
class VersionRequestTable
{
public:
    using Entry = std::pair<VersionRequestKey, std::vector<VersionRequestedBy>>;

    // Appends to the module's requests; a new module keeps `key`'s name.
    void add(const VersionRequestKey& key, VersionRequestedBy request);

    size_t size() const { return mEntries.size(); }
    bool empty() const { return mEntries.empty(); }
    std::vector<Entry>::const_iterator begin() const { return mEntries.begin(); }
    std::vector<Entry>::const_iterator end() const { return mEntries.end(); }

private:
    std::vector<Entry> mEntries;
    std::unordered_map<quv::UUID, size_t> mIndexByUuid;
};

// A module whose version is decided, with what that version depends on.
struct SupportedBindingModule
{
    ModuleDescriptor descriptor;
    std::vector<ModuleDependency> dependencies;
};

// Decides one version of each requested module and of everything those depend on, and the order in which
// they are created. Short-lived: make one per resolve. The factories must outlive it and must not change
// while it runs; among factories of one UUID the first registered wins.
class DependencyResolver
{
public:
    DependencyResolver(const std::vector<std::unique_ptr<IModuleBindingFactory>>& factories,
                       VersionSelection versionSelection);

    ModuleResolveResult resolve(const ModuleDescriptor& requester,
                                const std::vector<ModuleDescriptor>& requested) const;

    // What is wanted: every request of `requester` and, transitively, of the factories' dependencies.
    VersionRequestTable _buildVersionRequestTable(const ModuleDescriptor& requester,
                                                  const std::vector<ModuleDescriptor>& requested) const;
    // What can be given: one version per module, or the failures.
    ModuleResolveResult _resolveDependencyRequests(const VersionRequestTable& table) const;
    // Dependencies first. Modules caught in a cycle are left out, with an assert.
    std::vector<ModuleDescriptor> _orderModulesByDependency(std::vector<SupportedBindingModule>&& modules) const;

private:
    const std::vector<std::unique_ptr<IModuleBindingFactory>>& mFactories;
    VersionSelection mVersionSelection;
};
} // namespace Scripting
