#include "host/agent/sets/set_transaction.h"

#include <algorithm>
#include <exception>
#include <new>
#include <utility>

#include "host/base/log_line.h"
#include "host/log_lines/requests.h"

namespace vrx {

SetTransaction::SetTransaction(std::vector<SetStep> steps, std::function<void(const SetResult&)> done)
    : m_done(std::move(done)) {
    for (SetStep& step : steps) m_steps.emplace_back(std::move(step));
}

void SetTransaction::start(LoopWakeup& goesOn) noexcept {
    m_goesOn = &goesOn;
    m_mayGoOn = true;
    m_goesOn->request();
}

bool SetTransaction::cancel() {
    State expected = State::Undecided;
    return m_state.compare_exchange_strong(expected, State::Cancelled) || expected == State::Cancelled;
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

void SetTransaction::goOn() {
    m_mayGoOn = false;  // first: the worker may be quick
    try {
        if (m_result) takeIn(std::move(*m_result));
        m_result.reset();
        if (m_phase == Phase::Preparing && m_prepared == m_steps.size()) m_phase = Phase::CarryingOut;
        if (m_phase != Phase::Preparing && m_prepared == 0) return m_done(m_end);
        StepExecution& step = m_steps[m_phase == Phase::Preparing ? m_prepared : m_prepared - 1];
        step.object().worker().submit([self = shared_from_this(), &step] {
            try {
                self->m_result = self->act(step);
            } catch (const std::exception& error) {
                logFault<lines::SET_FAILED>(error.what());
                self->m_result = SetResult{SNMP_ERR_GENERR, 1, {}};
            }
            self->m_mayGoOn = true;
            self->m_goesOn->request();
        });
    } catch (const std::bad_alloc&) {
        m_mayGoOn = true;
        throw;
    }
}

SetResult SetTransaction::act(StepExecution& step) {
    const SetResult cancelled{SNMP_ERR_GENERR, 1, {}};
    switch (m_phase) {
        case Phase::Preparing:
            return m_state == State::Cancelled ? cancelled : step.prepare();
        case Phase::CarryingOut:
            return decide() ? step.carryOut() : cancelled;
        case Phase::GivingUp:
            break;
    }
    step.giveUp();
    return {};
}

void SetTransaction::takeIn(SetResult result) noexcept {
    if (m_phase == Phase::GivingUp) {
        --m_prepared;
    } else if (result.ok()) {
        m_phase == Phase::Preparing ? ++m_prepared : --m_prepared;
    } else if (m_phase == Phase::CarryingOut && m_prepared < m_steps.size()) {
        logFault<lines::SET_HALF_DONE>(m_steps.back().object().mib().name, result.reason);
        m_end = {SNMP_ERR_UNDOFAILED, 0, std::move(result.reason)};
        m_phase = Phase::GivingUp;
    } else {
        m_end = std::move(result);
        m_phase = Phase::GivingUp;
    }
}

void SetQueue::add(std::uint64_t id, std::shared_ptr<SetTransaction> set) {
    m_queue.push_back({id, std::move(set), false});
    beginThoseThatMay();
}

void SetQueue::ended(std::uint64_t id) noexcept {
    m_queue.remove_if([id](const Queued& turn) { return turn.id == id; });
    beginThoseThatMay();
}

// One that has begun keeps its turn until it has given up what it had prepared.
void SetQueue::withdraw(std::uint64_t id) noexcept {
    m_queue.remove_if([id](const Queued& turn) { return turn.id == id && !turn.begun; });
    beginThoseThatMay();
}

bool SetQueue::waits(std::list<Queued>::const_iterator turn) const {
    return std::any_of(m_queue.begin(), turn,
                       [&turn](const Queued& earlier) { return turn->set->touchesAnyOf(*earlier.set); });
}

void SetQueue::beginThoseThatMay() noexcept {
    for (auto turn = m_queue.begin(); turn != m_queue.end(); ++turn) {
        if (turn->begun || waits(turn)) continue;
        turn->begun = true;
        turn->set->start(m_goesOn);
    }
}

// One that goes on may come to its end, and others begin.
void SetQueue::goOn() {
    const auto next = [this] {
        return std::find_if(m_queue.begin(), m_queue.end(), [](const Queued& turn) { return turn.set->mayGoOn(); });
    };
    for (auto turn = next(); turn != m_queue.end(); turn = next()) {
        const std::shared_ptr<SetTransaction> set = turn->set;
        set->goOn();
    }
}

}  // namespace vrx
