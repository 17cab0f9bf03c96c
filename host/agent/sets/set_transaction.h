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
#include <optional>
#include <vector>

#include "host/agent/loop/agent_loop.h"
#include "host/agent/loop/wakeup.h"
#include "host/agent/sets/set_request.h"
#include "host/agent/sets/set_step_execution.h"

namespace vrx {

class SetTransaction : public std::enable_shared_from_this<SetTransaction> {
public:
    // `done` is called when nothing of it is under way any more; again when it throws std::bad_alloc.
    // REQUIRES: the last step at most cannot be given up.
    SetTransaction(std::vector<SetStep> steps, std::function<void(const SetResult&)> done);

    // From here on `goesOn`, which outlives the workers' jobs, is asked for whenever goOn() has something to do.
    void start(LoopWakeup& goesOn) noexcept;
    bool mayGoOn() const { return m_mayGoOn; }

    // Takes in what came of the last step and begins the next one, or tells the end. Throws std::bad_alloc, and is to
    // be called again: a step is never carried out twice.
    void goOn();

    // Gives up, unless the step that nothing takes back has begun: true when nothing has happened and nothing will.
    [[nodiscard]] bool cancel();

    bool touches(const ManagedObject& object) const;
    bool touchesAnyOf(const SetTransaction& other) const;

private:
    enum class State { Undecided, Decided, Cancelled };
    enum class Phase { Preparing, CarryingOut, GivingUp };  // the first step first; the others begin with the last one

    void takeIn(SetResult result) noexcept;
    SetResult act(StepExecution& step);  // on the step's worker
    bool decide();

    std::deque<StepExecution> m_steps;
    std::function<void(const SetResult&)> m_done;
    LoopWakeup* m_goesOn = nullptr;
    std::atomic<State> m_state{State::Undecided};

    // The worker's while a step is under way: it hands them back with m_mayGoOn.
    Phase m_phase = Phase::Preparing;
    std::size_t m_prepared = 0;         // steps that are, and are neither carried out nor given up
    std::optional<SetResult> m_result;  // of the last step, until it is taken in
    SetResult m_end;                    // what `done` gets
    std::atomic<bool> m_mayGoOn{false};
};

// Lets each SET begin when no earlier one is under way that touches the same object.
//
// Threads: agent thread only.
class SetQueue {
public:
    explicit SetQueue(AgentLoop& loop) : m_goesOn(loop, [this] { goOn(); }) {}

    void add(std::uint64_t id, std::shared_ptr<SetTransaction> set);
    void ended(std::uint64_t id) noexcept;
    void withdraw(std::uint64_t id) noexcept;  // it was cancelled

private:
    struct Queued {
        std::uint64_t id;
        std::shared_ptr<SetTransaction> set;
        bool begun;
    };

    void goOn();
    void beginThoseThatMay() noexcept;
    bool waits(std::list<Queued>::const_iterator turn) const;

    std::list<Queued> m_queue;  // in the order in which they came
    LoopWakeup m_goesOn;
};

}  // namespace vrx
