// How to reach the management backend: section BACKEND of the device configuration.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>

#include "host/base/local_address.h"

namespace vrx {

struct BackendOptions {
    LocalAddress address;
    std::chrono::milliseconds callDeadline{800};      // below the second that managers usually wait
    std::size_t packageLimit = std::size_t{4} << 20;  // bytes, header included
    unsigned int connections = 8;                     // of the transport's pool

    // Items ADDRESS, CALL_DEADLINE_MS, PACKAGE_LIMIT_BYTES and CONNECTIONS; a missing one keeps its default, of the
    // address "unix:state/backend.sock". Throws std::invalid_argument with a text that names the item.
    static BackendOptions fromDevice();
};

// A number of section BACKEND from `least` to `most`, or `standard` when the item is missing. Throws
// std::invalid_argument.
unsigned long long backendNumber(const std::string& key, unsigned long long standard, unsigned long long least,
                                 unsigned long long most);

}  // namespace vrx
