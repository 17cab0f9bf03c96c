// The running agent: that it runs, as what is installed, with the files as they are, and what it says of itself.
#include <fmt/format.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include "host/base/product_root.h"
#include "tools/definition_files.h"
#include "tools/doctor/checks.h"
#include "tools/doctor/facts.h"
#include "tools/doctor/report.h"

namespace vrx {

namespace {

namespace fs = std::filesystem;

constexpr const char* AGENT = "agent";
constexpr const char* RESTART_AGENT = "systemctl restart vrx-agentd";

struct Trouble {
    const char* begins;
    Severity severity;
    const char* why;
    const char* remedy;
};
// In the words of vrxctl status.
constexpr Trouble TROUBLES[] = {
    {"the backend is away", Severity::Fault,
     "No trap is sent of what happens now; it is sent when the backend is back.",
     "systemctl restart vrx-backendd\njournalctl -u vrx-backendd -n 20"},
    {"the alarm definitions cannot be loaded", Severity::Fault, "No trap is sent until they can be.", "vrxctl lint"},
    {"the last reload was refused", Severity::Warning,
     "The agent goes on with its former configuration: what was changed since has no effect.", "vrxctl reload"},
    {"the notification log cannot be written", Severity::Warning,
     "What is sent now can neither be looked up nor sent again.", "df -h; vrxctl status --all"},
    {"trap destination ", Severity::Fault, "Its traps are dropped, or wait.", "vrxctl status"},
    {"inform destination ", Severity::Warning, "Its informs wait, up to vrxInformQueue of them.", "vrxctl status"},
    {"object ", Severity::Warning, "Managers that read it get genErr.", "vrxctl status --all"},
};

// "trap destination 2 sending fails" is about "trap destination 2".
std::string subjectOf(const Trouble& trouble, const std::string& text) {
    const std::string begin = trouble.begins;
    if (begin.back() != ' ') return AGENT;
    return text.substr(0, std::min(text.find(' ', begin.size()), text.size()));
}

// A change of these does nothing before the next reload.
std::vector<fs::path> filesOfReload() {
    return {directivesPath(), productPath("conf/device.xml"), productPath("mibs/VRX-TAMREL-MIB.xml"),
            configuredDefinitionFiles().definitions, configuredDefinitionFiles().enumerations};
}

}  // namespace

void checkAgent(const Facts& facts, Report& report) {
    switch (facts.agent.state) {
        case AgentFacts::State::Answers:
            return;
        case AgentFacts::State::OutOfReach:
            report.notChecked(AGENT, facts.agent.fault);
            return;
        case AgentFacts::State::Away: {
            std::error_code error;
            const bool left = fs::is_socket(productPath("state/agent.sock"), error);
            report.fault(
                AGENT, std::string("It does not run") + (left ? ": it ended without notice (crash or kill -9)." : "."),
                "No manager is answered, and no trap is sent.",
                "systemctl start vrx-agentd\njournalctl -u vrx-agentd -n 20");
            return;
        }
        case AgentFacts::State::Silent:
            report.fault(AGENT, "It runs and does not answer on its control socket: " + facts.agent.fault + ".",
                         "It hangs, or is stopped; managers are probably not answered, either.",
                         "journalctl -u vrx-agentd -n 20\n" + std::string(RESTART_AGENT));
    }
}

void checkAgentVersion(const Facts& facts, Report& report) {
    if (!facts.agentAnswers()) return;
    if (facts.agent.version != VRX_INSTALLED_VERSION) {
        report.warning(AGENT,
                       fmt::format("Version {} runs, {} is installed.", facts.agent.version, VRX_INSTALLED_VERSION),
                       "What was mended since is not in force.", RESTART_AGENT);
    }
    std::error_code error;
    const std::string program = fs::read_symlink(fmt::format("/proc/{}/exe", facts.agent.process), error).string();
    constexpr std::string_view DELETED = " (deleted)";
    if (!error && facts.agent.version == VRX_INSTALLED_VERSION && program.size() > DELETED.size() &&
        program.compare(program.size() - DELETED.size(), DELETED.size(), DELETED) == 0) {
        report.warning(AGENT, "The program that runs has been replaced on disk.", "The former one runs on.",
                       RESTART_AGENT);
    }
}

void checkAgentStatus(const Facts& facts, Report& report) {
    if (!facts.agentAnswers()) {
        report.notChecked("what the agent says of itself", "it does not answer");
        return;
    }
    constexpr std::chrono::seconds SLACK{2};
    for (const fs::path& file : filesOfReload()) {
        std::error_code error;
        const auto written = file.empty() ? fs::file_time_type() : fs::last_write_time(file, error);
        if (file.empty() || error || !facts.agent.configurationRead) continue;
        const auto age = fs::file_time_type::clock::now() - written;
        const auto read = std::chrono::system_clock::now() - *facts.agent.configurationRead;
        if (age.count() < 0 || age + SLACK >= read) continue;
        report.warning(file, "It was changed after the agent read it.", "The change is not in force.",
                       facts.vrxctl("reload"));
    }
    for (const std::string& text : facts.agent.troubles) {
        const Trouble* found = nullptr;
        for (const Trouble& trouble : TROUBLES) {
            if (found == nullptr && text.rfind(trouble.begins, 0) == 0) found = &trouble;
        }
        const std::string subject = found == nullptr ? AGENT : subjectOf(*found, text);
        // What has been found to be at fault need not be told again as what the agent makes of it.
        if (subject != AGENT && report.names(subject)) continue;
        if (found != nullptr && subject == AGENT && text.rfind("the backend", 0) == 0 && report.names("backend"))
            continue;
        std::string remedy = found == nullptr ? "vrxctl status" : found->remedy;
        if (remedy.rfind("vrxctl ", 0) == 0) remedy = facts.vrxctl(remedy.substr(7));
        const std::string what = fmt::format("It says: {}.", text);
        if (found == nullptr || found->severity == Severity::Warning) {
            report.warning(subject, what, found == nullptr ? "Something is not well." : found->why, remedy);
        } else {
            report.fault(subject, what, found->why, remedy);
        }
    }
}

void checkLosses(const Facts& facts, Report& report) {
    for (const auto& [destination, loss] : facts.agent.lostTraps) {
        report.warning(destination, "Since the agent's start it has lost " + loss + ".",
                       "Its receiver does not know of these changes of alarms.",
                       facts.vrxctl("list") + "   # what its receiver should know");
    }
    if (facts.agent.lostEvents != 0) {
        report.warning(AGENT,
                       fmt::format("{} events were lost: the backend no longer had them.", facts.agent.lostEvents),
                       "No receiver was told of them.", facts.vrxctl("list") + "   # what receivers should know");
    }
    if (facts.agent.lostLogEntries != 0) {
        report.warning(AGENT, fmt::format("{} notifications are not in the log.", facts.agent.lostLogEntries),
                       "They were sent, and cannot be looked up or sent again.", facts.vrxctl("status --all"));
    }
}

}  // namespace vrx
