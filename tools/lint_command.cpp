#include "tools/lint_command.h"

#include <sysexits.h>

#include <CLI/CLI.hpp>
#include <iostream>
#include <vector>

#include "host/definitions/definition_lint.h"
#include "platform/vrx_utility.h"
#include "platform/vrx_xml_config.h"

namespace vrx {

namespace {

std::string configuredPath(const std::string& key) {
    std::string value;
    value = CVRXXmlConfig::instance()->getDeviceItem("SNMP_CONF", key, value);
    return value.empty() ? value : VRX_Utility::getVRXRootEnv() + "/" + value;
}

}  // namespace

void LintCommand::define(CLI::App& command) {
    command.add_option("DEFINITIONS", definitions, "alarm definition file");
    command.add_option("ENUMERATIONS", enumerations, "parameter enumeration file");
    command.add_flag("--strict", strict, "warnings count as faults, too");
}

int LintCommand::run() {
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

}  // namespace vrx
