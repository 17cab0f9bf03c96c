// vrxctl: what an operator or integrator does by hand with alarms, definition files and packages.
#include <sysexits.h>

#include <CLI/CLI.hpp>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>

#include "host/base/logging.h"
#include "host/base/product_root.h"
#include "host/definitions/definition_lint.h"
#include "module/vrx_exception.h"
#include "platform/vrx_utility.h"
#include "platform/vrx_xml_config.h"
#include "tools/agent_call.h"
#include "tools/agent_commands.h"
#include "tools/alarm_commands.h"
#include "tools/backend_call.h"
#include "tools/package_text.h"
#include "tools/render_command.h"
#include "tools/trap_commands.h"
#include "tools/user_commands.h"

namespace vrx {

namespace {

std::string configuredPath(const std::string& key) {
    std::string value;
    value = CVRXXmlConfig::instance()->getDeviceItem("SNMP_CONF", key, value);
    return value.empty() ? value : VRX_Utility::getVRXRootEnv() + "/" + value;
}

std::string readAll(const std::string& path) {
    std::ostringstream content;
    if (path == "-") {
        content << std::cin.rdbuf();
        return content.str();
    }
    std::ifstream file(path, std::ios::binary);
    if (!file) throw std::runtime_error("cannot read " + path);
    content << file.rdbuf();
    return content.str();
}

int raise(const RaiseRequest& request) {
    for (const std::uint32_t serial : raiseAlarms(request)) std::cout << serial << "\n";
    return EX_OK;
}

int lint(std::string definitions, std::string enumerations, bool strict) {
    if (definitions.empty() && enumerations.empty()) {
        definitions = configuredPath("ALARM_INI_PATH");
        enumerations = configuredPath("ALARM_PARAM_ENUM_PATH");
    }
    const std::vector<LintFinding> findings = lintDefinitions(definitions, enumerations);
    printFindings(std::cout, findings);
    for (const LintFinding& finding : findings)
        if (strict || finding.severity == LintSeverity::Error) return EX_DATAERR;
    return EX_OK;
}

int decode(const std::string& hex, const std::string& file, bool hexFile) {
    std::vector<unsigned char> bytes;
    if (!hex.empty()) {
        bytes = bytesOfHex(hex);
    } else {
        const std::string content = readAll(file);
        bytes = hexFile ? bytesOfHex(content) : std::vector<unsigned char>(content.begin(), content.end());
    }
    return printPackage(std::cout, std::move(bytes)) ? EX_OK : EX_DATAERR;
}

// vrxctl traps, with what may stand after it.
class TrapsCommand {
public:
    explicit TrapsCommand(CLI::App& app) : m_list(app.add_subcommand("traps", "show what the agent has sent")) {
        m_list->require_subcommand(0, 1);
        m_list->add_option("--last", m_filter.last, "that many, of all that are asked for");
        m_list->add_option("--since", m_since, "from then on: 2026-11-21, \"2026-11-21 09:14\", or 15m, 2h, 3d ago");
        m_list->add_option("--until", m_until, "up to then");
        m_list->add_option("--alarm", m_filter.alarmId, "of this identifier in the definition file");
        m_list->add_option("--serial", m_filter.serial, "of the alarm with this serial number");
        m_list->add_option("--kind", m_kind, "raise or clear")->check(CLI::IsMember({"raise", "clear"}));
        m_list->add_option("--destination", m_filter.destination, "that went to this destination");
        m_list->add_flag("--json", m_json, "as JSON");
        m_show = m_list->add_subcommand("show", "show one with all bindings");
        m_show->add_option("NUMBER", m_number, "its number in the list")->required();
        m_show->add_flag("--json", m_json, "as JSON");
        m_resend = m_list->add_subcommand("resend", "let the agent send one again");
        m_resend->add_option("NUMBER", m_number, "its number in the list")->required();
        m_resend->add_option("--to", m_to, "to this destination (default: those that it went to)");
    }

    bool isGiven() const { return static_cast<bool>(*m_list); }

    void run() {
        if (*m_resend) {
            resendTrap(std::cout, m_number, m_to);
        } else if (*m_show) {
            m_json ? printTrapAsJson(std::cout, m_number) : printTrap(std::cout, m_number);
        } else {
            const auto now = std::chrono::system_clock::now();
            if (!m_since.empty()) m_filter.since = momentOf(m_since, now);
            if (!m_until.empty()) m_filter.until = momentOf(m_until, now);
            if (!m_kind.empty()) m_filter.raised = m_kind == "raise";
            m_json ? printTrapsAsJson(std::cout, m_filter) : printTraps(std::cout, m_filter);
        }
    }

private:
    CLI::App* m_list;
    CLI::App* m_show = nullptr;
    CLI::App* m_resend = nullptr;
    NotificationLogFilter m_filter;
    std::string m_since;
    std::string m_until;
    std::string m_kind;
    std::uint64_t m_number = 0;
    std::string m_to;
    bool m_json = false;
};

}  // namespace

}  // namespace vrx

using namespace vrx;

int main(int argc, char** argv) {
    CLI::App app("Alarms, definition files and packages of the SNMP alarm module");
    app.set_version_flag("--version", VRXCTL_VERSION);
    app.require_subcommand(1);
    std::string root;
    app.add_option("--root", root, "product root (default: VRX_ROOT, else the installed one)");

    RaiseRequest request;
    CLI::App* raiseCommand = app.add_subcommand("raise", "raise an alarm at the backend; prints its serial number");
    raiseCommand->add_option("ALARM-ID", request.alarmId, "identifier in the definition file")->required();
    raiseCommand->add_option("PARAMETER", request.parameters, "parameter values, in order");
    raiseCommand->add_option("--level", request.level, "level as the backend grades it (default 5)");
    raiseCommand->add_option("--count", request.count, "raise that many (default 1)")->check(CLI::Range(1, 1000000));

    std::uint32_t serial = 0;
    CLI::App* clearCommand = app.add_subcommand("clear", "clear an alarm at the backend");
    clearCommand->add_option("SERIAL", serial, "serial number of the alarm")->required();

    bool json = false;
    CLI::App* listCommand = app.add_subcommand("list", "list the active alarms");
    listCommand->add_flag("--json", json, "as JSON");

    std::uint64_t alarmId = 0;
    std::vector<std::string> parameters;
    bool explain = false;
    bool raw = false;
    CLI::App* renderCommand = app.add_subcommand("render", "show the texts of an alarm with parameters");
    renderCommand->add_option("ALARM-ID", alarmId, "identifier in the definition file")->required();
    renderCommand->add_option("PARAMETER", parameters, "parameter values, in order");
    renderCommand->add_flag("--explain", explain, "show each step");
    renderCommand->add_flag("--raw", raw, "the one PARAMETER is the raw text of a notification, commas escaped");

    std::string definitions;
    std::string enumerations;
    bool strict = false;
    CLI::App* lintCommand =
        app.add_subcommand("lint", "find faults in definition files (default: the configured ones)");
    lintCommand->add_option("DEFINITIONS", definitions, "alarm definition file");
    lintCommand->add_option("ENUMERATIONS", enumerations, "parameter enumeration file");
    lintCommand->add_flag("--strict", strict, "warnings count as faults, too");

    std::string hex;
    std::string file = "-";
    bool hexFile = false;
    CLI::App* decodeCommand = app.add_subcommand("decode", "show a TLV package as text");
    decodeCommand->add_option("FILE", file, "file with the package's bytes (default: standard input)");
    decodeCommand->add_option("--hex", hex, "the package as hex text");
    decodeCommand->add_flag("--hex-file", hexFile, "FILE holds hex text");

    CLI::App* statusCommand = app.add_subcommand("status", "show how the agent does");
    bool all = false;
    statusCommand->add_flag("--all", all, "all that is counted");
    statusCommand->add_flag("--json", json, "all, as JSON");

    TrapsCommand traps(app);

    CLI::App* reloadCommand = app.add_subcommand("reload", "let the agent take its configuration over, whole or not");

    std::string subsystem;
    std::string level;
    CLI::App* logCommand = app.add_subcommand("log", "show or change what the agent writes to its log");
    CLI::Option* subsystemOption = logCommand->add_option("SUBSYSTEM", subsystem, "of the list, or \"all\"");
    CLI::Option* levelOption = logCommand->add_option(
        "LEVEL", level, "trace, debug, info, warn, error or off, until the next reload or start");
    subsystemOption->needs(levelOption);

    CLI::App* userCommand = app.add_subcommand("user", "SNMPv3 users of the agent");
    userCommand->require_subcommand(1);
    std::string user;
    bool readOnly = false;
    CLI::App* userAddCommand =
        userCommand->add_subcommand("add", "make a user with new passphrases and show these once");
    userAddCommand->add_option("NAME", user, "the user's name")->required();
    userAddCommand->add_flag("--read-only", readOnly, "it may read but not write");
    UserProtocols protocols;
    userAddCommand->add_option("--auth", protocols.authentication, "authentication, for managers that know no SHA-256")
        ->check(
            CLI::IsMember(std::vector<std::string>(AUTHENTICATION_PROTOCOLS.begin(), AUTHENTICATION_PROTOCOLS.end())));
    userAddCommand->add_option("--priv", protocols.privacy, "encryption")
        ->check(CLI::IsMember(std::vector<std::string>(PRIVACY_PROTOCOLS.begin(), PRIVACY_PROTOCOLS.end())));
    CLI::App* userRemoveCommand = userCommand->add_subcommand("remove", "take a user and its keys away");
    userRemoveCommand->add_option("NAME", user, "the user's name")->required();

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? EX_OK : EX_USAGE;
    }

    try {
        if (!root.empty()) setProductRoot(root);
        LogOptions logging;
        logging.threshold = LogLevel::Warn;
        startLogging(logging);
        if (*raiseCommand) return raise(request);
        if (*clearCommand) {
            clearAlarm(serial);
            return EX_OK;
        }
        if (*listCommand) {
            const std::vector<ListedAlarm> alarms = listAlarms();
            json ? printAlarmsAsJson(std::cout, alarms) : printAlarms(std::cout, alarms);
            return EX_OK;
        }
        if (*renderCommand) {
            if (raw && parameters.size() > 1) throw std::runtime_error("--raw takes one PARAMETER");
            const std::string text = !raw ? joinParameters(parameters) : parameters.empty() ? "" : parameters[0];
            return renderAlarm(std::cout, alarmId, text, explain) == 0 ? EX_OK : EX_DATAERR;
        }
        if (*statusCommand) {
            json ? printStatusAsJson(std::cout) : printStatus(std::cout, all);
            return EX_OK;
        }
        if (traps.isGiven()) {
            traps.run();
            return EX_OK;
        }
        if (*logCommand) {
            subsystem.empty() ? printLogLevels(std::cout) : setLogLevel(subsystem, level);
            return EX_OK;
        }
        if (*reloadCommand) return reloadAgent(std::cerr) ? EX_OK : EX_CONFIG;
        if (*userAddCommand) {
            addUser(std::cout, user, readOnly ? UserAccess::ReadOnly : UserAccess::ReadWrite, protocols);
            return EX_OK;
        }
        if (*userRemoveCommand) {
            removeUser(user);
            return EX_OK;
        }
        if (*lintCommand) return lint(definitions, enumerations, strict);
        if (*decodeCommand) return decode(hex, file, hexFile);
    } catch (const AgentCallError& error) {
        std::cerr << "vrxctl: " << error.what() << "\n";
        return EX_UNAVAILABLE;
    } catch (const BackendCallError& error) {
        std::cerr << "vrxctl: " << error.what() << "\n";
        return EX_UNAVAILABLE;
    } catch (const std::exception& error) {
        std::cerr << "vrxctl: " << error.what() << "\n";
        return EX_DATAERR;
    }
    return EX_SOFTWARE;
}
