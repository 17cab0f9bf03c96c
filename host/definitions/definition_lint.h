// vrxctl lint: faults in an alarm definition file and its enumeration file.
//
// The module itself forgives much: it takes the first of repeated alarms, shows "None" for missing texts and "--" for
// missing parameters. What it forgives is what an integrator wants to know before a trap shows it at night.
#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace vrx {

enum class LintSeverity { Error, Warning };

struct LintFinding {
    std::string file;
    int line = 0;  // counts from 1; 0 where the fault has no line
    LintSeverity severity = LintSeverity::Error;
    std::string rule;  // short name, stable: scripts may match it
    std::string text;
};

// Findings in the order of file and line. Either path may be empty; without an enumeration file the names of
// enumeration types are not checked.
std::vector<LintFinding> lintDefinitions(const std::string& definitionFile, const std::string& enumerationFile);

// By file and line; those of a line stay in their order.
void sortFindings(std::vector<LintFinding>& findings);

// One line a finding, "FILE:LINE: error: TEXT [RULE]".
void printFindings(std::ostream& out, const std::vector<LintFinding>& findings);

}  // namespace vrx
