// Signatures of SNMPv3 with digests that are kept. The library signs and checks each message with libcrypto's HMAC(),
// which looks up both algorithms by name, makes a context and digests the key, each time: more work than the message
// itself. This program's HMAC() takes that function's place for all shared libraries of the process, as the dynamic
// linker resolves names, and keeps what depends on the key alone. It gives the same octets.
//
// A key stays in memory until MOST_KEPT_DIGESTS others have been used since, and is wiped then: also that of a user who
// has been removed.
//
// Threads: any; each has digests of its own.
#pragma once

#include <cstddef>

namespace vrx {

constexpr std::size_t MOST_KEPT_DIGESTS = 64;  // keys of as many users

// How many this thread has. Called once, it brings the function into a program.
std::size_t keptDigests();

}  // namespace vrx
