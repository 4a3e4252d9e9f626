#include "Scripting/Runtime/NativeRuntime.h"

#include "Scripting/Runtime/StringBasedRuntime.h"

#include "Diagnostics/Assert.h"

#include <utility>

namespace Scripting
{
namespace
{
ResultAny notImplemented()
{
    return Error("Not implemented");
}
} // namespace

// ---- ScriptContext ----

ScriptContext::ScriptContext(std::shared_ptr<IRuntime> runtime, ContextId contextId,
                             std::unique_ptr<LifetimeRegistry> registry)
    : mRuntime(std::move(runtime)), mContextId(contextId), mLifetimeRegistry(std::move(registry))
{
}

ScriptContext::ScriptContext(ScriptContext&& other) noexcept
    : mRuntime(std::move(other.mRuntime)), mContextId(std::exchange(other.mContextId, ContextId{})),
      mLifetimeRegistry(std::move(other.mLifetimeRegistry))
{
}

ScriptContext& ScriptContext::operator=(ScriptContext&& other) noexcept
{
    if (this != &other)
    {
        _reset();
        mRuntime = std::move(other.mRuntime);
        mContextId = std::exchange(other.mContextId, ContextId{});
        mLifetimeRegistry = std::move(other.mLifetimeRegistry);
    }
    return *this;
}

ScriptContext::~ScriptContext()
{
    _reset();
}

void ScriptContext::_reset() noexcept
{
    if (mLifetimeRegistry != nullptr)
    {
        mLifetimeRegistry->destroyLifetimeScope(false);
    }
    if (mRuntime != nullptr)
    {
        mRuntime->destroyContext(mContextId);
        mRuntime.reset();
    }
    mLifetimeRegistry.reset();
    mContextId = ContextId{};
}

ResultAny ScriptContext::run(IPayload* payload, RunOption option)
{
    if (mRuntime == nullptr)
    {
        return Error("No runtime is present");
    }
    return mRuntime->run(mContextId, payload, option);
}

WeakLifetimeScope ScriptContext::getScope() const
{
    return mLifetimeRegistry != nullptr ? mLifetimeRegistry->getScope() : WeakLifetimeScope();
}

// ---- Payloads ----

ResultAny IPayload::runOnStringBasedRuntime(ContextId /*contextId*/, StringBasedRuntime& /*runtime*/,
                                            RunOption /*option*/)
{
    return Error("This payload type cannot be processed on a StringBasedRuntime");
}

ResultAny IPayload::runOnNativeRuntime(ContextId /*contextId*/, NativeRuntime& /*runtime*/, RunOption /*option*/)
{
    return Error("This payload type cannot be processed on a NativeRuntime");
}

StringPayload::StringPayload(std::string source, std::string sourceName)
    : mSource(std::move(source)), mSourceName(std::move(sourceName))
{
}

ResultAny StringPayload::runOnStringBasedRuntime(ContextId contextId, StringBasedRuntime& runtime, RunOption option)
{
    return runtime.runScript(contextId, mSource, mSourceName, option);
}

NativeFunctionPayload::NativeFunctionPayload(NativeFunction function) : mFunction(std::move(function)) {}

ResultAny NativeFunctionPayload::runOnNativeRuntime(ContextId contextId, NativeRuntime& runtime, RunOption /*option*/)
{
    return runtime.runNative(contextId, mFunction);
}

ResultAny StringBasedRuntime::run(ContextId contextId, IPayload* payload, RunOption option)
{
    if (payload == nullptr)
    {
        return Error("No Payload Provided");
    }
    return payload->runOnStringBasedRuntime(contextId, *this, option);
}

// ---- NativeRuntime ----

NativeRuntime::NativeRuntime(RegistryManager& registryManager) : mRegistryManager(&registryManager) {}

std::optional<ScriptContext> NativeRuntime::createContext(ModuleBindingBundle bundle,
                                                          IDependencyLoader* dependencyLoader, IPrinter* printer,
                                                          const ContextConfig& /*config*/)
{
    // Held by a shared pointer is a precondition; checking it first leaves nothing behind when it throws.
    std::shared_ptr<NativeRuntime> self = shared_from_this();

    std::unique_ptr<LifetimeRegistry> registry = mRegistryManager->createLifetimeRegistry();
    OV_ASSERT(registry != nullptr, "No context id is left: %u contexts are alive",
              static_cast<unsigned>(RegistryManager::MAX_NUMBER_IDS));
    if (registry == nullptr)
    {
        return std::nullopt;
    }
    const ContextId contextId = registry->getContextId();

    auto data = std::make_unique<RuntimeContextData>();
    data->scope = registry->getScope();
    data->bundle = std::move(bundle);
    data->dependencyLoader = dependencyLoader;
    data->printer = printer;
    mContextObjects.insert_or_assign(contextId, std::move(data));

    return std::optional<ScriptContext>(std::in_place, std::move(self), contextId, std::move(registry));
}

void NativeRuntime::destroyContext(ContextId contextId)
{
    const auto contextIter = mContextObjects.find(contextId);
    OV_ASSERT(contextIter != mContextObjects.end(), "This context id is invalid");
    if (contextIter != mContextObjects.end())
    {
        mContextObjects.erase(contextIter);
    }
}

ResultAny NativeRuntime::run(ContextId contextId, IPayload* payload, RunOption option)
{
    if (payload == nullptr)
    {
        return Error("No payload given");
    }
    return payload->runOnNativeRuntime(contextId, *this, option);
}

RuntimeContextData* NativeRuntime::_getContext(ContextId contextId) const
{
    const auto contextIter = mContextObjects.find(contextId);
    OV_ASSERT(contextIter != mContextObjects.end(), "This context id is invalid");
    return contextIter != mContextObjects.end() ? contextIter->second.get() : nullptr;
}

ResultAny NativeRuntime::runNative(ContextId contextId, const NativeFunction& function)
{
    RuntimeContextData* data = _getContext(contextId);
    if (data == nullptr)
    {
        return Error("Invalid context id");
    }
    if (!function)
    {
        return Error("Empty runnables");
    }
    // The function may destroy its own context; the scope and pointers it was handed stay its own.
    ContextId id = contextId;
    WeakLifetimeScope scope = data->scope;
    IDependencyLoader* dependencyLoader = data->dependencyLoader;
    IPrinter* printer = data->printer;
    return function(id, scope, data->bundle, dependencyLoader, printer);
}

ResultAny NativeRuntime::callClosure(ContextId /*contextId*/, ObjectHandle /*closure*/, entt::meta_any* /*arguments*/,
                                     unsigned /*count*/, const entt::meta_type& /*returnType*/, RunOption /*option*/)
{
    return notImplemented();
}

ResultAny NativeRuntime::resolvePromise(ContextId /*contextId*/, ObjectHandle /*promise*/,
                                        const entt::meta_any& /*value*/)
{
    return notImplemented();
}

ResultAny NativeRuntime::rejectPromise(ContextId /*contextId*/, ObjectHandle /*promise*/,
                                       const entt::meta_any& /*value*/)
{
    return notImplemented();
}

FutureState NativeRuntime::getFutureState(ContextId /*contextId*/, ObjectHandle /*future*/)
{
    return FutureState::Unknown;
}

ResultAny NativeRuntime::getFutureResult(ContextId /*contextId*/, ObjectHandle /*future*/,
                                         const entt::meta_type& /*type*/)
{
    return notImplemented();
}

Result<std::string> NativeRuntime::stringifyValue(ContextId /*contextId*/, ObjectHandle /*value*/)
{
    return Error("Not implemented");
}

bool NativeRuntime::collectGarbage(ContextId /*contextId*/)
{
    return false;
}

// The operations below are called by a host on purpose, never by script code: calling them on a runtime
// without a language is a mistake of the host.

IDebuggerController* NativeRuntime::enableDebugger(IDebuggerTransport& /*transport*/)
{
    OV_ASSERT(false, "Not implemented");
    return nullptr;
}

void NativeRuntime::disableDebugger()
{
    OV_ASSERT(false, "Not implemented");
}

void NativeRuntime::startProfiler()
{
    OV_ASSERT(false, "Not implemented");
}

void NativeRuntime::stopProfiler(std::function<void(std::string_view)> writer,
                                 std::optional<std::reference_wrapper<const std::string>> /*fileName*/)
{
    OV_ASSERT(false, "Not implemented");
    // Nothing will be written: whatever the writer holds is released now, not when the caller's copy goes.
    writer = nullptr;
}

RuntimeStats NativeRuntime::computeRuntimeStats() const
{
    OV_ASSERT(false, "Not implemented");
    return RuntimeStats{};
}

IWatchdog* NativeRuntime::enableWatchdog(WatchdogSettings /*settings*/)
{
    OV_ASSERT(false, "Not implemented");
    return nullptr;
}

void NativeRuntime::disableWatchdog()
{
    OV_ASSERT(false, "Not implemented");
}

IWatchdog* NativeRuntime::getWatchdog() const
{
    OV_ASSERT(false, "Not implemented");
    return nullptr;
}

std::optional<CallStackEntry> NativeRuntime::getCurrentLocation(ContextId /*contextId*/) const
{
    return std::nullopt;
}
} // namespace Scripting
