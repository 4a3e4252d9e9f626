#pragma once

#include <entt/entity/entity.hpp>

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <type_traits>
#include <vector>

namespace Scripting
{
class LifetimeRegistry;

// The number of a script context. 0 means "no context" and is never handed out.
struct ContextId
{
    uint8_t value = 0;

    friend constexpr bool operator==(ContextId, ContextId) = default;
};

// The entity type of every lifetime registry: 32 id bits, 24 version bits, the top byte always 0 so that a
// context id fits beside it in one 64-bit word.
enum class ObjectHandleValue : uint64_t
{
};

namespace internal
{
struct ObjectHandleValueTraits
{
    using value_type = ObjectHandleValue;
    using entity_type = uint64_t;
    using version_type = uint32_t;

    static constexpr entity_type entity_mask = 0xFFFFFFFFull;
    static constexpr entity_type version_mask = 0xFFFFFFull;
};
} // namespace internal
} // namespace Scripting

template <>
struct entt::entt_traits<Scripting::ObjectHandleValue>
    : entt::basic_entt_traits<Scripting::internal::ObjectHandleValueTraits>
{
    using base_type = entt::basic_entt_traits<Scripting::internal::ObjectHandleValueTraits>;
    static constexpr std::size_t page_size = 4096;
};

namespace Scripting
{
// The null entity: every id and version bit set, the context byte clear.
inline constexpr ObjectHandleValue NULL_OBJECT_HANDLE_VALUE = ObjectHandleValue{0x00FFFFFFFFFFFFFFull};

// The registry-local name of an object, with the context it belongs to.
struct ObjectHandle
{
    static constexpr uint64_t VALUE_MASK = 0x00FFFFFFFFFFFFFFull;
    static constexpr uint64_t ID_MASK = 0xFFFFFFFFull;
    static constexpr unsigned CONTEXT_SHIFT = 56;

    constexpr ObjectHandle() = default;
    constexpr ObjectHandle(ObjectHandleValue handleValue, ContextId context) : value(handleValue), contextId(context) {}
    // From the packed word of toU64: the context is the top byte.
    constexpr explicit ObjectHandle(uint64_t packed)
        : value(static_cast<ObjectHandleValue>(packed & VALUE_MASK)),
          contextId(ContextId{static_cast<uint8_t>(packed >> CONTEXT_SHIFT)})
    {
    }

    constexpr uint64_t toU64() const
    {
        return (static_cast<uint64_t>(contextId.value) << CONTEXT_SHIFT) | static_cast<uint64_t>(value);
    }

    // Only the id decides: a handle with a null id is empty whatever its version or context.
    constexpr bool empty() const { return (static_cast<uint64_t>(value) & ID_MASK) == ID_MASK; }

    friend constexpr bool operator==(const ObjectHandle&, const ObjectHandle&) = default;

    ObjectHandleValue value = NULL_OBJECT_HANDLE_VALUE;
    ContextId contextId;
};

namespace internal
{
// `Base` is a base class of `Derived` and not `Derived` itself: the pairs that typed handles convert between.
template <typename Base, typename Derived>
concept StrictBaseOf = std::is_base_of_v<Base, Derived> && !std::is_same_v<Base, Derived>;
} // namespace internal

// A plain handle that states the type it expects. Holds no reference.
template <typename T>
struct TypedObjectHandle : ObjectHandle
{
    constexpr TypedObjectHandle() = default;
    constexpr TypedObjectHandle(const ObjectHandle& handle) : ObjectHandle(handle) {}
    template <typename U>
    requires internal::StrictBaseOf<T, U>
    constexpr TypedObjectHandle(const TypedObjectHandle<U>& other) : ObjectHandle(other) {}
};

// 0-based slot index of an id, and back. Both assert that the id lies in 1..255; the arithmetic goes on.
uint64_t contextIdToIndex(ContextId contextId);
ContextId indexToContextId(uint64_t index);

// Hands out context ids, lowest first; a returned id is the next one handed out.
class ContextIdFreeList
{
public:
    ContextIdFreeList(uint8_t lowestId, uint8_t highestId);

    // Pops the next free id. Asserts on an empty list and then answers the id 0.
    ContextId nextId();
    // Pushes `id` back unless it is out of bounds (asserts) or already free (ignored).
    void returnId(ContextId id);

    uint64_t size() const { return mFreeContextIds.size(); }
    bool empty() const { return mFreeContextIds.empty(); }

private:
    uint8_t mLowestId;
    uint8_t mHighestId;
    std::vector<ContextId> mFreeContextIds;
};

// The slot through which every scope and handle reaches a registry. The generation grows each time the
// registry in the slot dies, so that nothing made for a dead registry ever reaches its successor.
class LifetimeRegistryReference
{
public:
    LifetimeRegistryReference() = default;
    LifetimeRegistryReference(const LifetimeRegistryReference&) = delete;
    LifetimeRegistryReference& operator=(const LifetimeRegistryReference&) = delete;
    ~LifetimeRegistryReference();

    // Called by the registry's constructor. Asserts when the slot is taken, and then overwrites it.
    void set(LifetimeRegistry* registry);

    LifetimeRegistry* getRegistry() const { return mRegistry; }
    uint32_t getGeneration() const { return mGeneration; }

private:
    friend class LifetimeRegistry;

    // The registry's destructor empties the slot and moves the generation on.
    void _release()
    {
        mRegistry = nullptr;
        ++mGeneration;
    }

    LifetimeRegistry* mRegistry = nullptr; // not owning
    uint32_t mGeneration = 0;
};

// Owns the context ids and the 255 slots, and creates registries. It does not own them: an id whose
// registry died goes back to the free list at the next sweep, which createLifetimeRegistry and
// getRegistryCount make. The manager must outlive every registry, scope and handle it led to.
class RegistryManager
{
public:
    static constexpr uint8_t LOWEST_CONTEXT_ID = 1;
    static constexpr uint8_t HIGHEST_CONTEXT_ID = 255;
    static constexpr uint64_t MAX_NUMBER_IDS = 255;

    RegistryManager();
    RegistryManager(const RegistryManager&) = delete;
    RegistryManager& operator=(const RegistryManager&) = delete;

    // An empty pointer when all ids are taken.
    std::unique_ptr<LifetimeRegistry> createLifetimeRegistry();
    // The registry living on `id`, or null. Does not sweep.
    LifetimeRegistry* getRegistry(ContextId id);
    unsigned char getRegistryCount();

private:
    void _returnExpiredIdsToFreeList();

    ContextIdFreeList mContextIdFreeList;
    std::array<LifetimeRegistryReference, MAX_NUMBER_IDS> mRegistryRefs;
};
} // namespace Scripting

template <>
struct std::hash<Scripting::ObjectHandle>
{
    // Folds the two halves of the packed word, so that handles differing only in context spread apart.
    size_t operator()(const Scripting::ObjectHandle& handle) const noexcept
    {
        const uint64_t packed = handle.toU64();
        const uint64_t hi = packed >> 32;
        const uint64_t lo = packed & 0xFFFFFFFFull;
        return static_cast<size_t>(((hi << 6) + (hi >> 2) + 0x9E3779B9ull + lo) ^ hi);
    }
};
