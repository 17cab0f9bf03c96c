#include "tools/doctor/doctor_command.h"

#include <exception>
#include <filesystem>
#include <iostream>
#include <string>
#include <system_error>

#include "host/base/logging.h"
#include "host/base/product_root.h"
#include "host/command_line/option_parser.h"
#include "host/destinations/trap_destination_checks.h"
#include "tools/doctor/checks.h"
#include "tools/doctor/facts.h"
#include "tools/doctor/report.h"

namespace vrx {

namespace {

// In this order: what is the cause of others comes first.
constexpr struct {
    const char* name;
    void (*run)(const Facts& facts, Report& report);
} CHECKS[] = {
    {"account", checkAccount},
    {"files", checkFiles},
    {"state", checkState},
    {"disk space", checkDiskSpace},
    {"clock", checkClock},
    {"configuration", checkConfiguration},
    {"definitions", checkDefinitions},
    {"engine", checkEngine},
    {"users", checkUsers},
    {"communities", checkCommunities},
    {"views", checkViews},
    {"secrets", checkSecrets},
    {"listeners", checkListeners},
    {"metrics", checkMetrics},
    {"backend", checkBackend},
    {"agent", checkAgent},
    {"version", checkAgentVersion},
    {"destinations", checkDestinations},
    {"informs", checkInformReceivers},
    {"message size", checkMessageSizes},
    {"alarms", checkAlarms},
    {"status", checkAgentStatus},
    {"losses", checkLosses},
};

template <typename Check>
void perform(const char* name, Report& report, Check check) {
    report.begin(name);
    try {
        check();
    } catch (const std::exception& error) {
        report.notChecked(name, error.what());
    }
}

}  // namespace

void DoctorCommand::define(OptionParser& command) {
    line = &command;
    command.addFlag("--json", json, "as JSON");
    command.add("--send-test-trap", testTrapTo, "send the last notification again to this trap destination")
        .valueName("NUMBER")
        .range(1U, destination_check::HIGHEST_NUMBER);
}

int DoctorCommand::run() {
    LogOptions silent;
    silent.threshold = LogLevel::Off;  // all is said in the report
    startLogging(silent);

    Report report;
    report.begin("product root");
    const std::string given = productPath("");
    std::error_code error;
    const std::filesystem::path root = std::filesystem::canonical(given, error);
    if (error || !std::filesystem::is_directory(root, error)) {
        report.fault(given, "The product root is no folder that can be entered.",
                     "Configuration, definitions and state are looked for there: nothing else was checked.",
                     "vrxctl --root DIR doctor   # or VRX_ROOT; or: apt install --reinstall vrx");
    } else {
        setProductRoot(root);
        const bool isOption = line->programHas("--root");
        const Facts facts = gatherFacts(isOption ? "--root " + root.string() + " " : "");
        for (const auto& check : CHECKS) perform(check.name, report, [&] { check.run(facts, report); });
        if (testTrapTo != 0) perform("test trap", report, [&] { sendTestTrap(facts, testTrapTo, report); });
        report.putFaultsFirst();
        // As installed these are links: an operator knows /etc/vrx.
        for (const char* folder : {"conf/", "etc/", "state/"}) {
            const std::string path = productPath(folder);
            const std::filesystem::path place = std::filesystem::canonical(path, error);
            if (!error) report.show(path, place.string() + "/");
        }
    }
    json ? printReportAsJson(std::cout, report) : printReport(std::cout, report);
    return exitCodeOf(report);
}

}  // namespace vrx
