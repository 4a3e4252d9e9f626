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
/// What the library asks of a script runtime. Operations that script code can reach report failure as an
/// error value; operations that a host calls on purpose may assert instead.
/// A runtime is shared (`std::shared_ptr`) by the engine and every ScriptContext it made; contexts are addressed by
/// their ContextId.
class IRuntime
{
public:
    virtual ~IRuntime() = default;

    /// An extension of the runtime by its id, or null when the runtime has none of that id.
    /// @return The extension, not owned by the caller; null by default.
    virtual void* queryExtension(uint64_t /*extensionId*/) { return nullptr; }
    /// Tells an extension of the runtime about an event of the embedding application.
    /// Does nothing by default.
    virtual void notifyExtension(uint64_t /*extensionId*/, void* /*data*/) {}

    /// Creates a context with its own lifetime registry. The config is only read during the call.
    /// @param bundle The modules the context can reach, resolved by the engine; the runtime keeps its own copy.
    /// @param dependencyLoader Not owned; may be null.
    /// @param printer Not owned; may be null.
    /// @param config The context's configuration.
    /// @return The new context, which owns the registry and holds the runtime; empty when none could be made.
    virtual std::optional<ScriptContext> createContext(ModuleBindingBundle bundle, IDependencyLoader* dependencyLoader,
                                                       IPrinter* printer, const ContextConfig& config) = 0;
    /**
     * @brief Drops the runtime's record of a context; called by ScriptContext on teardown, after its objects died.
     * @param contextId Id of a live context; an unknown id asserts.
     */
    virtual void destroyContext(ContextId contextId) = 0;
    /**
     * @brief Runs a payload in a context.
     * @param contextId The context.
     * @param payload What to run; null is an error value.
     * @param option Passed through unchanged.
     * @return The payload's result, or an Error (also when the payload cannot run on this kind of runtime).
     */
    virtual ResultAny run(ContextId contextId, IPayload* payload, RunOption option) = 0;

    /**
     * @brief Calls a script function that a closure holds.
     * @param contextId Context the closure belongs to.
     * @param closure Handle of the runtime's closure object.
     * @param arguments Array of count arguments; a runtime may convert them in place.
     * @param count Number of arguments.
     * @param returnType Native type the result is converted to; an empty type for none.
     * @param option Passed through unchanged.
     * @return The converted result, or an Error when the call or the conversion failed.
     */
    virtual ResultAny callClosure(ContextId contextId, ObjectHandle closure, entt::meta_any* arguments, unsigned count,
                                  const entt::meta_type& returnType, RunOption option) = 0;
    /// Calls a script function with arguments and a result that are numbers, booleans or strings, without
    /// meta_any. `Unsupported` sends the caller to callClosure, which also reports whatever keeps this road
    /// from being taken; `Failed` leaves the error in `failure`. The runtime keeps in `cache` what it found
    /// about the closure. A caller passes an empty cache only for a closure it checked as valid() just before;
    /// a filled one stands for that check until the runtime empties it, answering `Unsupported` without
    /// running anything, when what it knew no longer holds (the object or its context gone, the function's
    /// place taken by another). The default runtime takes no typed calls.
    /// @param contextId Context the closure belongs to.
    /// @param closure Handle of the runtime's closure object.
    /// @param cache What the runtime knew after the closure's last typed call; kept with the closure value.
    /// @param call The arguments, their kinds and the kind of the result.
    /// @param returnType Native type of the result, which an error about a result of another type names.
    /// @param result Receives the result when the call is Done.
    /// @param failure Receives the error when the call Failed.
    /// @return Done, Failed or Unsupported.
    virtual Reflection::TypedClosureStatus callClosureTyped(ContextId contextId, ObjectHandle closure,
                                                            Reflection::TypedClosureCache& cache,
                                                            const Reflection::TypedClosureCall& call,
                                                            const entt::meta_type& returnType,
                                                            Reflection::TypedReturn& result, ResultAny& failure)
    {
        static_cast<void>(contextId);
        static_cast<void>(closure);
        static_cast<void>(cache);
        static_cast<void>(call);
        static_cast<void>(returnType);
        static_cast<void>(result);
        static_cast<void>(failure);
        return Reflection::TypedClosureStatus::Unsupported;
    }
    virtual ResultAny resolvePromise(ContextId contextId, ObjectHandle promise, const entt::meta_any& value) = 0;
    /**
     * @brief Rejects a script promise.
     * @param contextId Context of the promise.
     * @param promise Handle of the runtime's promise object.
     * @param value Reason to reject it with.
     * @return Empty on success, or an Error.
     */
    virtual ResultAny rejectPromise(ContextId contextId, ObjectHandle promise, const entt::meta_any& value) = 0;
    /**
     * @brief State of a script future.
     * @param contextId Context of the future.
     * @param future Handle of the runtime's future object.
     * @return Its state; FutureState::Unknown for an object the runtime does not know.
     */
    virtual FutureState getFutureState(ContextId contextId, ObjectHandle future) = 0;
    /**
     * @brief Value of a settled script future.
     * @param contextId Context of the future.
     * @param future Handle of the runtime's future object.
     * @param type Native type to convert the value to.
     * @return The value, or an Error (rejected, pending, or not convertible).
     */
    virtual ResultAny getFutureResult(ContextId contextId, ObjectHandle future, const entt::meta_type& type) = 0;
    /// The script's own text form of a value, as its language would print it.
    /// @param contextId Context of the value.
    /// @param value Handle of a value of the runtime.
    /// @return The text, or an Error.
    virtual Result<std::string> stringifyValue(ContextId contextId, ObjectHandle value) = 0;
    /// True when a garbage collection ran.
    /// @param contextId The context to collect in.
    virtual bool collectGarbage(ContextId contextId) = 0;

    /**
     * @brief Attaches a debugger. A host call: a runtime without one asserts and returns null.
     * @param transport Channel to the debugger front end.
     * @return The controller, owned by the runtime.
     */
    virtual IDebuggerController* enableDebugger(IDebuggerTransport& transport) = 0;
    /** @brief Detaches the debugger; asserts on a runtime without one. */
    virtual void disableDebugger() = 0;
    /** @brief Starts profiling; asserts on a runtime without a profiler. */
    virtual void startProfiler() = 0;
    /// The profile goes to `writer`, under `fileName` when one is given.
    /// Asserts on a runtime without a profiler.
    /// @param writer Receives the profile's text.
    /// @param fileName Name the profile is written under, if any.
    virtual void stopProfiler(std::function<void(std::string_view)> writer,
                              std::optional<std::reference_wrapper<const std::string>> fileName) = 0;
    /**
     * @brief Memory and object figures of the runtime; a runtime without them asserts and returns zeroes.
     * @return The figures at the time of the call.
     */
    virtual RuntimeStats computeRuntimeStats() const = 0;
    /**
     * @brief Starts limiting how long each entry into a script may run; asserts on a runtime without a watchdog.
     * @param settings The budgets.
     * @return The watchdog, owned by the runtime; null where there is none.
     */
    virtual IWatchdog* enableWatchdog(WatchdogSettings settings) = 0;
    /** @brief Stops the watchdog; asserts on a runtime without one. */
    virtual void disableWatchdog() = 0;
    /**
     * @brief The running watchdog.
     * @return The watchdog, owned by the runtime, or null.
     */
    virtual IWatchdog* getWatchdog() const = 0;

    /// Where the script of a context is running right now, if it is running.
    /// @param contextId The context.
    /// @return The innermost script frame, or empty when no script runs.
    virtual std::optional<CallStackEntry> getCurrentLocation(ContextId contextId) const = 0;
};
} // namespace Scripting
