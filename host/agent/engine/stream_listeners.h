// Listeners of stream transports ("tcp:...", "tcp6:...") and the connections of their clients.
//
// Anybody who reaches the port can open a connection, so none may cost the others anything. Sending never blocks: what
// a client has not read yet waits here, and one that lets too much wait loses its connection. So does who asks nothing
// that is allowed for a while, and who announces a message longer than any manager sends. Connections have a limit of
// their own, far below the process's descriptors; of those on which nothing allowed has been asked yet a few may be
// open, and the oldest of them makes room for a new one. Without a descriptor left the listeners rest for a moment.
//
// A connection is ended by shutting its socket down: Net-SNMP's engine then finds its end and closes the session.
//
// Threads: agent thread only. One object a process.
#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "host/agent/settings/stream_limits.h"
#include "host/base/file_descriptor.h"
#include "host/base/log_rate_limiter.h"
#include "host/snmp/net_snmp.h"

namespace vrx {

class RequestDispatcher;

class StreamListeners {
public:
    // Both outlive the listeners; `limits` may change. Throws std::system_error.
    StreamListeners(const StreamLimits& limits, RequestDispatcher& dispatcher);
    ~StreamListeners();  // closes all connections
    StreamListeners(const StreamListeners&) = delete;
    StreamListeners& operator=(const StreamListeners&) = delete;

    static bool isStream(const netsnmp_transport& transport) {
        return (transport.flags & NETSNMP_TRANSPORT_FLAG_STREAM) != 0;
    }

    // Takes the listening transport over. Throws std::system_error.
    void add(netsnmp_transport* listening, const std::string& address);

private:
    using Clock = std::chrono::steady_clock;

    struct Listener {
        netsnmp_transport* transport;
        std::string address;
        bool resting;
    };

    struct Connection {
        decltype(netsnmp_transport::f_recv) receive;  // the library's
        decltype(netsnmp_transport::f_close) close;
        netsnmp_session* session = nullptr;
        Clock::time_point opened;
        Clock::time_point end;  // unless an allowed request comes before
        bool hasAsked = false;
        bool ended = false;
        bool watched = false;  // until the client may read again
        std::string unsent;
    };

    static StreamListeners* s_instance;  // the library's callbacks carry no argument of ours
    static Connection* connectionOf(const netsnmp_transport& transport);
    static int receive(netsnmp_transport* transport, void* buffer, int size, void** opaque, int* length);
    static int send(netsnmp_transport* transport, const void* buffer, int size, void** opaque, int* length);
    static int close(netsnmp_transport* transport);

    void handleEvents();
    void accept(Listener& listener);
    void admit(Listener& listener, int descriptor);
    [[nodiscard]] bool makeRoom(const Listener& listener);
    [[nodiscard]] bool sendUnsent(int descriptor, Connection& connection);
    void asked(const netsnmp_session* session);
    void end(int descriptor, Connection& connection);
    bool watch(int descriptor, unsigned int events, bool on) const;
    void everySecond();
    void armTimer(bool on);

    const StreamLimits& m_limits;
    RequestDispatcher& m_dispatcher;
    FileDescriptor m_events;  // epoll: listeners, clients that may read again, and the timer
    FileDescriptor m_timer;   // each second while there are connections, or a listener rests
    bool m_ticking = false;
    std::vector<Listener> m_listeners;
    std::map<int, Connection> m_connections;  // by descriptor
    LogRateLimiter m_lines;
};

}  // namespace vrx
