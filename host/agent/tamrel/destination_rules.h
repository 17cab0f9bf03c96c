// The trap destination table (host/agent/objects/table_rules.h): a column numbers its rows, they are changed in a
// transaction of the destinations' store, and that has results of its own.
#pragma once

namespace vrx {

// Before modules are loaded.
void registerDestinationRules();

}  // namespace vrx
