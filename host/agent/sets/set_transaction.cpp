#include "host/agent/sets/set_transaction.h"

#include <algorithm>
#include <exception>
#include <string>

#include "host/base/log_line.h"
#include "host/base/memory_retry.h"
#include "host/log_lines/requests.h"

namespace vrx {

SetTransaction::SetTransaction(std::vector<SetStep> steps, AgentLoop& loop, std::function<void(const SetResult&)> done)
    : m_loop(loop), m_done(std::move(done)) {
    for (SetStep& step : steps) m_steps.emplace_back(std::move(step));
}

void SetTransaction::start() {
    prepare(0);
}

bool SetTransaction::cancel() {
    State expected = State::Undecided;
    return m_state.compare_exchange_strong(expected, State::Cancelled);
}

// False when it was cancelled.
bool SetTransaction::decide() {
    State expected = State::Undecided;
    return m_state.compare_exchange_strong(expected, State::Decided) || expected == State::Decided;
}

bool SetTransaction::touches(const ManagedObject& object) const {
    return std::any_of(m_steps.begin(), m_steps.end(),
                       [&object](const StepExecution& step) { return &step.object() == &object; });
}

bool SetTransaction::touchesAnyOf(const SetTransaction& other) const {
    return std::any_of(m_steps.begin(), m_steps.end(),
                       [&other](const StepExecution& step) { return other.touches(step.object()); });
}

// Runs the action on the step's worker, and `then` with its result back here: all or nothing. Callers wait for the
// memory that it takes: a SET that stopped half way would keep its turn, and every later one of its objects would wait
// for it.
void SetTransaction::run(std::size_t step, SetResult (*action)(SetTransaction& self, StepExecution& execution),
                         std::function<void(const SetResult&)> then) {
    m_steps[step].object().worker().submit([self = shared_from_this(), step, action, then = std::move(then)] {
        SetResult result{SNMP_ERR_GENERR, 1, {}};
        try {
            result = action(*self, self->m_steps[step]);
        } catch (const std::exception& error) {
            logFault<lines::SET_FAILED>(error.what());
        }
        retryForever([&] { self->m_loop.post([self, then, result] { then(result); }); });
    });
}

void SetTransaction::prepare(std::size_t step) {
    if (step == m_steps.size()) {
        carryOut(step);
        return;
    }
    const auto action = [](SetTransaction& self, StepExecution& execution) {
        return self.m_state == State::Cancelled ? SetResult{SNMP_ERR_GENERR, 1, {}} : execution.prepare();
    };
    const auto then = [this, step](const SetResult& result) {
        if (result.ok()) {
            prepare(step + 1);
        } else {
            giveUp(step, result);
        }
    };
    retryForever([&] { run(step, action, then); });
}

// The last of the first `steps` steps: from back to front, so that what nothing takes back is done first.
void SetTransaction::carryOut(std::size_t steps) {
    if (steps == 0) {
        m_done({});
        return;
    }
    const auto action = [](SetTransaction& self, StepExecution& execution) {
        return self.decide() ? execution.carryOut() : SetResult{SNMP_ERR_GENERR, 1, {}};
    };
    const auto then = [this, steps](const SetResult& result) {
        if (result.ok()) {
            carryOut(steps - 1);
        } else if (steps == m_steps.size()) {
            giveUp(steps, result);
        } else {
            retryForever([&] { noteHalf(result); });
            retryForever([&] { giveUp(steps, {SNMP_ERR_UNDOFAILED, 0, result.reason}); });
        }
    };
    retryForever([&] { run(steps - 1, action, then); });
}

void SetTransaction::noteHalf(const SetResult& result) const {
    logLine<lines::SET_HALF_DONE>(m_steps.back().object().mib().name, result.reason);
}

// The first `steps` steps, the last one first.
void SetTransaction::giveUp(std::size_t steps, const SetResult& result) {
    if (steps == 0) {
        m_done(result);
        return;
    }
    const auto action = [](SetTransaction&, StepExecution& execution) {
        execution.giveUp();
        return SetResult{};
    };
    retryForever(
        [&] { run(steps - 1, action, [this, steps, result](const SetResult&) { giveUp(steps - 1, result); }); });
}

void SetQueue::add(std::uint64_t id, std::shared_ptr<SetTransaction> set) {
    m_queue.push_back({id, std::move(set), false});
    beginThoseThatMay();
}

void SetQueue::ended(std::uint64_t id) {
    m_queue.remove_if([id](const Queued& turn) { return turn.id == id; });
    beginThoseThatMay();
}

// One that has begun keeps its turn until it has given up what it had prepared.
void SetQueue::withdraw(std::uint64_t id) {
    m_queue.remove_if([id](const Queued& turn) { return turn.id == id && !turn.begun; });
    beginThoseThatMay();
}

bool SetQueue::waits(std::list<Queued>::const_iterator turn) const {
    return std::any_of(m_queue.begin(), turn,
                       [&turn](const Queued& earlier) { return turn->set->touchesAnyOf(*earlier.set); });
}

// One that begins may be at its end at once, and gone from the list.
void SetQueue::beginThoseThatMay() {
    const auto next = [this] {
        auto turn = m_queue.begin();
        while (turn != m_queue.end() && (turn->begun || waits(turn))) ++turn;
        return turn;
    };
    for (auto turn = next(); turn != m_queue.end(); turn = next()) {
        turn->begun = true;
        const std::shared_ptr<SetTransaction> set = turn->set;
        set->start();
    }
}

}  // namespace vrx
