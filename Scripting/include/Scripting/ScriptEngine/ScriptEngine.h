#pragma once

#include "Scripting/BindingFactory/IModuleBindingFactory.h"
#include "Scripting/BindingType/ContextConfig.h"
#include "Scripting/BindingType/ModuleDescriptor.h"
#include "Scripting/LifetimeRegistry/LifetimeRegistryReference.h"
#include "Scripting/Runtime/IRuntime.h"
#include "Scripting/Runtime/ScriptContext.h"
#include "Scripting/ScriptEngine/DependencyResolver.h"
#include "Scripting/Version.h"

#include "UUID.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Scripting
{
// A living context, or everything that stood in its way.
struct ScriptContextResult
{
    std::optional<ScriptContext> context;
    // The runtime's name, or "unknown", when no runtime could be made.
    std::optional<std::string> missingRuntime;
    ModuleResolveResult moduleResults;
    // Why the runtime gave no context although it and every module were there.
    std::optional<std::string> contextFailure;

    bool hasErrors() const;
    // One line per failure, each starting on a line feed.
    std::string getErrorText() const;
};

// The entry of the library: takes a runtime factory and module factories, and makes script contexts from
// requests for modules.
class ScriptEngine
{
public:
    using RuntimeFactory =
        std::function<std::shared_ptr<IRuntime>(const ContextConfig&, const std::vector<ModuleDescriptor>&)>;

    // Without a manager the engine makes and owns one. A given manager must outlive the engine and every
    // context made through it.
    explicit ScriptEngine(RegistryManager* registryManager = nullptr);
    ScriptEngine(const ScriptEngine&) = delete;
    ScriptEngine& operator=(const ScriptEngine&) = delete;
    ~ScriptEngine();

    RegistryManager& getRegistryManager();

    // Setting a second factory without clearing the first asserts, and then replaces it all the same.
    void setRuntimeFactory(RuntimeFactory factory);
    void clearRuntimeFactory();

    bool hasModuleBindingFactory(const quv::UUID& uuid) const;
    // By the factory's name or any of its aliases.
    bool hasModuleBindingFactory(const std::string& nameOrAlias) const;
    // A factory whose UUID is taken, or whose name another factory answers to, asserts and is dropped.
    void addModuleBindingFactory(std::unique_ptr<IModuleBindingFactory> factory);
    void removeModuleBindingFactory(const quv::UUID& uuid);

    // The factory's name and UUID, with version 0.0.0.
    std::optional<ModuleDescriptor> getModuleDescriptor(const quv::UUID& uuid) const;
    std::optional<ModuleDescriptor> getModuleDescriptor(const std::string& nameOrAlias) const;
    std::vector<Version> getSupportedVersions(const std::string& nameOrAlias) const;

    // Never throws for a request that cannot be met: whatever is missing or in conflict is in the result,
    // all of it from the one call.
    ScriptContextResult createScriptingContext(const ContextConfig& config, const ModuleDescriptor& requester,
                                               const std::vector<ModuleDescriptor>& requested,
                                               IDependencyLoader* dependencyLoader, IPrinter* printer);

    /// @brief The result's error text, then, on a line of its own for each module asked for in a version it
    /// does not offer, the versions it does offer.
    /// @param result What createScriptingContext returned.
    /// @return The text, with the library's colour markup (see Ovelith::Diagnostics::renderForTerminal); empty
    /// when the result holds no failure.
    std::string getFailureText(const ScriptContextResult& result) const;

private:
    IModuleBindingFactory* _findFactory(const quv::UUID& uuid) const;
    IModuleBindingFactory* _findFactory(const std::string& nameOrAlias) const;

    std::unique_ptr<RegistryManager> mOwnedRegistryManager;
    RegistryManager* mRegistryManager; // never null
    RuntimeFactory mRuntimeFactoryFn;
    std::vector<std::unique_ptr<IModuleBindingFactory>> mModuleBindingFactories;
};
} // namespace Scripting
