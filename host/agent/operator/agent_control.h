// The requests that a running agent answers on its control socket, <root>/state/agent.sock:
//
//     GET  /status            its status, as JSON (agent_status.h)
//     GET  /log               {"agent": "info", ...}: the level of each subsystem
//     POST /log               {"subsystem", "level"}: another one until the next reload or start
//     POST /reload            reloads the configuration: {"taken": true, "faults": []}
//     POST /users             {"name", "authentication", "privacy"}: a user with these passphrases (SHA-256, AES-128;
//                             other protocols by "authentication_protocol", "privacy_protocol")
//     DELETE /users?name=     removes a user and its keys
//     POST /traps/resend      {"number", "to"}: sends a logged trap again; "to" is optional:
//                             {"destinations": [...], "missing": [...]}
//
// Threads: the routes run on the server's threads and call into the agent thread, on which this is made and destroyed.
#pragma once

#include <memory>

#include "host/agent/assembly/agent.h"
#include "host/agent/assembly/notification_service.h"
#include "host/agent/loop/agent_loop.h"
#include "host/agent/loop/agent_thread_call.h"
#include "host/agent/operator/control_server.h"
#include "host/agent/reload/reloader.h"

namespace vrx {

class AgentControl {
public:
    // What is given outlives it. Throws std::system_error when nobody can be answered.
    AgentControl(ControlSocket socket, AgentLoop& loop, Agent& agent, NotificationService& notifications,
                 Reloader& reloader);
    ~AgentControl();
    AgentControl(const AgentControl&) = delete;
    AgentControl& operator=(const AgentControl&) = delete;

private:
    ControlAnswer status();
    static ControlAnswer logLevels();
    static ControlAnswer setLogLevel(const ControlRequest& request);
    ControlAnswer reload();
    ControlAnswer addUser(const ControlRequest& request);
    ControlAnswer removeUser(const ControlRequest& request);
    ControlAnswer resendTrap(const ControlRequest& request);

    AgentThreadCall m_caller;
    Agent& m_agent;
    NotificationService& m_notifications;
    Reloader& m_reloader;
    std::unique_ptr<ControlServer> m_server;  // last: its routes use the others
};

}  // namespace vrx
