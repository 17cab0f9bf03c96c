// The protocol of sd_notify(3), written out: one datagram of "NAME=VALUE" lines. libsystemd's call would wait for a
// manager that does not read: docs/decisions/2026-11-22-service-manager-without-libsystemd.md.
#include "host/base/service_manager.h"

#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <system_error>
#include <utility>

#include "host/base/log_line.h"
#include "host/log_lines/start.h"

namespace vrx {

namespace {

constexpr suseconds_t SEND_TIMEOUT_US = 100'000;

std::string taken(const char* variable) {
    const char* const value = std::getenv(variable);
    std::string text = value == nullptr ? "" : value;
    ::unsetenv(variable);
    return text;
}

std::int64_t numberOf(const std::string& text) {
    std::int64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size() ? number : 0;
}

std::string reason() {
    return std::generic_category().message(errno);
}

// A line of its own within a message.
std::string inOneLine(std::string text) {
    std::replace(text.begin(), text.end(), '\n', ' ');
    return text;
}

void warn(const std::string& text) {
    logLine<lines::SERVICE_MANAGER_NOT_NOTIFIED>(text);
}

}  // namespace

ServiceManager ServiceManager::fromEnvironment() {
    const std::string address = taken("NOTIFY_SOCKET");
    const std::string patience = taken("WATCHDOG_USEC");
    const std::string process = taken("WATCHDOG_PID");
    ServiceManager manager;
    if (!address.empty()) manager.connect(address);
    const bool ours = process.empty() || numberOf(process) == ::getpid();
    if (manager.m_socket && ours) {
        manager.m_patience = std::chrono::microseconds(std::max<std::int64_t>(0, numberOf(patience)));
    }
    return manager;
}

ServiceManager::ServiceManager(ServiceManager&& other) noexcept
    : m_address(other.m_address),
      m_addressSize(other.m_addressSize),
      m_socket(std::move(other.m_socket)),
      m_patience(other.m_patience),
      m_failed(other.m_failed.load()) {}

// "/path", or "@name" for a socket of the abstract namespace, whose name begins with a zero byte.
void ServiceManager::connect(const std::string& address) {
    if ((address.front() != '/' && address.front() != '@') || address.size() >= sizeof m_address.sun_path) {
        warn("NOTIFY_SOCKET names no socket: " + address);
        return;
    }
    m_address.sun_family = AF_UNIX;
    std::memcpy(m_address.sun_path, address.data(), address.size());
    if (address.front() == '@') m_address.sun_path[0] = '\0';
    m_addressSize = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + address.size());
    m_socket = FileDescriptor(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!m_socket) {
        warn(reason());
        return;
    }
    const timeval patience{0, SEND_TIMEOUT_US};
    ::setsockopt(m_socket.get(), SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
}

void ServiceManager::tell(const std::string& message) const {
    if (!m_socket) return;
    ssize_t sent = -1;
    do {
        sent = ::sendto(m_socket.get(), message.data(), message.size(), MSG_NOSIGNAL,
                        reinterpret_cast<const sockaddr*>(&m_address), m_addressSize);
    } while (sent < 0 && errno == EINTR);
    if (sent < 0 && !m_failed.exchange(true)) warn(reason());
}

void ServiceManager::ready(const std::string& status) const {
    tell("READY=1\nSTATUS=" + inOneLine(status));
}

void ServiceManager::reloading() const {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();  // CLOCK_MONOTONIC
    const auto microseconds = std::chrono::duration_cast<std::chrono::microseconds>(now).count();
    tell("RELOADING=1\nMONOTONIC_USEC=" + std::to_string(microseconds));
}

void ServiceManager::stopping() const {
    tell("STOPPING=1");
}

void ServiceManager::alive() const {
    tell("WATCHDOG=1");
}

}  // namespace vrx
