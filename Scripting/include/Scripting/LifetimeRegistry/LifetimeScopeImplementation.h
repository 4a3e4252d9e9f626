#pragma once

#include "Scripting/LifetimeRegistry/LifetimeRegistryReference.h"

#include <cstdint>
#include <utility>

namespace Scripting
{
template <typename T>
class StrongTypedObjectHandle;

// A safe way to reach a registry that may die at any time: a slot and the generation the slot had when
// the scope was made. A dead registry's scope stays dead when a new registry takes over the slot.
class WeakLifetimeScope
{
public:
    WeakLifetimeScope() = default;
    explicit WeakLifetimeScope(LifetimeRegistryReference* reference)
        : mReference(reference), mGeneration(reference != nullptr ? reference->getGeneration() : 0)
    {
    }
    WeakLifetimeScope(const WeakLifetimeScope&) = default;
    WeakLifetimeScope& operator=(const WeakLifetimeScope&) = default;
    WeakLifetimeScope(WeakLifetimeScope&& other) noexcept
        : mReference(std::exchange(other.mReference, nullptr)), mGeneration(std::exchange(other.mGeneration, 0))
    {
    }
    WeakLifetimeScope& operator=(WeakLifetimeScope&& other) noexcept
    {
        if (this != &other)
        {
            mReference = std::exchange(other.mReference, nullptr);
            mGeneration = std::exchange(other.mGeneration, 0);
        }
        return *this;
    }

    bool empty() const { return getLifetimeRegistry() == nullptr; }
    bool valid() const { return getLifetimeRegistry() != nullptr; }
    void reset()
    {
        mReference = nullptr;
        mGeneration = 0;
    }

    // Same slot and generation; the registry itself is not looked at.
    friend bool operator==(const WeakLifetimeScope&, const WeakLifetimeScope&) = default;

    LifetimeRegistry* getLifetimeRegistry() const
    {
        if (mReference == nullptr || mReference->getGeneration() != mGeneration)
        {
            return nullptr;
        }
        return mReference->getRegistry();
    }

    // The registry's id, or 0 without a live registry.
    ContextId getContextId() const;

    // Creates a `T` in the registry, born with one reference, which the returned handle owns.
    template <typename T, typename... Args>
    StrongTypedObjectHandle<T> makeObject(Args&&... args) const;

private:
    LifetimeRegistryReference* mReference = nullptr;
    uint32_t mGeneration = 0;
};
} // namespace Scripting

// The handles and the registry complete what the scope declares.
#include "Scripting/LifetimeRegistry/SmartObjectHandleImplementation.h"
