// How far the backend's events have come.
//
// Any thread; blocks for a backend call.
#pragma once

#include <cstdint>
#include <optional>

namespace vrx {

// The number of the backend's last event; nothing when it does not tell. Two equal answers mean that no alarm was
// raised or cleared between them.
std::optional<std::uint64_t> lastBackendEvent();

}  // namespace vrx
