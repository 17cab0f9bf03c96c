// One SET request over all objects that it touches, all or nothing: every step is prepared, which nobody sees, then the
// one that nothing takes back is done (the backend clears an alarm), then the others are made so (a COMMIT). Whatever
// fails before gives all of it up.
//
// Threads: agent thread only; `done` is called there.
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <list>
#include <memory>
#include <utility>
#include <vector>

#include "host/agent/loop/agent_loop.h"
#include "host/agent/sets/set_request.h"
#include "host/agent/sets/set_step_execution.h"

namespace vrx {

class SetTransaction : public std::enable_shared_from_this<SetTransaction> {
public:
    // REQUIRES: the last step at most cannot be given up.
    SetTransaction(std::vector<SetStep> steps, AgentLoop& loop, std::function<void(const SetResult&)> done);

    // `done` is called once, when nothing of it is under way any more.
    void start();

    // Gives up, unless the step that nothing takes back has begun: true when nothing has happened and nothing will.
    [[nodiscard]] bool cancel();

    bool touches(const ManagedObject& object) const;
    bool touchesAnyOf(const SetTransaction& other) const;

private:
    enum class State { Undecided, Decided, Cancelled };

    void prepare(std::size_t step);
    void carryOut(std::size_t step);
    void giveUp(std::size_t steps, const SetResult& result);
    void run(std::size_t step, SetResult (*action)(SetTransaction& self, StepExecution& execution),
             std::function<void(const SetResult&)> then);
    bool decide();
    void noteHalf(const SetResult& result) const;

    std::deque<StepExecution> m_steps;
    AgentLoop& m_loop;
    std::function<void(const SetResult&)> m_done;
    std::atomic<State> m_state{State::Undecided};
};

// Lets each SET begin when no earlier one is under way that touches the same object.
//
// Threads: agent thread only.
class SetQueue {
public:
    void add(std::uint64_t id, std::shared_ptr<SetTransaction> set);
    void ended(std::uint64_t id);
    void withdraw(std::uint64_t id);  // it was cancelled

private:
    struct Queued {
        std::uint64_t id;
        std::shared_ptr<SetTransaction> set;
        bool begun;
    };

    void beginThoseThatMay();
    bool waits(std::list<Queued>::const_iterator turn) const;

    std::list<Queued> m_queue;  // in the order in which they came
};

}  // namespace vrx
