#include "host/agent/loop/agent_thread_call.h"

#include <stdexcept>
#include <utility>

#include "host/base/mutex.h"

namespace vrx {

struct AgentThreadCall::State {
    Mutex mutex;
    ConditionVariable changed;
    bool ended GUARDED_BY(mutex) = false;
};

AgentThreadCall::AgentThreadCall(AgentLoop& loop) : m_loop(loop), m_state(std::make_shared<State>()) {}

AgentThreadCall::~AgentThreadCall() {
    end();
}

void AgentThreadCall::end() {
    const MutexLock lock(m_state->mutex);
    m_state->ended = true;
    m_state->changed.notify_all();
}

void AgentThreadCall::run(std::function<void(const Finished& finished)> start, std::chrono::milliseconds patience) {
    const auto done = std::make_shared<bool>(false);  // guarded by the state's mutex
    const Finished finished = [state = m_state, done] {
        const MutexLock lock(state->mutex);
        *done = true;
        state->changed.notify_all();
    };
    m_loop.post([start = std::move(start), finished] { start(finished); });
    MutexLock lock(m_state->mutex);
    m_state->changed.wait_for(lock, patience, [&]() REQUIRES(m_state->mutex) { return *done || m_state->ended; });
    if (*done) return;
    throw std::runtime_error(m_state->ended ? "the agent is ending" : "the agent is busy");
}

}  // namespace vrx
