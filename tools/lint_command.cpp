#include "tools/lint_command.h"

#include <sysexits.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <vector>

#include "host/definitions/definition_lint.h"
#include "host/definitions/notification_names.h"
#include "tools/definition_files.h"

namespace vrx {

void LintCommand::define(CLI::App& command) {
    command.add_option("DEFINITIONS", definitions, "alarm definition file");
    command.add_option("ENUMERATIONS", enumerations, "parameter enumeration file");
    command.add_flag("--strict", strict, "warnings count as faults, too");
}

int LintCommand::run() {
    if (definitions.empty() && enumerations.empty()) {
        const DefinitionFiles configured = configuredDefinitionFiles();
        definitions = configured.definitions;
        enumerations = configured.enumerations;
    }
    std::vector<LintFinding> findings = lintDefinitions(definitions, enumerations);
    if (!definitions.empty()) {
        const std::vector<LintFinding> forMib = lintForMib(definitions);
        findings.insert(findings.end(), forMib.begin(), forMib.end());
        sortFindings(findings);
    }
    printFindings(std::cout, findings);
    for (const LintFinding& finding : findings)
        if (strict || finding.severity == LintSeverity::Error) return EX_DATAERR;
    return EX_OK;
}

}  // namespace vrx
