// A descriptor that closes itself, a flag to wait for, and waiting with a deadline that another thread can cut short.
#pragma once

#include <chrono>
#include <utility>

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

}  // namespace vrx
