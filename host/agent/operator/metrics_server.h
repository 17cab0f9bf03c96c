// The agent's status for collectors and browsers on a socket of the machine itself: GET /metrics in Prometheus text
// format, and the routes that are given.
//
//     MetricsServer metrics(loop, [&](AgentThreadCall& caller) { return caller.call<std::string>(...); }, routes);
//     metrics.listen(parseLocalAddress("tcp:127.0.0.1:9161", root), std::nullopt);
//
// Threads: agent thread; clients wait on threads of the server's, on which the text is made.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/agent/loop/agent_loop.h"
#include "host/agent/loop/agent_thread_call.h"
#include "host/agent/operator/control_server.h"
#include "host/base/local_address.h"

namespace vrx {

class MetricsServer {
public:
    // What they do on the agent thread they do through `caller`, which outlives them: it lets them go when the server
    // moves or ends.
    using Routes = std::function<std::vector<ControlRoute>(AgentThreadCall& caller)>;
    using Text = std::function<std::string(AgentThreadCall& caller)>;

    // `loop` and what `text` and the routes use outlive the server.
    MetricsServer(AgentLoop& loop, Text text, Routes more);
    ~MetricsServer();
    MetricsServer(const MetricsServer&) = delete;
    MetricsServer& operator=(const MetricsServer&) = delete;

    // Listens there and nowhere else from here on; without an address nowhere. Throws std::system_error when nobody can
    // be listened to there, and it listens where it did.
    void listen(const std::optional<LocalAddress>& address, const std::optional<TlsCredentials>& tls);

private:
    struct Listening;

    void listenAt(const LocalAddress& address, const std::optional<TlsCredentials>& tls);

    AgentLoop& m_loop;
    const Routes m_routes;
    std::unique_ptr<Listening> m_listening;  // null: nowhere
};

}  // namespace vrx
