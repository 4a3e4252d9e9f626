#pragma once

#include "Scripting/LifetimeRegistry/LifetimeRegistry.h"

#include "Hash/Fnv1a.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string_view>
#include <type_traits>
#include <typeinfo>
#include <vector>

namespace Scripting
{
/// The key type under which objects of `T` are tracked: `T::HandleKey` unless specialised.
/// @tparam T Tracked object type.
template <typename T>
struct HandleKeyOf
{
    /** @brief The key type. */
    using type = typename T::HandleKey;
};

/**
 * @brief The key type of `T`.
 * @tparam T Tracked object type.
 */
template <typename T>
using HandleKey = typename HandleKeyOf<T>::type;

namespace internal
{
// The hash a key is known by. Integers and enums hash as FNV-1a over their bytes, whatever the standard
// library's std::hash does with them; other keys use their std::hash.
template <typename Key>
uint64_t hashKey(const Key& key)
{
    if constexpr (std::is_integral_v<Key> || std::is_enum_v<Key>)
    {
        return Ovelith::Hash::fnv1a64(std::string_view(reinterpret_cast<const char*>(&key), sizeof(Key)));
    }
    else
    {
        return static_cast<uint64_t>(std::hash<Key>{}(key));
    }
}

// Where a key's entry goes in its type's table. An integer key of up to four bytes is its own place, so that
// keys in order sit in order; the hash alone must still decide which keys are one, and FNV-1a gives each value
// of four bytes or fewer a hash of its own (an exhaustive check of all 2^32 shows it), so the place follows from
// the hash. Wider keys, for which that is not known, and keys of other types are placed by their hash. Since
// distinct keys of the first kind have distinct places, a lookup can tell them apart by place alone.
template <typename Key>
inline constexpr bool IS_OWN_PLACE = (std::is_integral_v<Key> || std::is_enum_v<Key>)&&sizeof(Key) <= 4;

template <typename Key>
uint64_t placeOfKey(const Key& key, uint64_t keyHash)
{
    if constexpr (IS_OWN_PLACE<Key>)
    {
        return static_cast<uint64_t>(key);
    }
    else
    {
        return keyHash;
    }
}

// The key an object of `T` is tracked under. A type of its own per tracked `T`, so that tracking never mixes
// with plain objects or components of the key's type, nor with the keys of another tracked type.
template <typename T>
struct TrackingKey
{
    HandleKey<T> key;
};

// The hash of the object type, not of the key.
template <typename T>
uint64_t hashTrackedType()
{
    // hash_code may walk the mangled name on every call.
    static const uint64_t hash = static_cast<uint64_t>(typeid(T).hash_code());
    return hash;
}
} // namespace internal

/// Maps a native key to the script object that stands for it, so that one native object keeps one script
/// object. The key is attached to the object as a component and the registry's HandleCache answers the
/// lookup; a tracked object may hold a tracking reference, which untracking removes.
class HandleTracker
{
public:
    /**
     * @brief Files an object under a key. An empty handle asserts; so does a key filed for `T` already,
     * which keeps its first object.
     * @tparam T Object type.
     * @param registry The object's registry.
     * @param handle The object.
     * @param key Its native key.
     * @param addReference Whether tracking holds a reference, keeping the object alive until untracked.
     */
    template <typename T>
    static void trackWith(LifetimeRegistry& registry, TypedObjectHandle<T> handle, const HandleKey<T>& key,
                          bool addReference)
    {
        OV_ASSERT(!handle.empty(), "Attempting to track an empty handle");
        registry.attach<internal::TrackingKey<T>, const HandleKey<T>&>(handle, key);
        const uint64_t keyHash = internal::hashKey(key);
        registry.getHandleCache()._add(internal::hashTrackedType<T>(), keyHash, internal::placeOfKey(key, keyHash),
                                       handle);
        if (addReference)
        {
            registry.addReference(handle);
        }
    }

    /// A new strong handle of the object tracked under `key`, nothing if there is none or no registry.
    /// @tparam T Object type.
    /// @param scope Scope of the registry.
    /// @param key Native key.
    /// @return A new owner of the object, or empty.
    template <typename T>
    static std::optional<StrongTypedObjectHandle<T>> fetch(WeakLifetimeScope scope, const HandleKey<T>& key)
    {
        LifetimeRegistry* registry = scope.getLifetimeRegistry();
        if (registry == nullptr)
        {
            return std::nullopt;
        }
        const HandleCache::TrackedEntry* entry = nullptr;
        if constexpr (internal::IS_OWN_PLACE<HandleKey<T>>)
        {
            // Such a key's place is as distinct as its hash, which need not be computed.
            entry = registry->getHandleCache()._findEntryAtPlace(internal::hashTrackedType<T>(),
                                                                 internal::placeOfKey(key, 0));
        }
        else
        {
            const uint64_t keyHash = internal::hashKey(key);
            entry = registry->getHandleCache()._findEntry(internal::hashTrackedType<T>(), keyHash,
                                                          internal::placeOfKey(key, keyHash));
        }
        if (entry == nullptr)
        {
            return std::nullopt;
        }
        const ObjectHandle found = entry->handle();
        // The reference is added here, on the registry in hand, and adopted by the handle.
        registry->addReference(found);
        return std::optional<StrongTypedObjectHandle<T>>(std::in_place, std::move(scope), found, false);
    }

    /// Detaches the key, forgets it and removes the tracking reference, which may destroy the object.
    /// @tparam T Object type.
    /// @param registry The object's registry.
    /// @param handle A tracked object.
    template <typename T>
    static void untrack(LifetimeRegistry& registry, TypedObjectHandle<T> handle)
    {
        registry.detach<internal::TrackingKey<T>>(handle);
        registry.getHandleCache().removeHandle(handle);
        registry.removeReference<T>(handle);
    }

    /// Untracks every tracked object of `T`.
    /// @tparam T Object type.
    /// @param registry The registry.
    template <typename T>
    static void untrackAll(LifetimeRegistry& registry)
    {
        // Copied first: untracking changes the key storage under the walk.
        const std::vector<ObjectHandleValue> entities =
            internal::ObjectRegistryUtilities::entitiesWith<internal::TrackingKey<T>>(registry.registry);
        for (const ObjectHandleValue entity : entities)
        {
            const ObjectHandle handle(entity, registry.getContextId());
            // An earlier untrack may have taken this object along, through a destructor.
            if (registry.isValid(handle))
            {
                untrack<T>(registry, handle);
            }
        }
    }

    /// How many objects of `T` are tracked; 0 for a type never tracked.
    /// @tparam T Object type.
    /// @param registry The registry.
    /// @return The count.
    template <typename T>
    static std::size_t getTrackedHandleCount(const LifetimeRegistry& registry)
    {
        const HandleCache::KeyCache* cache = registry.getHandleCache()._findType(internal::hashTrackedType<T>());
        return cache != nullptr ? cache->size() : 0;
    }
};
} // namespace Scripting
