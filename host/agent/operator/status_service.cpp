#include "host/agent/operator/status_service.h"

#include <string>
#include <system_error>
#include <utility>

#include "host/agent/assembly/agent.h"
#include "host/agent/operator/agent_status.h"
#include "host/agent/operator/prometheus_text.h"
#include "host/base/log_line.h"
#include "host/log_lines/start.h"

namespace vrx {

StatusService::StatusService(AgentLoop& loop, const Agent& agent, const NotificationService& notifications,
                             const Reloader& reloader, MetricsServer::Text alarms, MetricsServer::Routes routes)
    : m_agent(agent),
      m_scalars(notifications),
      m_heartbeat(loop, agent.engine(), notifications),
      m_metrics(
          loop,
          [&, alarms = std::move(alarms)](AgentThreadCall& caller) {
              return caller.call<std::string>([&] {
                  return prometheusText(agentStatus(agent, notifications, reloader));
              }) + alarms(caller);
          },
          std::move(routes)) {
    try {
        configure();
    } catch (const std::system_error& error) {  // alarms matter more than that
        logLine<lines::CONFIGURATION_FAULT>(error.what());
    }
}

void StatusService::configure() {
    const StatusSettings& settings = m_agent.engine().limits().status;
    m_heartbeat.setPeriod(settings.heartbeat);
    try {
        m_metrics.listen(settings.metrics, settings.tls);
    } catch (const std::system_error& error) {
        throw std::system_error(error.code(), std::string("vrxMetrics: ") + error.what());
    }
}

}  // namespace vrx
