// The replaced operators live in a unit of their own, away from the code they count. Where GCC 12 sees the body
// of the replaced delete inlined into code that got its block from operator new, it takes that block for an object
// of exactly the requested size, and reports the read of the size in front of it (-Warray-bounds) and the free()
// of the block (-Wmismatched-new-delete), although this new and delete agree on the layout.
#include "AllocationCounter.h"

#include <cstdlib>
#include <new>

namespace
{
// Constant-initialised, so reading them needs no guard even in the allocations a thread's start-up makes.
thread_local Bench::AllocationCounts tCounts;

// The requested size sits in front of each block, so that the unsized delete can count bytes too.
constexpr std::size_t HEADER = alignof(std::max_align_t);

void* countedAllocate(std::size_t size)
{
    void* block = std::malloc(size + HEADER);
    if (block == nullptr)
    {
        throw std::bad_alloc();
    }
    *static_cast<std::size_t*>(block) = size;
    ++tCounts.allocations;
    tCounts.allocatedBytes += size;
    return static_cast<unsigned char*>(block) + HEADER;
}

void countedFree(void* pointer) noexcept
{
    if (pointer == nullptr)
    {
        return;
    }
    void* block = static_cast<unsigned char*>(pointer) - HEADER;
    ++tCounts.frees;
    tCounts.freedBytes += *static_cast<std::size_t*>(block);
    std::free(block);
}
} // namespace

namespace Bench
{
AllocationCounts allocationCounts() noexcept
{
    return tCounts;
}

void resetAllocationCounts() noexcept
{
    tCounts = {};
}
} // namespace Bench

void* operator new(std::size_t size)
{
    return countedAllocate(size);
}
void* operator new[](std::size_t size)
{
    return countedAllocate(size);
}
void operator delete(void* pointer) noexcept
{
    countedFree(pointer);
}
void operator delete[](void* pointer) noexcept
{
    countedFree(pointer);
}
void operator delete(void* pointer, std::size_t) noexcept
{
    countedFree(pointer);
}
void operator delete[](void* pointer, std::size_t) noexcept
{
    countedFree(pointer);
}
