#pragma once

#include "Scripting/Runtime/RuntimeTypes.h"
#include "Scripting/Runtime/ScriptValue.h"

#include <optional>

namespace Scripting
{
// A script promise that native code settles. Whether it may be settled twice is the runtime's to say.
class PromiseAny : public internal::ScriptObjectValue
{
public:
    static constexpr const char* INVALID_RESOLVE_MESSAGE = "Promise is not valid, failed to resolve.";
    static constexpr const char* INVALID_REJECT_MESSAGE = "Promise is not valid, failed to reject.";

    PromiseAny() = default;
    // Adds a reference of its own.
    PromiseAny(IRuntime* runtime, ContextId contextId, WeakLifetimeScope scope, const StrongObjectHandle& handle)
        : ScriptObjectValue(runtime, contextId, std::move(scope), StrongObjectHandle(handle))
    {
    }

    bool valid() const { return _isUsable(); }
    std::optional<ObjectHandle> getHandle() const { return _getPlainHandle(); }

    // `value` is handed to the runtime unchanged.
    ResultAny resolve(const entt::meta_any& value);
    ResultAny reject(const entt::meta_any& value);
};

// A script future that native code observes.
class FutureAny : public internal::InspectedScriptObjectValue
{
public:
    static constexpr const char* INVALID_RESULT_MESSAGE = "Future handle is not valid.";

    FutureAny() = default;
    // Takes over the reference of `handle`.
    FutureAny(IRuntime* runtime, ContextId contextId, WeakLifetimeScope scope, StrongObjectHandle&& handle,
              IObjectInspector* inspector)
        : InspectedScriptObjectValue(runtime, contextId, std::move(scope), std::move(handle), inspector)
    {
    }

    bool valid() const { return _isUsable(); }
    bool operator==(const FutureAny& other) const { return _isSameObject(other); }

    // An invalid future is in none of the three states.
    bool isPending() const { return getState() == FutureState::Pending; }
    bool isFulfilled() const { return getState() == FutureState::Fulfilled; }
    bool isRejected() const { return getState() == FutureState::Rejected; }
    FutureState getState() const;
    ResultAny getResult();
};
} // namespace Scripting
