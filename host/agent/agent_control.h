// What can be asked of a running agent through its control socket, <root>/state/agent.sock:
//
//     GET  /status            how it goes, as JSON (agent_status.h)
//     POST /reload            takes the configuration over: {"taken": true, "faults": []}
//     POST /users             {"name", "authentication", "privacy"}: a user with these passphrases (SHA-256, AES-128)
//     DELETE /users?name=     takes a user and its keys away
//
// Threads: the routes run on the server's threads and hand over to the agent thread; made and destroyed there.
#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <string>

#include "host/agent/agent.h"
#include "host/agent/agent_loop.h"
#include "host/agent/control_server.h"
#include "host/agent/notification_service.h"
#include "host/agent/reloader.h"

class AgentControl {
public:
    // What is given outlives it. Throws std::system_error when nobody can be listened to at `address`.
    AgentControl(const BackendAddress& address, AgentLoop& loop, Agent& agent, NotificationService& notifications,
                 Reloader& reloader);
    ~AgentControl();
    AgentControl(const AgentControl&) = delete;
    AgentControl& operator=(const AgentControl&) = delete;

private:
    // Runs `work` on the agent thread and gives what it gives. Throws std::runtime_error when the agent is busy for too
    // long, or ends.
    template <typename Result>
    Result onAgentThread(std::function<Result()> work);
    template <typename Result>
    Result await(std::future<Result> result, std::chrono::milliseconds patience) const;

    ControlAnswer status();
    ControlAnswer reload();
    ControlAnswer addUser(const ControlRequest& request);
    ControlAnswer removeUser(const ControlRequest& request);

    AgentLoop& m_loop;
    Agent& m_agent;
    NotificationService& m_notifications;
    Reloader& m_reloader;
    std::atomic<bool> m_ending{false};
    std::unique_ptr<ControlServer> m_server;  // last: its routes use the others
};
