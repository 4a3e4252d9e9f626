#include "Scripting/LifetimeRegistry/LifetimeRegistry.h"

#include "Diagnostics/Assert.h"

namespace Scripting
{
HandleCache::~HandleCache()
{
    OV_ASSERT(mHandleToLookupData.size() == 0,
              "There are handles remaining in the handle cache but the handle cache is being destroyed, this mean "
              "they are being leaked!");
}

void HandleCache::_add(uint64_t typeHash, uint64_t keyHash, uint64_t place, const ObjectHandle& handle)
{
    bool newType = false;
    KeyCache& cache = mTypeCaches.emplace(typeHash, typeHash, KeyCache{}, newType);
    if (newType)
    {
        mLastType = nullptr;
    }
    bool newKey = false;
    // A key already there keeps its first handle; the reverse map follows the latest call.
    cache.emplace(keyHash, place, TrackedEntry{handle.toU64()}, newKey);
    OV_ASSERT(newKey, "Trying to add a key that already exists into the handle cache!");
    mHandleToLookupData.insert_or_assign(handle, LookupData{typeHash, keyHash, place});
}

void HandleCache::_remove(uint64_t typeHash, uint64_t keyHash, uint64_t place)
{
    KeyCache* cache = const_cast<KeyCache*>(_findType(typeHash));
    if (cache == nullptr)
    {
        return;
    }
    const TrackedEntry* entry = cache->find(keyHash, place);
    if (entry == nullptr)
    {
        return;
    }
    const ObjectHandle handle = entry->handle();
    cache->erase(keyHash, place);
    const auto handleErased = mHandleToLookupData.erase(handle);
    OV_ASSERT(handleErased == 1, "Expected handle to remove from reverse map");
}

void HandleCache::removeHandle(const ObjectHandle& handle)
{
    // Every object's death comes through here, and most objects were never tracked.
    if (mHandleToLookupData.empty())
    {
        return;
    }
    const auto found = mHandleToLookupData.find(handle);
    if (found == mHandleToLookupData.end())
    {
        return;
    }
    const LookupData lookup = found->second;
    _remove(lookup.typeHash, lookup.keyHash, lookup.place);
}

} // namespace Scripting
