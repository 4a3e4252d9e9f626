#pragma once

#include "Scripting/LifetimeRegistry/SmartObjectHandleImplementation.h"
#include "Scripting/LifetimeRegistry/internal/ObjectStorage.h"

#include "Diagnostics/Assert.h"
#include "Scripting/Reflection/Reflection.h"

#include <entt/entity/component.hpp>
#include <entt/entity/registry.hpp>
#include <entt/entity/view.hpp>
#include <entt/meta/meta.hpp>

#include <bit>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <type_traits>
#include <unordered_map>
#include <utility>
#include <vector>

namespace Scripting
{
/// The script side's reference object of one native object. The count crossing between 1 (only the script
/// holds it) and 2 (native holders share it) is reported, not each change.
class IScriptRef
{
public:
    virtual ~IScriptRef() = default;
    /** @brief Only the script's own reference is left: the script may hold the object weakly now. */
    virtual void onReferenceCountLoweredToOne() = 0;
    /** @brief Native code holds the object too: the script must keep it strongly. */
    virtual void onReferenceCountRaisedToTwo() = 0;
    /** @brief The object died; the reference must not reach it any more. */
    virtual void onObjectDestroyed() = 0;
};

/** @brief Told of every object a registry creates and destroys (handle tracking, statistics). */
class ILifetimeObjectListener
{
public:
    virtual ~ILifetimeObjectListener() = default;
    /// Told before the object's `T` is attached: the type is known, the object not yet readable.
    virtual void onObjectCreated(LifetimeRegistry& registry, ObjectHandle handle, const entt::meta_type& type,
                                 unsigned objectSize) = 0;
    /** @brief Told after the object was destroyed; the handle no longer resolves. */
    virtual void onObjectDestroyed(LifetimeRegistry& registry, ObjectHandle handle, const entt::meta_type& type,
                                   unsigned objectSize) = 0;
};

/** @brief Told when a registry destroys its whole scope. */
class ILifetimeScopeListener
{
public:
    virtual ~ILifetimeScopeListener() = default;
    /** @brief Before the objects of the scope are destroyed. */
    virtual void onScopeDestroying(LifetimeRegistry& registry) = 0;
    /** @brief After every object of the scope was destroyed. */
    virtual void onScopeDestroyed(LifetimeRegistry& registry) = 0;
};

namespace internal
{
// A map from 64-bit hashes to values in one array, open-addressed with Robin Hood linear probing and erasure by
// shifting the rest of a run back, never more than half full. Each entry also carries a place, which picks its
// home slot: the caller passes a number that keeps related keys near each other (an integer key itself), so
// that keys looked up in order walk the array in order. A place is only a position: the hash alone says which
// entry is which. Places taken modulo the capacity can pile up (keys with a common stride of a power of two);
// the first entry pushed further than MAX_DISPLACEMENT from its home switches the table to scrambled homes for
// good, so that such places cost what hashed ones do; until then no entry stands further than that from its
// home, which bounds every lookup.
template <typename Value>
class HashSlotTable
{
public:
    size_t size() const { return mSize; }
    bool empty() const { return mSize == 0; }
    // Whether homes are scrambled: the places stopped spreading by themselves.
    bool isScrambled() const { return mScrambled; }

    const Value* find(uint64_t key, uint64_t place) const
    {
        const size_t index = _indexOf(key, place);
        return index != NOWHERE ? &mSlots[index].value : nullptr;
    }
    Value* find(uint64_t key, uint64_t place) { return const_cast<Value*>(std::as_const(*this).find(key, place)); }

    // The entry at `place`, found by its place alone: for a table whose places are as distinct as its keys, where
    // the caller then need not compute the key.
    const Value* findAtPlace(uint64_t place) const
    {
        const size_t index = _probe(place, [place](const Slot& slot) { return slot.place == place; });
        return index != NOWHERE ? &mSlots[index].value : nullptr;
    }

    // The value under `key`, inserted from `value` at `place` if the key is new; `inserted` says which.
    Value& emplace(uint64_t key, uint64_t place, Value value, bool& inserted)
    {
        if (Value* existing = find(key, place))
        {
            inserted = false;
            return *existing;
        }
        inserted = true;
        if ((mSize + 1) * 2 > mSlots.size())
        {
            _rebuild(mSlots.empty() ? MIN_CAPACITY : mSlots.size() * 2, mScrambled);
        }
        if (_insertNew(Slot{key, place, std::move(value), 0}) && !mScrambled)
        {
            _rebuild(mSlots.size(), true);
        }
        return *find(key, place);
    }

    bool erase(uint64_t key, uint64_t place)
    {
        size_t hole = _indexOf(key, place);
        if (hole == NOWHERE)
        {
            return false;
        }
        // Every entry after the hole that is not at its home moves one back, until an empty slot or an entry
        // at its home ends the run.
        for (size_t next = (hole + 1) & mMask; mSlots[next].distance > 1; next = (next + 1) & mMask)
        {
            mSlots[hole] = std::move(mSlots[next]);
            --mSlots[hole].distance;
            hole = next;
        }
        mSlots[hole] = Slot{};
        --mSize;
        return true;
    }

private:
    struct Slot
    {
        uint64_t key = 0;
        uint64_t place = 0;
        Value value{};
        // Distance from the home slot plus one; 0 marks an empty slot.
        uint32_t distance = 0;
    };

    static constexpr size_t MIN_CAPACITY = 8;
    static constexpr uint32_t MAX_DISPLACEMENT = 48;
    static constexpr size_t NOWHERE = SIZE_MAX;

    size_t _indexOf(uint64_t key, uint64_t place) const
    {
        return _probe(place, [key](const Slot& slot) { return slot.key == key; });
    }

    // The index of the first slot from the home of `place` that `matches`, or NOWHERE.
    template <typename Matches>
    size_t _probe(uint64_t place, Matches matches) const
    {
        if (mSize == 0)
        {
            return NOWHERE;
        }
        const size_t home = _home(place);
        for (uint32_t distance = 1;; ++distance)
        {
            const size_t index = (home + distance - 1) & mMask;
            const Slot& slot = mSlots[index];
            // Robin Hood order: an entry nearer its home than this probe is to ours means ours is absent.
            if (slot.distance < distance)
            {
                return NOWHERE;
            }
            if (matches(slot))
            {
                return index;
            }
        }
    }

    // Scrambled homes use Fibonacci hashing: the top bits of the product depend on every bit of the place.
    size_t _home(uint64_t place) const
    {
        return mScrambled ? static_cast<size_t>((place * 0x9E3779B97F4A7C15ull) >> mShift)
                          : static_cast<size_t>(place) & mMask;
    }

    // Places an entry whose key is absent, taking the slot of any entry nearer its home. True when some entry
    // ended up further than MAX_DISPLACEMENT from its home.
    bool _insertNew(Slot&& entry)
    {
        Slot carried = std::move(entry);
        carried.distance = 1;
        bool far = false;
        for (size_t index = _home(carried.place);; index = (index + 1) & mMask)
        {
            Slot& slot = mSlots[index];
            if (slot.distance == 0)
            {
                slot = std::move(carried);
                ++mSize;
                return far;
            }
            if (slot.distance < carried.distance)
            {
                std::swap(slot, carried);
            }
            ++carried.distance;
            far = far || carried.distance > MAX_DISPLACEMENT + 1;
        }
    }

    void _rebuild(size_t capacity, bool scrambled)
    {
        std::vector<Slot> old = std::move(mSlots);
        mSlots.clear();
        mSlots.resize(capacity);
        mMask = capacity - 1;
        mShift = 64 - static_cast<unsigned>(std::countr_zero(capacity));
        mScrambled = scrambled;
        mSize = 0;
        bool far = false;
        for (Slot& slot : old)
        {
            if (slot.distance != 0)
            {
                far = _insertNew(std::move(slot)) || far;
            }
        }
        if (far && !mScrambled)
        {
            _rebuild(capacity, true);
        }
    }

    std::vector<Slot> mSlots;
    size_t mSize = 0;
    size_t mMask = 0;
    unsigned mShift = 63;
    bool mScrambled = false;
};
} // namespace internal

/// Which handle belongs to a native key, in constant time. Knows only numbers: the hash of the object's
/// type, the hash of the key, and handles. HandleTracker keeps it in step with the key components; the
/// underscored operations bypass that and are meant for it.
class HandleCache
{
public:
    /** @brief What a handle stands under. */
    struct LookupData
    {
        /** @brief Hash of the object's type. */
        uint64_t typeHash = 0;
        /** @brief Hash of the native key. */
        uint64_t keyHash = 0;
        /** @brief Where the key's entry sits in its type's table (see HashSlotTable). */
        uint64_t place = 0;
    };
    /// What a key is filed with: the handle, packed (ObjectHandle::toU64) so that it takes one word.
    struct TrackedEntry
    {
        /** @return The handle. */
        ObjectHandle handle() const { return ObjectHandle(packed); }

        /** @brief The packed handle. */
        uint64_t packed = 0;
    };
    /// Key hash to entry, for one type.
    using KeyCache = internal::HashSlotTable<TrackedEntry>;

    /** @brief An empty cache. */
    HandleCache() = default;
    HandleCache(const HandleCache&) = delete;
    HandleCache& operator=(const HandleCache&) = delete;
    /** @brief Asserts when handles are left: they would leak their tracking references. */
    ~HandleCache();

    /** @brief Files a handle under a key, placed by its hash; for HandleTracker and tools. */
    void _add(uint64_t typeHash, uint64_t keyHash, const ObjectHandle& handle)
    {
        _add(typeHash, keyHash, keyHash, handle);
    }
    /**
     * @brief Files a handle under a key; for HandleTracker.
     * @param typeHash Hash of the object's type.
     * @param keyHash Hash of the key, which alone identifies it.
     * @param place Where the key's entry goes; keys near in place are near in the table.
     * @param handle The object.
     */
    void _add(uint64_t typeHash, uint64_t keyHash, uint64_t place, const ObjectHandle& handle);
    /** @brief Drops a key filed by its hash; for HandleTracker and tools. */
    void _remove(uint64_t typeHash, uint64_t keyHash) { _remove(typeHash, keyHash, keyHash); }
    /** @brief Drops a key filed at `place`; for HandleTracker. */
    void _remove(uint64_t typeHash, uint64_t keyHash, uint64_t place);
    /**
     * @brief The handle filed under a key placed by its hash; for HandleTracker and tools.
     * @return The handle, or empty.
     */
    std::optional<ObjectHandle> _find(uint64_t typeHash, uint64_t keyHash) const
    {
        return _find(typeHash, keyHash, keyHash);
    }
    /**
     * @brief The handle filed under a key at `place`; for HandleTracker.
     * @return The handle, or empty.
     */
    std::optional<ObjectHandle> _find(uint64_t typeHash, uint64_t keyHash, uint64_t place) const
    {
        const TrackedEntry* entry = _findEntry(typeHash, keyHash, place);
        return entry != nullptr ? std::optional<ObjectHandle>(entry->handle()) : std::nullopt;
    }
    /** @brief The entry of a key, or null. It lasts until the next _add or _remove. */
    const TrackedEntry* _findEntry(uint64_t typeHash, uint64_t keyHash, uint64_t place) const
    {
        const KeyCache* cache = _findType(typeHash);
        return cache != nullptr ? cache->find(keyHash, place) : nullptr;
    }
    /// The entry at `place`, for a type whose keys are their own places, so that two keys share a place only
    /// if they are one key; for HandleTracker. Null if there is none. It lasts until the next _add or _remove.
    const TrackedEntry* _findEntryAtPlace(uint64_t typeHash, uint64_t place) const
    {
        const KeyCache* cache = _findType(typeHash);
        return cache != nullptr ? cache->findAtPlace(place) : nullptr;
    }
    /// The keys of a type, null if the type was never tracked. A type whose keys are all gone keeps its
    /// empty map. The pointer lasts until the next _add.
    const KeyCache* _findType(uint64_t typeHash) const
    {
        // Fetches tend to ask for one type many times over.
        if (mLastType != nullptr && mLastTypeHash == typeHash)
        {
            return mLastType;
        }
        const KeyCache* cache = mTypeCaches.find(typeHash, typeHash);
        if (cache != nullptr)
        {
            mLastTypeHash = typeHash;
            mLastType = cache;
        }
        return cache;
    }

    /// Drops whatever key `handle` stands under; nothing if it stands under none.
    void removeHandle(const ObjectHandle& handle);

private:
    internal::HashSlotTable<KeyCache> mTypeCaches;
    // The type asked for last, remembered until a type is added, which may move every type's table.
    mutable uint64_t mLastTypeHash = 0;
    mutable const KeyCache* mLastType = nullptr;
    std::unordered_map<ObjectHandle, LookupData> mHandleToLookupData;
};

namespace internal
{
using EntityRegistry = entt::basic_registry<ObjectHandleValue>;

// Ends a call that must hand out an object where there is none, after its assert was swallowed.
[[noreturn]] void throwMissingObject(const char* what);

// Which typed handle BaseScriptComponent::typedHandleFunction builds.
enum class TypedHandleKind : uint8_t
{
    Plain = 0,
    Weak = 1,
    Strong = 2,
};

// How a native type sits in a registry. Every storage of a registry grows in packed pages of 128 elements,
// which EnTT lets a type ask for through a member of its own; native types have no such member, so each is
// kept in this wrapper, and the registry's operations unwrap it.
template <typename T>
struct Stored
{
    static constexpr std::size_t page_size = 128;
    // Types that cannot move keep their place in the storage, as they would unwrapped.
    static constexpr bool in_place_delete = entt::component_traits<T>::in_place_delete;

    template <typename... Args>
    explicit Stored(std::in_place_t, Args&&... args) : value(construct(std::forward<Args>(args)...))
    {
    }

    T value;

private:
    // EnTT's rule for components: aggregates are initialised with braces once there is anything to give them.
    template <typename... Args>
    static T construct(Args&&... args)
    {
        if constexpr (std::is_aggregate_v<T> && (sizeof...(Args) != 0u || !std::is_default_constructible_v<T>))
        {
            return T{std::forward<Args>(args)...};
        }
        else
        {
            return T(std::forward<Args>(args)...);
        }
    }
};

} // namespace internal
} // namespace Scripting

// Every native type's storage shares one implementation: a bound class adds its layout, not a storage's code.
namespace entt
{
template <typename T>
struct storage_type<Scripting::internal::Stored<T>, Scripting::ObjectHandleValue,
                    std::allocator<Scripting::internal::Stored<T>>>
{
    using type = Scripting::internal::ObjectStorage<Scripting::internal::Stored<T>>;
};
} // namespace entt

namespace Scripting
{
namespace internal
{
// A native object that lives elsewhere and is only tracked.
template <typename T>
struct PointerStorageComponent
{
    static constexpr std::size_t page_size = 128;

    explicit PointerStorageComponent(T* object) : pointer(object) {}

    T* pointer;
};

// One heap copy of each reflected type per registry, so that components may point at their type.
class TypeCache
{
public:
    const entt::meta_type& get(const entt::meta_type& type);

private:
    std::unordered_map<entt::id_type, std::unique_ptr<entt::meta_type>> mTypes;
};

template <typename T>
entt::meta_any fetchByValue(EntityRegistry& registry, const ObjectHandleValue& value)
{
    Stored<T>* object = registry.try_get<Stored<T>>(value);
    return object != nullptr ? entt::forward_as_meta(Reflection::context(), object->value)
                             : entt::meta_any{entt::meta_ctx_arg, Reflection::context()};
}

template <typename T>
entt::meta_any fetchByPointer(EntityRegistry& registry, const ObjectHandleValue& value)
{
    auto* stored = registry.try_get<PointerStorageComponent<T>>(value);
    return stored != nullptr ? entt::forward_as_meta(Reflection::context(), *stored->pointer)
                             : entt::meta_any{entt::meta_ctx_arg, Reflection::context()};
}

template <typename T>
entt::meta_any makeTypedHandle(const ObjectHandle& handle, TypedHandleKind kind,
                               std::span<LifetimeRegistry* const> registries);

using FetchFunction = entt::meta_any (*)(EntityRegistry&, const ObjectHandleValue&);
using TypedHandleFunction = entt::meta_any (*)(const ObjectHandle&, TypedHandleKind,
                                               std::span<LifetimeRegistry* const>);

// What an object's component knows of its native type: one constant per type and way of keeping it, so that
// making an object of a new type adds no code but the type's own.
struct ObjectTypeTable
{
    FetchFunction fetch;
    TypedHandleFunction typedHandle;
    entt::meta_type (*resolveType)();
    // The registry's storage of the type held by value; null for types held by pointer.
    ErasedStorage& (*storage)(EntityRegistry&);
    uint32_t objectSize;
    bool pointerStorage;
};

template <typename T>
ErasedStorage& storageOf(EntityRegistry& registry)
{
    return registry.storage<Stored<T>>();
}

template <typename T, bool pointerStorage>
consteval FetchFunction fetchFunctionOf()
{
    if constexpr (pointerStorage)
    {
        return &fetchByPointer<T>;
    }
    else
    {
        return &fetchByValue<T>;
    }
}

template <typename T, bool pointerStorage>
inline constexpr ObjectTypeTable OBJECT_TYPE{fetchFunctionOf<T, pointerStorage>(),
                                             &makeTypedHandle<T>,
                                             &Reflection::resolve<T>,
                                             pointerStorage ? nullptr : &storageOf<T>,
                                             static_cast<uint32_t>(pointerStorage ? sizeof(T*) : sizeof(T)),
                                             pointerStorage};

// The component every object has, by which the registry knows it, counts it and names its type.
struct BaseScriptComponent
{
    static constexpr std::size_t page_size = 128;

    using FetchFunction = internal::FetchFunction;
    using TypedHandleFunction = internal::TypedHandleFunction;

    BaseScriptComponent(TypeCache& cache, const ObjectTypeTable& table)
        : isPointerStorage(table.pointerStorage), objectSize(table.objectSize), fetchFunction(table.fetch),
          typedHandleFunction(table.typedHandle), resolveType(table.resolveType), typeCache(&cache)
    {
    }
    BaseScriptComponent(BaseScriptComponent&&) noexcept = default;
    BaseScriptComponent& operator=(BaseScriptComponent&&) noexcept = default;
    BaseScriptComponent(const BaseScriptComponent&) = delete;
    BaseScriptComponent& operator=(const BaseScriptComponent&) = delete;

    // Resolved on first use: most objects never need their type.
    const entt::meta_type& getType();
    entt::meta_any fetch(EntityRegistry& registry, const ObjectHandleValue& handle) const;

    bool isPointerStorage;
    bool matchesAnyType = false;
    uint32_t objectSize;
    FetchFunction fetchFunction;
    TypedHandleFunction typedHandleFunction;
    entt::meta_type (*resolveType)();
    TypeCache* typeCache;
    const entt::meta_type* scriptObjType = nullptr;
    // Its reference count is kept apart, in the registry's ReferenceCount of the object's id.
    std::unique_ptr<IScriptRef> scriptRef;
};

// An object's reference count, in an array of the registry indexed by the id in the object's handle. Every
// strong handle's copy and destruction counts, and there a handle reaches these 8 bytes directly, where the
// base component takes a search through the storage's sparse array and a line of its own.
struct ReferenceCount
{
    // The tag of an id that holds no object; no version has this bit.
    static constexpr uint32_t NO_OBJECT = 1u << 30;
    // In the tag while the object has a script reference, which hears the count cross between 1 and 2: the
    // count alone then says whether the component must be read.
    static constexpr uint32_t HAS_SCRIPT_REF = 1u << 31;

    // The version of the object that holds the id, with HAS_SCRIPT_REF: a stale handle's version finds no count.
    uint32_t tag = NO_OBJECT;
    // 0 while the object is dying.
    uint32_t count = 0;
};

// Component access on the entity registry alone. Native types are stored wrapped; these unwrap them.
struct ObjectRegistryUtilities
{
    template <typename T>
    static T* tryGet(EntityRegistry& registry, const ObjectHandleValue& handle)
    {
        const bool valid = registry.valid(handle);
        OV_ASSERT(valid, "This handle is invalid");
        Stored<T>* stored = valid ? registry.try_get<Stored<T>>(handle) : nullptr;
        return stored != nullptr ? &stored->value : nullptr;
    }

    // Asserts on an invalid handle and on a `T` already there; the latter answers the existing `T`.
    template <typename T, typename... Args>
    static T& emplace(EntityRegistry& registry, const ObjectHandleValue& handle, Args&&... args)
    {
        static_assert(!std::is_empty_v<T>, "Components of no size have no object to hand out");
        OV_ASSERT(registry.valid(handle), "This handle is invalid");
        if (!registry.valid(handle))
        {
            throwMissingObject("attach on an invalid handle");
        }
        OV_ASSERT(!registry.all_of<Stored<T>>(handle), "This handle already has this type attached");
        if (Stored<T>* existing = registry.try_get<Stored<T>>(handle))
        {
            return existing->value;
        }
        return registry.emplace<Stored<T>>(handle, std::in_place, std::forward<Args>(args)...).value;
    }

    template <typename T>
    static bool has(const EntityRegistry& registry, const ObjectHandleValue& handle)
    {
        return registry.all_of<Stored<T>>(handle);
    }

    template <typename T>
    static void remove(EntityRegistry& registry, const ObjectHandleValue& handle)
    {
        registry.remove<Stored<T>>(handle);
    }

    // The objects that have a `T`, in the order a view of it walks them.
    template <typename T>
    static std::vector<ObjectHandleValue> entitiesWith(EntityRegistry& registry)
    {
        const auto* storage = std::as_const(registry).storage<Stored<T>>();
        std::vector<ObjectHandleValue> entities;
        if (storage == nullptr)
        {
            return entities;
        }
        entities.reserve(storage->size());
        // A view walks from the back; in-place types leave holes, which are no object.
        for (auto position = storage->size(); position > 0; --position)
        {
            if (const ObjectHandleValue entity = storage->data()[position - 1]; entity != entt::tombstone)
            {
                entities.push_back(entity);
            }
        }
        return entities;
    }
};
} // namespace internal

/// Every native object one script context can see. An object is an entity that lives by a reference count
/// kept beside it; handles reach it through the registry's slot, so they stay safe after its death.
class LifetimeRegistry
{
public:
    /**
     * @brief Takes a slot of the manager's reference table.
     * @param contextId Id of the context the registry belongs to.
     * @param reference The slot that handles reach it through; must outlive the registry.
     */
    LifetimeRegistry(ContextId contextId, LifetimeRegistryReference& reference);
    LifetimeRegistry(const LifetimeRegistry&) = delete;
    LifetimeRegistry& operator=(const LifetimeRegistry&) = delete;
    /// Destroys the scope expecting it to be empty, then empties the slot and moves its generation on.
    ~LifetimeRegistry();

    /** @return Id of the registry's context. */
    ContextId getContextId() const { return mContextId; }
    /** @return The slot handles reach the registry through. */
    LifetimeRegistryReference& getRegistryReference() const { return *mReference; }
    /** @return A scope of the registry at its present generation. */
    WeakLifetimeScope getScope() const { return WeakLifetimeScope(mReference); }
    /** @return Key-to-handle cache of tracked objects. */
    HandleCache& getHandleCache() { return mHandleCache; }
    /** @return Key-to-handle cache of tracked objects. */
    const HandleCache& getHandleCache() const { return mHandleCache; }

    /// Nothing for an object that is dying already: it cannot be held any more.
    /// A handle of no object is ignored; the object being destroyed right now asserts.
    inline void addReference(ObjectHandle handle);
    /// True only when this call released the last reference. The object is destroyed before the outermost
    /// release returns: one released by the destruction of another waits until that one is gone, so that a
    /// chain of objects holding each other dies in a loop, not a recursion.
    /// @param handle The object; one that is gone or dying answers false.
    /// @return Whether this call released the last reference.
    inline bool removeReference(ObjectHandle handle);
    /**
     * @brief Strong references of an object.
     * @return The count; 0 for an object that is gone or dying.
     */
    unsigned int getReferenceCount(ObjectHandle handle);
    /// Destroys the object whatever its count; during another destruction, once that one is done.
    void destroyObject(ObjectHandle handle);
    /// Destroys every object, newest first, whatever the counts.
    /// @param expectEmpty Assert when objects are still alive.
    void destroyLifetimeScope(bool expectEmpty);

    /**
     * @brief The object as a reference any.
     * @return The any; empty for an invalid handle.
     */
    entt::meta_any resolveAsAny(ObjectHandle handle);
    /**
     * @brief A TypedObjectHandle of the object's own type, in an any.
     * @return The any; empty, after an assert, for an invalid handle.
     */
    entt::meta_any resolveAsTypedObjectHandle(ObjectHandle handle);
    /**
     * @brief A WeakTypedObjectHandle of the object's own type, in an any.
     * @return The any; empty, after an assert, for an invalid handle.
     */
    entt::meta_any resolveAsWeakTypedObjectHandle(ObjectHandle handle);
    /**
     * @brief A StrongTypedObjectHandle of the object's own type, one reference more, in an any.
     * @return The any; empty, after an assert, for an invalid handle.
     */
    entt::meta_any resolveAsStrongTypedObjectHandle(ObjectHandle handle);
    /**
     * @brief The object's reflected type.
     * @return The type, owned by the registry.
     */
    const entt::meta_type& resolvedType(ObjectHandle handle);

    /** @brief Gives an object its script reference, which the registry then owns and tells of count changes. */
    void setScriptRef(ObjectHandle handle, std::unique_ptr<IScriptRef>&& scriptRef);
    /**
     * @brief The object's script reference.
     * @return The reference, owned by the registry, or null.
     */
    IScriptRef* getScriptRef(ObjectHandle handle);

    /** @brief Adds a listener; it is held weakly and skipped once gone. */
    void addObjectListener(std::weak_ptr<ILifetimeObjectListener> objectListener);
    /** @brief Removes a listener added before. */
    void removeObjectListener(std::shared_ptr<ILifetimeObjectListener> objectListener);
    /** @brief Sets the one scope listener, held weakly. */
    void setScopeListener(std::weak_ptr<ILifetimeScopeListener> scopeListener)
    {
        mScopeListener = std::move(scopeListener);
    }

    /// False while the object is being destroyed or waits for it. Objects die only while mDestroying is set,
    /// which keeps the common case to one look at the entity.
    /// @return Whether the handle names a living object of this registry.
    bool isValid(ObjectHandle handle) const
    {
        return registry.valid(handle.value) && (!mDestroying || (handle != removingEntity && !_isDying(handle.value)));
    }

    /**
     * @brief Attaches a component built from the arguments; one already there asserts and is answered.
     * @tparam T Component type.
     * @tparam Args Constructor argument types.
     * @return The component.
     */
    template <typename T, typename... Args>
    T& attach(ObjectHandle handle, Args&&... args);
    /**
     * @brief A component of an object; a missing one asserts and throws.
     * @tparam T Component type.
     * @return The component.
     */
    template <typename T>
    T& get(ObjectHandle handle);
    /**
     * @brief Whether an object has a component.
     * @tparam T Component type.
     * @return True when it has one.
     */
    template <typename T>
    bool has(ObjectHandle handle) const;
    /**
     * @brief Removes a component, if there is one.
     * @tparam T Component type.
     */
    template <typename T>
    void detach(ObjectHandle handle);
    /// The object as a `T`, also when it is of a class derived from `T`.
    /// @tparam T Wanted type.
    /// @return The object; an invalid handle asserts and throws.
    template <typename T>
    T& resolve(TypedObjectHandle<T> handle);
    /**
     * @brief Typed form of removeReference(ObjectHandle).
     * @tparam T Object type.
     * @return Whether this call released the last reference.
     */
    template <typename T>
    bool removeReference(TypedObjectHandle<T> handle);

    /// Records a native object that lives elsewhere; the returned handle owns its first reference.
    /// @tparam T Object type; must be reflected.
    /// @param object Not owned; must outlive its record.
    /// @return Owner of the record.
    template <typename T>
    StrongObjectHandle trackObjectWithPointer(T* object);
    /// Destroys the record of `object` whatever its count; the object itself is left alone.
    /// @tparam T Object type.
    /// @param object An object tracked before.
    template <typename T>
    void untrackObjectWithPointer(T* object);

private:
    friend class WeakLifetimeScope;
    friend class WeakObjectHandle;
    friend class HandleTracker;

    // The count of the object `value` names, null when no object of that version holds the id.
    internal::ReferenceCount* _countOf(ObjectHandleValue value)
    {
        return const_cast<internal::ReferenceCount*>(std::as_const(*this)._countOf(value));
    }
    const internal::ReferenceCount* _countOf(ObjectHandleValue value) const
    {
        using Traits = entt::entt_traits<ObjectHandleValue>;
        const auto id = static_cast<size_t>(Traits::to_entity(value));
        if (id >= mCounts.size())
        {
            return nullptr;
        }
        const internal::ReferenceCount& count = mCounts[id];
        return (count.tag & ~internal::ReferenceCount::HAS_SCRIPT_REF) == Traits::to_version(value) ? &count : nullptr;
    }
    // Out of line, the rare ends of counting: inline they would stop the compiler inlining the common case into
    // every strong handle. They take the value alone, the context being this registry's: a handle's context is
    // a byte, and passing the whole handle on would read the word around it, which the handle's maker has just
    // written byte by byte; the processor cannot forward such stores to the load and waits for them.
    void _tellScriptRef(ObjectHandleValue value, bool raisedToTwo);
    bool _releaseLast(ObjectHandleValue value, internal::ReferenceCount& count);

    ObjectHandle _createObject(internal::BaseScriptComponent&& component);
    // Condemns the object and destroys it, at once or after the destruction under way.
    void _destroyObject(ObjectHandle handle, internal::BaseScriptComponent& comp);
    void _condemn(ObjectHandleValue value);
    // Destroys a condemned object, then whatever its destruction condemned, until nothing waits.
    void _destroyCondemned(ObjectHandleValue value, internal::BaseScriptComponent& comp);
    void _destroyNow(ObjectHandleValue value, internal::BaseScriptComponent& comp);
    // A dying object has no references left: it is being destroyed, or waits for it.
    bool _isDying(ObjectHandleValue value) const
    {
        const internal::ReferenceCount* count = _countOf(value);
        return count != nullptr && count->count == 0;
    }
    bool _doTypesMatch(ObjectHandle handle, const entt::meta_type& type);
    entt::meta_any _resolveAsTypedHandle(ObjectHandle handle, internal::TypedHandleKind kind);
    internal::BaseScriptComponent* _tryGetBase(ObjectHandleValue value) const
    {
        return mBaseComponents.contains(value) ? &mBaseComponents.get(value) : nullptr;
    }
    void _notifyObjectCreated(ObjectHandle handle, const entt::meta_type& type, unsigned objectSize);
    void _notifyObjectDestroyed(ObjectHandle handle, const entt::meta_type& type, unsigned objectSize);

    ContextId mContextId;
    LifetimeRegistryReference* mReference; // not owning

    internal::TypeCache mTypeCache;

public:
    /** @brief The entity registry underneath; for the library's own tools. */
    internal::EntityRegistry registry;
    /// The object being destroyed right now, the null handle otherwise. One slot, not a stack.
    ObjectHandle removingEntity;

private:
    std::weak_ptr<ILifetimeScopeListener> mScopeListener;
    std::vector<std::weak_ptr<ILifetimeObjectListener>> mObjectListeners;
    HandleCache mHandleCache;
    // The storage every object has, looked up once.
    decltype(registry.storage<internal::BaseScriptComponent>())& mBaseComponents;
    // Indexed by entity id: ids are dense, and every object's id has its count here.
    std::vector<internal::ReferenceCount> mCounts;
    // Condemned objects waiting for the destruction under way to end, the next to die at the back.
    std::vector<ObjectHandleValue> mPendingDestruction;
    // True while objects are being destroyed: only then can an object be dying.
    bool mDestroying = false;
};

// ---- Reference counting, inline: every strong handle's copy and destruction comes through here ----

void LifetimeRegistry::addReference(ObjectHandle handle)
{
    OV_ASSERT(handle != removingEntity, "This handle is being removed");
    internal::ReferenceCount* count = _countOf(handle.value);
    // A dying object cannot be held again: the new holder finds it gone, as it will be.
    if (count == nullptr || count->count == 0)
    {
        return;
    }
    if (++count->count == 2 && (count->tag & internal::ReferenceCount::HAS_SCRIPT_REF) != 0)
    {
        _tellScriptRef(handle.value, true);
    }
}

bool LifetimeRegistry::removeReference(ObjectHandle handle)
{
    // An object that holds a strong handle to itself is a leak its author should hear of: the handle can only
    // go when the object is destroyed by force. Said once per such handle, then the release is a no-op.
    OV_ASSERT(handle != removingEntity, "This handle is being removed");
    internal::ReferenceCount* count = _countOf(handle.value);
    // A dying object's references died with it.
    if (count == nullptr || count->count == 0)
    {
        return false;
    }
    const uint32_t left = --count->count;
    if (left == 1 && (count->tag & internal::ReferenceCount::HAS_SCRIPT_REF) != 0)
    {
        _tellScriptRef(handle.value, false);
        return false;
    }
    return left == 0 && _releaseLast(handle.value, *count);
}

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

inline void StrongObjectHandle::_addReference() const
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

inline void StrongObjectHandle::_removeReference() const
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

// ---- Templates of the registry ----

template <typename T, typename... Args>
T& LifetimeRegistry::attach(ObjectHandle handle, Args&&... args)
{
    OV_ASSERT(handle != removingEntity, "This handle is being removed");
    return internal::ObjectRegistryUtilities::emplace<T>(registry, handle.value, std::forward<Args>(args)...);
}

template <typename T>
T& LifetimeRegistry::get(ObjectHandle handle)
{
    OV_ASSERT(handle != removingEntity, "This handle is being removed");
    T* component = internal::ObjectRegistryUtilities::tryGet<T>(registry, handle.value);
    if (component == nullptr)
    {
        internal::throwMissingObject("get of a component the object does not have");
    }
    return *component;
}

template <typename T>
bool LifetimeRegistry::has(ObjectHandle handle) const
{
    OV_ASSERT(handle != removingEntity, "This handle is being removed");
    const bool valid = registry.valid(handle.value);
    OV_ASSERT(valid, "This handle is invalid");
    return valid && internal::ObjectRegistryUtilities::has<T>(registry, handle.value);
}

template <typename T>
void LifetimeRegistry::detach(ObjectHandle handle)
{
    OV_ASSERT(handle != removingEntity, "This handle is being removed");
    const bool valid = registry.valid(handle.value);
    OV_ASSERT(valid, "This handle is invalid");
    const bool attached = valid && internal::ObjectRegistryUtilities::has<T>(registry, handle.value);
    // The words are attach's, kept although the sense is reversed.
    OV_ASSERT(attached, "This handle already has this type attached");
    if (attached)
    {
        internal::ObjectRegistryUtilities::remove<T>(registry, handle.value);
    }
}

template <typename T>
T& LifetimeRegistry::resolve(TypedObjectHandle<T> handle)
{
    OV_ASSERT(handle != removingEntity, "This handle is being removed");
    OV_ASSERT(registry.valid(handle.value), "This handle is invalid");
    entt::meta_any any = resolveAsAny(handle);
    OV_ASSERT(any, "could not resolve as a any");
    T* object = any.try_cast<T>();
    if (object == nullptr)
    {
        internal::throwMissingObject("resolve of an object that is not of the handle's type");
    }
    return *object;
}

template <typename T>
bool LifetimeRegistry::removeReference(TypedObjectHandle<T> handle)
{
    OV_ASSERT(handle != removingEntity, "This handle is being removed");
    OV_ASSERT(_doTypesMatch(handle, Reflection::resolve<T>()),
              "type of handle provided doesnt match the type of the object we stored");
    return removeReference(static_cast<const ObjectHandle&>(handle));
}

template <typename T>
StrongObjectHandle LifetimeRegistry::trackObjectWithPointer(T* object)
{
    const ObjectHandle handle =
        _createObject(internal::BaseScriptComponent(mTypeCache, internal::OBJECT_TYPE<T, true>));
    if (!handle.empty())
    {
        registry.emplace<internal::PointerStorageComponent<T>>(handle.value, object);
        if constexpr (std::is_base_of_v<EnableWeakHandleFromThis, T>)
        {
            static_cast<EnableWeakHandleFromThis&>(*object).mWeakHandleFromThis = WeakObjectHandle(getScope(), handle);
        }
    }
    return StrongObjectHandle(getScope(), handle, false);
}

template <typename T>
void LifetimeRegistry::untrackObjectWithPointer(T* object)
{
    if constexpr (std::is_base_of_v<EnableWeakHandleFromThis, T>)
    {
        static_cast<EnableWeakHandleFromThis&>(*object).mWeakHandleFromThis = WeakObjectHandle();
    }

    // A linear scan on purpose: no map from pointers to handles is kept.
    auto& pointers = registry.storage<internal::PointerStorageComponent<T>>();
    const auto* entities = pointers.data();
    std::optional<ObjectHandleValue> found;
    for (auto pos = pointers.size(); pos > 0 && !found; --pos)
    {
        const ObjectHandleValue entity = entities[pos - 1];
        if (entity != entt::tombstone && pointers.get(entity).pointer == object)
        {
            found = entity;
        }
    }
    if (!found)
    {
        OV_ASSERT(false,
                  "Object of the same type was not found, has the typed changed from when you started tracking it?");
        return;
    }

    const ObjectHandle handle(*found, mContextId);
    OV_ASSERT(_doTypesMatch(handle, Reflection::resolve<T>()),
              "type of handle provided doesnt match the type of the object we stored");
    if (internal::BaseScriptComponent* comp = _tryGetBase(handle.value); comp != nullptr && !_isDying(handle.value))
    {
        _destroyObject(handle, *comp);
    }
}

namespace internal
{
template <typename T>
entt::meta_any makeTypedHandle(const ObjectHandle& handle, TypedHandleKind kind,
                               std::span<LifetimeRegistry* const> registries)
{
    entt::meta_ctx& context = Reflection::context();
    if (kind == TypedHandleKind::Plain)
    {
        return entt::meta_any{context, std::in_place_type<TypedObjectHandle<T>>, handle};
    }
    if (registries.size() != 1 || registries.front() == nullptr)
    {
        return entt::meta_any{entt::meta_ctx_arg, context};
    }
    if (kind == TypedHandleKind::Weak)
    {
        return entt::meta_any{context, std::in_place_type<WeakTypedObjectHandle<T>>, registries.front()->getScope(),
                              handle};
    }
    return entt::meta_any{context, std::in_place_type<StrongTypedObjectHandle<T>>, registries.front()->getScope(),
                          handle, true};
}
} // namespace internal

// ---- Templates of the scope and the handles ----

inline ContextId WeakLifetimeScope::getContextId() const
{
    const LifetimeRegistry* registry = getLifetimeRegistry();
    return registry != nullptr ? registry->getContextId() : ContextId{};
}

template <typename T, typename... Args>
StrongTypedObjectHandle<T> WeakLifetimeScope::makeObject(Args&&... args) const
{
    static_assert(!std::is_empty_v<T>, "An object needs state of its own to be reached through its handles");
    constexpr const internal::ObjectTypeTable& table = internal::OBJECT_TYPE<T, false>;
    LifetimeRegistry* registry = nullptr;
    void* slot = nullptr;
    const ObjectHandle handle = _beginObject(table, registry, slot);
    if (registry == nullptr)
    {
        return StrongTypedObjectHandle<T>();
    }
    if (slot != nullptr)
    {
        try
        {
            ::new (slot) internal::Stored<T>(std::in_place, std::forward<Args>(args)...);
        }
        catch (...)
        {
            _abandonObject(table, *registry, handle);
            throw;
        }
        if constexpr (std::is_base_of_v<EnableWeakHandleFromThis, T>)
        {
            EnableWeakHandleFromThis& self = registry->get<T>(handle);
            self.mWeakHandleFromThis = WeakObjectHandle(WeakLifetimeScope(*this), handle);
        }
    }
    return StrongTypedObjectHandle<T>(*this, handle, false);
}

namespace internal
{
inline bool SmartObjectHandleBase::valid() const
{
    if (mHandle.empty())
    {
        return false;
    }
    const LifetimeRegistry* registry = mScope.getLifetimeRegistry();
    return registry != nullptr && registry->isValid(mHandle);
}

template <typename T, typename... Args>
T& SmartObjectHandleBase::attach(Args&&... args) const
{
    OV_ASSERT(valid(), "Cannot attach a component if its invalid");
    LifetimeRegistry* registry = getLifetimeRegistry();
    if (registry == nullptr)
    {
        throwMissingObject("attach through a handle without registry");
    }
    return registry->attach<T>(mHandle, std::forward<Args>(args)...);
}

template <typename T>
void SmartObjectHandleBase::detach() const
{
    OV_ASSERT(valid(), "Cannot detach a component if its invalid");
    OV_ASSERT(has<T>(), "Cannot detach a component if it isnt on the object already");
    if (LifetimeRegistry* registry = getLifetimeRegistry())
    {
        registry->detach<T>(mHandle);
    }
}

template <typename T>
bool SmartObjectHandleBase::has() const
{
    const bool isValid = valid();
    OV_ASSERT(isValid, "Cannot check if object has a component if its invalid");
    return isValid && getLifetimeRegistry()->has<T>(mHandle);
}

template <typename T>
T* SmartObjectHandleBase::tryGet() const
{
    const bool isValid = valid();
    OV_ASSERT(isValid, "Cannot check if object has a component if its invalid");
    return isValid ? ObjectRegistryUtilities::tryGet<T>(getLifetimeRegistry()->registry, mHandle.value) : nullptr;
}

template <typename T>
T& SmartObjectHandleBase::get() const
{
    OV_ASSERT(valid(), "Cannot get a component if its invalid");
    LifetimeRegistry* registry = getLifetimeRegistry();
    OV_ASSERT(registry != nullptr && registry->has<T>(mHandle),
              "Cannot get a component if it doesnt have the component");
    if (registry == nullptr)
    {
        throwMissingObject("get through a handle without registry");
    }
    return registry->get<T>(mHandle);
}
} // namespace internal

template <typename T>
WeakTypedObjectHandle<T> WeakObjectHandle::tryCast() const
{
    LifetimeRegistry* registry = getLifetimeRegistry();
    if (!valid() || registry == nullptr || !registry->isValid(mHandle) ||
        !registry->_doTypesMatch(mHandle, Reflection::resolve<T>()))
    {
        return WeakTypedObjectHandle<T>();
    }
    return WeakTypedObjectHandle<T>(getScope(), mHandle);
}

template <typename T>
T& WeakTypedObjectHandle<T>::operator*() const
{
    OV_ASSERT(valid(), "ObjectHandle is not valid!");
    LifetimeRegistry* registry = getLifetimeRegistry();
    if (registry == nullptr)
    {
        internal::throwMissingObject("dereference of a handle without registry");
    }
    return registry->resolve<T>(mHandle);
}

template <typename T>
T* WeakTypedObjectHandle<T>::operator->() const
{
    return &**this;
}

template <typename T>
T& StrongTypedObjectHandle<T>::operator*() const
{
    OV_ASSERT(Base::valid(), "ObjectHandle is not valid!");
    LifetimeRegistry* registry = getLifetimeRegistry();
    if (registry == nullptr)
    {
        internal::throwMissingObject("dereference of a handle without registry");
    }
    return registry->resolve<T>(mHandle);
}

template <typename T>
T* StrongTypedObjectHandle<T>::operator->() const
{
    return &**this;
}

template <typename T>
StrongObjectHandle StrongTypedObjectHandle<T>::asGeneric() const
{
    if (valid())
    {
        return StrongObjectHandle(getScope(), mHandle, true);
    }
    OV_ASSERT(false, "Trying to make an invalid handle generic.");
    return StrongObjectHandle();
}

template <typename T>
StrongObjectHandle StrongTypedObjectHandle<T>::toGeneric(StrongTypedObjectHandle<T>&& handle)
{
    if (handle.valid())
    {
        WeakLifetimeScope scope = handle.getScope();
        const ObjectHandle objectHandle = handle.release();
        return StrongObjectHandle(std::move(scope), objectHandle, false);
    }
    OV_ASSERT(false, "Trying to convert an invalid handle to a generic handle.");
    return StrongObjectHandle();
}
} // namespace Scripting
