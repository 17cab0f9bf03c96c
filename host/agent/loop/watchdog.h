// Tells the service manager again and again that the agent thread is at work: from that thread's loop, so that one that
// hangs falls silent, and the manager starts the program anew.
//
// Threads: agent thread.
#pragma once

#include <memory>

#include "host/agent/loop/agent_loop.h"
#include "host/base/service_manager.h"

namespace vrx {

class Watchdog {
public:
    // Both outlive the watchdog. Does nothing when the manager expects nothing.
    Watchdog(AgentLoop& loop, const ServiceManager& manager);
    Watchdog(const Watchdog&) = delete;
    Watchdog& operator=(const Watchdog&) = delete;

private:
    void ping();

    AgentLoop& m_loop;
    const ServiceManager& m_manager;
    std::shared_ptr<int> m_alive = std::make_shared<int>(0);  // tasks in the loop hold it weakly
};

}  // namespace vrx
