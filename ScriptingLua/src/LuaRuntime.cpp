#include "Scripting/Lua/LuaRuntime.h"

#include "LuaContext.h"

#include "Scripting/LifetimeRegistry/LifetimeRegistry.h"
#include "Scripting/Runtime/Error.h"
#include "Scripting/Runtime/ScriptPromise.h"

#include "Diagnostics/Assert.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <mutex>
#include <random>

namespace Scripting::Lua
{
namespace internal
{
namespace
{
// Instructions between two looks of the watchdog.
constexpr int WATCHDOG_INTERVAL = 1000;

// The bytes that Lua puts before the memory of a userdata without user values, learnt once from a state of its
// own: the allocator knows a box's block by its size.
size_t userdataHeader()
{
    static const size_t sHeader = []
    {
        size_t last = 0;
        lua_State* probe = lua_newstate(
            [](void* userData, void* block, size_t, size_t newSize) -> void*
            {
                if (newSize == 0)
                {
                    std::free(block);
                    return nullptr;
                }
                *static_cast<size_t*>(userData) = newSize;
                return std::realloc(block, newSize);
            },
            &last);
        if (probe == nullptr)
        {
            return size_t{0};
        }
        // No collection step may allocate after the userdata.
        lua_gc(probe, LUA_GCSTOP);
        constexpr size_t PROBE_SIZE = 1;
        lua_newuserdatauv(probe, PROBE_SIZE, 0);
        const size_t header = last - PROBE_SIZE;
        lua_close(probe);
        return header;
    }();
    return sHeader;
}

// A box still sealed when Lua frees it lost its finalizer; what it owns is released here.
void releaseUnfinalized(MemoryState& memory, void* block, size_t size)
{
    auto* end = static_cast<unsigned char*>(block) + size;
    const auto* place = reinterpret_cast<const uintptr_t*>(end - sizeof(uintptr_t));
    if (size == memory.errorBlockSize && *place == sealFor(place, BoxKind::Error))
    {
        auto* box = reinterpret_cast<ErrorBox*>(end - sizeof(ErrorBox));
        box->seal = 0;
        box->~ErrorBox();
    }
    else if (size == memory.objectBlockSize && *place == sealFor(place, BoxKind::Object))
    {
        // Inside the allocator nothing native may run that could reach Lua: a handle waits for the next drain.
        releaseObjectBox(*memory.owner, *reinterpret_cast<ObjectBox*>(end - sizeof(ObjectBox)), true);
    }
}

void* allocate(void* userData, void* block, size_t oldSize, size_t newSize)
{
    auto& memory = *static_cast<MemoryState*>(userData);
    // Without a block, the old size names a kind of object, not a size.
    const size_t previous = block != nullptr ? oldSize : 0;
    if (newSize == 0)
    {
        if (previous == memory.errorBlockSize || previous == memory.objectBlockSize)
        {
            releaseUnfinalized(memory, block, previous);
        }
        std::free(block);
        memory.used -= previous;
        *memory.runtimeInUse -= previous;
        return nullptr;
    }
    // Shrinking must never fail; growing past the limit does.
    if (newSize > previous && memory.limit != 0 && memory.unlimited == 0 &&
        memory.used - previous + newSize > memory.limit)
    {
        return nullptr;
    }
    void* grown = std::realloc(block, newSize);
    if (grown == nullptr)
    {
        return nullptr;
    }
    memory.used = memory.used - previous + newSize;
    memory.peak = std::max(memory.peak, memory.used);
    *memory.runtimeInUse = *memory.runtimeInUse - previous + newSize;
    *memory.runtimePeak = std::max(*memory.runtimePeak, *memory.runtimeInUse);
    return grown;
}

int setUpState(lua_State* state)
{
    LuaContext& context = contextOf(state);
    createErrorMetatable(context, state);
    openSandbox(context, state);
    createClassMetatables(context, state);
    createScriptValueSupport(context, state);
    return 0;
}

} // namespace

uintptr_t sealFor(const uintptr_t* place, BoxKind kind)
{
    // Secret to scripts, which see addresses (a value box's tostring shows one) but never this.
    static const uintptr_t sKey = []
    {
        uintptr_t key = static_cast<uintptr_t>(std::chrono::steady_clock::now().time_since_epoch().count());
        try
        {
            std::random_device device;
            key ^= (static_cast<uintptr_t>(device()) << 32u) ^ static_cast<uintptr_t>(device());
        }
        catch (...)
        {
            // No source of entropy: the clock and the place of the key, which scripts cannot read either.
            key ^= reinterpret_cast<uintptr_t>(&key);
        }
        return key;
    }();
    return sKey ^ reinterpret_cast<uintptr_t>(place) ^ static_cast<uintptr_t>(kind);
}

bool chargeWork(LuaContext& context, lua_State* state, uint64_t units)
{
    if (context.stopped)
    {
        return true;
    }
    if (context.entry == 0)
    {
        // The runtime's own Lua code between entries: no budget is running.
        return false;
    }
    context.instructionsUsed += units;
    const char* name = nullptr;
    std::string message;
    if (context.interruptSlot != nullptr &&
        context.interruptSlot->requested.load(std::memory_order_relaxed) == context.entry)
    {
        name = "InterruptError";
        message = "Script interrupted by the host";
    }
    else if (context.watchdogArmed)
    {
        const WatchdogSettings& settings = context.runtime->getWatchdogSettings();
        // The deadline thread marks the entry when its time runs out; without one, the clock tells.
        const bool timedOut =
            context.deadline.linked
                ? context.interruptSlot->timedOut.load(std::memory_order_relaxed) == context.entry
                : settings.timeoutMilliseconds != 0 && std::chrono::steady_clock::now() - context.runStart >
                                                           std::chrono::milliseconds(settings.timeoutMilliseconds);
        if (settings.instructionLimit != 0 && context.instructionsUsed > settings.instructionLimit)
        {
            name = "WatchdogError";
            message =
                fmt::format("Script stopped by the watchdog: more than {} instructions", settings.instructionLimit);
        }
        else if (timedOut)
        {
            name = "WatchdogError";
            message =
                fmt::format("Script stopped by the watchdog: ran longer than {} ms", settings.timeoutMilliseconds);
        }
    }
    if (name == nullptr)
    {
        return false;
    }
    context.stopped = true;
    context.stopName = name;
    context.stopMessage = std::move(message);
    // Where the script is now; the error reaches the runtime from wherever the last protected call of the
    // script lets it out.
    captureTraceback(context, state, 0, context.stopTraceback, context.stopFile, context.stopLine);
    if (context.stopName == "WatchdogError")
    {
        context.runtime->noteWatchdogTrip();
    }
    return true;
}

int raiseStop(LuaContext& context, lua_State* state)
{
    lua_pushlstring(state, context.stopMessage.data(), context.stopMessage.size());
    return lua_error(state);
}

void budgetHook(lua_State* state, lua_Debug* /*frame*/)
{
    LuaContext& context = contextOf(state);
    const int count = lua_gethookcount(state);
    if (chargeWork(context, state, static_cast<uint64_t>(count)))
    {
        // Raising here is safe: the only message handlers in place are the runtime's, and they run no script
        // code once the entry is stopped.
        raiseStop(context, state);
    }
    else if (count == 1)
    {
        // Set by a signal that finds nothing due any more (or that came from elsewhere): back to full speed.
        syncHook(context, state);
    }
}

namespace
{
void setHook(lua_State* thread, int interval)
{
    if (interval == 0)
    {
        if (lua_gethook(thread) != nullptr)
        {
            lua_sethook(thread, nullptr, 0, 0);
        }
    }
    else if (lua_gethook(thread) != &budgetHook || lua_gethookcount(thread) != interval)
    {
        lua_sethook(thread, &budgetHook, LUA_MASKCOUNT, interval);
    }
}
} // namespace

void syncHook(LuaContext& context, lua_State* thread)
{
    if (stopDue(context))
    {
        setHook(thread, 1);
        return;
    }
    int interval = context.hookInterval;
    // Stops that no signal brings are looked for by the hook. Between entries only the runtime's setting
    // counts: each entry looks again when it begins.
    const bool polls = context.entry != 0 ? !context.reachable : context.stopSignal == 0;
    if (interval == 0 && context.stoppable && polls)
    {
        interval = WATCHDOG_INTERVAL;
    }
    setHook(thread, interval);
    if (interval != 1 && context.reachable)
    {
        // A signal handled since the look above may have set the hook that was just taken off.
        std::atomic_signal_fence(std::memory_order_seq_cst);
        if (stopDue(context))
        {
            setHook(thread, 1);
            interval = 1;
        }
    }
    if (interval == 0 && thread == context.state)
    {
        // Only the main thread: a coroutine's address may come back as another's, with its creator's hook.
        context.hookFreeThread = thread;
    }
    else if (context.hookFreeThread == thread)
    {
        context.hookFreeThread = nullptr;
    }
}

LuaContext::LuaContext(LuaRuntime& owner, ContextId contextId, WeakLifetimeScope contextScope,
                       ModuleBindingBundle modules, const ContextConfig& contextConfig)
    : runtime(&owner), id(contextId), scope(std::move(contextScope)), bundle(std::move(modules)), config(contextConfig)
{
}

LuaContext::~LuaContext()
{
    if (state != nullptr)
    {
        closing = true;
        lua_close(state);
        state = nullptr;
    }
    pendingReleases.clear();
}

void LuaContext::drainPending(lua_State* thread)
{
    // Releasing may destroy objects whose destructors release further handles; those come back here.
    for (int round = 0; round < 64 && !pendingReleases.empty(); ++round)
    {
        // The list is handed back once emptied, so that a steady stream of releases allocates nothing; a drain
        // that a release starts finds the spare taken and makes its own.
        std::vector<StrongObjectHandle> releases = std::move(spareReleases);
        spareReleases.clear();
        releases.swap(pendingReleases);
        releases.clear();
        if (spareReleases.capacity() < releases.capacity())
        {
            spareReleases = std::move(releases);
        }
    }
    if (thread != nullptr && !closing && !pendingUnreferences.empty())
    {
        dropReferences(*this, thread, pendingUnreferences);
    }
    pendingUnreferences.clear();
}
} // namespace internal

using internal::LuaContext;

LuaRuntime::LuaRuntime(RegistryManager& registryManager, LuaRuntimeSettings settings)
    : mRegistryManager(&registryManager), mSettings(std::move(settings))
{
    // The meta context is shared by the whole process: runtimes made at the same time on several threads must
    // not register into it together.
    static std::once_flag sRegistered;
    std::call_once(sRegistered,
                   []
                   {
                       // Made here, outside any Lua call, where nothing may throw.
                       internal::sealFor(nullptr, internal::BoxKind::Error);
                       internal::userdataHeader();
                       // Error values read their name and message through Error whatever their own type is.
                       entt::meta_ctx& context = Reflection::context();
                       entt::meta<EngineError>(context).base<Error>();
                       entt::meta<InvalidArgumentError>(context).base<Error>();
                       entt::meta<ArgumentOutOfBoundsError>(context).base<Error>();
                       entt::meta<PropertyOutOfBoundsError>(context).base<Error>();
                       entt::meta<RuntimeConditionError>(context).base<Error>();
                       entt::meta<UnsupportedFunctionalityError>(context).base<Error>();
                   });
    mInterrupts = std::make_unique<internal::InterruptSlot[]>(256);
    if (mSettings.stopSignal != 0 && internal::installStopSignal(mSettings.stopSignal))
    {
        mStopSignal = mSettings.stopSignal;
    }
}

void LuaRuntime::interrupt(ContextId contextId)
{
    internal::InterruptSlot& slot = mInterrupts[contextId.value];
    if (mStopSignal != 0)
    {
        internal::signalInterrupt(slot, mSettings.interruptible ? mStopSignal : 0);
        return;
    }
    const uint64_t running = slot.running.load(std::memory_order_acquire);
    if (running != 0)
    {
        slot.requested.store(running, std::memory_order_relaxed);
    }
}

void LuaRuntime::interrupt()
{
    for (unsigned index = 0; index < 256; ++index)
    {
        interrupt(ContextId{static_cast<uint8_t>(index)});
    }
}

LuaRuntime::~LuaRuntime() = default;

std::optional<ScriptContext> LuaRuntime::createContext(ModuleBindingBundle bundle, IDependencyLoader* dependencyLoader,
                                                       IPrinter* printer, const ContextConfig& config)
{
    std::shared_ptr<LuaRuntime> self = shared_from_this();
    std::unique_ptr<LifetimeRegistry> registry = mRegistryManager->createLifetimeRegistry();
    if (registry == nullptr)
    {
        return std::nullopt;
    }
    const ContextId contextId = registry->getContextId();
    auto context = std::make_unique<LuaContext>(*this, contextId, registry->getScope(), std::move(bundle), config);
    context->dependencyLoader = dependencyLoader;
    context->printer = printer;
    context->memory.limit = mSettings.memoryLimitBytes;
    context->memory.runtimeInUse = &mMemoryInUse;
    context->memory.runtimePeak = &mMemoryPeak;
    context->memory.owner = context.get();
    if (const size_t header = internal::userdataHeader(); header != 0)
    {
        context->memory.objectBlockSize = header + sizeof(internal::ObjectBox);
        context->memory.errorBlockSize = header + sizeof(internal::ErrorBox);
    }
    context->useTypedCalls = mSettings.typedCalls;
    internal::planBindings(*context);

    lua_State* state = lua_newstate(&internal::allocate, &context->memory);
    if (state == nullptr)
    {
        return std::nullopt;
    }
    context->state = state;
    context->current = state;
    *static_cast<LuaContext**>(lua_getextraspace(state)) = context.get();
    static std::atomic<uint64_t> sContextSerials{0};
    context->serial = sContextSerials.fetch_add(1, std::memory_order_relaxed) + 1;
    context->interruptSlot = &mInterrupts[contextId.value];
    context->stopSignal = mStopSignal;
    context->entries = mInterrupts[contextId.value].lastEntry;
    {
        // Setting up must not fail on a tight limit; the limit holds for what scripts do.
        internal::UnlimitedMemory unlimited(*context);
        lua_pushcfunction(state, &internal::setUpState);
        if (lua_pcall(state, 0, 0, 0) != LUA_OK)
        {
            return std::nullopt;
        }
        lua_rawgeti(state, LUA_REGISTRYINDEX, context->messageHandlerRef);
        lua_rawgeti(state, LUA_REGISTRYINDEX, context->referencesRef);
        context->referencesPinned = true;
    }
    _applyWatchdog(*context);
    mContexts[contextId.value] = std::move(context);
    return std::optional<ScriptContext>(std::in_place, std::move(self), contextId, std::move(registry));
}

void LuaRuntime::destroyContext(ContextId contextId)
{
    std::unique_ptr<LuaContext>& slot = mContexts[contextId.value];
    OV_ASSERT(slot != nullptr, "This context id is invalid");
    // The registry's objects are gone by now; closing the state lets every Lua value drop its handle. The slot
    // is empty before the state closes, as it was when the context lived in a map.
    std::unique_ptr<LuaContext> context = std::move(slot);
    context.reset();
}

ResultAny LuaRuntime::runScript(ContextId contextId, const std::string& source, const std::string& sourceName,
                                RunOption /*option*/)
{
    LuaContext* context = _getContext(contextId);
    if (context == nullptr)
    {
        return Error("Invalid context id");
    }
    lua_State* state = context->nativeDepth > 0 ? context->current : context->state;
    if (!lua_checkstack(state, 4))
    {
        return Error("The script's stack is exhausted");
    }
    if (context->nativeDepth == 0)
    {
        // Script values that native code dropped since the last run let go of their Lua values first.
        context->drainPending(state);
    }
    const std::string chunkName = "=" + sourceName;
    int status = luaL_loadbufferx(state, source.data(), source.size(), chunkName.c_str(), "t");
    if (status == LUA_OK)
    {
        status = internal::protectedCall(*context, state, 0, 1);
    }
    if (status != LUA_OK)
    {
        ResultAny error = internal::takeError(*context, state, status, sourceName);
        if (context->nativeDepth == 0)
        {
            context->drainPending(state);
        }
        return error;
    }
    entt::meta_any value = internal::toNativeUntyped(*context, state, -1);
    const bool isError = internal::toErrorBox(state, -1) != nullptr;
    lua_pop(state, 1);
    if (context->nativeDepth == 0)
    {
        context->drainPending(state);
    }
    if (isError)
    {
        ResultAny error(Error(""));
        error.any() = std::move(value);
        return error;
    }
    return ResultAny::makeResultFromAny(std::move(value));
}

Result<std::string> LuaRuntime::stringifyValue(ContextId contextId, ObjectHandle value)
{
    LuaContext* context = _getContext(contextId);
    if (context == nullptr)
    {
        return Error("Invalid context id");
    }
    lua_State* state = context->nativeDepth > 0 ? context->current : context->state;
    if (!lua_checkstack(state, 4))
    {
        return Error("The script's stack is exhausted");
    }
    lua_getglobal(state, "tostring");
    internal::pushReferencedValue(*context, state, value);
    const int status = internal::protectedCall(*context, state, 1, 1);
    if (status != LUA_OK)
    {
        return Result<std::string>::fromResultAny(internal::takeError(*context, state, status, "tostring"));
    }
    size_t length = 0;
    const char* text = lua_tolstring(state, -1, &length);
    std::string result = text != nullptr ? std::string(text, length) : std::string();
    lua_pop(state, 1);
    return result;
}

bool LuaRuntime::collectGarbage(ContextId contextId)
{
    LuaContext* context = _getContext(contextId);
    if (context == nullptr || context->nativeDepth > 0)
    {
        return false;
    }
    lua_gc(context->state, LUA_GCCOLLECT);
    internal::recountCoroutines(*context, context->state);
    context->drainPending(context->state);
    return true;
}

// Lua offers neither debugger nor profiler through this runtime: a host asking for them is mistaken.
IDebuggerController* LuaRuntime::enableDebugger(IDebuggerTransport& /*transport*/)
{
    OV_ASSERT(false, "Not implemented");
    return nullptr;
}

void LuaRuntime::disableDebugger()
{
    OV_ASSERT(false, "Not implemented");
}

void LuaRuntime::startProfiler()
{
    OV_ASSERT(false, "Not implemented");
}

void LuaRuntime::stopProfiler(std::function<void(std::string_view)> writer,
                              std::optional<std::reference_wrapper<const std::string>> /*fileName*/)
{
    OV_ASSERT(false, "Not implemented");
    writer = nullptr;
}

RuntimeStats LuaRuntime::computeRuntimeStats() const
{
    RuntimeStats stats;
    stats.memoryUsedBytes = mMemoryInUse;
    stats.memoryPeakBytes = mMemoryPeak;
    stats.memoryLimitBytes = mSettings.memoryLimitBytes;
    for (const auto& context : mContexts)
    {
        if (context == nullptr)
        {
            continue;
        }
        if (LifetimeRegistry* registry = context->scope.getLifetimeRegistry())
        {
            stats.objectCount += registry->registry.storage<Scripting::internal::BaseScriptComponent>().size();
        }
    }
    return stats;
}

std::optional<LuaContextStats> LuaRuntime::computeContextStats(ContextId contextId) const
{
    const LuaContext* context = _getContext(contextId);
    if (context == nullptr)
    {
        return std::nullopt;
    }
    LuaContextStats stats;
    stats.memoryUsedBytes = context->memory.used;
    stats.memoryPeakBytes = context->memory.peak;
    stats.memoryLimitBytes = context->memory.limit;
    stats.scriptHeldObjects = context->liveHandleBoxes;
    stats.typedCalls = context->typedCalls;
    stats.typedCallsDeclined = context->typedCallsDeclined;
    return stats;
}

IWatchdog* LuaRuntime::enableWatchdog(WatchdogSettings settings)
{
    mWatchdog = std::make_unique<LuaWatchdog>(settings);
    for (const auto& context : mContexts)
    {
        if (context != nullptr)
        {
            _applyWatchdog(*context);
        }
    }
    return mWatchdog.get();
}

void LuaRuntime::disableWatchdog()
{
    mWatchdog.reset();
    for (const auto& context : mContexts)
    {
        if (context != nullptr)
        {
            _applyWatchdog(*context);
        }
    }
}

IWatchdog* LuaRuntime::getWatchdog() const
{
    return mWatchdog.get();
}

const WatchdogSettings& LuaRuntime::getWatchdogSettings() const
{
    static const WatchdogSettings sNone{};
    return mWatchdog != nullptr ? mWatchdog->getSettings() : sNone;
}

void LuaRuntime::noteWatchdogTrip()
{
    if (mWatchdog != nullptr)
    {
        ++mWatchdog->mTripCount;
    }
}

void LuaRuntime::_applyWatchdog(LuaContext& context) const
{
    const bool armed = mWatchdog != nullptr && (mWatchdog->getSettings().instructionLimit != 0 ||
                                                mWatchdog->getSettings().timeoutMilliseconds != 0);
    context.watchdogArmed = armed;
    // Any hook makes Lua check every instruction: only an instruction budget needs one standing; time and
    // interrupts need one only without a stop signal (syncHook).
    const uint64_t limit = armed ? mWatchdog->getSettings().instructionLimit : 0;
    context.hookInterval = limit == 0                                                   ? 0
                           : limit < static_cast<uint64_t>(internal::WATCHDOG_INTERVAL) ? static_cast<int>(limit)
                                                                                        : internal::WATCHDOG_INTERVAL;
    context.stoppable = mSettings.interruptible || (armed && mWatchdog->getSettings().timeoutMilliseconds != 0);
    // Threads made before get the hook when they are resumed.
    internal::syncHook(context, context.state);
}

std::optional<CallStackEntry> LuaRuntime::getCurrentLocation(ContextId contextId) const
{
    const LuaContext* context = _getContext(contextId);
    if (context == nullptr || context->nativeDepth == 0)
    {
        return std::nullopt;
    }
    lua_Debug frame;
    for (int level = 0; level < 64 && lua_getstack(context->current, level, &frame) != 0; ++level)
    {
        if (lua_getinfo(context->current, "Sln", &frame) != 0 && frame.currentline > 0)
        {
            return CallStackEntry{frame.name != nullptr ? frame.name : "<anonymous>", frame.short_src,
                                  frame.currentline};
        }
    }
    return std::nullopt;
}

lua_State* LuaRuntime::getLuaState(ContextId contextId) const
{
    const LuaContext* context = _getContext(contextId);
    return context != nullptr ? context->state : nullptr;
}
} // namespace Scripting::Lua
