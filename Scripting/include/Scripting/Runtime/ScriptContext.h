#pragma once

#include "Scripting/LifetimeRegistry/LifetimeRegistry.h"
#include "Scripting/Runtime/ResultAny.h"
#include "Scripting/Runtime/RuntimeTypes.h"

#include <memory>

namespace Scripting
{
class IRuntime;
class IPayload;

// A living script context: the runtime's side of it and the registry of its native objects. Owns the
// registry and shares the runtime.
class ScriptContext
{
public:
    // No runtime, no registry, id 0.
    ScriptContext() = default;
    ScriptContext(std::shared_ptr<IRuntime> runtime, ContextId contextId, std::unique_ptr<LifetimeRegistry> registry);
    ScriptContext(const ScriptContext&) = delete;
    ScriptContext& operator=(const ScriptContext&) = delete;
    // The source is left empty: its destructor does nothing.
    ScriptContext(ScriptContext&& other) noexcept;
    ScriptContext& operator=(ScriptContext&& other) noexcept;
    ~ScriptContext();

    ResultAny run(IPayload* payload, RunOption option = std::nullopt);

    ContextId getContextId() const { return mContextId; }
    LifetimeRegistry* getLifetimeRegistry() const { return mLifetimeRegistry.get(); }
    // Empty when the registry is gone.
    WeakLifetimeScope getScope() const;
    const std::shared_ptr<IRuntime>& getRuntime() const { return mRuntime; }

private:
    // Objects die first, while the runtime still knows the context: their destructors and listeners may
    // reach into it. Only then does the runtime forget the context, and the registry goes last.
    void _reset() noexcept;

    std::shared_ptr<IRuntime> mRuntime;
    ContextId mContextId;
    std::unique_ptr<LifetimeRegistry> mLifetimeRegistry;
};
} // namespace Scripting
