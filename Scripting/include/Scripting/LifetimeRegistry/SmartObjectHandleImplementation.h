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

/// Observes an object without keeping it alive.
/// Test valid() before use: once the object or its registry died, the handle is invalid, and its checked accessors
/// assert and answer false, null or an empty any.
class WeakObjectHandle : public internal::SmartObjectHandleBase
{
public:
    /** @brief An empty handle. */
    WeakObjectHandle() = default;
    /**
     * @brief Observes an object of a scope's registry.
     * @param scope Scope of the registry.
     * @param handle The object.
     */
    WeakObjectHandle(WeakLifetimeScope&& scope, ObjectHandle handle) : SmartObjectHandleBase(std::move(scope), handle)
    {
    }
    /** @brief Copies the numbers; both observe the object. */
    WeakObjectHandle(const WeakObjectHandle&) = default;
    /**
     * @brief Copies the numbers.
     * @return This handle.
     */
    WeakObjectHandle& operator=(const WeakObjectHandle&) = default;
    /**
     * @brief Takes the numbers, leaving the source empty.
     * @param other Handle to take from.
     */
    WeakObjectHandle(WeakObjectHandle&& other) noexcept { _takeFrom(other); }
    /**
     * @brief Takes the numbers, leaving the source empty.
     * @param other Handle to take from.
     * @return This handle.
     */
    WeakObjectHandle& operator=(WeakObjectHandle&& other) noexcept
    {
        if (this != &other)
        {
            _takeFrom(other);
        }
        return *this;
    }
    /** @brief Leaves the object alone. */
    ~WeakObjectHandle() = default;

    /// The raw numbers: two empty handles are equal, and so are two handles of one dead registry.
    /// @param left A handle.
    /// @param right A handle.
    /// @return Whether scope and object numbers are equal.
    friend bool operator==(const WeakObjectHandle& left, const WeakObjectHandle& right)
    {
        return left.mScope == right.mScope && left.mHandle == right.mHandle;
    }

    /// A typed handle when the object is alive and is a `T` or derives from one; an empty handle otherwise.
    /// @tparam T Wanted type.
    /// @return The typed handle, or an empty one.
    template <typename T>
    WeakTypedObjectHandle<T> tryCast() const;
};

/// Owns one reference of an object. It never keeps the registry alive, and dies harmlessly after it.
/// Copies add a reference, moves take it over, the destructor drops it; the object dies with its last reference.
/// Once the registry died, every operation is harmless and valid() is false.
class StrongObjectHandle : public internal::SmartObjectHandleBase
{
public:
    /** @brief An empty handle, holding no reference. */
    StrongObjectHandle() = default;
    /// With `addReference` false the handle adopts a reference that exists already.
    /// @param scope Scope of the registry.
    /// @param objHandle The object.
    /// @param addReference Whether to add a reference (true) or adopt one (false).
    inline StrongObjectHandle(WeakLifetimeScope scope, ObjectHandle objHandle, bool addReference);
    /**
     * @brief Another owner of the same object: one reference more.
     * @param other Handle to copy.
     */
    inline StrongObjectHandle(const StrongObjectHandle& other);
    /**
     * @brief Takes the reference over, leaving the source empty.
     * @param other Handle to take from.
     */
    StrongObjectHandle(StrongObjectHandle&& other) noexcept { _takeFrom(other); }
    /** @brief Drops the reference; the last one destroys the object. */
    ~StrongObjectHandle() { _removeReference(); }

    /// Drops its own reference before taking the new one, without a test for self-assignment: assigning the
    /// only handle of an object to itself destroys the object.
    /// @param other Handle to copy.
    /// @return This handle.
    StrongObjectHandle& operator=(const StrongObjectHandle& other);
    /**
     * @brief Drops its own reference and takes over the other's.
     * @param other Handle to take from; left empty.
     * @return This handle.
     */
    StrongObjectHandle& operator=(StrongObjectHandle&& other);

    /// Compares the resolved registries, so handles of dead registries with equal numbers are equal.
    /// @param left A handle.
    /// @param right A handle.
    /// @return Whether registry and object are equal.
    friend bool operator==(const StrongObjectHandle& left, const StrongObjectHandle& right)
    {
        return left.getLifetimeRegistry() == right.getLifetimeRegistry() && left.mHandle == right.mHandle;
    }

    /// 0 without a registry.
    /// @return Strong references the object has.
    unsigned int getReferenceCount() const;

    /// A new strong handle of the weak handle's object, one reference more. Asserts on an invalid handle.
    /// @param weak Handle of a living object.
    /// @return The new owner; empty when the weak handle was invalid.
    static StrongObjectHandle promote(const WeakObjectHandle& weak);

    /// Gives up the handle without removing its reference, which the caller now owns.
    /// @return The object's number; the handle is empty afterwards.
    ObjectHandle release();

private:
    // Inline with the registry's counting, below the registry's definition.
    inline void _addReference() const;
    inline void _removeReference() const;
};

/// A component type that wants a handle to itself derives from this, directly or through a base. The
/// registry fills the handle in when it creates or tracks the object, and clears it at untracking.
/// Copying such an object does not copy the handle.
class EnableWeakHandleFromThis
{
public:
    /**
     * @brief The handle the registry filled in.
     * @return The handle; empty while no registry holds the object.
     */
    const WeakObjectHandle& weakHandleFromThis() const { return mWeakHandleFromThis; }

protected:
    /** @brief Starts with an empty handle. */
    EnableWeakHandleFromThis() = default;
    /// A copy is another object, which no registry made yet; a move is the same object moving in its storage.
    /// The copy starts with an empty handle.
    EnableWeakHandleFromThis(const EnableWeakHandleFromThis&) {}
    /**
     * @brief Keeps this object's own handle.
     * @return This object.
     */
    EnableWeakHandleFromThis& operator=(const EnableWeakHandleFromThis&) { return *this; }
    /** @brief Keeps the handle: the object only moved in its storage. */
    EnableWeakHandleFromThis(EnableWeakHandleFromThis&&) noexcept = default;
    /**
     * @brief Keeps the handle: the object only moved in its storage.
     * @return This object.
     */
    EnableWeakHandleFromThis& operator=(EnableWeakHandleFromThis&&) noexcept = default;
    /** @brief Protected: only derived components are destroyed. */
    ~EnableWeakHandleFromThis() = default;

private:
    friend class WeakLifetimeScope;
    friend class LifetimeRegistry;

    WeakObjectHandle mWeakHandleFromThis;
};

/**
 * @brief A weak handle that knows the object's type.
 *
 * Dereferencing an invalid handle asserts and then throws: check valid() first.
 * @tparam T Type of the object, or one of its reflected bases.
 */
template <typename T>
class WeakTypedObjectHandle : public WeakObjectHandle
{
public:
    /** @brief An empty handle. */
    WeakTypedObjectHandle() = default;
    /**
     * @brief Observes an object of a scope's registry.
     * @param scope Scope of the registry.
     * @param handle The object, which must be a T.
     */
    WeakTypedObjectHandle(WeakLifetimeScope&& scope, ObjectHandle handle) : WeakObjectHandle(std::move(scope), handle)
    {
    }
    /// Observes the strong handle's object; the reference count does not change.
    /// @param strong Handle of the object.
    WeakTypedObjectHandle(const StrongTypedObjectHandle<T>& strong)
        : WeakObjectHandle(strong.getScope(), strong.getHandle())
    {
    }
    /**
     * @brief Derived to base.
     * @tparam U A type derived from T.
     * @param other Handle to copy.
     */
    template <typename U>
    requires internal::StrictBaseOf<T, U> WeakTypedObjectHandle(const WeakTypedObjectHandle<U>& other)
        : WeakObjectHandle(other)
    {
    }
    /**
     * @brief Derived to base, leaving the source empty.
     * @tparam U A type derived from T.
     * @param other Handle to take from.
     */
    template <typename U>
    requires internal::StrictBaseOf<T, U> WeakTypedObjectHandle(WeakTypedObjectHandle<U>&& other)
    noexcept : WeakObjectHandle(std::move(other)) {}

    /**
     * @brief The object.
     * @return A reference valid while the object lives.
     */
    T& operator*() const;
    /**
     * @brief The object.
     * @return A pointer valid while the object lives.
     */
    T* operator->() const;
};

/**
 * @brief A strong handle that knows the object's type.
 *
 * Dereferencing an invalid handle asserts and then throws: check valid() first.
 * @tparam T Type of the object, or one of its reflected bases.
 */
template <typename T>
class StrongTypedObjectHandle : public StrongObjectHandle
{
    using Base = StrongObjectHandle;

public:
    /** @brief An empty handle. */
    StrongTypedObjectHandle() = default;
    /**
     * @brief Owns a reference of an object of a scope's registry.
     * @param scope Scope of the registry.
     * @param handle The object, which must be a T.
     * @param addReference Whether to add a reference (true) or adopt one (false).
     */
    StrongTypedObjectHandle(WeakLifetimeScope scope, ObjectHandle handle, bool addReference)
        : StrongObjectHandle(std::move(scope), handle, addReference)
    {
    }
    /// Derived to base: only the generic part moves or is copied, with its reference rule. The type is settled
    /// when the object is resolved as a `T`, through the reflected bases.
    /// @tparam U A type derived from T.
    /// @param other Handle to copy; one reference more.
    template <typename U>
    requires internal::StrictBaseOf<T, U> StrongTypedObjectHandle(const StrongTypedObjectHandle<U>& other)
        : StrongObjectHandle(other)
    {
    }
    /**
     * @brief Derived to base, taking the reference over.
     * @tparam U A type derived from T.
     * @param other Handle to take from; left empty.
     */
    template <typename U>
    requires internal::StrictBaseOf<T, U> StrongTypedObjectHandle(StrongTypedObjectHandle<U>&& other)
    noexcept : StrongObjectHandle(std::move(other)) {}
    /**
     * @brief Derived to base: drops its own reference, adds one to the other's object.
     * @tparam U A type derived from T.
     * @param other Handle to copy.
     * @return This handle.
     */
    template <typename U>
    requires internal::StrictBaseOf<T, U> StrongTypedObjectHandle& operator=(const StrongTypedObjectHandle<U>& other)
    {
        StrongObjectHandle::operator=(other);
        return *this;
    }
    /**
     * @brief Derived to base: drops its own reference, takes over the other's.
     * @tparam U A type derived from T.
     * @param other Handle to take from; left empty.
     * @return This handle.
     */
    template <typename U>
    requires internal::StrictBaseOf<T, U> StrongTypedObjectHandle& operator=(StrongTypedObjectHandle<U>&& other)
    {
        StrongObjectHandle::operator=(std::move(other));
        return *this;
    }

    /**
     * @brief The object.
     * @return A reference valid while the object lives.
     */
    T& operator*() const;
    /**
     * @brief The object.
     * @return A pointer valid while the object lives.
     */
    T* operator->() const;

    /// A generic handle of the same object with one more reference.
    /// @return The generic handle; empty when this one is invalid.
    StrongObjectHandle asGeneric() const;
    /// A generic handle that takes over the reference of `handle`, which is left empty.
    /// @param handle Handle to take the reference from.
    /// @return The generic handle.
    static StrongObjectHandle toGeneric(StrongTypedObjectHandle<T>&& handle);
};
} // namespace Scripting

// The template bodies need the registry.
#include "Scripting/LifetimeRegistry/LifetimeRegistry.h"
