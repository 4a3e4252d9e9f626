#include "Scripting/ScriptEngine/ScriptEngine.h"

#include "Scripting/LifetimeRegistry/LifetimeRegistry.h"

#include "Diagnostics/Assert.h"

#include <fmt/format.h>

#include <algorithm>
#include <unordered_set>
#include <utility>

namespace Scripting
{
namespace
{
ModuleDescriptor describeFactory(const IModuleBindingFactory& factory)
{
    ModuleDescriptor descriptor;
    descriptor.name = factory.getName();
    descriptor.uuid = factory.getUUID();
    return descriptor;
}

// The records of a module that failed after resolving name the caller as `module` and the failed module
// as `requestedBy`, the reverse of the resolver's records.
ModuleRequestFailure failureAfterResolve(const ModuleDescriptor& requester, const ModuleDescriptor& failed)
{
    ModuleRequestFailure failure;
    failure.module = requester;
    failure.requestedBy = failed;
    return failure;
}

// Every module in the resolver's table was reached from a request, so a module that the ordering dropped
// for a cycle takes every request that leads to it along. Without a failure recorded, that would give a
// context that silently lacks the modules asked for.
const ModuleDescriptor* findUnorderedRequest(const std::vector<ModuleDescriptor>& requested,
                                             const std::vector<ModuleDescriptor>& ordered)
{
    std::unordered_set<quv::UUID> orderedUuids;
    orderedUuids.reserve(ordered.size());
    for (const ModuleDescriptor& descriptor : ordered)
    {
        orderedUuids.insert(descriptor.uuid);
    }
    for (const ModuleDescriptor& descriptor : requested)
    {
        if (!orderedUuids.contains(descriptor.uuid))
        {
            return &descriptor;
        }
    }
    return nullptr;
}
} // namespace

bool ScriptContextResult::hasErrors() const
{
    return missingRuntime.has_value() || contextFailure.has_value() || moduleResults.hasErrors();
}

std::string ScriptContextResult::getErrorText() const
{
    std::string text;
    if (missingRuntime.has_value())
    {
        text += "\n§cMissing runtime: ";
        text += *missingRuntime;
    }
    text += moduleResults.getErrorText();
    if (contextFailure.has_value())
    {
        text += "\n§cNo context created: ";
        text += *contextFailure;
    }
    return text;
}

ScriptEngine::ScriptEngine(RegistryManager* registryManager)
    : mOwnedRegistryManager(registryManager == nullptr ? std::make_unique<RegistryManager>() : nullptr),
      mRegistryManager(registryManager != nullptr ? registryManager : mOwnedRegistryManager.get())
{
}

ScriptEngine::~ScriptEngine() = default;

RegistryManager& ScriptEngine::getRegistryManager()
{
    OV_ASSERT(mRegistryManager, "Constructor guarantees this is non-null!!!");
    return *mRegistryManager;
}

void ScriptEngine::setRuntimeFactory(RuntimeFactory factory)
{
    OV_ASSERT(mRuntimeFactoryFn == nullptr, "Factory function already set, it this intended? Clear it first.");
    mRuntimeFactoryFn = std::move(factory);
}

void ScriptEngine::clearRuntimeFactory()
{
    mRuntimeFactoryFn = nullptr;
}

IModuleBindingFactory* ScriptEngine::_findFactory(const quv::UUID& uuid) const
{
    for (const auto& factory : mModuleBindingFactories)
    {
        if (factory->getUUID() == uuid)
        {
            return factory.get();
        }
    }
    return nullptr;
}

IModuleBindingFactory* ScriptEngine::_findFactory(const std::string& nameOrAlias) const
{
    for (const auto& factory : mModuleBindingFactories)
    {
        if (factory->getName() == nameOrAlias || factory->isAlias(nameOrAlias))
        {
            return factory.get();
        }
    }
    return nullptr;
}

bool ScriptEngine::hasModuleBindingFactory(const quv::UUID& uuid) const
{
    return _findFactory(uuid) != nullptr;
}

bool ScriptEngine::hasModuleBindingFactory(const std::string& nameOrAlias) const
{
    return _findFactory(nameOrAlias) != nullptr;
}

void ScriptEngine::addModuleBindingFactory(std::unique_ptr<IModuleBindingFactory> factory)
{
    OV_ASSERT(factory != nullptr, "Module binding factory is null");
    if (factory == nullptr)
    {
        return;
    }
    // Only the new factory's name is held against the others; its aliases are not known up front.
    const bool duplicate = hasModuleBindingFactory(factory->getUUID()) || hasModuleBindingFactory(factory->getName());
    if (duplicate)
    {
        OV_ASSERT(false, "Module binding factory already added, or alias previously used.");
        return;
    }
    mModuleBindingFactories.push_back(std::move(factory));
}

void ScriptEngine::removeModuleBindingFactory(const quv::UUID& uuid)
{
    OV_ASSERT(hasModuleBindingFactory(uuid), "Module binding factory not found");
    const auto found = std::find_if(mModuleBindingFactories.begin(), mModuleBindingFactories.end(),
                                    [&](const auto& factory) { return factory->getUUID() == uuid; });
    if (found != mModuleBindingFactories.end())
    {
        mModuleBindingFactories.erase(found);
    }
}

std::optional<ModuleDescriptor> ScriptEngine::getModuleDescriptor(const quv::UUID& uuid) const
{
    const IModuleBindingFactory* factory = _findFactory(uuid);
    return factory != nullptr ? std::optional(describeFactory(*factory)) : std::nullopt;
}

std::optional<ModuleDescriptor> ScriptEngine::getModuleDescriptor(const std::string& nameOrAlias) const
{
    const IModuleBindingFactory* factory = _findFactory(nameOrAlias);
    return factory != nullptr ? std::optional(describeFactory(*factory)) : std::nullopt;
}

std::vector<Version> ScriptEngine::getSupportedVersions(const std::string& nameOrAlias) const
{
    const IModuleBindingFactory* factory = _findFactory(nameOrAlias);
    return factory != nullptr ? factory->getSupportedVersions() : std::vector<Version>();
}

std::string ScriptEngine::getFailureText(const ScriptContextResult& result) const
{
    std::string text = result.getErrorText();
    std::vector<quv::UUID> named;
    for (const ModuleRequestFailure& failure : result.moduleResults.missingVersions)
    {
        if (std::find(named.begin(), named.end(), failure.module.uuid) != named.end())
        {
            continue;
        }
        named.push_back(failure.module.uuid);
        const IModuleBindingFactory* factory = _findFactory(failure.module.uuid);
        std::vector<Version> versions = factory != nullptr ? factory->getSupportedVersions() : std::vector<Version>();
        std::sort(versions.begin(), versions.end());
        std::string list;
        for (const Version& version : versions)
        {
            list += (list.empty() ? "" : ", ") + version.toString();
        }
        text += fmt::format("\n§e{} exists in the versions: {}", failure.module.name,
                            list.empty() ? std::string("none") : list);
    }
    return text;
}

ScriptContextResult ScriptEngine::createScriptingContext(const ContextConfig& config, const ModuleDescriptor& requester,
                                                         const std::vector<ModuleDescriptor>& requested,
                                                         IDependencyLoader* dependencyLoader, IPrinter* printer)
{
    ScriptContextResult contextResult;
    const DependencyResolver resolver(mModuleBindingFactories, config.versionSelection);
    contextResult.moduleResults = resolver.resolve(requester, requested);

    // Asked for even when the modules failed, so that one call reports both kinds of failure.
    std::shared_ptr<IRuntime> runtime =
        mRuntimeFactoryFn ? mRuntimeFactoryFn(config, contextResult.moduleResults.modules) : nullptr;
    if (runtime == nullptr)
    {
        contextResult.missingRuntime = config.runtimeName.empty() ? std::string("unknown") : config.runtimeName;
    }
    if (!contextResult.moduleResults.hasErrors())
    {
        if (const ModuleDescriptor* unordered = findUnorderedRequest(requested, contextResult.moduleResults.modules))
        {
            contextResult.contextFailure =
                "Module '" + unordered->name + "' could not be ordered: its dependencies form a cycle";
        }
    }
    if (contextResult.hasErrors())
    {
        return contextResult;
    }

    std::vector<ModuleBinding> moduleBindings;
    moduleBindings.reserve(contextResult.moduleResults.modules.size());
    for (const ModuleDescriptor& descriptor : contextResult.moduleResults.modules)
    {
        IModuleBindingFactory* factory = _findFactory(descriptor.uuid);
        OV_ASSERT(factory, "Missing the factory, although we just made sure it was there :O!");
        if (factory == nullptr)
        {
            contextResult.moduleResults.missingModules.push_back(failureAfterResolve(requester, descriptor));
            continue;
        }
        std::optional<ModuleBinding> moduleBinding = factory->createModuleBinding(descriptor.version, config);
        OV_ASSERT(moduleBinding.has_value(),
                  "Failed to create the module for the specified version although we checked if it supported the "
                  "version!");
        if (!moduleBinding.has_value())
        {
            contextResult.moduleResults.missingVersions.push_back(failureAfterResolve(requester, descriptor));
            continue;
        }
        moduleBindings.push_back(std::move(*moduleBinding));
    }
    if (contextResult.hasErrors())
    {
        OV_ASSERT(!contextResult.hasErrors(), "Should have been verified during dependency resolve!");
        return contextResult;
    }

    ModuleBindingBundle bundle;
    bundle.moduleBindings = std::move(moduleBindings);
    contextResult.context = runtime->createContext(std::move(bundle), dependencyLoader, printer, config);
    if (!contextResult.context.has_value())
    {
        // Running out of context ids is the one cause this library knows of; other runtimes may have theirs.
        const bool idsExhausted = mRegistryManager->getRegistryCount() == RegistryManager::MAX_NUMBER_IDS;
        contextResult.contextFailure = "Runtime '" + config.runtimeName + "' gave no context" +
                                       (idsExhausted ? ": every context id is taken, 255 contexts are alive" : "");
    }
    return contextResult;
}
} // namespace Scripting
