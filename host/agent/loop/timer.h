// An action of the agent thread that its owner has done later, again and again.
//
//     LoopTimer m_timer{loop, [this] { beat(); }};
//     m_timer.start(std::chrono::seconds(60));
//
// It goes with its owner: once it is destroyed its action is not called any more. All its memory is taken when it is
// made, so that start() cannot fail. An action that throws std::bad_alloc is run again, until it gets its memory.
//
// Threads: agent thread.
#pragma once

#include <chrono>
#include <memory>

#include "host/agent/loop/agent_loop.h"

namespace vrx {

class LoopTimer {
public:
    // The loop outlives the timer.
    LoopTimer(AgentLoop& loop, AgentLoop::Task action);
    ~LoopTimer() { cancel(); }
    LoopTimer(const LoopTimer&) = delete;
    LoopTimer& operator=(const LoopTimer&) = delete;

    // Runs the action once, not before `delay` has passed. What was started before is not run then.
    void start(std::chrono::milliseconds delay) noexcept;

    void cancel() noexcept;

    bool isRunning() const { return m_idle.empty(); }

private:
    friend class AgentLoop;

    AgentLoop& m_loop;
    const std::shared_ptr<const AgentLoop::Task> m_action;  // an action may destroy its timer
    AgentLoop::Timers::node_type m_idle;                    // its place among the loop's timers, while it is not there
    AgentLoop::Timers::iterator m_running;                  // while it is
};

}  // namespace vrx
