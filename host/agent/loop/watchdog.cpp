#include "host/agent/loop/watchdog.h"

#include <algorithm>
#include <chrono>

namespace vrx {

Watchdog::Watchdog(AgentLoop& loop, const ServiceManager& manager)
    : m_manager(manager), m_timer(loop, [this] { ping(); }) {
    if (m_manager.aliveInterval().count() > 0) ping();
}

void Watchdog::ping() {
    m_manager.alive();
    const auto interval = std::chrono::duration_cast<std::chrono::milliseconds>(m_manager.aliveInterval());
    m_timer.start(std::max(interval, std::chrono::milliseconds(1)));
}

}  // namespace vrx
