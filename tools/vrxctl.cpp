// vrxctl: what an operator or integrator does by hand with alarms, definition files and packages.
#include <sysexits.h>

#include <algorithm>
#include <exception>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "host/base/logging.h"
#include "host/base/product_root.h"
#include "host/command_line/option_parser.h"
#include "tools/agent_call.h"
#include "tools/agent_commands.h"
#include "tools/alarm_commands.h"
#include "tools/backend_call.h"
#include "tools/command.h"
#include "tools/doctor/doctor_command.h"
#include "tools/export_command.h"
#include "tools/gaps_command.h"
#include "tools/lint_command.h"
#include "tools/package_text.h"
#include "tools/render_command.h"
#include "tools/trap_commands.h"
#include "tools/user_commands.h"
#include "tools/watch/watch_command.h"

namespace vrx {

namespace {

template <typename OneCommand>
std::unique_ptr<Command> make() {
    return std::make_unique<OneCommand>();
}

// In the order of the help text.
constexpr struct {
    const char* name;
    const char* help;
    std::unique_ptr<Command> (*make)();
} COMMANDS[] = {
    {"raise", "raise an alarm at the backend; prints its serial number", make<RaiseCommand>},
    {"clear", "clear an alarm at the backend", make<ClearCommand>},
    {"list", "list the active alarms", make<ListCommand>},
    {"render", "render the texts of an alarm", make<RenderCommand>},
    {"lint", "find faults in definition files (default: the configured ones)", make<LintCommand>},
    {"export", "write what receivers and people need of the definition files", make<ExportCommand>},
    {"decode", "show a TLV package as text", make<DecodeCommand>},
    {"status", "show the status of the agent", make<StatusCommand>},
    {"watch", "follow agent, alarms and destinations on a screen, or as lines in a pipe", make<WatchCommand>},
    {"doctor", "find out why it does not work; changes and sends nothing", make<DoctorCommand>},
    {"traps", "list the traps that the agent has sent", make<TrapsCommand>},
    {"gaps", "find what a receiver of traps has missed, from snmptrapd's log", make<GapsCommand>},
    {"reload", "make the agent reload its configuration, all or nothing", make<ReloadCommand>},
    {"log", "show or set the log levels of the agent", make<LogCommand>},
    {"user", "add or remove an SNMPv3 user of the agent", make<UserCommand>},
};

void prepare(const std::string& root) {
    if (!root.empty()) setProductRoot(root);
    LogOptions logging;
    logging.threshold = LogLevel::Warn;
    startLogging(logging);
}

int failed(int exitCode, const std::exception& error) {
    std::cerr << "vrxctl: " << error.what() << "\n";
    return exitCode;
}

}  // namespace

}  // namespace vrx

using namespace vrx;

int main(int argc, char** argv) {
    OptionParser options("Alarms, definition files and packages of the SNMP alarm module");
    options.addVersion(VRXCTL_VERSION);
    options.setCommands(1, 1);
    std::string root;
    options.add("--root", root, "product root (default: VRX_ROOT, else the installed one)");

    std::vector<std::pair<std::unique_ptr<Command>, const OptionParser*>> commands;
    for (const auto& row : COMMANDS) {
        OptionParser& line = options.addCommand(row.name, row.help);
        commands.emplace_back(row.make(), &line).first->define(line);
    }

    try {
        if (const std::optional<int> exitCode = options.parse(argc, argv)) return *exitCode;
        prepare(root);
        const auto given =
            std::find_if(commands.begin(), commands.end(), [](const auto& one) { return one.second->given(); });
        return given->first->run();
    } catch (const AgentCallError& error) {
        return failed(EX_UNAVAILABLE, error);
    } catch (const BackendCallError& error) {
        return failed(EX_UNAVAILABLE, error);
    } catch (const std::exception& error) {
        return failed(EX_DATAERR, error);
    }
}
