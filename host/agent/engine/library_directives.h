// Words of the SNMP library's configuration that this agent takes, and what may stand after each.
//
// The library's parsers trust their arguments: some end the process, some write past their memory, some take half a
// value for a whole one. What is checked here is what they need; what a word means they say themselves. Words that are
// not in this list are of parts that this agent does not have (AgentX, Perl, TLS, tables of snmpd's own), change the
// place of its state, or do harm in a daemon.
#pragma once

#include <string>
#include <vector>

namespace vrx {

// The group of words that is not the agent's own: "[snmp] WORD ARGUMENTS".
inline constexpr const char* LIBRARY_SECTION = "snmp";

bool isLibraryDirective(bool inLibrarySection, const std::string& word);

// What is wrong with the arguments of a library word; "" when it may have them.
[[nodiscard]] std::string libraryDirectiveFault(const std::string& word, const std::string& arguments);

// The words of a line, as the library cuts them: a word in quotes may hold blanks, a backslash takes the next character
// as it is.
std::vector<std::string> wordsOf(const std::string& arguments);

}  // namespace vrx
