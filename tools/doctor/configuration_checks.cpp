// What the agent itself says of its files, and what vrxctl lint says of the definitions.
#include <fmt/format.h>
#include <sysexits.h>

#include <chrono>
#include <filesystem>
#include <future>
#include <optional>
#include <sstream>
#include <string>
#include <system_error>
#include <tuple>
#include <utility>
#include <vector>

#include "host/base/check_process.h"
#include "host/base/product_root.h"
#include "host/definitions/definition_lint.h"
#include "tools/definition_files.h"
#include "tools/doctor/checks.h"
#include "tools/doctor/facts.h"
#include "tools/doctor/report.h"

namespace vrx {

namespace {

namespace fs = std::filesystem;

constexpr std::chrono::seconds CHECK_PATIENCE{30};

// Beside this program: in a folder of builds, or as installed.
std::string installed(const std::vector<const char*>& places) {
    std::error_code error;
    const fs::path program = fs::read_symlink("/proc/self/exe");  // throws without /proc: not checked then
    for (const char* place : places) {
        fs::path path = fs::canonical(program.parent_path() / place, error);
        if (!error && fs::is_regular_file(path, error)) return path;
    }
    return "";
}

std::vector<std::string> modulesOf(const Facts& facts) {
    if (!facts.agent.modules.empty()) return facts.agent.modules;
    const std::string module = installed({VRX_MODULE_BESIDE_PROGRAM});
    return module.empty() ? std::vector<std::string>() : std::vector<std::string>{module};
}

CheckProcess::Outcome runToEnd(const std::vector<std::string>& command) {
    std::promise<CheckProcess::Outcome> ended;
    auto outcome = ended.get_future();
    const CheckProcess process(command, CHECK_PATIENCE,
                               [&](CheckProcess::Outcome result) { ended.set_value(std::move(result)); });
    return outcome.get();
}

// What a line of the agent's check begins with, and what such a fault means.
struct Meaning {
    std::string begins;
    const char* why;
    std::string remedy;
};

// "FILE:LINE" or "FILE" of a line "FILE:LINE: text", and the text.
std::pair<std::string, std::string> placeAndText(const std::string& line) {
    const std::size_t end = line.find(": ");
    return end == std::string::npos ? std::pair("configuration", line)
                                    : std::pair(line.substr(0, end), line.substr(end + 2));
}

void tell(const std::string& line, const Facts& facts, Report& report) {
    const std::string reload = "vi {}\n" + facts.vrxctl("reload");
    const std::string restart = "vi {}\nsystemctl restart vrx-backendd vrx-agentd";
    const std::string directives = directivesPath();
    const std::string device = productPath("conf/device.xml");
    const Meaning meanings[] = {
        {directives, "The agent starts without this line, and refuses every reload.", fmt::format(reload, directives)},
        {device, "Neither the agent nor the backend starts, and the agent refuses every reload.",
         fmt::format(restart, device)},
        {productPath("mibs/"), "The agent cannot load its module, and does not start.", "apt install --reinstall vrx"},
        {"module ", "The agent does not start.", "apt install --reinstall vrx\nsystemctl restart vrx-agentd"},
        {"",
         "Neither the agent nor the backend starts with this value of conf/device.xml, or the agent refuses every "
         "reload.",
         fmt::format(restart, device)},
    };
    for (const Meaning& meaning : meanings) {
        if (line.compare(0, meaning.begins.size(), meaning.begins) != 0) continue;
        auto [place, text] = placeAndText(line);
        if (meaning.begins.empty()) std::tie(place, text) = std::pair(device, line);
        report.fault(place, text, meaning.why, meaning.remedy);
        return;
    }
}

}  // namespace

void checkConfiguration(const Facts& facts, Report& report) {
    const std::string agent = installed({"vrx-agentd", "../sbin/vrx-agentd"});
    if (agent.empty()) {
        report.fault("vrx-agentd", "It is not beside this program.", "There is no agent to start.",
                     "apt install --reinstall vrx");
        return;
    }
    if (!facts.directivesFault.empty() && !facts.mayLook) {
        report.notChecked("configuration", facts.directivesFault);
        return;
    }
    std::error_code error;
    const std::string root = fs::canonical(productPath(""), error).string();
    std::vector<std::string> command = {agent, "--check-config", "--root", root};
    const std::vector<std::string> modules = modulesOf(facts);
    for (const std::string& module : modules) command.insert(command.end(), {"--module", module});
    if (modules.empty()) report.notChecked("module and MIB files", "no libsnmp_tamrel.so is installed");

    const CheckProcess::Outcome outcome = runToEnd(command);
    if (outcome.exitCode != EX_OK && outcome.exitCode != EX_CONFIG) {
        report.notChecked("configuration", outcome.exitCode < 0 ? agent + " --check-config did not end within 30 s"
                                                                : fmt::format("{} --check-config ended with {}: {}",
                                                                              agent, outcome.exitCode, outcome.output));
        return;
    }
    const auto [definitions, enumerations] = configuredDefinitionFiles();
    const auto isOf = [](const std::string& line, const std::string& file) {
        return !file.empty() && line.compare(0, file.size() + 1, file + ":") == 0;
    };
    const Report before = report;
    std::istringstream lines(outcome.output);
    for (std::string line; std::getline(lines, line);) {
        // Those of the definitions are the next check's; of a file that cannot be used there has been one already.
        const bool known = before.names(line.substr(0, line.find(':')));
        if (!line.empty() && !known && !isOf(line, definitions) && !isOf(line, enumerations)) tell(line, facts, report);
    }
}

void checkDefinitions(const Facts& facts, Report& report) {
    constexpr std::size_t MOST = 5;  // of each kind; vrxctl lint has them all
    const auto [definitions, enumerations] = configuredDefinitionFiles();
    if (definitions.empty()) {
        if (!report.names(productPath("conf/device.xml"))) {
            report.fault(productPath("conf/device.xml"), "Section SNMP_CONF has no ALARM_INI_PATH.",
                         "Without definitions no alarm has a name: no trap is sent.",
                         "vi " + productPath("conf/device.xml") + "\n" + facts.vrxctl("reload"));
        }
        return;
    }
    if (report.names(definitions)) return;
    std::size_t errors = 0;
    std::size_t warnings = 0;
    for (const LintFinding& finding : lintDefinitions(definitions, enumerations)) {
        const std::string place = finding.line == 0 ? finding.file : fmt::format("{}:{}", finding.file, finding.line);
        const std::string what = fmt::format("{} [{}]", finding.text, finding.rule);
        const std::string remedy =
            fmt::format("vi {}\n{}", finding.file, facts.vrxctl("lint && ") + facts.vrxctl("reload"));
        if (finding.severity == LintSeverity::Error && ++errors <= MOST) {
            report.fault(place, what, "Alarms of this file have no, or wrong, texts and traps.", remedy);
        } else if (finding.severity == LintSeverity::Warning && ++warnings <= MOST) {
            report.warning(place, what, "A trap shows less than its author meant.", remedy);
        }
    }
    if (errors > MOST || warnings > MOST) {
        report.warning(definitions, fmt::format("It has {} errors and {} warnings in all.", errors, warnings),
                       "The first of them are above.", facts.vrxctl("lint"));
    }
}

}  // namespace vrx
