// The rules of the trap destination table (host/agent/objects/table_rules.h): its rows are changed in a transaction of
// the destinations' store.
#pragma once

// Before modules are loaded.
void registerDestinationRules();
