// Addresses that the agent listens on: "udp:127.0.0.1:1161", "udp6:[::1]:1161", "tcp:...", "tcp6:...", as snmpd's
// agentAddress has them, several of them with commas between.
#pragma once

#include <string>
#include <vector>

namespace vrx {

// The addresses of a list; empty ones are left out.
std::vector<std::string> splitListeners(const std::string& list);

// What is wrong with an address, with the address in it; empty when it can be listened on as far as its text tells.
[[nodiscard]] std::string listenerFault(const std::string& address);

}  // namespace vrx
