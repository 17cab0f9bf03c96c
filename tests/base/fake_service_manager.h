// A service manager's end of NOTIFY_SOCKET: a socket whose name the environment has, and what was sent to it.
#pragma once

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

class FakeServiceManager {
public:
    // "/path" or "@name".
    explicit FakeServiceManager(const std::string& address)
        : m_address(address), m_socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
        m_name.sun_family = AF_UNIX;
        std::memcpy(m_name.sun_path, address.data(), address.size());
        if (address.front() == '@') m_name.sun_path[0] = '\0';
        m_nameSize = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + address.size());
        if (::bind(m_socket, reinterpret_cast<const sockaddr*>(&m_name), m_nameSize) != 0)
            throw std::runtime_error("no socket at " + address);
        ::setenv("NOTIFY_SOCKET", address.c_str(), 1);
    }
    ~FakeServiceManager() {
        close();
        ::unsetenv("NOTIFY_SOCKET");
    }
    FakeServiceManager(const FakeServiceManager&) = delete;
    FakeServiceManager& operator=(const FakeServiceManager&) = delete;

    // The messages that have come since the last call; never waits.
    std::vector<std::string> messages() {
        std::vector<std::string> all;
        std::array<char, 4096> buffer{};
        for (ssize_t size = 0; (size = ::recv(m_socket, buffer.data(), buffer.size(), 0)) >= 0;)
            all.emplace_back(buffer.data(), static_cast<std::size_t>(size));
        return all;
    }

    // Sends itself messages until no more go in, and says how many did.
    std::size_t fill() {
        const int sender = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        std::size_t count = 0;
        while (::sendto(sender, "x", 1, 0, reinterpret_cast<const sockaddr*>(&m_name), m_nameSize) == 1) ++count;
        ::close(sender);
        return count;
    }

    // Nobody is there any more.
    void close() {
        if (m_socket >= 0) ::close(m_socket);
        m_socket = -1;
        if (m_address.front() == '/') ::unlink(m_address.c_str());
    }

private:
    const std::string m_address;
    sockaddr_un m_name{};
    socklen_t m_nameSize = 0;
    int m_socket;
};
