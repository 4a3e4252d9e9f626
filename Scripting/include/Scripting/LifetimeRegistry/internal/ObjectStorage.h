#pragma once

#include "Scripting/LifetimeRegistry/LifetimeRegistryReference.h"

#include <entt/core/type_info.hpp>
#include <entt/entity/component.hpp>
#include <entt/entity/sparse_set.hpp>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

namespace Scripting::internal
{
// What a storage needs to know of its element type to keep it without being a template of it.
struct ObjectLayout
{
    uint32_t size;
    uint32_t alignment;
    // Move-constructs into raw memory at `to` and ends the object at `from`. Null: copying the bytes does both.
    void (*relocate)(void* to, void* from);
    // Null: the type has nothing to do on destruction.
    void (*destroy)(void* object);
    // Elements never move once made (the type cannot be moved, or asks to stay put).
    bool inPlace;
    // Whether relocate (or copying the bytes) may move an element at all.
    bool movable;
};

template <typename T>
void relocateObject(void* to, void* from)
{
    T& source = *static_cast<T*>(from);
    ::new (to) T(std::move(source));
    source.~T();
}

template <typename T>
void destroyObject(void* object)
{
    static_cast<T*>(object)->~T();
}

template <typename T>
consteval ObjectLayout objectLayoutOf()
{
    constexpr bool movable = std::is_move_constructible_v<T>;
    void (*relocate)(void*, void*) = nullptr;
    if constexpr (movable && !std::is_trivially_copyable_v<T>)
    {
        relocate = &relocateObject<T>;
    }
    void (*destroy)(void*) = nullptr;
    if constexpr (!std::is_trivially_destructible_v<T>)
    {
        destroy = &destroyObject<T>;
    }
    return ObjectLayout{static_cast<uint32_t>(sizeof(T)),
                        static_cast<uint32_t>(alignof(T)),
                        relocate,
                        destroy,
                        entt::component_traits<T>::in_place_delete,
                        movable};
}

template <typename T>
inline constexpr ObjectLayout OBJECT_LAYOUT = objectLayoutOf<T>();

// The storage of one element type of an entity registry, with the interface the registry and its sets use, whose
// code exists once for all types: the elements' bytes sit in pages of PAGE_SIZE, and the few things that depend
// on the type (moving, destroying) go through its ObjectLayout. Elements keep their address until they are
// removed, or moved by a removal before them (never for in-place types).
class ErasedStorage : public entt::basic_sparse_set<ObjectHandleValue>
{
public:
    using base_type = entt::basic_sparse_set<ObjectHandleValue>;
    using entity_type = ObjectHandleValue;
    using size_type = std::size_t;

    static constexpr std::size_t PAGE_SIZE = 128;

    ErasedStorage(const entt::type_info& type, const ObjectLayout& layout);
    ErasedStorage(const ErasedStorage&) = delete;
    ErasedStorage& operator=(const ErasedStorage&) = delete;
    ~ErasedStorage() override;

    void reserve(size_type capacity) override;
    [[nodiscard]] size_type capacity() const noexcept override;
    void shrink_to_fit() override;

    // The element at a position of the packed array; the position must hold one.
    [[nodiscard]] void* at(std::size_t position) const
    {
        return mPages[position / PAGE_SIZE] + (position % PAGE_SIZE) * mLayout->size;
    }

    // Enters the entity into the set and answers the raw memory its element is to be made in, which the caller
    // must fill before anything else looks at the storage.
    void* claim(ObjectHandleValue entity);
    // Takes back a claim whose element was never made: the constructor threw.
    void unclaim(ObjectHandleValue entity);

private:
    [[nodiscard]] const void* get_at(std::size_t position) const final;
    void swap_or_move(std::size_t from, std::size_t to) final;
    void pop(basic_iterator first, basic_iterator last) final;
    void pop_all() final;
    basic_iterator try_emplace(ObjectHandleValue entity, bool forceBack, const void* value) final;

    void _ensurePage(std::size_t position);
    void _releasePagesFrom(std::size_t page);
    std::byte* _allocatePage() const;
    void _freePage(std::byte* page) const;
    void _relocate(void* to, void* from) const;
    void _destroy(void* object) const;

    std::vector<std::byte*> mPages;
    const ObjectLayout* mLayout;
};

// The storage a registry uses for `Value`: ErasedStorage with typed access. Nothing here is virtual or large, so
// that a type adds to a program only its layout and these inline accessors.
template <typename Value>
class ObjectStorage final : public ErasedStorage
{
public:
    using value_type = Value;
    using traits_type = entt::component_traits<Value>;
    using allocator_type = std::allocator<Value>;

    ObjectStorage() : ErasedStorage(entt::type_id<Value>(), OBJECT_LAYOUT<Value>) {}
    explicit ObjectStorage(const allocator_type&) : ObjectStorage() {}

    [[nodiscard]] allocator_type get_allocator() const noexcept { return allocator_type{}; }

    [[nodiscard]] Value& get(ObjectHandleValue entity) { return *static_cast<Value*>(at(index(entity))); }
    [[nodiscard]] const Value& get(ObjectHandleValue entity) const
    {
        return *static_cast<const Value*>(at(index(entity)));
    }
    [[nodiscard]] std::tuple<Value&> get_as_tuple(ObjectHandleValue entity)
    {
        return std::forward_as_tuple(get(entity));
    }
    [[nodiscard]] std::tuple<const Value&> get_as_tuple(ObjectHandleValue entity) const
    {
        return std::forward_as_tuple(get(entity));
    }

    template <typename... Args>
    Value& emplace(ObjectHandleValue entity, Args&&... args)
    {
        void* slot = claim(entity);
        try
        {
            return *::new (slot) Value(std::forward<Args>(args)...);
        }
        catch (...)
        {
            unclaim(entity);
            throw;
        }
    }
};
} // namespace Scripting::internal
