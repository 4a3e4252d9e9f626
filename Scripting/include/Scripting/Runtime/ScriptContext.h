#pragma once

#include "Scripting/LifetimeRegistry/LifetimeRegistry.h"
#include "Scripting/Runtime/ResultAny.h"
#include "Scripting/Runtime/RuntimeTypes.h"

#include <memory>

namespace Scripting
{
class IRuntime;
class IPayload;

/// A living script context: the runtime's side of it and the registry of its native objects. Owns the
/// registry and shares the runtime.
/// Move-only. Destroying it destroys the context's objects, then the runtime's context, then the registry.
class ScriptContext
{
public:
    /// No runtime, no registry, id 0.
    ScriptContext() = default;
    /**
     * @brief Made by a runtime's createContext.
     * @param runtime The runtime that runs the context.
     * @param contextId The context's id in that runtime.
     * @param registry The context's registry, now owned by the context.
     */
    ScriptContext(std::shared_ptr<IRuntime> runtime, ContextId contextId, std::unique_ptr<LifetimeRegistry> registry);
    ScriptContext(const ScriptContext&) = delete;
    ScriptContext& operator=(const ScriptContext&) = delete;
    /// The source is left empty: its destructor does nothing.
    /// @param other Context to take over.
    ScriptContext(ScriptContext&& other) noexcept;
    /**
     * @brief Tears this context down as the destructor does, then takes over the other one.
     * @param other Context to take over; left empty.
     * @return This context.
     */
    ScriptContext& operator=(ScriptContext&& other) noexcept;
    /** @brief Destroys the objects still alive, then the runtime's context, then the registry. */
    ~ScriptContext();

    /**
     * @brief Runs a payload in this context.
     * @param payload What to run, for example a StringPayload.
     * @param option Passed through to the runtime.
     * @return The result, or an Error (also when the context has no runtime).
     */
    ResultAny run(IPayload* payload, RunOption option = std::nullopt);

    /** @return The id; 0 for an empty context. */
    ContextId getContextId() const { return mContextId; }
    /** @return The registry, owned by the context; null for an empty context. */
    LifetimeRegistry* getLifetimeRegistry() const { return mLifetimeRegistry.get(); }
    /// Empty when the registry is gone.
    /// @return A scope of the registry.
    WeakLifetimeScope getScope() const;
    /** @return The runtime; null for an empty context. */
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
