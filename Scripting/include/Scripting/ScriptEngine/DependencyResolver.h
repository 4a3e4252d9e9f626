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
/// A request for a module or a version that cannot be had.
struct ModuleRequestFailure
{
    /// Name, UUID and the version asked for.
    ModuleDescriptor module;
    /** @brief The module (or the application) that asked. */
    ModuleDescriptor requestedBy;
};

/// Two requests for one module that no single version meets.
struct ModuleVersionConflict
{
    /// Name and UUID; version 0.0.0.
    ModuleDescriptor module;
    /** @brief The first requester. */
    ModuleDescriptor firstRequestedBy;
    /** @brief The requester whose version the first one's cannot meet. */
    ModuleDescriptor secondRequestedBy;
    /// The module with the version each requester wrote.
    ModuleDescriptor firstRequested;
    /** @brief The module with the version the second requester wrote. */
    ModuleDescriptor secondRequested;
};

/// A request met by another version than the one asked for; informative only.
struct ModuleVersionPromotion
{
    /// Name and UUID; version 0.0.0.
    ModuleDescriptor module;
    /** @brief The requester. */
    ModuleDescriptor requestedBy;
    /** @brief The version asked for. */
    Version fromVersion;
    /** @brief The version given. */
    Version toVersion;
};

/** @brief What a resolve decided: the modules to create, or why it could not. */
struct ModuleResolveResult
{
    /// What to create, dependencies first; empty whenever any failure list is not.
    std::vector<ModuleDescriptor> modules;
    /** @brief Modules no factory provides. */
    std::vector<ModuleRequestFailure> missingModules;
    /** @brief Versions the module's factory does not offer. */
    std::vector<ModuleRequestFailure> missingVersions;
    /** @brief Requests no single version meets. */
    std::vector<ModuleVersionConflict> conflicts;
    /** @brief Requests met by another version; not failures. */
    std::vector<ModuleVersionPromotion> promotions;

    /**
     * @brief Whether any failure list is not empty.
     * @return True when the resolve failed.
     */
    bool hasErrors() const;
    /// One line per failure under a heading per failure list, coloured for the user's console.
    /// @return The text, with the library's colour markup.
    std::string getErrorText() const;
};

/// Keys the request table by module; the name is that of the first request and only a label.
struct VersionRequestKey
{
    /** @brief The module's UUID, which alone decides equality. */
    quv::UUID uuid;
    /** @brief The module's name, as a label. */
    std::string name;

    /**
     * @brief Equal when the UUIDs are.
     * @param other Another key.
     * @return Whether the keys name one module.
     */
    bool operator==(const VersionRequestKey& other) const { return uuid == other.uuid; }
};

/// One request for a module, as the table records it.
struct VersionRequestedBy
{
    /// The version this entry stands for: the one requested or, for a promotion, the one promoted to.
    Version version;
    /** @brief The version the requester wrote. */
    Version requestedVersion;
    /** @brief The requester. */
    ModuleDescriptor requestedBy;
    /// `version` is what the selection would give out.
    bool isAvailable = false;
    /// `version` is not offered, or nobody provides the module.
    bool isMissing = false;
    /// Stands for what the user asked for, directly or through dependencies that inherit it.
    bool isExplicit = false;
    /// Added by the resolver for a promotion; takes no part in the conflict check.
    bool isPromotion = false;
};

/// Every request for every module, keyed by module. Keys iterate in the order they were first added and each
/// module's requests in the order they were made: the decisions, the failure lists and the creation order
/// all follow that order.
class VersionRequestTable
{
public:
    /** @brief A module and its requests. */
    using Entry = std::pair<VersionRequestKey, std::vector<VersionRequestedBy>>;

    /// Appends to the module's requests; a new module keeps `key`'s name.
    /// @param key The module.
    /// @param request The request.
    void add(const VersionRequestKey& key, VersionRequestedBy request);
    /// The place of a module, added without requests if new; for the resolver, which appends in place.
    /// @param uuid The module.
    /// @param name Its name, copied only for a new module.
    /// @return Its index, in order of first request; it never changes.
    size_t _entryOf(const quv::UUID& uuid, const std::string& name);
    /// The requests of the module at `index`, as _entryOf gave it.
    /// @param index A module's place.
    /// @return Its requests.
    std::vector<VersionRequestedBy>& _requestsAt(size_t index) { return mEntries[index].second; }

    /** @return Number of modules. */
    size_t size() const { return mEntries.size(); }
    /** @return Whether no module was requested. */
    bool empty() const { return mEntries.empty(); }
    /** @return First module, in order of first request. */
    std::vector<Entry>::const_iterator begin() const { return mEntries.begin(); }
    /** @return Past the last module. */
    std::vector<Entry>::const_iterator end() const { return mEntries.end(); }

private:
    std::vector<Entry> mEntries;
    std::unordered_map<quv::UUID, size_t> mIndexByUuid;
};

/// A module whose version is decided, with what that version depends on.
struct SupportedBindingModule
{
    /** @brief The module with its decided version. */
    ModuleDescriptor descriptor;
    /** @brief What that version depends on. */
    std::vector<ModuleDependency> dependencies;
};

/// Decides one version of each requested module and of everything those depend on, and the order in which
/// they are created. Short-lived: make one per resolve. The factories must outlive it and must not change
/// while it runs; among factories of one UUID the first registered wins.
class DependencyResolver
{
public:
    /**
     * @brief Borrows the factories.
     * @param factories The registered factories; must outlive the resolver.
     * @param versionSelection Whether to pick the lowest or the highest version that meets every request.
     */
    DependencyResolver(const std::vector<std::unique_ptr<IModuleBindingFactory>>& factories,
                       VersionSelection versionSelection);

    /**
     * @brief Resolves a request of modules.
     * @param requester Who asks (the application).
     * @param requested The modules and versions it asks for.
     * @return The modules to create, or the failures; failures are values, never asserts.
     */
    ModuleResolveResult resolve(const ModuleDescriptor& requester,
                                const std::vector<ModuleDescriptor>& requested) const;

    /// What is wanted: every request of `requester` and, transitively, of the factories' dependencies.
    /// @param requester Who asks.
    /// @param requested What it asks for.
    /// @return The table.
    VersionRequestTable _buildVersionRequestTable(const ModuleDescriptor& requester,
                                                  const std::vector<ModuleDescriptor>& requested) const;
    /// What can be given: one version per module, or the failures.
    /// @param table The requests.
    /// @return The decisions, unordered, or the failures.
    ModuleResolveResult _resolveDependencyRequests(const VersionRequestTable& table) const;
    /// Dependencies first. Modules caught in a cycle are left out, with an assert.
    /// @param modules The decided modules.
    /// @return The creation order.
    std::vector<ModuleDescriptor> _orderModulesByDependency(std::vector<SupportedBindingModule>&& modules) const;

private:
    const std::vector<std::unique_ptr<IModuleBindingFactory>>& mFactories;
    VersionSelection mVersionSelection;
};
} // namespace Scripting
