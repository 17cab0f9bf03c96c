#include "host/base/file_descriptor.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

namespace vrx {

namespace {

[[noreturn]] void throwErrno(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

// Milliseconds until the deadline for poll(), rounded up so that a wait never ends early; -1 for no deadline.
int pollTimeout(Deadline deadline) {
    if (deadline == Deadline::max()) return -1;
    const auto left = deadline - std::chrono::steady_clock::now();
    if (left <= Deadline::duration::zero()) return 0;
    constexpr std::chrono::milliseconds LONGEST{60 * 60 * 1000};
    return static_cast<int>(std::min(std::chrono::ceil<std::chrono::milliseconds>(left), LONGEST).count());
}

}  // namespace

FileDescriptor::~FileDescriptor() {
    if (m_descriptor >= 0) ::close(m_descriptor);
}

FileDescriptor::FileDescriptor(FileDescriptor&& other) noexcept : m_descriptor(std::exchange(other.m_descriptor, -1)) {}

FileDescriptor& FileDescriptor::operator=(FileDescriptor&& other) noexcept {
    std::swap(m_descriptor, other.m_descriptor);
    return *this;
}

WakeFlag::WakeFlag() : m_event(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {
    if (!m_event) throwErrno("eventfd");
}

void WakeFlag::raise() {
    (void)::eventfd_write(m_event.get(), 1);  // fails only when the flag is up already
}

void WakeFlag::lower() {
    eventfd_t value = 0;
    (void)::eventfd_read(m_event.get(), &value);  // fails only when the flag is down already
}

Wait waitFor(int descriptor, short events, Deadline deadline, int cancel) {
    pollfd polls[] = {{descriptor, events, 0}, {cancel, POLLIN, 0}};
    for (;;) {
        const int timeout = pollTimeout(deadline);
        const int ready = ::poll(polls, 2, timeout);
        if (ready < 0 && errno != EINTR) throwErrno("poll");
        if (ready > 0) return polls[1].revents != 0 ? Wait::Cancelled : Wait::Ready;
        if (ready == 0 && std::chrono::steady_clock::now() >= deadline) return Wait::Timeout;
    }
}

}  // namespace vrx
