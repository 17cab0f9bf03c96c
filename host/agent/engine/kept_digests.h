// Signatures of SNMPv3 with digests that are kept. The library signs and checks each message with libcrypto's HMAC(),
// which looks up both algorithms by name, makes a context and digests the key, each time: more work than the message
// itself. This program's HMAC() takes that function's place for all shared libraries of the process, as the dynamic
// linker resolves names, and keeps what depends on the key alone. It gives the same octets.
//
// A key that is dropped is wiped: after MOST_KEPT_DIGESTS others have been used since, or when all are forgotten.
//
// Threads: any; each has digests of its own.
#pragma once

#include <cstddef>

namespace vrx {

constexpr std::size_t MOST_KEPT_DIGESTS = 64;  // keys of as many users

// How many this thread has. Called once, it brings the function into a program.
std::size_t keptDigests();

// Drops those of this thread: a user is gone, and so is what is known of the user's keys.
void forgetDigests();

}  // namespace vrx
