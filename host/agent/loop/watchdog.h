// Tells the service manager again and again that the agent thread is at work: from that thread's loop, so that one that
// hangs falls silent, and the manager starts the program anew.
//
// Threads: agent thread.
#pragma once

#include "host/agent/loop/timer.h"
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

    const ServiceManager& m_manager;
    LoopTimer m_timer;
};

}  // namespace vrx
