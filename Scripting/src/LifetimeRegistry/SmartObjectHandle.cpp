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

StrongObjectHandle::StrongObjectHandle(WeakLifetimeScope scope, ObjectHandle objHandle, bool addReference)
    : SmartObjectHandleBase(std::move(scope), objHandle)
{
    OV_ASSERT(!objHandle.empty(), "Do not construct a strong object handle with an empty object handle");
    if (addReference)
    {
        _addReference();
    }
}

StrongObjectHandle::StrongObjectHandle(const StrongObjectHandle& other) : SmartObjectHandleBase(other)
{
    _addReference();
}

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

void StrongObjectHandle::_addReference() const
{
    // An empty handle names no object; its constructor has asserted already.
    if (mHandle.empty())
    {
        return;
    }
    if (LifetimeRegistry* registry = getLifetimeRegistry())
    {
        registry->addReference(mHandle);
    }
}

void StrongObjectHandle::_removeReference() const
{
    if (mHandle.empty())
    {
        return;
    }
    if (LifetimeRegistry* registry = getLifetimeRegistry())
    {
        registry->removeReference(mHandle);
    }
}
} // namespace Scripting
