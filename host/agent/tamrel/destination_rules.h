// The rules of the trap destination table (host/agent/objects/table_rules.h): its rows are changed in a transaction of
// the destinations' store.
#pragma once

namespace vrx {

// Before modules are loaded.
void registerDestinationRules();

}  // namespace vrx
