// The other end of a connection: sends what an input holds, in pieces, and takes what comes back.
#pragma once

#include <cstddef>
#include <string>

// Sends `bytes` and then closes that direction; reads until the other side has closed. With a `piece` other than 0 the
// first bytes go out so many at a time, each piece when the other side has taken the one before. Returns what was
// received.
std::string playPeer(int descriptor, const std::string& bytes, std::size_t piece);
