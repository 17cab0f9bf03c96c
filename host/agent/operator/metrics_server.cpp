#include "host/agent/operator/metrics_server.h"

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
    Listening(AgentLoop& loop, const LocalAddress& at, const Routes& routes)
        : address(at.text()), caller(loop), server(ControlSocket(at), routes(caller)) {}
    ~Listening() { caller.end(); }  // before the server waits for its requests
    Listening(const Listening&) = delete;
    Listening& operator=(const Listening&) = delete;

    const std::string address;
    AgentThreadCall caller;
    ControlServer server;  // last: its routes use the others
};

MetricsServer::MetricsServer(AgentLoop& loop, Text text, Routes more)
    : m_loop(loop), m_routes(withMetrics(std::move(text), std::move(more))) {}

MetricsServer::~MetricsServer() = default;

void MetricsServer::listen(const std::optional<LocalAddress>& address) {
    const std::string before = m_listening == nullptr ? "" : m_listening->address;
    const std::string now = address ? address->text() : "";
    if (now == before) return;
    m_listening = address ? std::make_unique<Listening>(m_loop, *address, m_routes) : nullptr;
    if (address) {
        logLine<lines::METRICS_SERVED>(now);
    } else {
        logLine<lines::METRICS_ENDED>();
    }
}

}  // namespace vrx
