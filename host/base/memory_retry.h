// What must not be given up when memory runs out for a moment.
//
// Threads: any; the caller's waits.
#pragma once

#include <chrono>
#include <new>
#include <thread>

#include "host/base/mutex.h"

namespace vrx {

constexpr std::chrono::milliseconds OUT_OF_MEMORY_PAUSE{10};

// Runs the action until it gets its memory. It does all or nothing: it may be run again after std::bad_alloc.
template <typename Action>
NO_THREAD_SAFETY_ANALYSIS auto retryForever(const Action& action) -> decltype(action()) {
    for (;;) {
        try {
            return action();
        } catch (const std::bad_alloc&) {
            std::this_thread::sleep_for(OUT_OF_MEMORY_PAUSE);
        }
    }
}

// The same for about a second: then std::bad_alloc leaves.
template <typename Action>
NO_THREAD_SAFETY_ANALYSIS auto retryForASecond(const Action& action) -> decltype(action()) {
    for (int tries = 100; tries > 1; --tries) {
        try {
            return action();
        } catch (const std::bad_alloc&) {
            std::this_thread::sleep_for(OUT_OF_MEMORY_PAUSE);
        }
    }
    return action();
}

}  // namespace vrx
