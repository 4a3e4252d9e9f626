#pragma once

#include "Diagnostics/Assert.h"
#include "Scripting/ScriptEngine/DependencyResolver.h"

#include <algorithm>
#include <cstddef>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace Scripting
{
// The resolve exactly as its rules read: a recursive walk, a linear search for every factory, table key and
// visited version, a check of every pair of requests and ordering in passes. Slow on large graphs and
// recursive to the depth of the graph, so it is only a measure for DependencyResolver, which must agree
// with it on every table, result and assert.
class LiteralDependencyResolver
{
public:
    using Factories = std::vector<std::unique_ptr<IModuleBindingFactory>>;
    using Table = std::vector<std::pair<VersionRequestKey, std::vector<VersionRequestedBy>>>;

    LiteralDependencyResolver(const Factories& factories, VersionSelection selection)
        : mFactories(factories), mSelection(selection)
    {
    }

    IModuleBindingFactory* find(const quv::UUID& uuid) const
    {
        for (const auto& factory : mFactories)
        {
            if (factory->getUUID() == uuid)
            {
                return factory.get();
            }
        }
        return nullptr;
    }

    Table build(const ModuleDescriptor& requester, const std::vector<ModuleDescriptor>& requested)
    {
        std::vector<ModuleDescriptor> sorted = requested;
        std::stable_sort(sorted.begin(), sorted.end(),
                         [](const ModuleDescriptor& a, const ModuleDescriptor& b)
                         { return a.name != b.name ? a.name < b.name : a.version < b.version; });
        std::vector<Wrapper> wrappers;
        for (const ModuleDescriptor& descriptor : sorted)
        {
            wrappers.push_back(
                {{descriptor.name, descriptor.uuid, {descriptor.version}, descriptor.isInternal, false}, true});
        }
        walk(requester, wrappers);
        removeSatisfied();
        while (!mPending.empty())
        {
            const auto [setRequester, set] = mPending.front();
            IModuleBindingFactory* factory = find(setRequester.uuid);
            if (factory == nullptr)
            {
                OV_ASSERT(false, "Cannot find factory of dependency set requestor %s", setRequester.name.c_str());
                break;
            }
            std::vector<Wrapper> strict;
            bool replaced = false;
            for (ModuleDependency dependency : factory->getDependencies(setRequester.version))
            {
                if (!replaced && dependency == set)
                {
                    Version highest = dependency.versions.front();
                    for (const Version& version : dependency.versions)
                    {
                        highest = highest < version ? version : highest;
                    }
                    dependency.versions = {highest};
                    replaced = true;
                }
                strict.push_back({dependency, false});
            }
            walk(setRequester, strict);
            const size_t before = mPending.size();
            removeSatisfied();
            if (mPending.size() == before)
            {
                OV_ASSERT(false,
                          "Should have satisfied at least one more dependency set after adding a strict "
                          "dependency: %s",
                          mPending.front().first.name.c_str());
                break;
            }
        }
        return mTable;
    }

    ModuleResolveResult decide(const Table& table) const
    {
        ModuleResolveResult result;
        std::vector<SupportedBindingModule> supported;
        for (const auto& entry : table)
        {
            const VersionRequestKey& key = entry.first;
            const std::vector<VersionRequestedBy>& requests = entry.second;
            const auto module = [&](Version version) { return ModuleDescriptor{key.name, key.uuid, version, false}; };
            const VersionRequestedBy* explicitRequest = nullptr;
            for (const VersionRequestedBy& request : requests)
            {
                if (request.isExplicit)
                {
                    explicitRequest = &request;
                    break;
                }
            }
            bool conflicted = false;
            for (size_t a = 0; a < requests.size(); ++a)
            {
                for (size_t b = a + 1; b < requests.size(); ++b)
                {
                    const VersionRequestedBy& first = requests[a];
                    const VersionRequestedBy& second = requests[b];
                    if (first.isPromotion || second.isPromotion)
                    {
                        continue;
                    }
                    const VersionRequestedBy& higher = first.version > second.version ? first : second;
                    const VersionRequestedBy& lower = &higher == &first ? second : first;
                    bool strict = true;
                    if (higher.isExplicit)
                    {
                        strict = false;
                    }
                    else if (explicitRequest != nullptr)
                    {
                        strict = explicitRequest->version < higher.version;
                    }
                    if (!higher.version.satisfies(lower.version, strict))
                    {
                        result.conflicts.push_back({module(Version()), first.requestedBy, second.requestedBy,
                                                    module(first.requestedVersion), module(second.requestedVersion)});
                        conflicted = true;
                    }
                }
            }
            IModuleBindingFactory* factory = find(key.uuid);
            if (factory == nullptr)
            {
                for (const VersionRequestedBy& request : requests)
                {
                    result.missingModules.push_back({module(request.version), request.requestedBy});
                }
                continue;
            }
            const VersionRequestedBy* best = &requests.front();
            for (const VersionRequestedBy& request : requests)
            {
                best = request.version.satisfies(best->version, false) ? &request : best;
            }
            if (conflicted || !best->isAvailable)
            {
                for (const VersionRequestedBy& request : requests)
                {
                    if (request.isMissing)
                    {
                        result.missingVersions.push_back({module(request.version), request.requestedBy});
                    }
                }
                continue;
            }
            for (const VersionRequestedBy& request : requests)
            {
                if (request.version != best->version)
                {
                    result.promotions.push_back(
                        {module(Version()), request.requestedBy, request.version, best->version});
                }
            }
            supported.push_back({module(best->version), factory->getDependencies(best->version)});
        }
        if (!result.hasErrors())
        {
            result.modules = order(std::move(supported));
        }
        return result;
    }

    static std::vector<ModuleDescriptor> order(std::vector<SupportedBindingModule> modules)
    {
        std::vector<ModuleDescriptor> ordered;
        while (!modules.empty())
        {
            const size_t before = ordered.size();
            for (size_t i = 0; i < modules.size();)
            {
                bool ready = true;
                for (const ModuleDependency& dependency : modules[i].dependencies)
                {
                    ready = ready &&
                            std::any_of(ordered.begin(), ordered.end(),
                                        [&](const ModuleDescriptor& done) { return done.uuid == dependency.uuid; });
                }
                if (ready)
                {
                    ordered.push_back(modules[i].descriptor);
                    modules.erase(modules.begin() + static_cast<std::ptrdiff_t>(i));
                }
                else
                {
                    ++i;
                }
            }
            if (ordered.size() == before)
            {
                OV_ASSERT(false, "Could not resolve dependencies, circular reference detected.");
                break;
            }
        }
        return ordered;
    }

private:
    struct Wrapper
    {
        ModuleDependency dependency;
        bool isExplicit;
    };

    void add(const ModuleDependency& dependency, VersionRequestedBy request)
    {
        for (auto& [key, requests] : mTable)
        {
            if (key.uuid == dependency.uuid)
            {
                requests.push_back(std::move(request));
                return;
            }
        }
        mTable.push_back({{dependency.uuid, dependency.name}, {std::move(request)}});
    }

    bool visit(const quv::UUID& uuid, const Version& version)
    {
        for (const auto& [visitedUuid, visitedVersion] : mVisited)
        {
            if (visitedUuid == uuid && visitedVersion == version)
            {
                return false;
            }
        }
        mVisited.emplace_back(uuid, version);
        return true;
    }

    void descend(IModuleBindingFactory& factory, const Wrapper& wrapper, const Version& version)
    {
        std::vector<Wrapper> dependencies;
        for (const ModuleDependency& dependency : factory.getDependencies(version))
        {
            dependencies.push_back({dependency, dependency.inheritsExplicit && wrapper.isExplicit});
        }
        walk({factory.getName(), wrapper.dependency.uuid, version, false}, dependencies);
    }

    void walk(const ModuleDescriptor& requester, const std::vector<Wrapper>& dependencies)
    {
        for (const Wrapper& wrapper : dependencies)
        {
            const ModuleDependency& dependency = wrapper.dependency;
            if (dependency.versions.size() != 1)
            {
                OV_ASSERT(dependency.versions.size() > 1, "Expect dependency %s to be dependency set",
                          dependency.name.c_str());
                mPending.emplace_back(requester, dependency);
                continue;
            }
            const Version& requested = dependency.versions.front();
            IModuleBindingFactory* factory = find(dependency.uuid);
            if (factory == nullptr)
            {
                add(dependency, {requested, requested, requester, false, true, wrapper.isExplicit, false});
                continue;
            }
            const std::vector<Version> offered = factory->getSupportedVersions();
            const bool offeredExactly = std::find(offered.begin(), offered.end(), requested) != offered.end();
            bool found = false;
            if (mSelection == VersionSelection::LowestSatisfying)
            {
                found = offeredExactly;
            }
            else if (mSelection == VersionSelection::HighestSatisfying)
            {
                const Version* highest = nullptr;
                for (const Version& version : offered)
                {
                    if (version.satisfies(requested, true) && (highest == nullptr || !(version < *highest)))
                    {
                        highest = &version;
                    }
                }
                found = highest != nullptr && *highest == requested;
            }
            if (!found)
            {
                std::vector<Version> sorted = offered;
                if (mSelection == VersionSelection::LowestSatisfying)
                {
                    std::stable_sort(sorted.begin(), sorted.end());
                }
                else if (mSelection == VersionSelection::HighestSatisfying)
                {
                    std::stable_sort(sorted.begin(), sorted.end(),
                                     [](const Version& a, const Version& b) { return b < a; });
                }
                const auto promoted =
                    std::find_if(sorted.begin(), sorted.end(),
                                 [&](const Version& version) { return version.satisfies(requested, true); });
                if (promoted != sorted.end())
                {
                    add(dependency, {*promoted, requested, requester, true, false, wrapper.isExplicit, true});
                    if (visit(dependency.uuid, *promoted))
                    {
                        descend(*factory, wrapper, *promoted);
                    }
                }
            }
            add(dependency, {requested, requested, requester, found, !offeredExactly, wrapper.isExplicit, false});
            if (visit(dependency.uuid, requested))
            {
                descend(*factory, wrapper, requested);
            }
        }
    }

    void removeSatisfied()
    {
        std::erase_if(mPending,
                      [this](const std::pair<ModuleDescriptor, ModuleDependency>& pending)
                      {
                          const ModuleDependency& set = pending.second;
                          if (set.versions.empty())
                          {
                              return true;
                          }
                          for (const auto& [key, requests] : mTable)
                          {
                              if (key.uuid != set.uuid)
                              {
                                  continue;
                              }
                              for (const Version& wanted : set.versions)
                              {
                                  for (const VersionRequestedBy& request : requests)
                                  {
                                      if (request.version.satisfies(wanted, false))
                                      {
                                          return true;
                                      }
                                  }
                              }
                          }
                          return false;
                      });
    }

    const Factories& mFactories;
    VersionSelection mSelection;
    Table mTable;
    std::vector<std::pair<quv::UUID, Version>> mVisited;
    std::vector<std::pair<ModuleDescriptor, ModuleDependency>> mPending;
};
} // namespace Scripting
