// Reads everything that the agent reads at its start and reports the faults, without serving anything:
// conf/device.xml and the values in it, etc/vrx-agentd.conf, the modules with their MIB files, and the alarm
// definitions.
//
// For a process of its own (vrx-agentd --check-config): engine and modules cannot be unloaded again, and
// whatever a faulty file does to the process ends with it.
#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace vrx {

// Writes one line a fault, "FILE:LINE: text" where it has a place; nothing when all is in order. Gives the number of
// faults. Warnings of the definitions' check are written, too, but count as no faults. `root` is absolute; nothing
// below it is written.
std::size_t checkConfiguration(const std::string& root, const std::vector<std::string>& modules, std::ostream& out);

}  // namespace vrx
