// Memory under a test's control: a chosen allocation fails, blocks that are not given back are counted, and one block
// is looked at when it is given back. A program with failing_memory.cpp among its sources gets the global operator new
// and delete, and pthread_create(), from there. No other thread may allocate in the time of a test that tracks
// allocations.
#pragma once

#include <cstddef>

namespace failing_memory {

// The n-th allocation of this thread from now on fails, once; 0: none.
void failAt(unsigned int n);
// Whether the failure asked for is still to come.
bool isFailureToCome();

// No thread can be made, as when the system has no room for one; false: all are made again.
void failThreads(bool fail);

// Blocks that are allocated between the two calls and not given back yet, in the order of their allocation.
void startTracking();
void stopTracking();
std::size_t liveBlocks();
void* liveBlock(std::size_t position);

// Watches one block: was it given back, and were its `size` bytes from `offset` on zero then?
void watch(const void* block, std::size_t size, std::size_t offset = 0);
bool isReleased();
bool isWiped();

// Runs `load` with the n-th allocation failing, for n = 1, 2, ... until none fails, and returns how many failed. `load`
// gets n, calls failAt(n) where its allocations begin and returns whether memory ran out; `check` gets n and that
// result, and sees what is left when everything that `load` owned is gone.
template <typename Load, typename Check>
unsigned int failEachAllocation(Load load, Check check) {
    for (unsigned int n = 1;; ++n) {
        startTracking();
        const bool failed = load(n);
        failAt(0);
        stopTracking();
        check(n, failed);
        if (!failed) return n - 1;
    }
}

}  // namespace failing_memory
