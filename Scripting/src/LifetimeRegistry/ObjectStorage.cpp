#include "Scripting/LifetimeRegistry/internal/ObjectStorage.h"

#include "Diagnostics/Assert.h"

#include <cstring>

namespace Scripting::internal
{
namespace
{
// Room for an element while a removal or a swap moves it: on the stack for the usual object, on the heap for a
// large or over-aligned one.
class Scratch
{
public:
    explicit Scratch(const ObjectLayout& layout) : mLayout(layout)
    {
        if (layout.size > sizeof(mInline) || layout.alignment > alignof(std::max_align_t))
        {
            mHeap = ::operator new(layout.size, std::align_val_t(layout.alignment));
        }
    }
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;
    ~Scratch()
    {
        if (mHeap != nullptr)
        {
            ::operator delete(mHeap, std::align_val_t(mLayout.alignment));
        }
    }

    void* get() { return mHeap != nullptr ? mHeap : static_cast<void*>(mInline); }

private:
    const ObjectLayout& mLayout;
    void* mHeap = nullptr;
    alignas(std::max_align_t) std::byte mInline[256];
};
// Moves the bytes of a trivially copyable element; the usual small sizes without a call to the C library, which
// a removal would otherwise pay on every object's death.
void copyBytes(void* to, const void* from, std::size_t size)
{
    switch (size)
    {
    case 4:
        std::memcpy(to, from, 4);
        return;
    case 8:
        std::memcpy(to, from, 8);
        return;
    case 16:
        std::memcpy(to, from, 16);
        return;
    default:
        std::memcpy(to, from, size);
        return;
    }
}
} // namespace

ErasedStorage::ErasedStorage(const entt::type_info& type, const ObjectLayout& layout)
    : base_type(type, layout.inPlace ? entt::deletion_policy::in_place : entt::deletion_policy::swap_and_pop),
      mLayout(&layout)
{
}

ErasedStorage::~ErasedStorage()
{
    const ObjectHandleValue* entities = data();
    for (std::size_t position = 0, count = size(); position < count; ++position)
    {
        if (entities[position] != entt::tombstone)
        {
            _destroy(at(position));
        }
    }
    _releasePagesFrom(0);
}

void ErasedStorage::reserve(size_type capacity)
{
    base_type::reserve(capacity);
    if (capacity != 0)
    {
        _ensurePage(capacity - 1);
    }
}

ErasedStorage::size_type ErasedStorage::capacity() const noexcept
{
    return mPages.size() * PAGE_SIZE;
}

void ErasedStorage::shrink_to_fit()
{
    base_type::shrink_to_fit();
    _releasePagesFrom((size() + PAGE_SIZE - 1) / PAGE_SIZE);
}

void* ErasedStorage::claim(ObjectHandleValue entity)
{
    const auto it = base_type::try_emplace(entity, false);
    const auto position = static_cast<std::size_t>(it.index());
    try
    {
        _ensurePage(position);
    }
    catch (...)
    {
        base_type::pop(it, it + 1);
        throw;
    }
    return at(position);
}

void ErasedStorage::unclaim(ObjectHandleValue entity)
{
    const auto it = find(entity);
    // The set's own removal: there is no element to destroy or move.
    base_type::pop(it, it + 1);
}

const void* ErasedStorage::get_at(std::size_t position) const
{
    return at(position);
}

void ErasedStorage::swap_or_move(std::size_t from, std::size_t to)
{
    OV_ASSERT(mLayout->movable, "Elements of this type cannot be moved");
    if (!mLayout->movable)
    {
        return;
    }
    void* source = at(from);
    void* target = at(to);
    if (data()[to] == entt::tombstone)
    {
        _relocate(target, source);
        return;
    }
    Scratch held(*mLayout);
    _relocate(held.get(), target);
    _relocate(target, source);
    _relocate(source, held.get());
}

void ErasedStorage::pop(basic_iterator first, basic_iterator last)
{
    for (; first != last; ++first)
    {
        const auto position = static_cast<std::size_t>(first.index());
        if (mLayout->inPlace)
        {
            // The slot joins the free list only once its element is gone.
            _destroy(at(position));
            base_type::in_place_pop(first);
            continue;
        }
        const std::size_t back = size() - 1;
        if (mLayout->destroy == nullptr)
        {
            // Nothing runs on its death: the last element may take its place at once.
            if (back != position)
            {
                _relocate(at(position), at(back));
            }
            base_type::swap_and_pop(first);
            continue;
        }
        // The element leaves the storage before its destructor runs, so that the destructor finds the storage
        // whole, with the last element moved into the hole.
        Scratch removed(*mLayout);
        _relocate(removed.get(), at(position));
        if (back != position)
        {
            _relocate(at(position), at(back));
        }
        base_type::swap_and_pop(first);
        _destroy(removed.get());
    }
}

void ErasedStorage::pop_all()
{
    const ObjectHandleValue* entities = data();
    for (std::size_t position = 0, count = size(); position < count; ++position)
    {
        if (entities[position] != entt::tombstone)
        {
            _destroy(at(position));
        }
    }
    base_type::pop_all();
}

ErasedStorage::basic_iterator ErasedStorage::try_emplace(ObjectHandleValue, bool, const void*)
{
    // Elements are made only from their constructor's arguments (emplace), never copied or defaulted in.
    return base_type::end();
}

void ErasedStorage::_ensurePage(std::size_t position)
{
    const std::size_t needed = position / PAGE_SIZE + 1;
    if (mPages.size() < needed)
    {
        mPages.reserve(needed);
    }
    while (mPages.size() < needed)
    {
        mPages.push_back(_allocatePage());
    }
}

void ErasedStorage::_releasePagesFrom(std::size_t page)
{
    for (std::size_t index = page; index < mPages.size(); ++index)
    {
        _freePage(mPages[index]);
    }
    if (page < mPages.size())
    {
        mPages.resize(page);
    }
}

std::byte* ErasedStorage::_allocatePage() const
{
    const std::size_t bytes = PAGE_SIZE * mLayout->size;
    if (mLayout->alignment > __STDCPP_DEFAULT_NEW_ALIGNMENT__)
    {
        return static_cast<std::byte*>(::operator new(bytes, std::align_val_t(mLayout->alignment)));
    }
    return static_cast<std::byte*>(::operator new(bytes));
}

void ErasedStorage::_freePage(std::byte* page) const
{
    if (mLayout->alignment > __STDCPP_DEFAULT_NEW_ALIGNMENT__)
    {
        ::operator delete(page, std::align_val_t(mLayout->alignment));
    }
    else
    {
        ::operator delete(page);
    }
}

void ErasedStorage::_relocate(void* to, void* from) const
{
    if (mLayout->relocate != nullptr)
    {
        mLayout->relocate(to, from);
    }
    else
    {
        copyBytes(to, from, mLayout->size);
    }
}

void ErasedStorage::_destroy(void* object) const
{
    if (mLayout->destroy != nullptr)
    {
        mLayout->destroy(object);
    }
}
} // namespace Scripting::internal
