#include "host/agent/loop/wakeup.h"

#include <algorithm>
#include <utility>

namespace vrx {

LoopWakeup::LoopWakeup(AgentLoop& loop, AgentLoop::Task action)
    : m_loop(loop), m_action(std::make_shared<const AgentLoop::Task>(std::move(action))) {
    auto& all = m_loop.m_wakeups;
    const auto place = std::find(all.begin(), all.end(), nullptr);
    if (place != all.end()) {
        *place = this;
    } else {
        all.push_back(this);
    }
}

// Its place stays, for another one: the loop may be on its way through them.
LoopWakeup::~LoopWakeup() {
    std::replace(m_loop.m_wakeups.begin(), m_loop.m_wakeups.end(), this, static_cast<LoopWakeup*>(nullptr));
}

void LoopWakeup::request() noexcept {
    if (!m_requested.exchange(true)) m_loop.wakeUp();
}

}  // namespace vrx
