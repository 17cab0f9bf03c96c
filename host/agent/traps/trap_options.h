// Limits of the trap sender: section TRAP of the device configuration.
#pragma once

#include <chrono>
#include <cstddef>

namespace vrx {

struct TrapOptions {
    std::size_t queueLimit = 20000;             // QUEUE_LIMIT: traps that wait for one destination
    unsigned int rate = 1000;                   // RATE_PER_SECOND: traps a second to one destination
    unsigned int burst = 200;                   // BURST: traps at once after a pause
    std::size_t unresolvedLimit = 1000;         // UNRESOLVED_LIMIT: traps that wait for a destination's name
    std::chrono::seconds unresolvedTime{60};    // UNRESOLVED_SECONDS: how long they wait
    std::chrono::seconds resolveInterval{300};  // RESOLVE_SECONDS: how often a known name is looked up again

    // A missing item keeps its default. Throws std::invalid_argument with a text that names a faulty one.
    static TrapOptions fromDevice();
};

}  // namespace vrx
