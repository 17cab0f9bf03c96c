// One SET request over all objects that it touches, all or nothing: the objects' steps one after the other, each on its
// object's worker; when one fails, those before it are taken back. Scalars come last: a set of one cannot be undone.
//
// Threads: agent thread only; `done` is called there.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <vector>

#include "host/agent/agent_loop.h"
#include "host/agent/set_request.h"
#include "host/agent/set_step_execution.h"

class SetTransaction : public std::enable_shared_from_this<SetTransaction> {
public:
    SetTransaction(std::vector<SetStep> steps, AgentLoop& loop, std::function<void(const SetResult&)> done);

    void start();

    // Gives up, unless a handler was asked already: true when nothing has happened and nothing will, `done` neither.
    bool cancel() { return !m_begun.exchange(true); }

private:
    struct tStep {
        ManagedObject* object;
        StepExecution execution;
    };

    void apply(std::size_t step);
    void undo(std::size_t steps, SetResult result);

    std::vector<tStep> m_steps;
    AgentLoop& m_loop;
    std::function<void(const SetResult&)> m_done;
    std::atomic<bool> m_begun{false};
};
