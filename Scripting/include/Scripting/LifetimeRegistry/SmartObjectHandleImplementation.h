#pragma once

#include "Scripting/LifetimeRegistry/LifetimeScopeImplementation.h"

#include <entt/meta/fwd.hpp>

#include <utility>

namespace Scripting
{
template <typename T>
class WeakTypedObjectHandle;
template <typename T>
class StrongTypedObjectHandle;

namespace internal
{
// What weak and strong handles share: a scope, the object's number, and checked access to its components.
// Every access asserts on an invalid handle and then answers quietly: false, null or an empty any.
class SmartObjectHandleBase
{
public:
    // Only the numbers and the scope: an object that died leaves its handle invalid, not empty.
    bool empty() const { return mHandle.empty() || mScope.empty(); }
    bool valid() const;

    LifetimeRegistry* getLifetimeRegistry() const { return mScope.getLifetimeRegistry(); }
    ObjectHandle getHandle() const { return mHandle; }
    WeakLifetimeScope getScope() const { return mScope; }

    // A reference any to the object, empty without one.
    entt::meta_any asAny() const;

    template <typename T, typename... Args>
    T& attach(Args&&... args) const;
    template <typename T>
    void detach() const;
    template <typename T>
    bool has() const;
    template <typename T>
    T* tryGet() const;
    template <typename T>
    T& get() const;

protected:
    SmartObjectHandleBase() = default;
    SmartObjectHandleBase(WeakLifetimeScope&& scope, ObjectHandle handle) : mScope(std::move(scope)), mHandle(handle) {}
    SmartObjectHandleBase(const SmartObjectHandleBase&) = default;
    SmartObjectHandleBase& operator=(const SmartObjectHandleBase&) = default;
    ~SmartObjectHandleBase() = default;

    // Copies `other` and leaves it with a null scope and the null handle.
    void _takeFrom(SmartObjectHandleBase& other)
    {
        mScope = other.mScope;
        mHandle = other.mHandle;
        other._clear();
    }
    void _clear()
    {
        mScope.reset();
        mHandle = ObjectHandle();
    }

    WeakLifetimeScope mScope;
    ObjectHandle mHandle;
};
} // namespace internal

// Observes an object without keeping it alive.
class WeakObjectHandle : public internal::SmartObjectHandleBase
{
public:
    WeakObjectHandle() = default;
    WeakObjectHandle(WeakLifetimeScope&& scope, ObjectHandle handle) : SmartObjectHandleBase(std::move(scope), handle)
    {
    }
    WeakObjectHandle(const WeakObjectHandle&) = default;
    WeakObjectHandle& operator=(const WeakObjectHandle&) = default;
    WeakObjectHandle(WeakObjectHandle&& other) noexcept { _takeFrom(other); }
    WeakObjectHandle& operator=(WeakObjectHandle&& other) noexcept
    {
        if (this != &other)
        {
            _takeFrom(other);
        }
        return *this;
    }
    ~WeakObjectHandle() = default;

    // The raw numbers: two empty handles are equal, and so are two handles of one dead registry.
    friend bool operator==(const WeakObjectHandle& left, const WeakObjectHandle& right)
    {
        return left.mScope == right.mScope && left.mHandle == right.mHandle;
    }

    // A typed handle when the object is alive and is a `T` or derives from one; an empty handle otherwise.
    template <typename T>
    WeakTypedObjectHandle<T> tryCast() const;
};

// Owns one reference of an object. It never keeps the registry alive, and dies harmlessly after it.
class StrongObjectHandle : public internal::SmartObjectHandleBase
{
public:
    StrongObjectHandle() = default;
    // With `addReference` false the handle adopts a reference that exists already.
    StrongObjectHandle(WeakLifetimeScope scope, ObjectHandle objHandle, bool addReference);
    StrongObjectHandle(const StrongObjectHandle& other);
    StrongObjectHandle(StrongObjectHandle&& other) noexcept { _takeFrom(other); }
    ~StrongObjectHandle() { _removeReference(); }

    // Drops its own reference before taking the new one, without a test for self-assignment: assigning the
    // only handle of an object to itself destroys the object.
    StrongObjectHandle& operator=(const StrongObjectHandle& other);
    StrongObjectHandle& operator=(StrongObjectHandle&& other);

    // Compares the resolved registries, so handles of dead registries with equal numbers are equal.
    friend bool operator==(const StrongObjectHandle& left, const StrongObjectHandle& right)
    {
        return left.getLifetimeRegistry() == right.getLifetimeRegistry() && left.mHandle == right.mHandle;
    }

    // 0 without a registry.
    unsigned int getReferenceCount() const;

    // A new strong handle of the weak handle's object, one reference more. Asserts on an invalid handle.
    static StrongObjectHandle promote(const WeakObjectHandle& weak);

    // Gives up the handle without removing its reference, which the caller now owns.
    ObjectHandle release();

private:
    void _addReference() const;
    void _removeReference() const;
};

// A component type that wants a handle to itself derives from this, directly or through a base. The
// registry fills the handle in when it creates or tracks the object, and clears it at untracking.
class EnableWeakHandleFromThis
{
public:
    const WeakObjectHandle& weakHandleFromThis() const { return mWeakHandleFromThis; }

protected:
    EnableWeakHandleFromThis() = default;
    // A copy is another object, which no registry made yet; a move is the same object moving in its storage.
    EnableWeakHandleFromThis(const EnableWeakHandleFromThis&) {}
    EnableWeakHandleFromThis& operator=(const EnableWeakHandleFromThis&) { return *this; }
    EnableWeakHandleFromThis(EnableWeakHandleFromThis&&) noexcept = default;
    EnableWeakHandleFromThis& operator=(EnableWeakHandleFromThis&&) noexcept = default;
    ~EnableWeakHandleFromThis() = default;

private:
    friend class WeakLifetimeScope;
    friend class LifetimeRegistry;

    WeakObjectHandle mWeakHandleFromThis;
};

template <typename T>
class WeakTypedObjectHandle : public WeakObjectHandle
{
public:
    WeakTypedObjectHandle() = default;
    WeakTypedObjectHandle(WeakLifetimeScope&& scope, ObjectHandle handle) : WeakObjectHandle(std::move(scope), handle)
    {
    }
    // Observes the strong handle's object; the reference count does not change.
    WeakTypedObjectHandle(const StrongTypedObjectHandle<T>& strong)
        : WeakObjectHandle(strong.getScope(), strong.getHandle())
    {
    }
    template <typename U>
    requires internal::StrictBaseOf<T, U> WeakTypedObjectHandle(const WeakTypedObjectHandle<U>& other)
        : WeakObjectHandle(other)
    {
    }
    template <typename U>
    requires internal::StrictBaseOf<T, U> WeakTypedObjectHandle(WeakTypedObjectHandle<U>&& other)
    noexcept : WeakObjectHandle(std::move(other)) {}

    T& operator*() const;
    T* operator->() const;
};

template <typename T>
class StrongTypedObjectHandle : public StrongObjectHandle
{
    using Base = StrongObjectHandle;

public:
    StrongTypedObjectHandle() = default;
    StrongTypedObjectHandle(WeakLifetimeScope scope, ObjectHandle handle, bool addReference)
        : StrongObjectHandle(std::move(scope), handle, addReference)
    {
    }
    // Derived to base: only the generic part moves or is copied, with its reference rule. The type is settled
    // when the object is resolved as a `T`, through the reflected bases.
    template <typename U>
    requires internal::StrictBaseOf<T, U> StrongTypedObjectHandle(const StrongTypedObjectHandle<U>& other)
        : StrongObjectHandle(other)
    {
    }
    template <typename U>
    requires internal::StrictBaseOf<T, U> StrongTypedObjectHandle(StrongTypedObjectHandle<U>&& other)
    noexcept : StrongObjectHandle(std::move(other)) {}
    template <typename U>
    requires internal::StrictBaseOf<T, U> StrongTypedObjectHandle& operator=(const StrongTypedObjectHandle<U>& other)
    {
        StrongObjectHandle::operator=(other);
        return *this;
    }
    template <typename U>
    requires internal::StrictBaseOf<T, U> StrongTypedObjectHandle& operator=(StrongTypedObjectHandle<U>&& other)
    {
        StrongObjectHandle::operator=(std::move(other));
        return *this;
    }

    T& operator*() const;
    T* operator->() const;

    // A generic handle of the same object with one more reference.
    StrongObjectHandle asGeneric() const;
    // A generic handle that takes over the reference of `handle`, which is left empty.
    static StrongObjectHandle toGeneric(StrongTypedObjectHandle<T>&& handle);
};
} // namespace Scripting

// The template bodies need the registry.
#include "Scripting/LifetimeRegistry/LifetimeRegistry.h"
