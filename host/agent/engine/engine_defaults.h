// What holds where the configuration says nothing else, in place of the library's own defaults: who this agent is
// (system group), which MIB modules it serves (sysORTable), and what a community or a user without a view of its own
// sees.
//
// Threads: agent thread only.
#pragma once

#include <utility>
#include <vector>

namespace vrx {

using MibModule = std::pair<const char*, const char*>;  // its identity and what it is
using MibModules = std::vector<MibModule>;

// Before the configuration is read for the first time, and after the library's groups are registered.
void setSystemName();

// Before each reading of the configuration: sysDescr, sysObjectID, sysServices.
void setSystemDefaults();

// Once: those given, then the agent's own.
void listMibModules(const MibModules& served);

// After each reading of the configuration.
void setDefaultView();

}  // namespace vrx
