#include "host/agent/loop/watchdog.h"

#include <algorithm>

namespace vrx {

Watchdog::Watchdog(AgentLoop& loop, const ServiceManager& manager) : m_loop(loop), m_manager(manager) {
    if (m_manager.aliveInterval().count() > 0) ping();
}

void Watchdog::ping() {
    m_manager.alive();
    const auto interval = std::chrono::duration_cast<std::chrono::milliseconds>(m_manager.aliveInterval());
    m_loop.runAfter(std::max(interval, std::chrono::milliseconds(1)), [this, alive = std::weak_ptr<int>(m_alive)] {
        if (!alive.expired()) ping();
    });
}

}  // namespace vrx
