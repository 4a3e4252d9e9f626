#pragma once

#include "Scripting/LifetimeRegistry/LifetimeRegistryReference.h"

#include <cstdint>
#include <utility>

namespace Scripting
{
template <typename T>
class StrongTypedObjectHandle;
class LifetimeRegistry;

namespace internal
{
struct ObjectTypeTable;
}

/// A safe way to reach a registry that may die at any time: a slot and the generation the slot had when
/// the scope was made. A dead registry's scope stays dead when a new registry takes over the slot.
/// Holds nothing alive; copy it freely.
class WeakLifetimeScope
{
public:
    /** @brief An empty scope. */
    WeakLifetimeScope() = default;
    /**
     * @brief A scope of the slot's present registry.
     * @param reference The slot; null gives an empty scope.
     */
    explicit WeakLifetimeScope(LifetimeRegistryReference* reference)
        : mReference(reference), mGeneration(reference != nullptr ? reference->getGeneration() : 0)
    {
    }
    /** @brief Copies slot and generation. */
    WeakLifetimeScope(const WeakLifetimeScope&) = default;
    /**
     * @brief Copies slot and generation.
     * @return This scope.
     */
    WeakLifetimeScope& operator=(const WeakLifetimeScope&) = default;
    /**
     * @brief Takes slot and generation, leaving the source empty.
     * @param other Scope to take from.
     */
    WeakLifetimeScope(WeakLifetimeScope&& other) noexcept
        : mReference(std::exchange(other.mReference, nullptr)), mGeneration(std::exchange(other.mGeneration, 0))
    {
    }
    /**
     * @brief Takes slot and generation, leaving the source empty.
     * @param other Scope to take from.
     * @return This scope.
     */
    WeakLifetimeScope& operator=(WeakLifetimeScope&& other) noexcept
    {
        if (this != &other)
        {
            mReference = std::exchange(other.mReference, nullptr);
            mGeneration = std::exchange(other.mGeneration, 0);
        }
        return *this;
    }

    /**
     * @brief Whether the registry is gone (or there never was one).
     * @return True without a live registry.
     */
    bool empty() const { return getLifetimeRegistry() == nullptr; }
    /**
     * @brief Whether the registry is alive.
     * @return The opposite of empty().
     */
    bool valid() const { return getLifetimeRegistry() != nullptr; }
    /** @brief Makes the scope empty. */
    void reset()
    {
        mReference = nullptr;
        mGeneration = 0;
    }

    /// Same slot and generation; the registry itself is not looked at.
    /// @return Whether the scopes are equal.
    friend bool operator==(const WeakLifetimeScope&, const WeakLifetimeScope&) = default;

    /**
     * @brief The registry, if it is still the one the scope was made for.
     * @return The registry, not owned; null once it died.
     */
    LifetimeRegistry* getLifetimeRegistry() const
    {
        if (mReference == nullptr || mReference->getGeneration() != mGeneration)
        {
            return nullptr;
        }
        return mReference->getRegistry();
    }

    /// The registry's id, or 0 without a live registry.
    /// @return The id.
    ContextId getContextId() const;

    /// Creates a `T` in the registry, born with one reference, which the returned handle owns.
    /// An empty scope asserts and answers an empty handle.
    /// @tparam T Object type, reflected, with state of its own.
    /// @tparam Args Constructor argument types.
    /// @param args Constructor arguments.
    /// @return Owner of the new object.
    template <typename T, typename... Args>
    StrongTypedObjectHandle<T> makeObject(Args&&... args) const;

private:
    // The entity and base component of a new object of the type `table` describes, or the empty handle (after
    // an assert for an empty scope) when the scope reaches no registry; `registry` receives the registry, and
    // `slot` the memory in the type's storage where the caller makes the object (null without an object).
    // Everything but the constructor's call is here, so that a type's makeObject is little more than that call.
    ObjectHandle _beginObject(const internal::ObjectTypeTable& table, LifetimeRegistry*& registry, void*& slot) const;
    // Undoes _beginObject when the constructor threw: nobody owns the half-made object's reference, so it must
    // not outlive the failed construction.
    static void _abandonObject(const internal::ObjectTypeTable& table, LifetimeRegistry& registry, ObjectHandle handle);

    LifetimeRegistryReference* mReference = nullptr;
    uint32_t mGeneration = 0;
};
} // namespace Scripting

// The handles and the registry complete what the scope declares.
#include "Scripting/LifetimeRegistry/SmartObjectHandleImplementation.h"
