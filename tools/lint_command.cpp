#include "tools/lint_command.h"

#include <sysexits.h>

#include <algorithm>
#include <iostream>
#include <vector>

#include "host/command_line/option_parser.h"
#include "host/definitions/definition_lint.h"
#include "host/definitions/notification_names.h"
#include "tools/definition_files.h"

namespace vrx {

void LintCommand::define(OptionParser& command) {
    command.add("DEFINITIONS", definitions, "alarm definition file");
    command.add("ENUMERATIONS", enumerations, "parameter enumeration file");
    command.addFlag("--strict", strict, "warnings count as faults, too");
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
