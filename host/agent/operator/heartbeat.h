// A log line every now and then that says how the agent does, so that a log without news tells of an agent that lives.
//
//     2026-11-21T10:14:03.127+0100 info [agent] heartbeat: up 26 h 10 min, backend connected, 12 alarms active; since
//     the last one 40 events, 80 traps sent, 0 dropped
//
// Threads: agent thread.
#pragma once

#include <chrono>
#include <cstdint>

#include "host/agent/loop/timer.h"

namespace vrx {

class NotificationService;
class SnmpEngine;

class Heartbeat {
public:
    // All that is given outlives it. Nothing is said before setPeriod().
    Heartbeat(AgentLoop& loop, const SnmpEngine& engine, const NotificationService& notifications);
    Heartbeat(const Heartbeat&) = delete;
    Heartbeat& operator=(const Heartbeat&) = delete;

    // Zero: none. The same one again changes nothing.
    void setPeriod(std::chrono::seconds period);

private:
    struct Counts {
        std::uint64_t events = 0;
        std::uint64_t sent = 0;
        std::uint64_t dropped = 0;
    };

    void beat();
    Counts counts() const;

    const SnmpEngine& m_engine;
    const NotificationService& m_notifications;
    std::chrono::seconds m_period{0};
    Counts m_last;
    LoopTimer m_timer;
};

}  // namespace vrx
