// Lets other threads have something done on the agent thread and wait for it.
//
//     AgentThreadCall caller(loop);
//     const std::string text = caller.call<std::string>([&] { return agent.describe(); });
//
// Threads: call() and run() from any but the agent thread; made, ended and destroyed on the agent thread.
#pragma once

#include <chrono>
#include <functional>
#include <future>
#include <memory>

#include "host/agent/loop/agent_loop.h"

namespace vrx {

class AgentThreadCall {
public:
    static constexpr std::chrono::milliseconds TIMEOUT{5'000};

    explicit AgentThreadCall(AgentLoop& loop);
    ~AgentThreadCall();  // as end()
    AgentThreadCall(const AgentThreadCall&) = delete;
    AgentThreadCall& operator=(const AgentThreadCall&) = delete;

    // Has `work` done; gives what it gives, or throws what it throws. Throws std::runtime_error when the agent has no
    // time for it, or ends: then it may still be done.
    template <typename Result>
    Result call(std::function<Result()> work) {
        const auto task = std::make_shared<std::packaged_task<Result()>>(std::move(work));
        std::future<Result> result = task->get_future();
        run(
            [task](const Finished& finished) {
                (*task)();
                finished();
            },
            TIMEOUT);
        return result.get();
    }

    // Has `start` called, and waits until that has called `finished`, then or later. Throws as call().
    using Finished = std::function<void()>;
    void run(std::function<void(const Finished& finished)> start, std::chrono::milliseconds patience);

    // Whoever waits is let go, and nobody waits any more.
    void end();

private:
    struct State;

    AgentLoop& m_loop;
    const std::shared_ptr<State> m_state;  // shared with what was started
};

}  // namespace vrx
