#include "host/agent/operator/metrics_server.h"

#include <system_error>
#include <utility>

#include "host/base/log_line.h"
#include "host/log_lines/start.h"

namespace vrx {

namespace {

constexpr const char* CONTENT_TYPE = "text/plain; version=0.0.4; charset=utf-8";

MetricsServer::Routes withMetrics(MetricsServer::Text text, MetricsServer::Routes more) {
    return [text = std::move(text), more = std::move(more)](AgentThreadCall& caller) {
        std::vector<ControlRoute> routes = more(caller);
        routes.push_back({"GET", "/metrics", [&caller, text](const ControlRequest&) {
                              return ControlAnswer{200, text(caller), CONTENT_TYPE};
                          }});
        return routes;
    };
}

}  // namespace

struct MetricsServer::Listening {
    Listening(AgentLoop& loop, const LocalAddress& at, const std::optional<TlsCredentials>& withTls,
              const Routes& routes)
        : address(at), tls(withTls), caller(loop), server(ControlSocket(at), routes(caller), tls) {}
    ~Listening() { caller.end(); }  // before the server waits for its requests
    Listening(const Listening&) = delete;
    Listening& operator=(const Listening&) = delete;

    const LocalAddress address;
    const std::optional<TlsCredentials> tls;
    AgentThreadCall caller;
    ControlServer server;  // last: its routes use the others
};

MetricsServer::MetricsServer(AgentLoop& loop, Text text, Routes more)
    : m_loop(loop), m_routes(withMetrics(std::move(text), std::move(more))) {}

MetricsServer::~MetricsServer() = default;

void MetricsServer::listen(const std::optional<LocalAddress>& address, const std::optional<TlsCredentials>& tls) {
    if (!address) {
        if (m_listening != nullptr) logLine<lines::METRICS_ENDED>();
        m_listening.reset();
        return;
    }
    if (m_listening == nullptr) {
        listenAt(*address, tls);
        return;
    }
    const LocalAddress before = m_listening->address;
    const std::optional<TlsCredentials> tlsBefore = m_listening->tls;
    if (before.text() == address->text() && tlsBefore == tls) return;
    if (before.kind != LocalAddress::Kind::Tcp || before.port != address->port) {
        listenAt(*address, tls);
        return;
    }
    m_listening.reset();  // one of all addresses and one of a single one exclude each other
    try {
        listenAt(*address, tls);
    } catch (const std::system_error&) {
        listenAt(before, tlsBefore);
        throw;
    }
}

void MetricsServer::listenAt(const LocalAddress& address, const std::optional<TlsCredentials>& tls) {
    m_listening = std::make_unique<Listening>(m_loop, address, tls, m_routes);
    logLine<lines::METRICS_SERVED>(address.text());
}

}  // namespace vrx
