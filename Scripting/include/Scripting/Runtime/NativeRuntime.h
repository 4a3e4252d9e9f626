#pragma once

#include "Scripting/Runtime/IPayload.h"
#include "Scripting/Runtime/IRuntime.h"

#include <cstddef>
#include <memory>
#include <unordered_map>

namespace Scripting
{
namespace internal
{
struct ContextIdHash
{
    size_t operator()(ContextId contextId) const noexcept { return contextId.value; }
};
} // namespace internal

/// What the native runtime keeps of one context. The registry itself travels in the ScriptContext; the
/// record reaches it only through its scope.
struct RuntimeContextData
{
    /** @brief Scope of the context's registry. */
    WeakLifetimeScope scope;
    /** @brief The runtime's copy of what the context was created from. */
    ModuleBindingBundle bundle;
    /** @brief As given to createContext. */
    ///@{
    IDependencyLoader* dependencyLoader = nullptr; // not owned, may be null
    IPrinter* printer = nullptr;                   // not owned, may be null
    ///@}
};

/// A runtime without a language: it keeps contexts and runs native functions in them. Whatever needs a
/// language reports that it is not implemented. Must be held by a std::shared_ptr, since each context it
/// creates shares it.
class NativeRuntime : public IRuntime, public std::enable_shared_from_this<NativeRuntime>
{
public:
    /// The manager must outlive the runtime and every context it creates.
    /// @param registryManager Makes the registry of each context.
    explicit NativeRuntime(RegistryManager& registryManager);

    std::optional<ScriptContext> createContext(ModuleBindingBundle bundle, IDependencyLoader* dependencyLoader,
                                               IPrinter* printer, const ContextConfig& config) override;
    void destroyContext(ContextId contextId) override;
    ResultAny run(ContextId contextId, IPayload* payload, RunOption option) override;

    ResultAny callClosure(ContextId contextId, ObjectHandle closure, entt::meta_any* arguments, unsigned count,
                          const entt::meta_type& returnType, RunOption option) override;
    ResultAny resolvePromise(ContextId contextId, ObjectHandle promise, const entt::meta_any& value) override;
    ResultAny rejectPromise(ContextId contextId, ObjectHandle promise, const entt::meta_any& value) override;
    FutureState getFutureState(ContextId contextId, ObjectHandle future) override;
    ResultAny getFutureResult(ContextId contextId, ObjectHandle future, const entt::meta_type& type) override;
    Result<std::string> stringifyValue(ContextId contextId, ObjectHandle value) override;
    bool collectGarbage(ContextId contextId) override;

    IDebuggerController* enableDebugger(IDebuggerTransport& transport) override;
    void disableDebugger() override;
    void startProfiler() override;
    void stopProfiler(std::function<void(std::string_view)> writer,
                      std::optional<std::reference_wrapper<const std::string>> fileName) override;
    RuntimeStats computeRuntimeStats() const override;
    IWatchdog* enableWatchdog(WatchdogSettings settings) override;
    void disableWatchdog() override;
    IWatchdog* getWatchdog() const override;

    std::optional<CallStackEntry> getCurrentLocation(ContextId contextId) const override;

    /**
     * @brief Runs a native function in a context with the context's scope, bundle, loader and printer.
     * @param contextId The context; an unknown id asserts and gives an Error.
     * @param function What to run; an empty one gives an Error.
     * @return The function's result, or an Error.
     */
    ResultAny runNative(ContextId contextId, const NativeFunction& function);

    /// The record of a context; asserts and answers null for an unknown id.
    /// @param contextId The context.
    /// @return The record, owned by the runtime.
    RuntimeContextData* _getContext(ContextId contextId) const;

private:
    RegistryManager* mRegistryManager; // not owned
    std::unordered_map<ContextId, std::unique_ptr<RuntimeContextData>, internal::ContextIdHash> mContextObjects;
};
} // namespace Scripting
