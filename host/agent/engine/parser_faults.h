// What the SNMP library's parsers find wrong with a directive. They report it in the library's log only.
//
// Threads: agent thread only.
#pragma once

#include <functional>
#include <string>

namespace vrx {

// Runs `parse`, which calls a parser of the library; returns the first fault that it logs, or "".
[[nodiscard]] std::string parserFault(const std::function<void()>& parse);

// For the receiver of the library's log lines: whether this one is a fault that parserFault() returns.
[[nodiscard]] bool takeParserFault(const std::string& line);

}  // namespace vrx
