#pragma once

#include "Scripting/Runtime/ScriptValue.h"
#include "Scripting/Runtime/StringBasedRuntime.h"

#include <array>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

// Kept out of this header on purpose: embedding code sees Lua only when it includes Lua itself.
struct lua_State;

namespace Scripting
{
class RegistryManager;
class PromiseAny;
} // namespace Scripting

namespace Scripting::Lua
{
namespace internal
{
struct LuaContext;
struct InterruptSlot;
} // namespace internal

/// The signal that stops scripts by default: SIGURG where there is one.
#ifdef SIGURG
inline constexpr int DEFAULT_STOP_SIGNAL = SIGURG;
#else
inline constexpr int DEFAULT_STOP_SIGNAL = 0;
#endif

/** @brief Limits and hooks of a LuaRuntime, fixed at construction. */
struct LuaRuntimeSettings
{
    /// Bytes of Lua memory one context may hold at once; 0 sets no limit. A native result that would not fit
    /// under it becomes an error value instead of a Lua value; one made of many pieces (a table of strings) is
    /// made whole first, so it may go past the limit by its size for a moment before it is dropped.
    size_t memoryLimitBytes = 64u * 1024u * 1024u;
    /// Coroutines that one context may hold alive at once; 0 sets no limit. Making one more is an error the
    /// script can catch.
    uint32_t maxCoroutines = 10000;
    /// Script values (functions, promises, generators, buffers) that native code may hold of one context at
    /// once; 0 sets no limit. Handing over one more fails like a value of the wrong type.
    uint32_t maxScriptReferences = 100000;
    /// Whether interrupt() can stop scripts of this runtime. With a `stopSignal` this costs nothing while no
    /// stop is asked for: the signal sets Lua's hook on the running thread only then. Without one it needs the
    /// count hook on every thread, which makes the interpreter look at each instruction (about half the speed
    /// of a tight arithmetic loop). Off, interrupt() sends no signal and sets no hook: the request is seen at
    /// the next library step, the next look of the watchdog, or the end of the entry.
    bool interruptible = true;
    /// The signal that interrupt() and the watchdog's time budget send to the thread that runs the script, so
    /// that its handler sets Lua's hook there (Lua allows that from a signal handler on the same thread); until
    /// then scripts run unhooked. SIGURG by default, which applications leave alone; the handler is installed
    /// for the process with SA_RESTART and passes the signal on to the handler it replaced. 0: no signal, the
    /// count hook looks every 1,000 instructions instead, as it must where signals cannot reach a running
    /// interpreter (systems other than Linux, and builds under ThreadSanitizer, which delay signals, always take
    /// that road). An instruction
    /// budget (`WatchdogSettings::instructionLimit`) needs the count hook either way.
    int stopSignal = DEFAULT_STOP_SIGNAL;
    // Where `print` writes; standard output when empty.
    std::function<void(ContextId contextId, std::string_view text)> printHandler;
    /// Calls, methods and properties whose every value is a number, a boolean, a string or a bound object
    /// convert without meta_any. Off, every call takes the general path; results and errors are the same.
    bool typedCalls = true;
};

/// What one context holds right now.
struct LuaContextStats
{
    /** @brief Bytes Lua holds now. */
    uint64_t memoryUsedBytes = 0;
    /** @brief The most bytes Lua held at once so far. */
    uint64_t memoryPeakBytes = 0;
    /** @brief The cap; 0 for none. */
    uint64_t memoryLimitBytes = 0;
    /// Objects of the context's registry that scripts hold through values.
    uint64_t scriptHeldObjects = 0;
    /// Native calls, property accesses and closure calls of script functions that took the typed road.
    uint64_t typedCalls = 0;
    /// Native calls and property accesses that the typed road handed to the general path (a default to fill, a
    /// value to convert or refuse, a derived or destroyed object).
    uint64_t typedCallsDeclined = 0;
};

// Stops a script that runs past its instruction or time budget. One budget covers one entry into the
// script from native code: a run, a closure call, a promise settled, and everything the script does inside it:
// message handlers, coroutines whenever they were made, native calls and the callbacks they make, and the
// work of library functions (pattern matching, string and table functions over large ranges, load), which
// counts against the instruction budget as about one instruction per step. A time budget of 0 is the
// runtime's default, DEFAULT_TIMEOUT_MILLISECONDS.
class LuaWatchdog final : public IWatchdog
{
public:
    /// The time budget of a watchdog enabled with a timeout of 0.
    static constexpr uint32_t DEFAULT_TIMEOUT_MILLISECONDS = 1000;

    explicit LuaWatchdog(WatchdogSettings settings) : mSettings(settings)
    {
        if (mSettings.timeoutMilliseconds == 0)
        {
            mSettings.timeoutMilliseconds = DEFAULT_TIMEOUT_MILLISECONDS;
        }
    }

    /**
     * @brief The budgets.
     * @return The settings, as given.
     */
    const WatchdogSettings& getSettings() const { return mSettings; }
    /// How many times a script was stopped so far.
    /// @return The count.
    uint64_t getTripCount() const { return mTripCount; }

private:
    friend class LuaRuntime;

    WatchdogSettings mSettings;
    uint64_t mTripCount = 0;
};

/// A Lua 5.4 runtime: one sandboxed lua_State per context, the modules of the bundle reachable through
/// `require`, native objects held by script values through strong handles. Must be held by a std::shared_ptr,
/// since each context it creates shares it.
/// Failures a script causes are Error values of run, call or settle; operations the host calls on purpose
/// (debugger, profiler) assert, as the interface says.
class LuaRuntime final : public StringBasedRuntime,
                         public IObjectInspector,
                         public std::enable_shared_from_this<LuaRuntime>
{
public:
    /// The manager must outlive the runtime and every context it creates.
    /// @param registryManager Makes the registry of each context.
    /// @param settings Limits and hooks.
    explicit LuaRuntime(RegistryManager& registryManager, LuaRuntimeSettings settings = {});
    /** @brief Destroys the runtime; each context shares it, so this comes after the last context closed. */
    ~LuaRuntime() override;
    LuaRuntime(const LuaRuntime&) = delete;
    LuaRuntime& operator=(const LuaRuntime&) = delete;

    // ---- IRuntime ----
    std::optional<ScriptContext> createContext(ModuleBindingBundle bundle, IDependencyLoader* dependencyLoader,
                                               IPrinter* printer, const ContextConfig& config) override;
    void destroyContext(ContextId contextId) override;
    ResultAny runScript(ContextId contextId, const std::string& source, const std::string& sourceName,
                        RunOption option) override;

    Reflection::TypedClosureStatus callClosureTyped(ContextId contextId, ObjectHandle closure,
                                                    Reflection::TypedClosureCache& cache,
                                                    const Reflection::TypedClosureCall& call,
                                                    const entt::meta_type& returnType, Reflection::TypedReturn& result,
                                                    ResultAny& failure) override;
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
    // Summed over the contexts; the peak is the highest sum seen.
    RuntimeStats computeRuntimeStats() const override;
    // One watchdog for every context of the runtime, present and future; enabling again replaces it.
    IWatchdog* enableWatchdog(WatchdogSettings settings) override;
    void disableWatchdog() override;
    IWatchdog* getWatchdog() const override;
    std::optional<CallStackEntry> getCurrentLocation(ContextId contextId) const override;

    // ---- IObjectInspector: script values that native code holds ----
    bool isEqual(ObjectHandle a, ObjectHandle b) override;
    bool getBooleanProperty(ObjectHandle object, const char* name, bool defaultValue) override;
    ResultAny getProperty(ObjectHandle object, const char* name, const entt::meta_type& expected) override;
    // Bytes of a buffer; the second extent of a buffer is always 1.
    unsigned getSecondExtent(ObjectHandle buffer) override;
    unsigned getFirstExtent(ObjectHandle buffer) override;
    void* getData(ObjectHandle buffer) override;

    // ---- Lua only ----
    /// Stops the script that runs in the context now, at its next instruction or library step (a script inside
    /// a native function stops once it returns, or ends with the error if it returns no further), with the error
    /// "InterruptError: Script interrupted by the host"; no protected call of the script can catch it. Safe to
    /// call from any thread, also while the runtime's own thread creates or runs contexts; a no-op when the
    /// context runs nothing, so a request never reaches a later run. The context stays usable. The runtime
    /// itself must be alive during the call.
    void interrupt(ContextId contextId);
    /// interrupt() for every context of the runtime.
    void interrupt();
    // A pending script promise that native code settles later with resolvePromise or rejectPromise.
    std::optional<PromiseAny> createPromise(ContextId contextId);
    /**
     * @brief Memory and objects of one context.
     * @param contextId The context.
     * @return The figures; empty for an unknown id.
     */
    std::optional<LuaContextStats> computeContextStats(ContextId contextId) const;
    /// The context's state, for embedding code that adds functions of its own; null for an unknown id. The two
    /// lowest slots of its stack belong to the runtime: code that uses the stack pushes and pops above what it
    /// found there, never setting the top below it.
    /// @param contextId The context.
    /// @return The state, owned by the runtime; valid until the context is destroyed.
    lua_State* getLuaState(ContextId contextId) const;
    /**
     * @brief The settings given at construction.
     * @return The settings.
     */
    const LuaRuntimeSettings& getSettings() const { return mSettings; }
    /// The settings of the watchdog now enabled; all zero without one.
    /// @return The settings.
    const WatchdogSettings& getWatchdogSettings() const;
    /// @brief Most native arguments callFunction hands to one script function.
    static constexpr unsigned MAX_CALL_ARGUMENTS = 200;

    /// @brief Runs script text and converts what it returns to `type`, with the checks of a native argument.
    /// @param contextId The context to run in.
    /// @param source Lua source text; binary chunks are refused.
    /// @param sourceName The name that messages and stacks show for the text.
    /// @param type The native type wanted; void or an empty type drops the value.
    /// @return The converted value, or an error value: a script failure, or a value that does not convert.
    ResultAny runScriptAs(ContextId contextId, const std::string& source, const std::string& sourceName,
                          const entt::meta_type& type);
    /// @brief Calls the global script function `name` with native arguments.
    /// @param contextId The context of the function.
    /// @param name The name of a global variable that holds a function.
    /// @param arguments The native arguments, converted as native results are.
    /// @param count How many arguments there are, at most MAX_CALL_ARGUMENTS.
    /// @param type The native type wanted of the first result; void drops it.
    /// @return The converted result, or an error value (no such function included).
    ResultAny callFunction(ContextId contextId, const std::string& name, entt::meta_any* arguments, unsigned count,
                           const entt::meta_type& type);
    /// @brief Reads a global variable without running any script code.
    /// @param contextId The context of the variable.
    /// @param name The variable's name.
    /// @param type The native type wanted.
    /// @return The converted value, or an error value when it does not convert (nil included, unless `type`
    /// takes nil).
    ResultAny getGlobal(ContextId contextId, const std::string& name, const entt::meta_type& type);
    /// @brief Sets a global variable to a native value, without running any script code.
    /// @param contextId The context of the variable.
    /// @param name The variable's name.
    /// @param value The native value, converted as native results are.
    /// @return Nothing, or an error value when the value has no Lua form.
    ResultAny setGlobal(ContextId contextId, const std::string& name, const entt::meta_any& value);

    // Counts one stopped script; called by the contexts.
    void noteWatchdogTrip();

private:
    friend struct internal::LuaContext;

    // Every call into a context starts here: one load, no hashing.
    internal::LuaContext* _getContext(ContextId contextId) const { return mContexts[contextId.value].get(); }
    void _applyWatchdog(internal::LuaContext& context) const;

    // The stop signal, once installed; 0 when scripts are stopped by the count hook alone.
    int mStopSignal = 0;

    RegistryManager* mRegistryManager; // not owned
    LuaRuntimeSettings mSettings;
    // By context id, null for none.
    std::array<std::unique_ptr<internal::LuaContext>, 256> mContexts;
    std::unique_ptr<LuaWatchdog> mWatchdog;
    // One per possible context id; reached from other threads, so never moved nor resized.
    std::unique_ptr<internal::InterruptSlot[]> mInterrupts;
    // Memory of all contexts together, and the most it ever was.
    uint64_t mMemoryInUse = 0;
    uint64_t mMemoryPeak = 0;
};
} // namespace Scripting::Lua
