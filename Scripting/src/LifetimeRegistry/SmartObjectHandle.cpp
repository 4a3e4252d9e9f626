#include "Scripting/LifetimeRegistry/LifetimeRegistry.h"

#include "Diagnostics/Assert.h"

namespace Scripting
{
namespace internal
{
entt::meta_any SmartObjectHandleBase::asAny() const
{
    OV_ASSERT(valid(), "Cannot fetch asAny on a invalid objectCopy");
    if (LifetimeRegistry* registry = getLifetimeRegistry())
    {
        return registry->resolveAsAny(mHandle);
    }
    return entt::meta_any{entt::meta_ctx_arg, Reflection::context()};
}
} // namespace internal

StrongObjectHandle& StrongObjectHandle::operator=(const StrongObjectHandle& other)
{
    _removeReference();
    SmartObjectHandleBase::operator=(other);
    _addReference();
    return *this;
}

StrongObjectHandle& StrongObjectHandle::operator=(StrongObjectHandle&& other)
{
    if (&other != this)
    {
        _removeReference();
        _takeFrom(other);
    }
    return *this;
}

unsigned int StrongObjectHandle::getReferenceCount() const
{
    LifetimeRegistry* registry = getLifetimeRegistry();
    return registry != nullptr ? registry->getReferenceCount(mHandle) : 0;
}

StrongObjectHandle StrongObjectHandle::promote(const WeakObjectHandle& weak)
{
    StrongObjectHandle promoted;
    if (weak.valid())
    {
        promoted = StrongObjectHandle(weak.getScope(), weak.getHandle(), false);
    }
    else
    {
        OV_ASSERT(false, "Trying to promote an invalid weak handle.");
    }
    promoted._addReference();
    return promoted;
}

ObjectHandle StrongObjectHandle::release()
{
    const ObjectHandle handle = mHandle;
    _clear();
    return handle;
}

} // namespace Scripting
