// What the SNMP library's parsers find wrong with words of configuration. They tell it in the library's log only.
//
// Threads: agent thread only.
#pragma once

#include <functional>
#include <string>

namespace vrx {

// Runs `parse`, which calls a parser of the library; gives the first fault that it tells, or "".
[[nodiscard]] std::string parserFault(const std::function<void()>& parse);

// For who takes the library's log lines: whether this one was a fault that parserFault() gives.
[[nodiscard]] bool takeParserFault(const std::string& line);

}  // namespace vrx
