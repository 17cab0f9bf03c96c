// What the configuration says of connections on stream listeners.
#pragma once

#include <chrono>
#include <cstddef>

namespace vrx {

struct StreamLimits {
    std::size_t connections = 64;
    std::chrono::seconds idle{300};  // without an allowed request
};

}  // namespace vrx
