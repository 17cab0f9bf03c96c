#include "host/agent/operator/control_server.h"

#include <fcntl.h>
#include <gnutls/gnutls.h>
#include <gnutls/x509.h>
#include <microhttpd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <exception>
#include <new>
#include <system_error>
#include <utility>

#include "host/base/local_socket.h"

namespace vrx {

namespace {

constexpr unsigned int KEPT_CONNECTIONS = 12;
constexpr unsigned int MAX_CONNECTIONS = 64;  // those that are being closed included
constexpr unsigned int IDLE_SECONDS = 30;

MHD_Result addQueryItem(void* query, MHD_ValueKind, const char* name, const char* value) {
    (*static_cast<std::map<std::string, std::string>*>(query))[name] = value == nullptr ? "" : value;
    return MHD_YES;
}

std::string headerOf(MHD_Connection* connection, const char* name) {
    const char* const value = MHD_lookup_connection_value(connection, MHD_HEADER_KIND, name);
    return value == nullptr ? "" : value;
}

MHD_Result send(MHD_Connection* connection, const ControlAnswer& answer) {
    MHD_Response* const response = MHD_create_response_from_buffer(
        answer.body.size(), const_cast<char*>(answer.body.data()), MHD_RESPMEM_MUST_COPY);
    if (response == nullptr) return MHD_NO;
    MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_TYPE, answer.type.c_str());
    for (const auto& [name, value] : answer.headers) MHD_add_response_header(response, name.c_str(), value.c_str());
    const MHD_Result queued = MHD_queue_response(connection, answer.status, response);
    MHD_destroy_response(response);
    return queued;
}

constexpr const char* TLS_VERSIONS = "NORMAL:-VERS-ALL:+VERS-TLS1.3:+VERS-TLS1.2";

std::vector<MHD_OptionItem> tlsOptions(const TlsCredentials& tls) {
    const auto option = [](MHD_OPTION name, const char* text) {
        return MHD_OptionItem{name, 0, const_cast<char*>(text)};
    };
    return {option(MHD_OPTION_HTTPS_MEM_CERT, tls.certificate.c_str()),
            option(MHD_OPTION_HTTPS_MEM_KEY, tls.key.c_str()),
            option(MHD_OPTION_HTTPS_MEM_TRUST, tls.clients.c_str()),
            option(MHD_OPTION_HTTPS_PRIORITIES, TLS_VERSIONS),
            {MHD_OPTION_END, 0, nullptr}};
}

// The library asks for a certificate and takes any, or none.
bool hasClientCertificate(MHD_Connection* connection) {
    const MHD_ConnectionInfo* const info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_GNUTLS_SESSION);
    if (info == nullptr) return false;
    std::string purpose = GNUTLS_KP_TLS_WWW_CLIENT;
    gnutls_typed_vdata_st wanted{GNUTLS_DT_KEY_PURPOSE_OID, reinterpret_cast<unsigned char*>(purpose.data()), 0};
    unsigned int faults = 0;
    auto* const session = static_cast<gnutls_session_t>(info->tls_session);
    return gnutls_certificate_verify_peers(session, &wanted, 1, &faults) == GNUTLS_E_SUCCESS && faults == 0;
}

}  // namespace

// One request while its body comes in.
struct ControlServer::Pending {
    ControlRequest request;
    bool tooLarge = false;
};

// A connection as the daemon tells of it. Our own descriptor of its socket: the daemon's may be another file's already
// when it is to be shut down.
struct ControlServer::Connection {
    FileDescriptor socket;
    bool answered = false;  // just now: it is not ended for another
};

void ControlServer::StopDaemon::operator()(MHD_Daemon* daemon) const {
    MHD_stop_daemon(daemon);
}

ControlSocket::ControlSocket(const LocalAddress& address) : m_listener(listenSocket(address)) {
    if (address.kind == LocalAddress::Kind::Unix) m_path = address.path;
}

ControlSocket::~ControlSocket() {
    if (!m_path.empty()) ::unlink(m_path.c_str());
}

ControlSocket::ControlSocket(ControlSocket&& other) noexcept
    : m_path(std::exchange(other.m_path, {})), m_listener(std::move(other.m_listener)) {}

ControlServer::ControlServer(ControlSocket socket, std::vector<ControlRoute> routes, std::optional<TlsCredentials> tls)
    : m_routes(std::move(routes)), m_socket(std::move(socket)), m_tls(std::move(tls)) {
    const auto handler = [](void* server, MHD_Connection* connection, const char* path, const char* method, const char*,
                            const char* upload, std::size_t* uploadSize, void** pending) {
        return serve(*static_cast<ControlServer*>(server), connection, path, method, upload, uploadSize, pending) != 0
                   ? MHD_YES
                   : MHD_NO;
    };
    const auto completed = [](void*, MHD_Connection*, void** pending, MHD_RequestTerminationCode) {
        delete static_cast<Pending*>(*pending);
        *pending = nullptr;
    };
    const auto notify = [](void* server, MHD_Connection* connection, void**, MHD_ConnectionNotificationCode what) {
        auto& self = *static_cast<ControlServer*>(server);
        if (what == MHD_CONNECTION_NOTIFY_STARTED) {
            self.opened(connection);
        } else {
            self.closed(connection);
        }
    };
    const int listener = ::fcntl(m_socket.descriptor(), F_DUPFD_CLOEXEC, 0);  // the daemon closes its own
    if (listener < 0) throw std::system_error(errno, std::generic_category(), "control socket");
    std::vector<MHD_OptionItem> more = {{MHD_OPTION_END, 0, nullptr}};
    if (m_tls) more = tlsOptions(*m_tls);
    const unsigned int flags = MHD_USE_INTERNAL_POLLING_THREAD | MHD_USE_THREAD_PER_CONNECTION | MHD_USE_POLL;
    m_daemon.reset(MHD_start_daemon(
        m_tls ? flags | MHD_USE_TLS : flags, 0, nullptr, nullptr, static_cast<MHD_AccessHandlerCallback>(handler), this,
        MHD_OPTION_LISTEN_SOCKET, listener, MHD_OPTION_CONNECTION_LIMIT, MAX_CONNECTIONS, MHD_OPTION_CONNECTION_TIMEOUT,
        IDLE_SECONDS, MHD_OPTION_NOTIFY_COMPLETED, static_cast<MHD_RequestCompletedCallback>(completed), nullptr,
        MHD_OPTION_NOTIFY_CONNECTION, static_cast<MHD_NotifyConnectionCallback>(notify), this, MHD_OPTION_ARRAY,
        more.data(), MHD_OPTION_END));
    if (m_daemon == nullptr) {
        ::close(listener);
        throw std::system_error(EAGAIN, std::generic_category(), "control socket");
    }
}

ControlServer::~ControlServer() {
    m_daemon.reset();
}

// Who only holds connections keeps nobody from being served: of many the oldest that is not being answered is ended.
void ControlServer::opened(MHD_Connection* connection) try {
    const MHD_ConnectionInfo* const info = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD);
    const MutexLock lock(m_mutex);
    m_connections.emplace_back(connection, Connection{});
    m_connections.back().second.socket = FileDescriptor(::fcntl(info->connect_fd, F_DUPFD_CLOEXEC, 0));
    const auto open = std::count_if(m_connections.begin(), m_connections.end(),
                                    [](const auto& entry) { return static_cast<bool>(entry.second.socket); });
    if (open <= KEPT_CONNECTIONS) return;
    const auto oldest = std::find_if(m_connections.begin(), m_connections.end(),
                                     [](const auto& entry) { return entry.second.socket && !entry.second.answered; });
    if (oldest == m_connections.end()) return;
    ::shutdown(oldest->second.socket.get(), SHUT_RDWR);
    oldest->second.socket = FileDescriptor();
} catch (const std::bad_alloc&) {  // the daemon is C: nothing may leave
}

void ControlServer::closed(MHD_Connection* connection) {
    const MutexLock lock(m_mutex);
    m_connections.remove_if([&](const auto& entry) { return entry.first == connection; });
}

void ControlServer::setAnswered(MHD_Connection* connection, bool answered) {
    const MutexLock lock(m_mutex);
    for (auto& entry : m_connections) {
        if (entry.first == connection) entry.second.answered = answered;
    }
}

int ControlServer::serve(ControlServer& server, MHD_Connection* connection, const char* path, const char* method,
                         const char* upload, std::size_t* uploadSize, void** pending) {
    auto* request = static_cast<Pending*>(*pending);
    if (request == nullptr) {  // the head of a request; its body comes in later calls
        if (server.m_tls && !hasClientCertificate(connection)) {
            return send(connection, {MHD_HTTP_FORBIDDEN, "a certificate for clients is needed\n", "text/plain"});
        }
        *pending = new Pending();
        return MHD_YES;
    }
    if (*uploadSize > 0) {
        request->tooLarge = request->tooLarge || request->request.body.size() + *uploadSize > MAX_BODY;
        if (!request->tooLarge) request->request.body.append(upload, *uploadSize);
        *uploadSize = 0;
        return MHD_YES;
    }
    if (request->tooLarge) return send(connection, {MHD_HTTP_CONTENT_TOO_LARGE, "too long\n", "text/plain"});
    MHD_get_connection_values(connection, MHD_GET_ARGUMENT_KIND, addQueryItem, &request->request.query);
    request->request.host = headerOf(connection, MHD_HTTP_HEADER_HOST);
    request->request.ifNoneMatch = headerOf(connection, MHD_HTTP_HEADER_IF_NONE_MATCH);
    request->request.overTls = server.m_tls.has_value();
    server.setAnswered(connection, true);
    const ControlAnswer answer = server.answer(method, path, request->request);
    server.setAnswered(connection, false);
    return send(connection, answer);
}

ControlAnswer ControlServer::answer(const std::string& method, const std::string& path,
                                    const ControlRequest& request) const {
    std::string allowed;
    for (const ControlRoute& route : m_routes) {
        if (route.path != path) continue;
        allowed += (allowed.empty() ? "" : ", ") + route.method;
        if (route.method != method) continue;
        try {
            return route.answer(request);
        } catch (const ControlFault& fault) {
            return {MHD_HTTP_BAD_REQUEST, std::string(fault.what()) + "\n", "text/plain"};
        } catch (const std::exception& error) {
            return {MHD_HTTP_INTERNAL_SERVER_ERROR, std::string(error.what()) + "\n", "text/plain"};
        }
    }
    if (!allowed.empty()) {
        return {MHD_HTTP_METHOD_NOT_ALLOWED, "no such method here\n", "text/plain", {{MHD_HTTP_HEADER_ALLOW, allowed}}};
    }
    return {MHD_HTTP_NOT_FOUND, "nothing here\n", "text/plain"};
}

}  // namespace vrx
