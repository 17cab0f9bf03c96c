#include "host/agent/engine/stream_listeners.h"

#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <exception>
#include <string_view>
#include <system_error>
#include <utility>

#include "host/agent/engine/listener_session.h"
#include "host/agent/requests/request_dispatcher.h"
#include "host/base/log_line.h"
#include "host/log_lines/requests.h"

namespace vrx {

namespace {

constexpr int READ_AT_ONCE = 1024;               // octets of one client, then it is the others' turn
constexpr int ACCEPTED_AT_ONCE = 16;             // connections
constexpr std::size_t MAX_MESSAGE = 65'535;      // octets of a request
constexpr std::size_t MAX_UNSENT = 1'000'000;    // octets of answers that a client has not read
constexpr std::chrono::seconds FIRST_ASKED{10};  // that a new connection has for its first allowed request
constexpr std::size_t NEW_SHARE = 4;             // so that a quarter of the connections may be waiting for theirs
constexpr rlim_t DESCRIPTOR_SHARE = 4;           // and a quarter of the process's descriptors may be connections

constexpr unsigned int LINES = 5;
constexpr std::chrono::seconds LINES_PERIOD{60};

int checked(int descriptor, const char* what) {
    if (descriptor < 0) throw std::system_error(errno, std::generic_category(), what);
    return descriptor;
}

// The length of the message that begins there, 0 as long as that is unknown; what is negative ends the connection.
int lengthOfMessage(u_char* data, std::size_t size) {
    const int length = asn_check_packet(data, size);
    return length > static_cast<int>(MAX_MESSAGE) ? -1 : length;
}

std::size_t mostConnections(const StreamLimits& limits) {
    rlimit descriptors{};
    if (::getrlimit(RLIMIT_NOFILE, &descriptors) != 0 || descriptors.rlim_cur == RLIM_INFINITY) {
        return limits.connections;
    }
    return std::clamp<std::size_t>(descriptors.rlim_cur / DESCRIPTOR_SHARE, 1, limits.connections);
}

}  // namespace

StreamListeners* StreamListeners::s_instance = nullptr;

StreamListeners::StreamListeners(const StreamLimits& limits, RequestDispatcher& dispatcher)
    : m_limits(limits),
      m_dispatcher(dispatcher),
      m_events(checked(::epoll_create1(EPOLL_CLOEXEC), "epoll")),
      m_timer(checked(::timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC), "timerfd")),
      m_lines(LINES, LINES_PERIOD) {
    if (!watch(m_timer.get(), EPOLLIN, true)) throw std::system_error(errno, std::generic_category(), "epoll");
    const auto handler = [](int, void* self) { static_cast<StreamListeners*>(self)->handleEvents(); };
    if (register_readfd(m_events.get(), handler, this) != FD_REGISTERED_OK) {
        throw std::system_error(EMFILE, std::generic_category(), "streams");
    }
    m_dispatcher.onAllowed = [this](const netsnmp_session* session) { asked(session); };
    s_instance = this;
}

StreamListeners::~StreamListeners() {
    m_dispatcher.onAllowed = nullptr;
    unregister_readfd(m_events.get());
    while (!m_connections.empty()) snmp_close(m_connections.begin()->second.session);
    for (const Listener& listener : m_listeners) {
        listener.transport->f_close(listener.transport);
        netsnmp_transport_free(listener.transport);
    }
    s_instance = nullptr;
}

void StreamListeners::add(netsnmp_transport* listening, const std::string& address) {
    m_listeners.push_back({listening, address, false});
    // Who connects may be gone before it is accepted.
    const int flags = ::fcntl(listening->sock, F_GETFL);
    if (flags < 0 || ::fcntl(listening->sock, F_SETFL, flags | O_NONBLOCK) != 0 ||
        ::listen(listening->sock, SOMAXCONN) != 0 || !watch(listening->sock, EPOLLIN, true)) {
        throw std::system_error(errno, std::generic_category(), address);
    }
}

void StreamListeners::handleEvents() try {
    std::array<epoll_event, 64> events{};
    const int count = ::epoll_wait(m_events.get(), events.data(), static_cast<int>(events.size()), 0);
    for (int i = 0; i < count; ++i) {
        const int descriptor = events[static_cast<std::size_t>(i)].data.fd;
        if (descriptor == m_timer.get()) {
            everySecond();
            continue;
        }
        const auto connection = m_connections.find(descriptor);
        if (connection != m_connections.end()) {
            if (!sendUnsent(descriptor, connection->second)) end(descriptor, connection->second);
            continue;
        }
        for (Listener& listener : m_listeners) {
            if (listener.transport->sock == descriptor) accept(listener);
        }
    }
} catch (const std::exception& error) {  // the engine is C: nothing may leave
    logFault<lines::CONNECTIONS_NOT_SERVED>(error.what());
}

void StreamListeners::accept(Listener& listener) {
    for (int i = 0; i < ACCEPTED_AT_ONCE; ++i) {
        errno = 0;
        const int descriptor = listener.transport->f_accept(listener.transport);
        if (descriptor >= 0) {
            admit(listener, descriptor);
            continue;
        }
        const int error = errno;
        if (error == EAGAIN) return;
        if (error == EINTR || error == ECONNABORTED) continue;
        // It would be told of the same connection again and again.
        listener.resting = true;
        watch(listener.transport->sock, EPOLLIN, false);
        armTimer(true);
        if (m_lines.take(Clock::now())) {
            logLine<lines::CONNECTION_NOT_TAKEN>(listener.address, std::strerror(error));
        }
        return;
    }
}

void StreamListeners::admit(Listener& listener, int descriptor) {
    FileDescriptor owned(descriptor);
    if (!makeRoom(listener)) return;
    ::fcntl(descriptor, F_SETFD, FD_CLOEXEC);
    Connection& connection = m_connections[descriptor];
    netsnmp_transport* const transport = netsnmp_transport_copy(listener.transport);
    if (transport == nullptr) {
        m_connections.erase(descriptor);
        return;
    }
    owned.release();
    connection.receive = transport->f_recv;
    connection.close = transport->f_close;
    connection.opened = Clock::now();
    connection.end = connection.opened + std::min(FIRST_ASKED, m_limits.idle);
    transport->sock = descriptor;
    transport->flags &= ~static_cast<unsigned int>(NETSNMP_TRANSPORT_FLAG_LISTEN);
    transport->f_recv = receive;
    transport->f_send = send;
    transport->f_close = close;
    const Expected<netsnmp_session*> opened = openSession(transport, m_dispatcher, lengthOfMessage);
    if (!opened) return;  // the library has closed the transport, and its manager sees that
    connection.session = *opened;
    armTimer(true);
}

// False when a new connection has to be refused.
bool StreamListeners::makeRoom(const Listener& listener) {
    const std::size_t most = mostConnections(m_limits);
    const std::size_t mostNew = std::max<std::size_t>(most / NEW_SHARE, 1);
    std::size_t open = 0;
    std::size_t openNew = 0;
    auto oldest = m_connections.end();
    for (auto at = m_connections.begin(); at != m_connections.end(); ++at) {
        const Connection& connection = at->second;
        if (connection.ended) continue;
        ++open;
        if (connection.hasAsked) continue;
        ++openNew;
        if (oldest == m_connections.end() || connection.opened < oldest->second.opened) oldest = at;
    }
    if (open < most && openNew < mostNew) return true;
    const bool room = oldest != m_connections.end();
    if (m_lines.take(Clock::now())) {
        logLine<lines::CONNECTIONS_OPEN>(listener.address, open, openNew,
                                         room ? "the oldest of these is closed" : "a new one is refused");
    }
    if (room) end(oldest->first, oldest->second);
    return room;
}

void StreamListeners::asked(const netsnmp_session* session) {
    const auto found = std::find_if(m_connections.begin(), m_connections.end(),
                                    [&](const auto& connection) { return connection.second.session == session; });
    if (found == m_connections.end()) return;
    found->second.hasAsked = true;
    found->second.end = Clock::now() + m_limits.idle;
}

void StreamListeners::end(int descriptor, Connection& connection) {
    if (connection.ended) return;
    connection.ended = true;
    if (connection.watched) watch(descriptor, EPOLLOUT, false);
    connection.unsent = {};
    ::shutdown(descriptor, SHUT_RDWR);
}

// Sends what the client takes just now. False when the connection is broken.
bool StreamListeners::sendUnsent(int descriptor, Connection& connection) {
    while (!connection.unsent.empty()) {
        const ssize_t sent =
            ::send(descriptor, connection.unsent.data(), connection.unsent.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR) continue;
        if (sent < 0) return errno == EAGAIN;
        connection.unsent.erase(0, static_cast<std::size_t>(sent));
    }
    if (connection.watched) connection.watched = !watch(descriptor, EPOLLOUT, false);
    return true;
}

// Of a transport of ours; null when it is closed already: the engine may still close its session later.
StreamListeners::Connection* StreamListeners::connectionOf(const netsnmp_transport& transport) {
    if (s_instance == nullptr) return nullptr;
    const auto found = s_instance->m_connections.find(transport.sock);
    return found == s_instance->m_connections.end() ? nullptr : &found->second;
}

// The engine calls it when there is something to read.
int StreamListeners::receive(netsnmp_transport* transport, void* buffer, int size, void** opaque, int* length) {
    *opaque = nullptr;
    *length = 0;
    const Connection* const connection = connectionOf(*transport);
    if (connection == nullptr || connection->ended) return 0;  // the end, also where unread messages are left
    return connection->receive(transport, buffer, std::min(size, READ_AT_ONCE), opaque, length);
}

// All of it, or -1: then the connection ends.
int StreamListeners::send(netsnmp_transport* transport, const void* buffer, int size, void**, int*) try {
    Connection* const found = connectionOf(*transport);
    if (found == nullptr || found->ended) {
        errno = EPIPE;
        return -1;
    }
    Connection& connection = *found;
    const bool waiting = !connection.unsent.empty();
    const std::string_view answer(static_cast<const char*>(buffer), static_cast<std::size_t>(size));
    // One answer may be of any length: who has asked for it will read it.
    if (!waiting || connection.unsent.size() + answer.size() <= MAX_UNSENT) {
        connection.unsent += answer;
        if (waiting || s_instance->sendUnsent(transport->sock, connection)) {
            if (!connection.unsent.empty() && !connection.watched) {
                connection.watched = s_instance->watch(transport->sock, EPOLLOUT, true);
            }
            if (connection.unsent.empty() || connection.watched) return size;
        }
    }
    s_instance->end(transport->sock, connection);
    errno = EPIPE;
    return -1;
} catch (const std::exception&) {  // the engine is C: nothing may leave
    errno = ENOMEM;
    return -1;
}

int StreamListeners::close(netsnmp_transport* transport) {
    const Connection* const connection = connectionOf(*transport);
    if (connection == nullptr) return -1;
    const auto closing = connection->close;
    s_instance->m_connections.erase(transport->sock);
    return closing(transport);
}

bool StreamListeners::watch(int descriptor, unsigned int events, bool on) const {
    epoll_event event{};
    event.events = events;
    event.data.fd = descriptor;
    return ::epoll_ctl(m_events.get(), on ? EPOLL_CTL_ADD : EPOLL_CTL_DEL, descriptor, &event) == 0;
}

void StreamListeners::everySecond() {
    std::uint64_t count = 0;
    [[maybe_unused]] const ssize_t got = ::read(m_timer.get(), &count, sizeof count);
    const auto now = Clock::now();
    for (auto& [descriptor, connection] : m_connections) {
        if (connection.end <= now) end(descriptor, connection);
    }
    bool resting = false;
    for (Listener& listener : m_listeners) {
        if (listener.resting) listener.resting = !watch(listener.transport->sock, EPOLLIN, true);
        resting = resting || listener.resting;
    }
    if (m_connections.empty() && !resting) armTimer(false);
}

void StreamListeners::armTimer(bool on) {
    if (on == m_ticking) return;
    itimerspec second{};
    if (on) second.it_value.tv_sec = second.it_interval.tv_sec = 1;
    m_ticking = ::timerfd_settime(m_timer.get(), 0, &second, nullptr) == 0 && on;
}

}  // namespace vrx
