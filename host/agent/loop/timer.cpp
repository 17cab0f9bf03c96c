#include "host/agent/loop/timer.h"

#include <utility>

namespace vrx {

LoopTimer::LoopTimer(AgentLoop& loop, AgentLoop::Task action)
    : m_loop(loop), m_action(std::make_shared<const AgentLoop::Task>(std::move(action))) {
    AgentLoop::Timers place;
    place.emplace(AgentLoop::Clock::time_point(), AgentLoop::Timer{{}, this});
    m_idle = place.extract(place.begin());
}

void LoopTimer::start(std::chrono::milliseconds delay) noexcept {
    cancel();
    m_idle.key() = AgentLoop::Clock::now() + delay;
    m_running = m_loop.m_timers.insert(std::move(m_idle));
    m_loop.armTimer();
}

void LoopTimer::cancel() noexcept {
    if (isRunning()) m_idle = m_loop.m_timers.extract(m_running);
}

}  // namespace vrx
