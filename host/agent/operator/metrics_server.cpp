#include "host/agent/operator/metrics_server.h"

#include <utility>

#include "host/agent/loop/agent_thread_call.h"
#include "host/agent/operator/control_server.h"
#include "host/base/log_line.h"
#include "host/log_lines/start.h"

namespace vrx {

namespace {

constexpr const char* CONTENT_TYPE = "text/plain; version=0.0.4; charset=utf-8";

}  // namespace

struct MetricsServer::Listening {
    Listening(AgentLoop& loop, const LocalAddress& at, const std::function<std::string()>& text)
        : address(at.text()),
          caller(loop),
          server(ControlSocket(at), {{"GET", "/metrics", [this, text](const ControlRequest&) {
                                          return ControlAnswer{200, caller.call<std::string>(text), CONTENT_TYPE};
                                      }}}) {}
    ~Listening() { caller.end(); }  // before the server waits for its requests
    Listening(const Listening&) = delete;
    Listening& operator=(const Listening&) = delete;

    const std::string address;
    AgentThreadCall caller;
    ControlServer server;  // last: its routes use the others
};

MetricsServer::MetricsServer(AgentLoop& loop, std::function<std::string()> text)
    : m_loop(loop), m_text(std::move(text)) {}

MetricsServer::~MetricsServer() = default;

void MetricsServer::listen(const std::optional<LocalAddress>& address) {
    const std::string before = m_listening == nullptr ? "" : m_listening->address;
    const std::string now = address ? address->text() : "";
    if (now == before) return;
    m_listening = address ? std::make_unique<Listening>(m_loop, *address, m_text) : nullptr;
    if (address) {
        logLine<lines::METRICS_SERVED>(now);
    } else {
        logLine<lines::METRICS_ENDED>();
    }
}

}  // namespace vrx
