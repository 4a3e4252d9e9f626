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

void HandleCache::_add(uint64_t typeHash, uint64_t keyHash, const ObjectHandle& handle)
{
    bool newType = false;
    KeyCache& cache = mTypeCaches.emplace(typeHash, KeyCache{}, newType);
    bool newKey = false;
    // A key already there keeps its first handle; the reverse map follows the latest call.
    cache.emplace(keyHash, handle.toU64(), newKey);
    OV_ASSERT(newKey, "Trying to add a key that already exists into the handle cache!");
    mHandleToLookupData.insert_or_assign(handle, LookupData{typeHash, keyHash});
}

void HandleCache::_remove(uint64_t typeHash, uint64_t keyHash)
{
    KeyCache* cache = mTypeCaches.find(typeHash);
    if (cache == nullptr)
    {
        return;
    }
    const uint64_t* packed = cache->find(keyHash);
    if (packed == nullptr)
    {
        return;
    }
    const ObjectHandle handle(*packed);
    cache->erase(keyHash);
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
    _remove(lookup.typeHash, lookup.keyHash);
}
} // namespace Scripting
