// What the agent tells of itself unasked or to others than vrxctl: objects, metrics, heartbeat.
//
//     StatusService status(loop, agent, notifications, reloader, alarms, routes);
//     reloader.onExchange = [&] { status.configure(); };
//
// Threads: agent thread.
#pragma once

#include "host/agent/operator/heartbeat.h"
#include "host/agent/operator/metrics_server.h"
#include "host/agent/operator/status_scalars.h"

namespace vrx {

class Agent;
class Reloader;

class StatusService {
public:
    // All that is given outlives it. `routes` are served beside the metrics, `alarms` are among these. A metrics
    // address that cannot be listened at is an error in the log.
    StatusService(AgentLoop& loop, const Agent& agent, const NotificationService& notifications,
                  const Reloader& reloader, MetricsServer::Text alarms, MetricsServer::Routes routes);

    // Takes the engine's configuration over. Throws std::system_error when the metrics' address cannot be listened at:
    // they stay where they are then.
    void configure();

private:
    const Agent& m_agent;
    const StatusScalars m_scalars;
    Heartbeat m_heartbeat;
    MetricsServer m_metrics;
};

}  // namespace vrx
