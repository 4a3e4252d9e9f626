#include "Scripting/LifetimeRegistry/LifetimeRegistry.h"

#include "Diagnostics/Assert.h"

namespace Scripting
{
RegistryManager::RegistryManager() : mContextIdFreeList(LOWEST_CONTEXT_ID, HIGHEST_CONTEXT_ID) {}

void RegistryManager::_returnExpiredIdsToFreeList()
{
    // Upward, so that the ids that expired since the last sweep come back highest first and sit above
    // the ids never handed out.
    for (uint64_t index = 0; index < MAX_NUMBER_IDS; ++index)
    {
        if (mRegistryRefs[index].getRegistry() == nullptr)
        {
            mContextIdFreeList.returnId(indexToContextId(index));
        }
    }
    OV_ASSERT(mContextIdFreeList.size() <= MAX_NUMBER_IDS, "Invalid free list");
}

std::unique_ptr<LifetimeRegistry> RegistryManager::createLifetimeRegistry()
{
    _returnExpiredIdsToFreeList();
    if (mContextIdFreeList.empty())
    {
        return nullptr;
    }

    const ContextId newContextId = mContextIdFreeList.nextId();
    const uint64_t index = contextIdToIndex(newContextId);
    OV_ASSERT(newContextId.value >= LOWEST_CONTEXT_ID && newContextId.value <= HIGHEST_CONTEXT_ID, "Invalid contextId");
    OV_ASSERT(index < mRegistryRefs.size(), "Index is out of bounds");
    if (index >= mRegistryRefs.size())
    {
        return nullptr;
    }
    return std::make_unique<LifetimeRegistry>(newContextId, mRegistryRefs[index]);
}

LifetimeRegistry* RegistryManager::getRegistry(ContextId id)
{
    const uint64_t index = contextIdToIndex(id);
    return index < mRegistryRefs.size() ? mRegistryRefs[index].getRegistry() : nullptr;
}

unsigned char RegistryManager::getRegistryCount()
{
    _returnExpiredIdsToFreeList();
    uint8_t registryCount = 0;
    for (const LifetimeRegistryReference& reference : mRegistryRefs)
    {
        if (reference.getRegistry() != nullptr)
        {
            ++registryCount;
        }
    }
    OV_ASSERT(mContextIdFreeList.size() + registryCount == MAX_NUMBER_IDS, "Invalid free list");
    return registryCount;
}
} // namespace Scripting
