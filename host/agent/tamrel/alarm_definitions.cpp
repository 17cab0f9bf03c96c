#include "host/agent/tamrel/alarm_definitions.h"

#include <algorithm>
#include <exception>
#include <new>
#include <utility>

#include "host/agent/tamrel/tamrel_binding.h"
#include "host/base/log_line.h"
#include "host/log_lines/events.h"

namespace vrx {

AlarmDefinitions::AlarmDefinitions(const TamrelBinding& binding)
    : AlarmDefinitions([&binding] { binding.loadDefinitions(); }, [&binding] { binding.reloadDefinitions(); }) {}

AlarmDefinitions::AlarmDefinitions(std::function<void()> load, std::function<void()> reload,
                                   std::chrono::milliseconds pause)
    : m_load(std::move(load)), m_reload(std::move(reload)), m_pause(pause) {}

std::optional<std::string> AlarmDefinitions::fault() {
    const MutexLock loading(m_loading);
    std::optional<std::string> known = lastFault();
    if (known && Clock::now() < m_nextAttempt) return known;
    try {
        attempt(m_load);
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception&) {
        return lastFault();
    }
    return std::nullopt;
}

void AlarmDefinitions::reload() {
    const MutexLock loading(m_loading);
    attempt(m_reload);
}

std::optional<std::string> AlarmDefinitions::lastFault() const {
    const MutexLock lock(m_mutex);
    return m_fault;
}

// Another fault than before is no news: its line would come with every attempt.
void AlarmDefinitions::attempt(const std::function<void()>& action) {
    try {
        action();
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception& error) {
        m_nextAttempt = Clock::now() + m_pause;
        std::string reason = error.what();
        std::replace(reason.begin(), reason.end(), '\n', ' ');
        const bool isNew = !lastFault();
        {
            const MutexLock lock(m_mutex);
            m_fault = reason;
        }
        if (isNew) logLine<lines::DEFINITIONS_UNUSABLE>(reason);
        throw;
    }
    const MutexLock lock(m_mutex);
    if (m_fault) logLine<lines::DEFINITIONS_USABLE>();
    m_fault.reset();
}

}  // namespace vrx
