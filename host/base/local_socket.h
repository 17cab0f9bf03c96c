// Stream sockets of local servers: connecting with a deadline, and listening.
#pragma once

#include "host/base/expected.h"
#include "host/base/file_descriptor.h"
#include "host/base/local_address.h"

namespace vrx {

// Fails also when it takes longer than the deadline or is cancelled. The socket is non-blocking.
Expected<FileDescriptor> connectSocket(const LocalAddress& address, Deadline deadline, int cancel);

// A listening, non-blocking socket. A Unix socket has mode 0600; a socket file that nobody listens on any more is
// replaced. Throws std::system_error, with EADDRINUSE when somebody is alive there.
[[nodiscard]] FileDescriptor listenSocket(const LocalAddress& address);

}  // namespace vrx
