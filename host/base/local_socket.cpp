#include "host/base/local_socket.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

namespace vrx {

namespace {

using std::chrono::milliseconds;

constexpr int BACKLOG = 64;

// How long to wait before a Unix socket whose backlog is full is tried again: it cannot be polled for.
constexpr milliseconds FULL_BACKLOG_PAUSE{5};

// How long a listener that starts waits for an answer from one that may be alive at its address.
constexpr milliseconds ALIVE_PROBE{500};

struct SocketAddress {
    sockaddr_storage storage{};
    socklen_t size = 0;

    const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&storage); }
};

SocketAddress toSocketAddress(const LocalAddress& address) {
    SocketAddress out;
    if (address.kind == LocalAddress::Kind::Unix) {
        auto* un = reinterpret_cast<sockaddr_un*>(&out.storage);
        un->sun_family = AF_UNIX;
        address.path.copy(un->sun_path, sizeof(un->sun_path) - 1);
        out.size = sizeof(*un);
        return out;
    }
    auto* v4 = reinterpret_cast<sockaddr_in*>(&out.storage);
    if (inet_pton(AF_INET, address.host.c_str(), &v4->sin_addr) == 1) {
        v4->sin_family = AF_INET;
        v4->sin_port = htons(address.port);
        out.size = sizeof(*v4);
        return out;
    }
    out.storage = {};
    auto* v6 = reinterpret_cast<sockaddr_in6*>(&out.storage);
    if (inet_pton(AF_INET6, address.host.c_str(), &v6->sin6_addr) == 1) {
        v6->sin6_family = AF_INET6;
        v6->sin6_port = htons(address.port);
        out.size = sizeof(*v6);
    }
    return out;
}

FileDescriptor makeSocket(const SocketAddress& address) {
    return FileDescriptor(::socket(address.storage.ss_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
}

std::string errorText(int error) {
    return std::generic_category().message(error);
}

[[noreturn]] void throwErrno(const std::string& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

// Removes the socket file of a backend that is gone.
void removeStaleSocket(const LocalAddress& address) {
    struct stat status {};
    if (::lstat(address.path.c_str(), &status) != 0) return;
    if (!S_ISSOCK(status.st_mode))
        throw std::system_error(ENOTSOCK, std::generic_category(), address.text() + " is no socket");
    if (connectSocket(address, std::chrono::steady_clock::now() + ALIVE_PROBE, -1))
        throw std::system_error(EADDRINUSE, std::generic_category(), "somebody is alive at " + address.text());
    ::unlink(address.path.c_str());
}

}  // namespace

Expected<FileDescriptor> connectSocket(const LocalAddress& address, Deadline deadline, int cancel) {
    const SocketAddress target = toSocketAddress(address);
    if (target.size == 0) return Unexpected{"no address is configured"};
    FileDescriptor socket = makeSocket(target);
    if (!socket) return Unexpected{"socket: " + errorText(errno)};
    while (::connect(socket.get(), target.get(), target.size) != 0) {
        const bool inProgress = errno == EINPROGRESS;
        if (!inProgress && errno != EAGAIN && errno != EINTR) return Unexpected{"connect: " + errorText(errno)};
        const auto pause = std::chrono::steady_clock::now() + FULL_BACKLOG_PAUSE;
        const Wait wait = inProgress ? waitFor(socket.get(), POLLOUT, deadline, cancel)
                                     : waitFor(-1, 0, std::min(pause, deadline), cancel);
        if (wait == Wait::Cancelled || (wait == Wait::Timeout && std::chrono::steady_clock::now() >= deadline))
            return Unexpected{wait == Wait::Cancelled ? "connect: cancelled" : "connect: no answer in time"};
        if (!inProgress) continue;
        int error = 0;
        socklen_t size = sizeof(error);
        if (::getsockopt(socket.get(), SOL_SOCKET, SO_ERROR, &error, &size) != 0) error = errno;
        if (error != 0) return Unexpected{"connect: " + errorText(error)};
        break;
    }
    if (address.kind == LocalAddress::Kind::Tcp) {
        const int on = 1;  // small requests and answers: do not wait for more to send
        (void)::setsockopt(socket.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
    }
    return socket;
}

FileDescriptor listenSocket(const LocalAddress& address) {
    const SocketAddress local = toSocketAddress(address);
    if (local.size == 0) throw std::system_error(EADDRNOTAVAIL, std::generic_category(), "no address to listen on");
    FileDescriptor socket = makeSocket(local);
    if (!socket) throwErrno("socket");
    if (address.kind == LocalAddress::Kind::Unix) {
        removeStaleSocket(address);
        // The file gets the mode that the socket has when it is bound, so there is no moment with a wider one.
        if (::fchmod(socket.get(), S_IRUSR | S_IWUSR) != 0) throwErrno("fchmod of the socket");
    } else {
        const int on = 1;
        (void)::setsockopt(socket.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
    }
    if (::bind(socket.get(), local.get(), local.size) != 0) throwErrno("bind to " + address.text());
    if (::listen(socket.get(), BACKLOG) != 0) throwErrno("listen on " + address.text());
    return socket;
}

}  // namespace vrx
