// Heap use of a benchmark program. Linking the `bench_allocation_counter` object library (COUNT_ALLOCATIONS in
// bench/CMakeLists.txt) replaces the global operator new and delete of the whole program, so that every allocation
// and free of the calling thread is counted with its requested size; read the counts around the code measured.
//
//     const Bench::AllocationCounts before = Bench::allocationCounts();
//     work();
//     const Bench::AllocationCounts spent = Bench::allocationCounts() - before;
//
// Counts are per thread, so that counting costs no atomic operation and other threads do not disturb a loop; a
// block freed by another thread than the one that allocated it shows as a free of the freeing thread. The
// alignment-taking forms of new (over-aligned types) are not replaced and not counted.
#pragma once

#include <cstddef>

namespace Bench
{
struct AllocationCounts
{
    std::size_t allocations = 0;
    std::size_t allocatedBytes = 0;
    std::size_t frees = 0;
    std::size_t freedBytes = 0;

    // Bytes allocated and not freed; meaningful for a difference of two readings.
    [[nodiscard]] std::size_t liveBytes() const noexcept { return allocatedBytes - freedBytes; }
};

// Cumulative counts of the calling thread since it started or since its last reset.
[[nodiscard]] AllocationCounts allocationCounts() noexcept;
void resetAllocationCounts() noexcept;

// What happened between two readings. Unsigned wrap-around keeps a difference right even when a counter wrapped.
[[nodiscard]] inline AllocationCounts operator-(const AllocationCounts& later, const AllocationCounts& earlier) noexcept
{
    return {later.allocations - earlier.allocations, later.allocatedBytes - earlier.allocatedBytes,
            later.frees - earlier.frees, later.freedBytes - earlier.freedBytes};
}
} // namespace Bench
