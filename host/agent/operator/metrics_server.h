// The agent's status for collectors: GET /metrics in Prometheus text format on a socket of the machine itself.
//
//     MetricsServer metrics(loop, [&] { return prometheusText(...); });
//     metrics.listen(parseLocalAddress("tcp:127.0.0.1:9161", root));
//
// Threads: agent thread, on which the text is made too; collectors wait on threads of the server's.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "host/agent/loop/agent_loop.h"
#include "host/base/local_address.h"

namespace vrx {

class MetricsServer {
public:
    // `loop` and what `text` uses outlive the server.
    MetricsServer(AgentLoop& loop, std::function<std::string()> text);
    ~MetricsServer();
    MetricsServer(const MetricsServer&) = delete;
    MetricsServer& operator=(const MetricsServer&) = delete;

    // Listens there and nowhere else from here on; without an address nowhere. Throws std::system_error when nobody can
    // be listened to there, and everything stays as it was.
    void listen(const std::optional<LocalAddress>& address);

private:
    struct Listening;

    AgentLoop& m_loop;
    const std::function<std::string()> m_text;
    std::unique_ptr<Listening> m_listening;  // null: nowhere
};

}  // namespace vrx
