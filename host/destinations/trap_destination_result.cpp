#include "host/destinations/trap_destination_result.h"

namespace vrx {

const char* trapDestinationResultText(int code) {
    switch (code) {
        case TRAP_DESTINATION_OK:
            return "success";
        case TRAP_DESTINATION_LIMIT:
            return "the list of trap destinations is full";
        case TRAP_DESTINATION_DUPLICATE:
            return "another trap destination has the same address, port and user";
        case TRAP_DESTINATION_NO_ROW:
            return "no trap destination has that index";
        case TRAP_DESTINATION_NUMBER_TAKEN:
            return "another trap destination has that index";
        case TRAP_DESTINATION_BAD_VALUE:
            return "a value of the trap destination is not acceptable";
        case TRAP_DESTINATION_STORE_FAILED:
            return "the store of trap destinations failed";
        default:
            return "unknown result";
    }
}

}  // namespace vrx
