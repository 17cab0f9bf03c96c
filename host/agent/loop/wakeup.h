// An action of the agent thread that any thread asks for.
//
//     LoopWakeup m_wakeup{loop, [this] { takeTurn(); }};
//     m_wakeup.request();
//
// However often it is asked for, it is run once, soon: what was done before request() is seen by it. It goes with its
// owner: once it is destroyed its action is not called any more. All its memory is taken when it is made, so that
// request() cannot fail. An action that throws std::bad_alloc is run again, until it gets its memory.
//
// Threads: request() may be called from any, the rest from the agent thread.
#pragma once

#include <atomic>
#include <memory>

#include "host/agent/loop/agent_loop.h"

namespace vrx {

class LoopWakeup {
public:
    // The loop outlives the wake-up.
    LoopWakeup(AgentLoop& loop, AgentLoop::Task action);
    ~LoopWakeup();
    LoopWakeup(const LoopWakeup&) = delete;
    LoopWakeup& operator=(const LoopWakeup&) = delete;

    void request() noexcept;

private:
    friend class AgentLoop;

    AgentLoop& m_loop;
    const std::shared_ptr<const AgentLoop::Task> m_action;  // an action may destroy its wake-up
    std::atomic<bool> m_requested{false};
};

}  // namespace vrx
