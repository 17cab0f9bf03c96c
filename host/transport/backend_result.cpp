#include "host/transport/backend_result.h"

namespace vrx {

bool backendMayHaveDone(int code) {
    return code == BACKEND_TIMEOUT || code == BACKEND_UNREACHABLE || code == BACKEND_PROTOCOL_ERROR;
}

const char* backendResultText(int code) {
    switch (code) {
        case BACKEND_OK:
            return "success";
        case BACKEND_UNKNOWN_COMMAND:
            return "unknown command";
        case BACKEND_NO_RECORD:
            return "request without a record";
        case BACKEND_MIXED_RECORDS:
            return "records that do not belong to the command";
        case BACKEND_MISSING_CELL:
            return "missing cell";
        case BACKEND_WRONG_CELL:
            return "cell of the wrong type or value";
        case BACKEND_UNKNOWN_SERIAL:
            return "no active alarm has that serial number";
        case BACKEND_SERIAL_ACTIVE:
            return "serial number is active already";
        case BACKEND_SERIALS_EXHAUSTED:
            return "serial numbers are used up";
        case BACKEND_STORE_FAILED:
            return "alarm store failed";
        case BACKEND_TIMEOUT:
            return "no answer in time";
        case BACKEND_UNREACHABLE:
            return "backend is not reachable";
        case BACKEND_PROTOCOL_ERROR:
            return "answer is no package";
        case BACKEND_TOO_LARGE:
            return "package is too large";
        default:
            return "unknown result";
    }
}

}  // namespace vrx
