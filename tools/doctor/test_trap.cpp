// A trap on request: the last one that was sent, once more, so that its receiver is told nothing that is not so.
#include <fmt/format.h>

#include <chrono>
#include <exception>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <thread>

#include "host/base/product_root.h"
#include "host/notification_log/notification_log_file.h"
#include "tools/agent_call.h"
#include "tools/doctor/checks.h"
#include "tools/doctor/facts.h"
#include "tools/doctor/report.h"

namespace vrx {

namespace {

constexpr std::chrono::seconds TRAP_PATIENCE{5};
constexpr std::chrono::milliseconds PAUSE{50};

std::optional<std::uint64_t> lastLogged() {
    NotificationLogReader log(productPath("state/notification_log.db"));
    NotificationLogFilter filter;
    filter.last = 1;
    std::optional<std::uint64_t> number;
    log.list(filter, [&](const LoggedNotification& entry) { number = entry.number; });
    return number;
}

}  // namespace

void sendTestTrap(const Facts& facts, unsigned int destination, Report& report) {
    const std::string subject = fmt::format("trap destination {}", destination);
    const std::string why = "No test trap was sent.";
    if (!facts.agentAnswers()) {
        report.notChecked("test trap", "the agent does not answer");
        return;
    }
    const auto sentBefore = facts.agent.sentTraps.find(subject);
    if (sentBefore == facts.agent.sentTraps.end()) {
        report.fault(subject, "There is no such destination.", why, facts.vrxctl("status"));
        return;
    }
    const std::optional<std::uint64_t> entry = lastLogged();
    if (!entry) {
        report.fault("test trap", "The notification log is empty: there is no trap to send again.", why,
                     facts.vrxctl("raise 4295229443 7 CTE0 1   # an alarm of the shipped definitions\n") +
                         facts.vrxctl("clear SERIAL"));
        return;
    }
    try {
        const nlohmann::json body{{"number", *entry}, {"to", std::to_string(destination)}};
        callAgent("POST", "/traps/resend", body.dump(), TRAP_PATIENCE);
    } catch (const AgentCallError& error) {
        report.fault(subject, error.what(), why, facts.vrxctl("status"));
        return;
    }
    const auto end = std::chrono::steady_clock::now() + TRAP_PATIENCE;
    for (;;) {
        const AgentFacts now = gatherAgentFacts();
        const auto sent = now.sentTraps.find(subject);
        if (sent != now.sentTraps.end() && sent->second > sentBefore->second) {
            report.done(
                fmt::format("entry {} of the notification log was sent to {} again; whether it arrived only its "
                            "receiver can tell",
                            *entry, subject));
            return;
        }
        if (std::chrono::steady_clock::now() >= end) break;
        std::this_thread::sleep_for(PAUSE);
    }
    report.fault(subject, "The agent took the test trap and has not sent it.",
                 "Alarms do not leave this machine, either.", facts.vrxctl("status --all"));
}

}  // namespace vrx
