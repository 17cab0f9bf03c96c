// The files of the SNMP engine's state, for the agent, which keeps them, and for vrxctl, which leaves users there for
// an agent that does not run.
//
// A file that is there and cannot be read, or is not whole, is never taken for one that is not there: users and the
// count of starts would be replaced by nothing, and SNMPv3 managers would reject the agent from then on.
#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "host/base/file_descriptor.h"
#include "host/base/whole_file.h"

namespace vrx {

namespace engine_file {

// Below the state folder.
inline constexpr const char* STATE_FOLDER = "net-snmp";
inline constexpr const char* STATE_NAME = "vrx-agentd.conf";

// The file before the last that was put in place.
std::string lastGoodCopy(const std::string& path);

// Users' keys and the count of starts; nothing where the file does not exist. Throws WholeFileError, also for a file
// that is not whole: cut off, or without what the engine writes into each.
[[nodiscard]] std::optional<std::string> readState(const std::string& path);

// Whether readState() would take these bytes; "" or what is wrong with them.
[[nodiscard]] std::string stateFault(const std::string& content);

// Keeps the file that is there, when it is whole, as its last good copy. Throws std::system_error.
void keepLastGoodCopy(const std::string& path);

// Puts `content` in the place of the file, which becomes its own last good copy when it is whole; on disk when this
// returns. The new file is the process's own and nobody else may read it. Throws std::system_error, and the file is
// there, with the old content or the new.
void replaceState(const std::string& path, const std::string& content);

// The line that names the engine ID; nothing where the file does not exist. Throws WholeFileError, also for a file that
// does not hold one whole ID.
[[nodiscard]] std::optional<std::string> readEngineId(const std::string& path);

// Hexadecimal digits after "0x" that are an engine ID (RFC 3411: 5 to 32 octets).
bool isEngineId(const std::string& text);

// Held by the agent from before it reads the state until it exits, and by tools while they change the state without it.
// Waits up to `patience`; empty when another process holds it throughout. `folder` exists. Throws std::system_error.
FileDescriptor lockState(const std::string& folder, std::chrono::milliseconds patience);

}  // namespace engine_file

}  // namespace vrx
