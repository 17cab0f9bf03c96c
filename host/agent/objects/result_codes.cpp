#include "host/agent/objects/result_codes.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "host/destinations/trap_destination_result.h"
#include "host/transport/backend_result.h"

namespace vrx {

namespace {

constexpr int PARAM_ERROR = 0x3000003;  // of handlers: a parameter is missing or invalid

struct Result {
    int result;
    int error;
    const char* (*text)(int result);
};

const char* parameterText(int) {
    return "a parameter is missing or invalid";
}

constexpr Result RESULTS[] = {
    {PARAM_ERROR, SNMP_ERR_WRONGVALUE, parameterText},

    {TRAP_DESTINATION_LIMIT, SNMP_ERR_RESOURCEUNAVAILABLE, trapDestinationResultText},
    {TRAP_DESTINATION_DUPLICATE, SNMP_ERR_INCONSISTENTVALUE, trapDestinationResultText},
    {TRAP_DESTINATION_NO_ROW, SNMP_ERR_INCONSISTENTNAME, trapDestinationResultText},
    {TRAP_DESTINATION_NUMBER_TAKEN, SNMP_ERR_INCONSISTENTVALUE, trapDestinationResultText},
    {TRAP_DESTINATION_BAD_VALUE, SNMP_ERR_INCONSISTENTVALUE, trapDestinationResultText},
    {TRAP_DESTINATION_STORE_FAILED, SNMP_ERR_RESOURCEUNAVAILABLE, trapDestinationResultText},

    // Backend calls that had no answer; whatever the backend itself refuses is genErr.
    {BACKEND_TIMEOUT, SNMP_ERR_RESOURCEUNAVAILABLE, backendResultText},
    {BACKEND_UNREACHABLE, SNMP_ERR_RESOURCEUNAVAILABLE, backendResultText},
};

const Result* find(int result) {
    const auto* const found = std::find_if(std::begin(RESULTS), std::end(RESULTS),
                                           [result](const Result& row) { return row.result == result; });
    return found == std::end(RESULTS) ? nullptr : found;
}

}  // namespace

int snmpErrorOf(int result) {
    const Result* const known = find(result);
    return known == nullptr ? SNMP_ERR_GENERR : known->error;
}

std::string resultText(int result) {
    std::array<char, 16> number{};
    std::snprintf(number.data(), number.size(), "0x%X", static_cast<unsigned int>(result));
    const Result* const known = find(result);
    const char* const text = known == nullptr ? backendResultText(result) : known->text(result);
    return std::string("result ") + number.data() + " (" + text + ")";
}

}  // namespace vrx
