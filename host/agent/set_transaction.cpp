#include "host/agent/set_transaction.h"

#include <exception>
#include <string>
#include <utility>

#include "host/agent/agent_log.h"
#include "host/services/out_of_memory.h"

SetTransaction::SetTransaction(std::vector<SetStep> steps, AgentLoop& loop, std::function<void(const SetResult&)> done)
    : m_loop(loop), m_done(std::move(done)) {
    m_steps.reserve(steps.size());
    for (SetStep& step : steps) {
        ManagedObject* const object = step.object;
        m_steps.push_back({object, StepExecution(std::move(step))});
    }
}

void SetTransaction::start() {
    apply(0);
}

void SetTransaction::apply(std::size_t step) {
    if (step == m_steps.size()) {
        m_done({});
        return;
    }
    m_steps[step].object->worker().submit([self = shared_from_this(), step] {
        if (step == 0 && self->m_begun.exchange(true)) return;  // cancelled
        SetResult result{SNMP_ERR_GENERR, 1};
        try {
            result = self->m_steps[step].execution.apply();
        } catch (const std::exception& error) {
            agent_log::fault({"a SET failed: ", error.what()});
        }
        const auto goOn = [self, step, result] {
            if (result.ok()) {
                self->apply(step + 1);
            } else {
                self->undo(step, result);
            }
        };
        untilMemory([&] { self->m_loop.post(goOn); });
    });
}

// Takes the first `steps` steps back, the last one first.
void SetTransaction::undo(std::size_t steps, SetResult result) {
    if (steps == 0) {
        m_done(result);
        return;
    }
    m_steps[steps - 1].object->worker().submit([self = shared_from_this(), steps, result] {
        SetResult outcome = result;
        if (!self->m_steps[steps - 1].execution.undo()) outcome.error = SNMP_ERR_UNDOFAILED;
        untilMemory([&] { self->m_loop.post([self, steps, outcome] { self->undo(steps - 1, outcome); }); });
    });
}
