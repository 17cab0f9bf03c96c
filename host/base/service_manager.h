// What a daemon tells the service manager that started it: ready, reloading, stopping, and that it is still alive.
//
//     const ServiceManager manager = ServiceManager::fromEnvironment();
//     manager.ready("answers requests");
//     ...
//     manager.stopping();
//
// Without a manager nothing is sent. A message that cannot be sent is a log line, the first time; it never stops the
// daemon, and it holds it up for a tenth of a second at most.
//
// Threads: fromEnvironment() before any other thread, as it changes the environment; the rest from any thread.
#pragma once

#include <sys/socket.h>
#include <sys/un.h>

#include <atomic>
#include <chrono>
#include <string>

#include "host/base/file_descriptor.h"

namespace vrx {

class ServiceManager {
public:
    // As NOTIFY_SOCKET, WATCHDOG_USEC and WATCHDOG_PID say. They are taken out of the environment: the programs that
    // this one starts are not the service.
    static ServiceManager fromEnvironment();

    ServiceManager() = default;  // none
    ServiceManager(ServiceManager&& other) noexcept;
    ServiceManager(const ServiceManager&) = delete;
    ServiceManager& operator=(const ServiceManager&) = delete;
    ~ServiceManager() = default;

    // The service is served, for the first time or again after reloading(). `status` is shown to operators.
    void ready(const std::string& status) const;
    // A changed configuration is taken over; ready() must follow.
    void reloading() const;
    void stopping() const;

    // How often alive() is expected: half of the time after which the manager ends a silent daemon. Zero: never.
    std::chrono::microseconds aliveInterval() const { return m_patience / 2; }
    void alive() const;

private:
    void connect(const std::string& address);
    void tell(const std::string& message) const;

    sockaddr_un m_address{};
    socklen_t m_addressSize = 0;
    FileDescriptor m_socket;  // none: nobody is told
    std::chrono::microseconds m_patience{0};
    mutable std::atomic<bool> m_failed{false};  // and a line about it was logged
};

}  // namespace vrx
