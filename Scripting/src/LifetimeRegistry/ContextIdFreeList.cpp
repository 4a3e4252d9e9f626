#include "Scripting/LifetimeRegistry/LifetimeRegistryReference.h"

#include "Diagnostics/Assert.h"

#include <algorithm>

namespace Scripting
{
static_assert(NULL_OBJECT_HANDLE_VALUE == static_cast<ObjectHandleValue>(entt::null),
              "The null handle value is the entity registry's null");
static_assert(ObjectHandle().empty(), "A default handle names no object");

uint64_t contextIdToIndex(ContextId contextId)
{
    OV_ASSERT(contextId.value >= RegistryManager::LOWEST_CONTEXT_ID &&
                  contextId.value <= RegistryManager::HIGHEST_CONTEXT_ID,
              "Invalid contextId");
    return static_cast<uint64_t>(contextId.value) - 1;
}

ContextId indexToContextId(uint64_t index)
{
    const ContextId contextId{static_cast<uint8_t>(index + 1)};
    OV_ASSERT(contextId.value >= RegistryManager::LOWEST_CONTEXT_ID &&
                  contextId.value <= RegistryManager::HIGHEST_CONTEXT_ID,
              "Invalid contextId");
    return contextId;
}

ContextIdFreeList::ContextIdFreeList(uint8_t lowestId, uint8_t highestId) : mLowestId(lowestId), mHighestId(highestId)
{
    // Highest at the bottom of the stack, so that the lowest id is handed out first.
    mFreeContextIds.reserve(highestId >= lowestId ? highestId - lowestId + 1 : 0);
    for (int id = highestId; id >= lowestId; --id)
    {
        mFreeContextIds.push_back(ContextId{static_cast<uint8_t>(id)});
    }
}

ContextId ContextIdFreeList::nextId()
{
    OV_ASSERT(mFreeContextIds.size() > 0, "Invalid free list");
    if (mFreeContextIds.empty())
    {
        return ContextId{};
    }
    const ContextId id = mFreeContextIds.back();
    mFreeContextIds.pop_back();
    return id;
}

void ContextIdFreeList::returnId(ContextId id)
{
    if (!(id.value >= mLowestId && id.value <= mHighestId))
    {
        OV_ASSERT(id.value >= mLowestId && id.value <= mHighestId, "Invalid id");
        return;
    }
    // The manager offers every empty slot on every sweep; an id already free is taken only once.
    if (std::find(mFreeContextIds.begin(), mFreeContextIds.end(), id) != mFreeContextIds.end())
    {
        return;
    }
    mFreeContextIds.push_back(id);
}

LifetimeRegistryReference::~LifetimeRegistryReference()
{
    OV_ASSERT(mRegistry == nullptr,
              "Expected lifetime registry to be null when destroying lifetime registry reference");
}

void LifetimeRegistryReference::set(LifetimeRegistry* registry)
{
    OV_ASSERT(mRegistry == nullptr, "LifetimeRegistryReference already set");
    mRegistry = registry;
}
} // namespace Scripting
