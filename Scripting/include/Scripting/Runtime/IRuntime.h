#pragma once

#include "Scripting/BindingType/ContextConfig.h"
#include "Scripting/LifetimeRegistry/LifetimeRegistryReference.h"
#include "Scripting/Reflection/TypedCall.h"
#include "Scripting/Runtime/Error.h"
#include "Scripting/Runtime/ModuleBindingBundle.h"
#include "Scripting/Runtime/Result.h"
#include "Scripting/Runtime/ResultAny.h"
#include "Scripting/Runtime/RuntimeTypes.h"
#include "Scripting/Runtime/ScriptContext.h"

#include <entt/meta/meta.hpp>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace Scripting
{
// What the library asks of a script runtime. Operations that script code can reach report failure as an
// error value; operations that a host calls on purpose may assert instead.
class IRuntime
{
public:
    virtual ~IRuntime() = default;

    // An extension of the runtime by its id, or null when the runtime has none of that id.
    virtual void* queryExtension(uint64_t /*extensionId*/) { return nullptr; }
    // Tells an extension of the runtime about an event of the embedding application.
    virtual void notifyExtension(uint64_t /*extensionId*/, void* /*data*/) {}

    // Creates a context with its own lifetime registry. The config is only read during the call.
    virtual std::optional<ScriptContext> createContext(ModuleBindingBundle bundle, IDependencyLoader* dependencyLoader,
                                                       IPrinter* printer, const ContextConfig& config) = 0;
    virtual void destroyContext(ContextId contextId) = 0;
    virtual ResultAny run(ContextId contextId, IPayload* payload, RunOption option) = 0;

    virtual ResultAny callClosure(ContextId contextId, ObjectHandle closure, entt::meta_any* arguments, unsigned count,
                                  const entt::meta_type& returnType, RunOption option) = 0;
    /// Calls a script function with arguments and a result that are numbers, booleans or strings, without
    /// meta_any. `Unsupported` (the default) sends the caller to callClosure, which also reports whatever keeps
    /// this road from being taken; `Failed` leaves the error in `failure`. `slot` is the runtime's to keep with
    /// the closure value between calls, so that it finds the function without a lookup; 0 the first time.
    virtual Reflection::TypedClosureStatus callClosureTyped(ContextId /*contextId*/, ObjectHandle /*closure*/,
                                                            int64_t& /*slot*/,
                                                            const Reflection::TypedClosureCall& /*call*/,
                                                            const entt::meta_type& /*returnType*/,
                                                            Reflection::TypedReturn& /*result*/, ResultAny& /*failure*/)
    {
        return Reflection::TypedClosureStatus::Unsupported;
    }
    virtual ResultAny resolvePromise(ContextId contextId, ObjectHandle promise, const entt::meta_any& value) = 0;
    virtual ResultAny rejectPromise(ContextId contextId, ObjectHandle promise, const entt::meta_any& value) = 0;
    virtual FutureState getFutureState(ContextId contextId, ObjectHandle future) = 0;
    virtual ResultAny getFutureResult(ContextId contextId, ObjectHandle future, const entt::meta_type& type) = 0;
    // The script's own text form of a value, as its language would print it.
    virtual Result<std::string> stringifyValue(ContextId contextId, ObjectHandle value) = 0;
    // True when a garbage collection ran.
    virtual bool collectGarbage(ContextId contextId) = 0;

    virtual IDebuggerController* enableDebugger(IDebuggerTransport& transport) = 0;
    virtual void disableDebugger() = 0;
    virtual void startProfiler() = 0;
    // The profile goes to `writer`, under `fileName` when one is given.
    virtual void stopProfiler(std::function<void(std::string_view)> writer,
                              std::optional<std::reference_wrapper<const std::string>> fileName) = 0;
    virtual RuntimeStats computeRuntimeStats() const = 0;
    virtual IWatchdog* enableWatchdog(WatchdogSettings settings) = 0;
    virtual void disableWatchdog() = 0;
    virtual IWatchdog* getWatchdog() const = 0;

    // Where the script of a context is running right now, if it is running.
    virtual std::optional<CallStackEntry> getCurrentLocation(ContextId contextId) const = 0;
};
} // namespace Scripting
