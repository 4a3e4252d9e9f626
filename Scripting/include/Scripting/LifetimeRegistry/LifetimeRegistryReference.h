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

/// The number of a script context. 0 means "no context" and is never handed out.
struct ContextId
{
    /** @brief The number, 1 to 255; 0 for none. */
    uint8_t value = 0;

    /**
     * @brief Equal when the numbers are.
     * @return Whether the ids are equal.
     */
    friend constexpr bool operator==(ContextId, ContextId) = default;
};

/// The entity type of every lifetime registry: 32 id bits, 24 version bits, the top byte always 0 so that a
/// context id fits beside it in one 64-bit word.
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

/// @cond
template <>
struct entt::entt_traits<Scripting::ObjectHandleValue>
    : entt::basic_entt_traits<Scripting::internal::ObjectHandleValueTraits>
{
    using base_type = entt::basic_entt_traits<Scripting::internal::ObjectHandleValueTraits>;
    static constexpr std::size_t page_size = 4096;
};
/// @endcond

namespace Scripting
{
/// The null entity: every id and version bit set, the context byte clear.
inline constexpr ObjectHandleValue NULL_OBJECT_HANDLE_VALUE = ObjectHandleValue{0x00FFFFFFFFFFFFFFull};

/// The registry-local name of an object, with the context it belongs to.
/// A plain value: it holds no reference and says nothing about whether the object lives (ask the registry's
/// isValid, or use a WeakObjectHandle).
struct ObjectHandle
{
    /** @brief Bits of the entity value in the packed word. */
    static constexpr uint64_t VALUE_MASK = 0x00FFFFFFFFFFFFFFull;
    /** @brief Bits of the entity id. */
    static constexpr uint64_t ID_MASK = 0xFFFFFFFFull;
    /** @brief Position of the context byte in the packed word. */
    static constexpr unsigned CONTEXT_SHIFT = 56;

    /** @brief The empty handle. */
    constexpr ObjectHandle() = default;
    /**
     * @brief From an entity value and its context.
     * @param handleValue Entity of the registry.
     * @param context Context of the registry.
     */
    constexpr ObjectHandle(ObjectHandleValue handleValue, ContextId context) : value(handleValue), contextId(context) {}
    /// From the packed word of toU64: the context is the top byte.
    /// @param packed Word made by toU64().
    constexpr explicit ObjectHandle(uint64_t packed)
        : value(static_cast<ObjectHandleValue>(packed & VALUE_MASK)),
          contextId(ContextId{static_cast<uint8_t>(packed >> CONTEXT_SHIFT)})
    {
    }

    /**
     * @brief Packs the handle in one word, the context in the top byte.
     * @return The packed word.
     */
    constexpr uint64_t toU64() const
    {
        return (static_cast<uint64_t>(contextId.value) << CONTEXT_SHIFT) | static_cast<uint64_t>(value);
    }

    /// Only the id decides: a handle with a null id is empty whatever its version or context.
    /// @return Whether the handle names no object.
    constexpr bool empty() const { return (static_cast<uint64_t>(value) & ID_MASK) == ID_MASK; }

    /**
     * @brief Equal when value and context are.
     * @return Whether the handles are equal.
     */
    friend constexpr bool operator==(const ObjectHandle&, const ObjectHandle&) = default;

    /** @brief The entity in its registry. */
    ObjectHandleValue value = NULL_OBJECT_HANDLE_VALUE;
    /** @brief The context whose registry holds the object. */
    ContextId contextId;
};

namespace internal
{
// `Base` is a base class of `Derived` and not `Derived` itself: the pairs that typed handles convert between.
template <typename Base, typename Derived>
concept StrictBaseOf = std::is_base_of_v<Base, Derived> && !std::is_same_v<Base, Derived>;
} // namespace internal

/// A plain handle that states the type it expects. Holds no reference.
/// @tparam T The expected type.
template <typename T>
struct TypedObjectHandle : ObjectHandle
{
    /** @brief The empty handle. */
    constexpr TypedObjectHandle() = default;
    /**
     * @brief States a type for a plain handle; nothing is checked.
     * @param handle The handle.
     */
    constexpr TypedObjectHandle(const ObjectHandle& handle) : ObjectHandle(handle) {}
    /**
     * @brief Derived to base.
     * @tparam U A type derived from T.
     * @param other The handle.
     */
    template <typename U>
    requires internal::StrictBaseOf<T, U>
    constexpr TypedObjectHandle(const TypedObjectHandle<U>& other) : ObjectHandle(other) {}
};

/// 0-based slot index of an id, and back. Both assert that the id lies in 1..255; the arithmetic goes on.
/// @param contextId An id in 1..255.
/// @return Its slot index.
uint64_t contextIdToIndex(ContextId contextId);
/**
 * @brief Inverse of contextIdToIndex().
 * @param index A slot index in 0..254.
 * @return Its id.
 */
ContextId indexToContextId(uint64_t index);

/// Hands out context ids, lowest first; a returned id is the next one handed out.
class ContextIdFreeList
{
public:
    /**
     * @brief Fills the list with every id of a range.
     * @param lowestId First id, at least 1.
     * @param highestId Last id.
     */
    ContextIdFreeList(uint8_t lowestId, uint8_t highestId);

    /// Pops the next free id. Asserts on an empty list and then answers the id 0.
    /// @return The id, or 0 when none was free.
    ContextId nextId();
    /// Pushes `id` back unless it is out of bounds (asserts) or already free (ignored).
    /// @param id An id handed out before.
    void returnId(ContextId id);

    /** @return Number of free ids. */
    uint64_t size() const { return mFreeContextIds.size(); }
    /** @return Whether no id is free. */
    bool empty() const { return mFreeContextIds.empty(); }

private:
    uint8_t mLowestId;
    uint8_t mHighestId;
    std::vector<ContextId> mFreeContextIds;
};

/// The slot through which every scope and handle reaches a registry. The generation grows each time the
/// registry in the slot dies, so that nothing made for a dead registry ever reaches its successor.
class LifetimeRegistryReference
{
public:
    /** @brief An empty slot at generation 0. */
    LifetimeRegistryReference() = default;
    LifetimeRegistryReference(const LifetimeRegistryReference&) = delete;
    LifetimeRegistryReference& operator=(const LifetimeRegistryReference&) = delete;
    /** @brief Asserts when a registry still stands in the slot. */
    ~LifetimeRegistryReference();

    /// Called by the registry's constructor. Asserts when the slot is taken, and then overwrites it.
    /// @param registry The new registry, not owned.
    void set(LifetimeRegistry* registry);

    /** @return The registry in the slot, or null. */
    LifetimeRegistry* getRegistry() const { return mRegistry; }
    /** @return How many registries of the slot died so far. */
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

/// Owns the context ids and the 255 slots, and creates registries. It does not own them: an id whose
/// registry died goes back to the free list at the next sweep, which createLifetimeRegistry and
/// getRegistryCount make. The manager must outlive every registry, scope and handle it led to.
class RegistryManager
{
public:
    /** @brief Lowest id handed out. */
    static constexpr uint8_t LOWEST_CONTEXT_ID = 1;
    /** @brief Highest id handed out. */
    static constexpr uint8_t HIGHEST_CONTEXT_ID = 255;
    /** @brief Number of ids and slots. */
    static constexpr uint64_t MAX_NUMBER_IDS = 255;

    /** @brief Every id free, every slot empty. */
    RegistryManager();
    RegistryManager(const RegistryManager&) = delete;
    RegistryManager& operator=(const RegistryManager&) = delete;

    /// An empty pointer when all ids are taken.
    /// Sweeps the ids of dead registries first; the caller owns the new registry.
    /// @return The registry, or empty.
    std::unique_ptr<LifetimeRegistry> createLifetimeRegistry();
    /// The registry living on `id`, or null. Does not sweep.
    /// @param id A context id.
    /// @return The registry, not owned by the caller.
    LifetimeRegistry* getRegistry(ContextId id);
    /**
     * @brief Sweeps, then counts the registries alive.
     * @return Their number.
     */
    unsigned char getRegistryCount();

private:
    void _returnExpiredIdsToFreeList();

    ContextIdFreeList mContextIdFreeList;
    std::array<LifetimeRegistryReference, MAX_NUMBER_IDS> mRegistryRefs;
};
} // namespace Scripting

/** @brief Hash of an ObjectHandle, for unordered containers. */
template <>
struct std::hash<Scripting::ObjectHandle>
{
    /// Folds the two halves of the packed word, so that handles differing only in context spread apart.
    /// @param handle The handle.
    /// @return Its hash.
    size_t operator()(const Scripting::ObjectHandle& handle) const noexcept
    {
        const uint64_t packed = handle.toU64();
        const uint64_t hi = packed >> 32;
        const uint64_t lo = packed & 0xFFFFFFFFull;
        return static_cast<size_t>(((hi << 6) + (hi >> 2) + 0x9E3779B9ull + lo) ^ hi);
    }
};
