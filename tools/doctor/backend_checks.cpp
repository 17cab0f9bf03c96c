// The management backend: whether it answers, how fast, and whether all know the same alarms.
#include <fmt/format.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <set>
#include <stdexcept>
#include <string>

#include "alarm/snmp_alarm_iniparser.h"
#include "host/base/local_socket.h"
#include "host/base/product_root.h"
#include "host/transport/backend_client.h"
#include "host/transport/backend_options.h"
#include "host/transport/backend_protocol.h"
#include "host/transport/backend_result.h"
#include "tools/alarm_commands.h"
#include "tools/definition_files.h"
#include "tools/doctor/checks.h"
#include "tools/doctor/facts.h"
#include "tools/doctor/report.h"

namespace vrx {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr milliseconds BACKEND_PATIENCE{3000};
constexpr const char* BACKEND = "backend";
constexpr const char* WHY =
    "The table of alarms is an error, alarms cannot be cleared, and no trap is sent of what happens now.";
constexpr const char* RESTART_BACKEND = "systemctl restart vrx-backendd\njournalctl -u vrx-backendd -n 20";

// A request that is answered by whatever state the backend is in.
int askStatus(const BackendOptions& options) {
    CR8KPackageV3 request;
    request.append(
        std::make_unique<CTLVRecordV3>(BackendCommands::fromDevice().getBackendStatus, CTLVRecordV3::DEFAULT_BUCKETS));
    CR8KPackageV3 answer;
    BackendClient client(options);
    return client.call(request, answer);
}

void checkAnswer(const BackendOptions& options, const Facts& facts, Report& report) {
    const std::string address = options.address.text();
    const Expected<FileDescriptor> socket = connectSocket(options.address, Clock::now() + BACKEND_PATIENCE, -1);
    if (!socket) {
        if (!facts.mayLook && options.address.kind == LocalAddress::Kind::Unix) {
            report.notChecked(BACKEND, facts.usersFault);
        } else {
            report.fault(BACKEND, "It cannot be reached at " + address + ": " + socket.failure() + ".", WHY,
                         "systemctl start vrx-backendd\njournalctl -u vrx-backendd -n 20");
        }
        return;
    }
    BackendOptions patient = options;
    patient.callDeadline = std::max(options.callDeadline, BACKEND_PATIENCE);
    patient.callDeadline = std::min(patient.callDeadline, 2 * BACKEND_PATIENCE);
    constexpr int ATTEMPTS = 3;  // a machine that is busy for a moment is no slow backend
    int result = BACKEND_OK;
    milliseconds taken = milliseconds::max();
    for (int i = 0; i < ATTEMPTS && result == BACKEND_OK && taken > options.callDeadline / 2; ++i) {
        const Clock::time_point begun = Clock::now();
        result = askStatus(patient);
        taken = std::min(taken, std::chrono::duration_cast<milliseconds>(Clock::now() - begun));
    }
    if (result == BACKEND_UNKNOWN_COMMAND) {
        report.fault(BACKEND, "It does not know the command GET_BACKEND_STATUS by the configured number.",
                     "The numbers of section COMMAND are not those of this backend: all calls fail, or do what was not "
                     "meant.",
                     "vi " + productPath("conf/device.xml") + "\nsystemctl restart vrx-backendd vrx-agentd");
    } else if (result != BACKEND_OK) {
        report.fault(BACKEND, fmt::format("It does not answer at {}: {}.", address, backendResultText(result)), WHY,
                     RESTART_BACKEND);
    } else if (taken > options.callDeadline) {
        report.fault(BACKEND,
                     fmt::format("An answer takes {} ms; the agent waits {} ms (CALL_DEADLINE_MS).", taken.count(),
                                 options.callDeadline.count()),
                     WHY, RESTART_BACKEND);
    } else if (taken > options.callDeadline / 2) {
        report.warning(BACKEND,
                       fmt::format("An answer takes {} ms; the agent waits {} ms at most (CALL_DEADLINE_MS).",
                                   taken.count(), options.callDeadline.count()),
                       "Under load calls will fail, and with them reads of the table of alarms.", RESTART_BACKEND);
    }
}

std::string joined(const std::set<std::uint64_t>& numbers) {
    return fmt::format("{}", fmt::join(numbers, ", "));
}

}  // namespace

void checkBackend(const Facts& facts, Report& report) {
    BackendOptions options;
    try {
        options = BackendOptions::fromDevice();
        (void)BackendCommands::fromDevice();
    } catch (const std::invalid_argument& error) {
        const std::string device = productPath("conf/device.xml");
        if (!report.names(device)) {
            report.fault(device, error.what(), "Neither the agent nor vrxctl can call the backend.",
                         "vi " + device + "\nsystemctl restart vrx-backendd vrx-agentd");
        }
        return;
    }
    checkAnswer(options, facts, report);
}

void checkAlarms(const Facts& facts, Report& report) {
    constexpr int ATTEMPTS = 3;  // alarms come and go between two looks
    if (report.names(BACKEND) || report.names(productPath("conf/device.xml"))) {
        report.notChecked("alarms", "the backend cannot be asked");
        return;
    }
    if (!facts.mayLook) return;
    std::vector<ListedAlarm> alarms;
    AgentFacts agent = facts.agent;
    bool differs = false;
    for (int i = 0; i < ATTEMPTS; ++i) {
        if (i > 0 && facts.agentAnswers()) agent = gatherAgentFacts();
        alarms = listAlarms();
        differs = agent.activeAlarms && *agent.activeAlarms != alarms.size();
        if (!differs) break;
    }
    if (differs) {
        report.fault(
            "alarms",
            fmt::format("The backend has {} active alarms, the agent counts {}.", alarms.size(), *agent.activeAlarms),
            "Traps are late or missing; managers that poll the counts of VRX-AGENT-MIB are told wrong ones.",
            facts.vrxctl("status") + "\njournalctl -u vrx-agentd -p warning -n 20\nsystemctl restart vrx-agentd");
    }
    const CAlarmConfigParser& definitions = *CAlarmConfigParser::instance();
    std::set<std::uint64_t> undefined;
    std::size_t shown = 0;
    for (const ListedAlarm& alarm : alarms) {
        if (definitions.alarmItems().count(alarm.alarmId) != 0) {
            ++shown;
        } else {
            undefined.insert(alarm.alarmId);
        }
    }
    if (!undefined.empty()) {
        report.fault(
            "alarms", "Active alarms have no definition: " + joined(undefined) + ".",
            "They send no trap and are not in the table: no manager knows of them.",
            "vi " + configuredDefinitionFiles().definitions + "\n" + facts.vrxctl("lint && ") + facts.vrxctl("reload"));
    }
    if (agent.alarmRows && !differs && *agent.alarmRows > shown) {
        report.warning("alarms",
                       fmt::format("The table of alarms has {} rows, the backend {} alarms.", *agent.alarmRows, shown),
                       "Managers see alarms that have ended.", facts.vrxctl("status --all"));
    }
}

}  // namespace vrx
