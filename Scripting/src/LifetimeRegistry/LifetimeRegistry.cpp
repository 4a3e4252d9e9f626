#include "Scripting/LifetimeRegistry/LifetimeRegistry.h"

#include "Diagnostics/Assert.h"

#include <algorithm>
#include <cstddef>
#include <stdexcept>
#include <string>
#include <utility>

namespace Scripting
{
namespace internal
{
void throwMissingObject(const char* what)
{
    throw std::logic_error(std::string("No object to hand out: ") + what);
}

const entt::meta_type& TypeCache::get(const entt::meta_type& type)
{
    std::unique_ptr<entt::meta_type>& cached = mTypes[type.id()];
    if (cached == nullptr)
    {
        cached = std::make_unique<entt::meta_type>(type);
    }
    return *cached;
}

const entt::meta_type& BaseScriptComponent::getType()
{
    if (scriptObjType == nullptr)
    {
        scriptObjType = &typeCache->get(resolveType());
    }
    return *scriptObjType;
}

entt::meta_any BaseScriptComponent::fetch(EntityRegistry& registry, const ObjectHandleValue& handle) const
{
    OV_ASSERT(fetchFunction != nullptr, "We need a valid fetch function if we are to return this object as a Any");
    OV_ASSERT(registry.valid(handle), "The handle you are trying to convert to a Any is invalid");
    if (fetchFunction == nullptr || !registry.valid(handle))
    {
        return entt::meta_any{entt::meta_ctx_arg, Reflection::context()};
    }
    return fetchFunction(registry, handle);
}
} // namespace internal

LifetimeRegistry::LifetimeRegistry(ContextId contextId, LifetimeRegistryReference& reference)
    : mContextId(contextId), mReference(&reference), mBaseComponents(registry.storage<internal::BaseScriptComponent>())
{
    // Last of all: the registry is reachable through its slot only once it is whole.
    reference.set(this);
}

LifetimeRegistry::~LifetimeRegistry()
{
    destroyLifetimeScope(true);
    mReference->_release();
}

namespace
{
using EntityTraits = entt::entt_traits<ObjectHandleValue>;

// The version an id comes back with after the object that had its last version: the next would wrap round
// to 0 (the tombstone version is never handed out). Such an id is retired, kept as a bare entity and never
// handed out again, so that no stale handle of one of its objects ever becomes valid again.
constexpr auto RETIRED_VERSION = static_cast<EntityTraits::version_type>(EntityTraits::version_mask - 1u);
} // namespace

ObjectHandle WeakLifetimeScope::_beginObject(const internal::ObjectTypeTable& table, LifetimeRegistry*& registry,
                                             void*& slot) const
{
    OV_ASSERT(!empty(), "LifetimeScope is empty");
    slot = nullptr;
    registry = getLifetimeRegistry();
    if (registry == nullptr)
    {
        return ObjectHandle();
    }
    const ObjectHandle handle = registry->_createObject(internal::BaseScriptComponent(registry->mTypeCache, table));
    if (!handle.empty())
    {
        // After the listeners heard of the object: they may make objects of the same type meanwhile.
        try
        {
            slot = table.storage(registry->registry).claim(handle.value);
        }
        catch (...)
        {
            registry->destroyObject(handle);
            throw;
        }
    }
    return handle;
}

void WeakLifetimeScope::_abandonObject(const internal::ObjectTypeTable& table, LifetimeRegistry& registry,
                                       ObjectHandle handle)
{
    // The slot holds no object: the storage must forget it before the entity's destruction would destroy it.
    table.storage(registry.registry).unclaim(handle.value);
    registry.destroyObject(handle);
}

ObjectHandle LifetimeRegistry::_createObject(internal::BaseScriptComponent&& component)
{
    ObjectHandleValue entity = registry.create();
    while (EntityTraits::to_version(entity) == RETIRED_VERSION)
    {
        entity = registry.create();
    }
    const auto id = static_cast<size_t>(EntityTraits::to_entity(entity));
    if (id >= mCounts.size())
    {
        mCounts.resize(id + 1);
    }
    internal::BaseScriptComponent& stored = mBaseComponents.emplace(entity, std::move(component));
    mCounts[id] = internal::ReferenceCount{static_cast<uint32_t>(EntityTraits::to_version(entity)), 1};
    const ObjectHandle handle(entity, mContextId);
    if (!mObjectListeners.empty())
    {
        const unsigned objectSize = stored.objectSize;
        _notifyObjectCreated(handle, stored.getType(), objectSize);
    }
    return handle;
}

void LifetimeRegistry::_notifyObjectCreated(ObjectHandle handle, const entt::meta_type& type, unsigned objectSize)
{
    // Listeners must not add or remove listeners from within a notification.
    const size_t count = mObjectListeners.size();
    for (size_t index = 0; index < count; ++index)
    {
        if (const std::shared_ptr<ILifetimeObjectListener> listener = mObjectListeners[index].lock())
        {
            listener->onObjectCreated(*this, handle, type, objectSize);
        }
    }
}

void LifetimeRegistry::_notifyObjectDestroyed(ObjectHandle handle, const entt::meta_type& type, unsigned objectSize)
{
    const size_t count = mObjectListeners.size();
    for (size_t index = 0; index < count; ++index)
    {
        if (const std::shared_ptr<ILifetimeObjectListener> listener = mObjectListeners[index].lock())
        {
            listener->onObjectDestroyed(*this, handle, type, objectSize);
        }
    }
}

unsigned int LifetimeRegistry::getReferenceCount(ObjectHandle handle)
{
    OV_ASSERT(handle != removingEntity, "This handle is being removed");
    const internal::ReferenceCount* count = _countOf(handle.value);
    return count != nullptr ? count->count : 0;
}

void LifetimeRegistry::_tellScriptRef(ObjectHandleValue value, bool raisedToTwo)
{
    const internal::BaseScriptComponent* baseScriptComp = _tryGetBase(value);
    if (baseScriptComp == nullptr || baseScriptComp->scriptRef == nullptr)
    {
        return;
    }
    if (raisedToTwo)
    {
        baseScriptComp->scriptRef->onReferenceCountRaisedToTwo();
    }
    else
    {
        baseScriptComp->scriptRef->onReferenceCountLoweredToOne();
    }
}

bool LifetimeRegistry::_releaseLast(ObjectHandleValue value, internal::ReferenceCount& count)
{
    internal::BaseScriptComponent* baseScriptComp = _tryGetBase(value);
    if (baseScriptComp == nullptr)
    {
        // Its entity was destroyed through the entity registry itself: the count follows it now.
        count = internal::ReferenceCount{};
        return false;
    }
    _destroyObject(ObjectHandle(value, mContextId), *baseScriptComp);
    return true;
}

void LifetimeRegistry::destroyObject(ObjectHandle handle)
{
    OV_ASSERT(handle != removingEntity, "This handle is being removed");
    if (internal::BaseScriptComponent* baseScriptComp = _tryGetBase(handle.value);
        baseScriptComp != nullptr && !_isDying(handle.value))
    {
        _destroyObject(handle, *baseScriptComp);
    }
}

void LifetimeRegistry::_condemn(ObjectHandleValue value)
{
    // A count of 0 marks the object as dying, so that it is destroyed, and announced, once. It is gone for
    // its key at once: native code may track another object under that key meanwhile.
    if (internal::ReferenceCount* count = _countOf(value))
    {
        count->count = 0;
    }
    mHandleCache.removeHandle(ObjectHandle(value, mContextId));
}

void LifetimeRegistry::_destroyObject(ObjectHandle handle, internal::BaseScriptComponent& comp)
{
    OV_ASSERT(registry.valid(handle.value), "This object is not valid :O");
    _condemn(handle.value);
    if (mDestroying)
    {
        // Released by a destruction under way: dies after it, so that a chain of objects holding each other
        // dies in a loop, not a recursion.
        mPendingDestruction.push_back(handle.value);
        return;
    }
    _destroyCondemned(handle.value, comp);
}

void LifetimeRegistry::_destroyCondemned(ObjectHandleValue value, internal::BaseScriptComponent& comp)
{
    // Restored however this ends: a listener or a destructor may throw. What still waits then dies at the
    // next destruction, or with the scope.
    struct Destroying
    {
        LifetimeRegistry& registry;
        bool previous;
        ObjectHandle removing;
        ~Destroying()
        {
            registry.mDestroying = previous;
            registry.removingEntity = removing;
        }
    } destroying{*this, std::exchange(mDestroying, true), removingEntity};

    size_t waiting = mPendingDestruction.size();
    _destroyNow(value, comp);
    for (;;)
    {
        // What the object just destroyed released goes on top, the first released topmost: objects die in the
        // order in which a recursive release would have destroyed them.
        if (const size_t released = std::min(waiting, mPendingDestruction.size());
            mPendingDestruction.size() - released > 1)
        {
            std::reverse(mPendingDestruction.begin() + static_cast<std::ptrdiff_t>(released),
                         mPendingDestruction.end());
        }
        if (mPendingDestruction.empty())
        {
            break;
        }
        const ObjectHandleValue next = mPendingDestruction.back();
        mPendingDestruction.pop_back();
        waiting = mPendingDestruction.size();
        // Gone already when something outside the registry's operations destroyed it meanwhile.
        if (internal::BaseScriptComponent* nextComp = _tryGetBase(next))
        {
            // It may have been tracked again while it waited.
            mHandleCache.removeHandle(ObjectHandle(next, mContextId));
            _destroyNow(next, *nextComp);
        }
        else if (internal::ReferenceCount* count = _countOf(next))
        {
            *count = internal::ReferenceCount{};
        }
    }
}

void LifetimeRegistry::_destroyNow(ObjectHandleValue value, internal::BaseScriptComponent& comp)
{
    const ObjectHandle handle(value, mContextId);
    const ObjectHandle outer = std::exchange(removingEntity, handle);

    internal::BaseScriptComponent* current = &comp;
    if (!mObjectListeners.empty())
    {
        const unsigned objectSize = comp.objectSize;
        _notifyObjectDestroyed(handle, comp.getType(), objectSize);
        // Listeners may have created objects or removed components meanwhile.
        current = _tryGetBase(value);
    }
    if (current != nullptr && current->scriptRef != nullptr)
    {
        current->scriptRef->onObjectDestroyed();
    }

    if (registry.valid(value))
    {
        registry.destroy(value);
    }
    if (internal::ReferenceCount* count = _countOf(value))
    {
        *count = internal::ReferenceCount{};
    }
    removingEntity = outer;
}

void LifetimeRegistry::destroyLifetimeScope(bool expectEmpty)
{
    // A snapshot, newest first: destructors may destroy or create objects while it is walked.
    std::vector<ObjectHandleValue> entitiesToDestroy;
    entitiesToDestroy.reserve(mBaseComponents.size());
    const auto* packed = mBaseComponents.data();
    for (auto pos = mBaseComponents.size(); pos > 0; --pos)
    {
        if (packed[pos - 1] != entt::tombstone)
        {
            entitiesToDestroy.push_back(packed[pos - 1]);
        }
    }

    if (expectEmpty)
    {
        OV_ASSERT(entitiesToDestroy.empty(), "You expected all objects owned by this LifetimeRegistry would be dead, "
                                             "but it still has objects");
    }
    if (entitiesToDestroy.empty())
    {
        return;
    }

    if (const std::shared_ptr<ILifetimeScopeListener> scopeListener = mScopeListener.lock())
    {
        scopeListener->onScopeDestroying(*this);
    }

    for (const ObjectHandleValue entity : entitiesToDestroy)
    {
        // An earlier death may have taken this object along.
        if (!registry.valid(entity))
        {
            continue;
        }
        internal::BaseScriptComponent* baseScriptComp = _tryGetBase(entity);
        OV_ASSERT(baseScriptComp != nullptr, "One of the objects owned by this LifetimeScope doesn't have a "
                                             "BaseScriptComponent, which is very bad");
        if (baseScriptComp == nullptr)
        {
            registry.destroy(entity);
            continue;
        }
        // An object dying already is destroyed by the destruction under way; outside of one, it was left
        // behind by a destruction that threw, and dies now.
        if (_isDying(entity) && mDestroying)
        {
            continue;
        }
        _condemn(entity);
        _destroyCondemned(entity, *baseScriptComp);
    }

    if (const std::shared_ptr<ILifetimeScopeListener> scopeListener = mScopeListener.lock())
    {
        scopeListener->onScopeDestroyed(*this);
    }
}

entt::meta_any LifetimeRegistry::resolveAsAny(ObjectHandle handle)
{
    OV_ASSERT(handle != removingEntity, "This handle is being removed");
    const internal::BaseScriptComponent* baseScriptComp = _tryGetBase(handle.value);
    if (baseScriptComp == nullptr)
    {
        return entt::meta_any{entt::meta_ctx_arg, Reflection::context()};
    }
    return baseScriptComp->fetch(registry, handle.value);
}

entt::meta_any LifetimeRegistry::_resolveAsTypedHandle(ObjectHandle handle, internal::TypedHandleKind kind)
{
    // No check against removingEntity: listeners and script refs may still resolve a dying object.
    OV_ASSERT(registry.valid(handle.value), "This handle is invalid");
    const internal::BaseScriptComponent* baseScriptComp = _tryGetBase(handle.value);
    if (baseScriptComp == nullptr)
    {
        return entt::meta_any{entt::meta_ctx_arg, Reflection::context()};
    }
    if (kind == internal::TypedHandleKind::Plain)
    {
        return baseScriptComp->typedHandleFunction(handle, kind, {});
    }
    LifetimeRegistry* const self = this;
    return baseScriptComp->typedHandleFunction(handle, kind, std::span<LifetimeRegistry* const>(&self, 1));
}

entt::meta_any LifetimeRegistry::resolveAsTypedObjectHandle(ObjectHandle handle)
{
    return _resolveAsTypedHandle(handle, internal::TypedHandleKind::Plain);
}

entt::meta_any LifetimeRegistry::resolveAsWeakTypedObjectHandle(ObjectHandle handle)
{
    return _resolveAsTypedHandle(handle, internal::TypedHandleKind::Weak);
}

entt::meta_any LifetimeRegistry::resolveAsStrongTypedObjectHandle(ObjectHandle handle)
{
    return _resolveAsTypedHandle(handle, internal::TypedHandleKind::Strong);
}

const entt::meta_type& LifetimeRegistry::resolvedType(ObjectHandle handle)
{
    static const entt::meta_type EMPTY_TYPE{};
    OV_ASSERT(handle != removingEntity, "This handle is being removed");
    OV_ASSERT(registry.valid(handle.value), "This handle is invalid");
    internal::BaseScriptComponent* baseScriptComp = _tryGetBase(handle.value);
    return baseScriptComp != nullptr ? baseScriptComp->getType() : EMPTY_TYPE;
}

void LifetimeRegistry::setScriptRef(ObjectHandle handle, std::unique_ptr<IScriptRef>&& scriptRef)
{
    OV_ASSERT(handle != removingEntity, "This handle is being removed");
    if (internal::BaseScriptComponent* baseScriptComp = _tryGetBase(handle.value))
    {
        baseScriptComp->scriptRef = std::move(scriptRef);
        // Looked up after the assignment: the deleted reference's destructor may have made objects, which
        // grows the counts.
        if (internal::ReferenceCount* count = _countOf(handle.value))
        {
            count->tag = baseScriptComp->scriptRef != nullptr ? count->tag | internal::ReferenceCount::HAS_SCRIPT_REF
                                                              : count->tag & ~internal::ReferenceCount::HAS_SCRIPT_REF;
        }
    }
}

IScriptRef* LifetimeRegistry::getScriptRef(ObjectHandle handle)
{
    OV_ASSERT(handle != removingEntity, "This handle is being removed");
    const internal::BaseScriptComponent* baseScriptComp = _tryGetBase(handle.value);
    return baseScriptComp != nullptr ? baseScriptComp->scriptRef.get() : nullptr;
}

void LifetimeRegistry::addObjectListener(std::weak_ptr<ILifetimeObjectListener> objectListener)
{
    OV_ASSERT(std::find_if(mObjectListeners.begin(), mObjectListeners.end(),
                           [strongListener = objectListener.lock()](const auto& list)
                           {
                               const auto alreadyInsideStrongListener = list.lock();
                               return alreadyInsideStrongListener != nullptr &&
                                      alreadyInsideStrongListener == strongListener;
                           }) == mObjectListeners.end(),
              "This Listener is already inserted");
    mObjectListeners.push_back(std::move(objectListener));
}

void LifetimeRegistry::removeObjectListener(std::shared_ptr<ILifetimeObjectListener> objectListener)
{
    // Expired entries stay: only a live entry can be the given listener.
    const auto listenerIter = std::remove_if(mObjectListeners.begin(), mObjectListeners.end(),
                                             [&objectListener](const std::weak_ptr<ILifetimeObjectListener>& entry)
                                             {
                                                 const auto locked = entry.lock();
                                                 return locked != nullptr && locked == objectListener;
                                             });
    OV_ASSERT(listenerIter != mObjectListeners.end(), "Listener not in list");
    mObjectListeners.erase(listenerIter, mObjectListeners.end());
}

bool LifetimeRegistry::_doTypesMatch(ObjectHandle handle, const entt::meta_type& type)
{
    internal::BaseScriptComponent* baseScriptComp = _tryGetBase(handle.value);
    if (baseScriptComp == nullptr)
    {
        return false;
    }
    if (baseScriptComp->matchesAnyType)
    {
        return true;
    }
    const entt::meta_type& objectType = baseScriptComp->getType();
    if (objectType == type || objectType.id() == type.id())
    {
        return true;
    }
    return Reflection::HasBaseType(type, objectType);
}
} // namespace Scripting
