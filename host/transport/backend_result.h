// Result codes of calls to the management backend: what CSNMP_Configuration::configure() returns and what the backend
// writes into uiHeadParam1 of an answer. 0 is success; the numbers are part of the protocol and never change meaning.
#pragma once

namespace vrx {

enum BackendResult : int {
    BACKEND_OK = 0,

    // Refusals: the backend answered and did nothing.
    BACKEND_UNKNOWN_COMMAND = 0x5000001,    // no command has that code
    BACKEND_NO_RECORD = 0x5000002,          // the request holds no record
    BACKEND_MIXED_RECORDS = 0x5000003,      // records of several commands, or more than the command takes
    BACKEND_MISSING_CELL = 0x5000004,       // a cell that the command needs is absent
    BACKEND_WRONG_CELL = 0x5000005,         // a cell's type or value does not fit
    BACKEND_UNKNOWN_SERIAL = 0x5000006,     // no active alarm has that serial number
    BACKEND_SERIAL_ACTIVE = 0x5000007,      // an active alarm has that serial number already
    BACKEND_SERIALS_EXHAUSTED = 0x5000008,  // the next serial number would not fit 32 bits
    BACKEND_STORE_FAILED = 0x5000009,       // the alarm store could not be read or written

    // Failures of the transport: there is no answer, and whether the backend carried the request out is not known
    // (except for BACKEND_UNREACHABLE out of back-off and for a request that is too large: it was not sent).
    BACKEND_TIMEOUT = 0x5000101,         // no answer, or no free connection, within the deadline
    BACKEND_UNREACHABLE = 0x5000102,     // no connection, or it broke before the answer was complete
    BACKEND_PROTOCOL_ERROR = 0x5000103,  // the answer is no package
    BACKEND_TOO_LARGE = 0x5000104,       // request or answer is larger than the package limit
};

// Whether a backend that gave this result, or none, may have carried the request out all the same.
bool backendMayHaveDone(int code);

// A short English text for a code, "unknown result" for one that is not listed above.
const char* backendResultText(int code);

}  // namespace vrx
