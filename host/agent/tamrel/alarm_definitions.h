// Whether the module can load its alarm definitions. A file that cannot be loaded is a fault of the host, not of the
// alarm that needs it: events wait for it, and the table of alarms is not shown as empty.
//
//     AlarmDefinitions definitions(binding);
//     if (const auto fault = definitions.fault()) ...  // why they cannot be used now
//
// Files with faults are tried again on demand, at most every `pause`: loading them once for each alarm would take
// all the time there is. One log line reports the fault, one its end.
//
// Threads: any.
#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>

#include "host/base/mutex.h"

namespace vrx {

class TamrelBinding;

class AlarmDefinitions {
public:
    static constexpr std::chrono::milliseconds PAUSE{2000};

    // The binding outlives this.
    explicit AlarmDefinitions(const TamrelBinding& binding);
    // With operations in its place: what they throw is why the definitions cannot be used.
    AlarmDefinitions(std::function<void()> load, std::function<void()> reload, std::chrono::milliseconds pause = PAUSE);

    // Nothing once they are loaded. Throws std::bad_alloc.
    [[nodiscard]] std::optional<std::string> fault();

    // Reads the files anew. REQUIRES: no handler of the module is at work. Throws what the module throws when a file
    // is at fault.
    void reload();

    // Between two attempts.
    std::chrono::milliseconds pause() const { return m_pause; }

    // As the last attempt found it, without another one.
    [[nodiscard]] std::optional<std::string> lastFault() const;

private:
    using Clock = std::chrono::steady_clock;

    void attempt(const std::function<void()>& action) REQUIRES(m_loading);

    const std::function<void()> m_load;
    const std::function<void()> m_reload;
    const std::chrono::milliseconds m_pause;

    Mutex m_loading ACQUIRED_BEFORE(m_mutex);  // held while a file is read
    Clock::time_point m_nextAttempt GUARDED_BY(m_loading){};

    mutable Mutex m_mutex;
    std::optional<std::string> m_fault GUARDED_BY(m_mutex);
};

}  // namespace vrx
