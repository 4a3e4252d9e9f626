#include <cstddef>
#include <cstdlib>
#include <new>

// Every C++ heap allocation of the program, so that a row can report its allocations per call. Kept apart so
// that it can move to a header shared by the benchmarks.
namespace Bench
{
thread_local std::size_t sAllocations = 0;

std::size_t allocationCount() noexcept
{
    return sAllocations;
}
} // namespace Bench

void* operator new(std::size_t size)
{
    ++Bench::sAllocations;
    if (void* memory = std::malloc(size == 0 ? 1 : size))
    {
        return memory;
    }
    throw std::bad_alloc();
}

void* operator new[](std::size_t size)
{
    return ::operator new(size);
}

void operator delete(void* memory) noexcept
{
    std::free(memory);
}

void operator delete[](void* memory) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept
{
    std::free(memory);
}

void operator delete[](void* memory, std::size_t) noexcept
{
    std::free(memory);
}
