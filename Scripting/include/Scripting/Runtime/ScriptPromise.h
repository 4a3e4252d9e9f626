#pragma once

#include "Scripting/Runtime/RuntimeTypes.h"
#include "Scripting/Runtime/ScriptValue.h"

#include <optional>

namespace Scripting
{
/// A script promise that native code settles. Whether it may be settled twice is the runtime's to say.
/// Copies share the promise. Once the context, its runtime or the promise is gone, settling answers an Error and
/// reaches nothing.
class PromiseAny : public internal::ScriptObjectValue
{
public:
    /** @brief Message of the Error that resolving an invalid promise answers. */
    static constexpr const char* INVALID_RESOLVE_MESSAGE = "Promise is not valid, failed to resolve.";
    /** @brief Message of the Error that rejecting an invalid promise answers. */
    static constexpr const char* INVALID_REJECT_MESSAGE = "Promise is not valid, failed to reject.";

    /** @brief An invalid promise. */
    PromiseAny() = default;
    /// Adds a reference of its own.
    /// @param runtime The context's runtime, not owned.
    /// @param contextId The context.
    /// @param scope Scope of the context's registry.
    /// @param handle The runtime's object of the promise.
    PromiseAny(IRuntime* runtime, ContextId contextId, WeakLifetimeScope scope, const StrongObjectHandle& handle)
        : ScriptObjectValue(runtime, contextId, std::move(scope), StrongObjectHandle(handle))
    {
    }

    /**
     * @brief Whether settling can reach the promise.
     * @return False once the context, the runtime or the promise is gone.
     */
    bool valid() const { return _isUsable(); }
    /**
     * @brief Handle of the runtime's object.
     * @return The handle, or empty for a default or moved-from promise.
     */
    std::optional<ObjectHandle> getHandle() const { return _getPlainHandle(); }

    /// `value` is handed to the runtime unchanged.
    /// @brief Fulfils the promise.
    /// @param value The value.
    /// @return Empty on success, or an Error.
    ResultAny resolve(const entt::meta_any& value);
    /**
     * @brief Rejects the promise.
     * @param value The reason, handed to the runtime unchanged.
     * @return Empty on success, or an Error.
     */
    ResultAny reject(const entt::meta_any& value);
};

/// A script future that native code observes.
/// Once the context, its runtime or the future is gone, it answers FutureState::Unknown and an Error.
class FutureAny : public internal::InspectedScriptObjectValue
{
public:
    /** @brief Message of the Error that getResult() of an invalid future answers. */
    static constexpr const char* INVALID_RESULT_MESSAGE = "Future handle is not valid.";

    /** @brief An invalid future. */
    FutureAny() = default;
    /// Takes over the reference of `handle`.
    /// @param runtime The context's runtime, not owned.
    /// @param contextId The context.
    /// @param scope Scope of the context's registry.
    /// @param handle The runtime's object of the future.
    /// @param inspector The runtime's inspector, not owned; may be null.
    FutureAny(IRuntime* runtime, ContextId contextId, WeakLifetimeScope scope, StrongObjectHandle&& handle,
              IObjectInspector* inspector)
        : InspectedScriptObjectValue(runtime, contextId, std::move(scope), std::move(handle), inspector)
    {
    }

    /**
     * @brief Whether the future can still be asked.
     * @return False once the context, the runtime or the future is gone.
     */
    bool valid() const { return _isUsable(); }
    /**
     * @brief Same script future, as the runtime's inspector sees it.
     * @param other Another future.
     * @return False without an inspector.
     */
    bool operator==(const FutureAny& other) const { return _isSameObject(other); }

    /// An invalid future is in none of the three states.
    /// @return Whether it is pending.
    bool isPending() const { return getState() == FutureState::Pending; }
    /**
     * @brief Whether it settled with a value.
     * @return True when fulfilled.
     */
    bool isFulfilled() const { return getState() == FutureState::Fulfilled; }
    /**
     * @brief Whether it settled with a reason.
     * @return True when rejected.
     */
    bool isRejected() const { return getState() == FutureState::Rejected; }
    /**
     * @brief State as the runtime reports it.
     * @return The state; Unknown when invalid.
     */
    FutureState getState() const;
    /**
     * @brief The settled value, as the runtime gives it.
     * @return The value, or an Error (invalid, rejected, pending).
     */
    ResultAny getResult();
};
} // namespace Scripting
