// A page for browsers beside the metrics: how the agent does and which alarms are active. Read only.
//
//     GET /                      the page; its style and script are GET /status.css and /status.js
//     GET /status.json           the status, as vrxctl status --json
//     GET /alarms.json?...       active alarms (alarm_query.h); with an ETag: 304 while nothing changed
//     GET /notifications.json    the last notifications that were sent; the same
//
// docs/status-page.md has it for users. A request is refused unless its Host is a name or an address of the loopback
// interface: a browser that has loaded a page of somebody else under another name may not read what is here. Over TLS
// the name is the certificate's.
//
// Threads: agent thread; routes run on the server's, and the texts are made there.
#pragma once

#include <string>
#include <vector>

#include "host/agent/loop/agent_thread_call.h"
#include "host/agent/operator/control_server.h"
#include "host/agent/web/alarm_list.h"
#include "host/agent/web/alarm_metrics.h"

namespace vrx {

class Agent;
class NotificationService;
class Reloader;

class StatusPage {
public:
    // What is given outlives it.
    StatusPage(AgentLoop& loop, const Agent& agent, const NotificationService& notifications, const Reloader& reloader);
    StatusPage(const StatusPage&) = delete;
    StatusPage& operator=(const StatusPage&) = delete;

    // For a server, which the page and `caller` outlive.
    std::vector<ControlRoute> routes(AgentThreadCall& caller);

    // The alarms among the metrics; see AlarmMetrics.
    std::string alarmMetrics(AgentThreadCall& caller) { return m_metrics.text(caller); }

private:
    ControlAnswer status(AgentThreadCall& caller) const;
    ControlAnswer alarms(AgentThreadCall& caller, const ControlRequest& request);

    const Agent& m_agent;
    const NotificationService& m_notifications;
    const Reloader& m_reloader;
    const std::string m_run;  // tells ETags of this run from those of others
    AlarmList m_alarms;
    AlarmMetrics m_metrics;
};

// Whether the Host header of a request is one of the loopback interface: "localhost", 127.0.0.0/8, "[::1]", any port.
bool isLocalHost(const std::string& host);

}  // namespace vrx
