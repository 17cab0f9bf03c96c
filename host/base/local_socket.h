// Sockets below the backend protocol: descriptors that close themselves, waiting with a deadline that another thread
// can cut short, connecting and listening.
#pragma once

#include <chrono>
#include <string>
#include <utility>

#include "host/base/local_address.h"

namespace vrx {

using Deadline = std::chrono::steady_clock::time_point;

// Owns one descriptor.
class FileDescriptor {
public:
    FileDescriptor() = default;
    explicit FileDescriptor(int descriptor) : m_descriptor(descriptor) {}
    ~FileDescriptor();
    FileDescriptor(FileDescriptor&& other) noexcept;
    FileDescriptor& operator=(FileDescriptor&& other) noexcept;
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;

    int get() const { return m_descriptor; }
    int release() { return std::exchange(m_descriptor, -1); }  // the caller owns it then
    explicit operator bool() const { return m_descriptor >= 0; }

private:
    int m_descriptor = -1;
};

// A flag that poll() can wait for. Threads: any operation from any thread.
class WakeFlag {
public:
    WakeFlag();  // throws std::system_error
    void raise();
    void lower();
    int descriptor() const { return m_event.get(); }

private:
    FileDescriptor m_event;
};

enum class Wait { Ready, Timeout, Cancelled };

// Waits until `descriptor` is ready for `events` (of poll; errors and hang-ups count as ready), the deadline has passed
// or `cancel` is readable. A descriptor of -1 is not waited for.
Wait waitFor(int descriptor, short events, Deadline deadline, int cancel);

// Connects; an empty descriptor and `failure` when that fails, takes longer than the deadline or is cancelled. The
// socket is non-blocking.
FileDescriptor connectSocket(const LocalAddress& address, Deadline deadline, int cancel, std::string& failure);

// A listening, non-blocking socket. A Unix socket has mode 0600; a socket file that nobody listens on any more is
// replaced. Throws std::system_error, with EADDRINUSE when somebody is alive there.
FileDescriptor listenSocket(const LocalAddress& address);

}  // namespace vrx
