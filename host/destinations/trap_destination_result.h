// Result codes of changes to the list of trap destinations: what CSNMP_TrapApi returns. 0 is success; after any other
// result the list is as it was.
#pragma once

namespace vrx {

enum TrapDestinationResult : int {
    TRAP_DESTINATION_OK = 0,
    TRAP_DESTINATION_LIMIT = 0x4000001,         // the list is full
    TRAP_DESTINATION_DUPLICATE = 0x4000002,     // another row has the same address, port and user
    TRAP_DESTINATION_NO_ROW = 0x4000003,        // no row has that index
    TRAP_DESTINATION_NUMBER_TAKEN = 0x4000004,  // the number that a new row is to have belongs to another row
    TRAP_DESTINATION_BAD_VALUE = 0x4000005,     // a value is not acceptable, alone or beside the others
    TRAP_DESTINATION_STORE_FAILED = 0x4000006,  // the store could not be read or written
};

// A short English text for a code, "unknown result" for one that is not listed above.
const char* trapDestinationResultText(int code);

}  // namespace vrx
