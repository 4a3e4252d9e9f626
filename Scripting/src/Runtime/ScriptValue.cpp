#include "Scripting/Runtime/DataBuffer.h"
#include "Scripting/Runtime/IRuntime.h"
#include "Scripting/Runtime/ScriptClosure.h"
#include "Scripting/Runtime/ScriptGenerator.h"
#include "Scripting/Runtime/ScriptPromise.h"

namespace Scripting
{
namespace internal
{
bool InspectedScriptObjectValue::_isSameObject(const InspectedScriptObjectValue& other) const
{
    if (mInspector == nullptr || !_isUsable() || !other._isUsable())
    {
        return false;
    }
    return mInspector->isEqual(other.mHandle->getHandle(), mHandle->getHandle());
}
} // namespace internal

ResultAny ClosureAny::call(entt::meta_any* arguments, unsigned count, const entt::meta_type& returnType,
                           RunOption option) const
{
    if (!_isUsable())
    {
        return Error(INVALID_CALL_MESSAGE);
    }
    return mRuntime->callClosure(mContextId, mHandle->getHandle(), arguments, count, returnType, option);
}

Reflection::TypedClosureStatus ClosureAny::_callTyped(const Reflection::TypedClosureCall& call,
                                                      const entt::meta_type& returnType,
                                                      Reflection::TypedReturn& result, ResultAny& failure) const
{
    if (mRuntime == nullptr || !mHandle.has_value())
    {
        return Reflection::TypedClosureStatus::Unsupported;
    }
    const LifetimeRegistry* registry = mScope.getLifetimeRegistry();
    if (mTypedCache.owner != 0 && registry != nullptr && registry->removingEntity != mHandle->getHandle())
    {
        // The runtime vouches for the function while what it cached holds: no look into the registry's
        // storage. An object in the middle of its destruction may not have told the runtime yet.
        const Reflection::TypedClosureStatus status = mRuntime->callClosureTyped(
            mContextId, mHandle->getHandle(), mTypedCache, call, returnType, result, failure);
        if (status != Reflection::TypedClosureStatus::Unsupported || mTypedCache.owner != 0)
        {
            return status;
        }
    }
    // Nothing cached, or the runtime dropped it: the full check first, and the runtime finds the function anew.
    mTypedCache = {};
    if (!_isUsable())
    {
        return Reflection::TypedClosureStatus::Unsupported;
    }
    return mRuntime->callClosureTyped(mContextId, mHandle->getHandle(), mTypedCache, call, returnType, result, failure);
}

ResultAny PromiseAny::resolve(const entt::meta_any& value)
{
    if (!_isUsable())
    {
        return Error(INVALID_RESOLVE_MESSAGE);
    }
    return mRuntime->resolvePromise(mContextId, mHandle->getHandle(), value);
}

ResultAny PromiseAny::reject(const entt::meta_any& value)
{
    if (!_isUsable())
    {
        return Error(INVALID_REJECT_MESSAGE);
    }
    return mRuntime->rejectPromise(mContextId, mHandle->getHandle(), value);
}

FutureState FutureAny::getState() const
{
    if (!_isUsable())
    {
        return FutureState::Unknown;
    }
    return mRuntime->getFutureState(mContextId, mHandle->getHandle());
}

ResultAny FutureAny::getResult()
{
    if (!_isUsable())
    {
        return Error(INVALID_RESULT_MESSAGE);
    }
    return mRuntime->getFutureResult(mContextId, mHandle->getHandle(), entt::meta_type{});
}

ResultAny GeneratorAny::next(const entt::meta_any& argument, const entt::meta_type& returnType)
{
    if (!_isUsable())
    {
        return Error(INVALID_NEXT_MESSAGE);
    }
    // The runtime takes a mutable array; a reference to the argument lets it read without copying it.
    entt::meta_any reference = argument.as_ref();
    const unsigned count = argument ? 1 : 0;
    return mRuntime->callClosure(mContextId, mHandle->getHandle(), &reference, count, returnType, std::nullopt);
}

bool GeneratorIteratorAny::done()
{
    if (mInspector == nullptr || !_hasLiveHandle())
    {
        return true;
    }
    return mInspector->getBooleanProperty(mHandle->getHandle(), "done", true);
}

ResultAny GeneratorIteratorAny::value(const entt::meta_type& type)
{
    if (mInspector == nullptr || !_hasLiveHandle())
    {
        return Error(INVALID_VALUE_MESSAGE);
    }
    return mInspector->getProperty(mHandle->getHandle(), "value", type);
}

DataBufferAny::DataBufferAny(IRuntime* runtime, ContextId contextId, WeakLifetimeScope scope,
                             const StrongObjectHandle& handle, IObjectInspector* inspector)
    : InspectedScriptObjectValue(runtime, contextId, std::move(scope), StrongObjectHandle(handle), inspector)
{
    if (mInspector != nullptr && _hasLiveHandle())
    {
        // The extents are 32-bit whatever the inspector's unsigned is.
        mFirstExtent = static_cast<uint32_t>(mInspector->getFirstExtent(mHandle->getHandle()));
        mSecondExtent = static_cast<uint32_t>(mInspector->getSecondExtent(mHandle->getHandle()));
    }
}

void* DataBufferAny::data()
{
    return valid() ? mInspector->getData(mHandle->getHandle()) : nullptr;
}

const void* DataBufferAny::data() const
{
    return valid() ? mInspector->getData(mHandle->getHandle()) : nullptr;
}
} // namespace Scripting
