// The SNMP library's configuration directives that this agent accepts, and the arguments of each.
//
// The library's parsers trust their arguments: some exit the process, some write out of bounds, some accept half a
// value for a whole one. The checks here are the ones they need; the parsers themselves give a directive its meaning.
// Directives missing from this list belong to parts that this agent does not have (AgentX, Perl, TLS, snmpd's own
// tables), move its state elsewhere, or do harm in a daemon.
#pragma once

#include <string>
#include <vector>

namespace vrx {

// The section with the library's own directives: "[snmp] DIRECTIVE ARGUMENTS".
inline constexpr const char* LIBRARY_SECTION = "snmp";

bool isLibraryDirective(bool inLibrarySection, const std::string& word);

// What is wrong with the arguments of a library directive; "" when nothing is.
[[nodiscard]] std::string libraryDirectiveFault(const std::string& word, const std::string& arguments);

// The arguments, split as the library splits them: one in quotes may hold blanks, a backslash takes the next character
// as it is.
std::vector<std::string> wordsOf(const std::string& arguments);

}  // namespace vrx
