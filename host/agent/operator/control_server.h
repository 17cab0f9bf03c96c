// HTTP on a local socket: how vrxctl and metrics collectors talk to a running agent.
//
//     ControlServer control(ControlSocket(LocalAddress::parse("unix:/opt/vrx/state/agent.sock")), {
//         {"GET", "/status", [](const ControlRequest&) { return ControlAnswer::json(status()); }},
//     });
//
// With credentials it is HTTPS (TLS 1.2 or later), for clients with a certificate of their authorities: others get 403,
// whatever they ask for. Idle connections, also those that do not come to the end of a handshake, make room for new
// ones.
//
// A Unix socket has mode 0600: only its owner and root can connect, and they may do everything. Bodies are JSON.
//
// Threads: routes are called on threads of the server's own, one request each; an exception is answered with 500 and
// its text. The destructor waits for requests in progress.
#pragma once

#include <functional>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "host/agent/settings/tls_credentials.h"
#include "host/base/file_descriptor.h"
#include "host/base/local_address.h"
#include "host/base/mutex.h"

struct MHD_Daemon;
struct MHD_Connection;

namespace vrx {

struct ControlRequest {
    std::string body;
    std::map<std::string, std::string> query;  // "?name=value" of the address
    std::string host;                          // these headers; empty: it has none
    std::string ifNoneMatch;
    bool overTls = false;  // by a client that has shown its certificate
};

struct ControlAnswer {
    unsigned int status = 200;
    std::string body;
    std::string type = "application/json";
    std::vector<std::pair<std::string, std::string>> headers = {};  // more of them
};

// What the caller has asked for cannot be: answered with 400 and the text.
class ControlFault : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct ControlRoute {
    std::string method;
    std::string path;
    std::function<ControlAnswer(const ControlRequest& request)> answer;
};

// Where clients wait until a server answers them. A Unix socket's file goes with the object.
class ControlSocket {
public:
    explicit ControlSocket(const LocalAddress& address);  // throws std::system_error when nobody can listen there
    ~ControlSocket();
    ControlSocket(ControlSocket&& other) noexcept;
    ControlSocket& operator=(ControlSocket&&) = delete;
    ControlSocket(const ControlSocket&) = delete;
    ControlSocket& operator=(const ControlSocket&) = delete;

    int descriptor() const { return m_listener.get(); }

private:
    std::string m_path;  // of a Unix socket; else empty
    FileDescriptor m_listener;
};

class ControlServer {
public:
    // Answers from here on. Throws std::system_error when it cannot.
    ControlServer(ControlSocket socket, std::vector<ControlRoute> routes,
                  std::optional<TlsCredentials> tls = std::nullopt);
    ~ControlServer();
    ControlServer(const ControlServer&) = delete;
    ControlServer& operator=(const ControlServer&) = delete;

    static constexpr std::size_t MAX_BODY = std::size_t{1} << 20U;

private:
    struct Pending;
    struct Connection;

    ControlAnswer answer(const std::string& method, const std::string& path, const ControlRequest& request) const;
    static int serve(ControlServer& server, MHD_Connection* connection, const char* path, const char* method,
                     const char* upload, std::size_t* uploadSize, void** pending);

    void opened(MHD_Connection* connection);
    void closed(MHD_Connection* connection);
    void setAnswered(MHD_Connection* connection, bool answered);

    const std::vector<ControlRoute> m_routes;
    const ControlSocket m_socket;
    const std::optional<TlsCredentials> m_tls;
    Mutex m_mutex;
    std::list<std::pair<MHD_Connection*, Connection>> m_connections GUARDED_BY(m_mutex);  // the oldest first
    struct StopDaemon {
        void operator()(MHD_Daemon* daemon) const;
    };
    std::unique_ptr<MHD_Daemon, StopDaemon> m_daemon;  // last: its threads use the others
};

}  // namespace vrx
