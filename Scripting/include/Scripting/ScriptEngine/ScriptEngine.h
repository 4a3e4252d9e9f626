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
/// A living context, or everything that stood in its way.
struct ScriptContextResult
{
    /** @brief The context, when it could be made; its owner is the caller. */
    std::optional<ScriptContext> context;
    /// The runtime's name, or "unknown", when no runtime could be made.
    std::optional<std::string> missingRuntime;
    /** @brief What the resolver decided, with its failures. */
    ModuleResolveResult moduleResults;
    /// Why the runtime gave no context although it and every module were there.
    std::optional<std::string> contextFailure;

    /**
     * @brief Whether anything stood in the way.
     * @return True when there is no context.
     */
    bool hasErrors() const;
    /// One line per failure, each starting on a line feed.
    /// @return The text, with the library's colour markup; empty without errors.
    std::string getErrorText() const;
};

/// The entry of the library: takes a runtime factory and module factories, and makes script contexts from
/// requests for modules.
class ScriptEngine
{
public:
    /** @brief Makes the runtime of a context from its configuration and the modules decided for it. */
    using RuntimeFactory =
        std::function<std::shared_ptr<IRuntime>(const ContextConfig&, const std::vector<ModuleDescriptor>&)>;

    /// Without a manager the engine makes and owns one. A given manager must outlive the engine and every
    /// context made through it.
    /// @param registryManager Not owned; may be null.
    explicit ScriptEngine(RegistryManager* registryManager = nullptr);
    ScriptEngine(const ScriptEngine&) = delete;
    ScriptEngine& operator=(const ScriptEngine&) = delete;
    /** @brief Drops the factories and the owned manager; contexts made must be gone by then. */
    ~ScriptEngine();

    /**
     * @brief The manager of the registries of every context.
     * @return The given or the owned manager.
     */
    RegistryManager& getRegistryManager();

    /// Setting a second factory without clearing the first asserts, and then replaces it all the same.
    /// @param factory Called once per created context.
    void setRuntimeFactory(RuntimeFactory factory);
    /** @brief Removes the runtime factory; creating a context then reports a missing runtime. */
    void clearRuntimeFactory();

    /**
     * @brief Whether a factory of a UUID is registered.
     * @param uuid Module UUID.
     * @return True when one is.
     */
    bool hasModuleBindingFactory(const quv::UUID& uuid) const;
    /// By the factory's name or any of its aliases.
    /// @param nameOrAlias Module name or alias.
    /// @return True when a factory answers to it.
    bool hasModuleBindingFactory(const std::string& nameOrAlias) const;
    /// A factory whose UUID is taken, or whose name another factory answers to, asserts and is dropped.
    /// @param factory The factory; the engine owns it from now on.
    void addModuleBindingFactory(std::unique_ptr<IModuleBindingFactory> factory);
    /**
     * @brief Removes and destroys the factory of a UUID; an unknown UUID asserts and changes nothing.
     * @param uuid Module UUID.
     */
    void removeModuleBindingFactory(const quv::UUID& uuid);

    /// The factory's name and UUID, with version 0.0.0.
    /// @param uuid Module UUID.
    /// @return The descriptor, or empty for an unknown module.
    std::optional<ModuleDescriptor> getModuleDescriptor(const quv::UUID& uuid) const;
    /**
     * @brief The factory's name and UUID, with version 0.0.0.
     * @param nameOrAlias Module name or alias.
     * @return The descriptor, or empty for an unknown module.
     */
    std::optional<ModuleDescriptor> getModuleDescriptor(const std::string& nameOrAlias) const;
    /**
     * @brief Versions a module is offered in.
     * @param nameOrAlias Module name or alias.
     * @return The versions; empty for an unknown module.
     */
    std::vector<Version> getSupportedVersions(const std::string& nameOrAlias) const;

    /// Never throws for a request that cannot be met: whatever is missing or in conflict is in the result,
    /// all of it from the one call.
    /// @param config How to make the context.
    /// @param requester Who asks (the application's own descriptor).
    /// @param requested Modules and versions wanted.
    /// @param dependencyLoader Not owned; may be null.
    /// @param printer Not owned; may be null.
    /// @return The context, or the reasons there is none.
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
