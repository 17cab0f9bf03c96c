#include "host/agent/objects/result_codes.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "host/agent/objects/table_rules.h"
#include "host/transport/backend_result.h"

namespace vrx {

namespace {

constexpr int PARAM_ERROR = 0x3000003;  // of handlers: a parameter is missing or invalid

// Beside these, of backend calls, whatever the backend itself refuses is genErr.
const ResultMeaning RESULTS[] = {
    {PARAM_ERROR, SNMP_ERR_WRONGVALUE, "a parameter is missing or invalid"},
    {BACKEND_TIMEOUT, SNMP_ERR_RESOURCEUNAVAILABLE, backendResultText(BACKEND_TIMEOUT)},
    {BACKEND_UNREACHABLE, SNMP_ERR_RESOURCEUNAVAILABLE, backendResultText(BACKEND_UNREACHABLE)},
};

template <typename Rows>
const ResultMeaning* findIn(const Rows& rows, int result) {
    const auto found = std::find_if(std::begin(rows), std::end(rows),
                                    [result](const ResultMeaning& row) { return row.result == result; });
    return found == std::end(rows) ? nullptr : &*found;
}

const ResultMeaning* find(const OidVector& root, int result) {
    const ResultMeaning* const ofTable = findIn(tableTraits(root).results, result);
    return ofTable != nullptr ? ofTable : findIn(RESULTS, result);
}

}  // namespace

int snmpErrorOf(const OidVector& root, int result) {
    const ResultMeaning* const known = find(root, result);
    return known == nullptr ? SNMP_ERR_GENERR : known->error;
}

std::string resultText(const OidVector& root, int result) {
    std::array<char, 16> number{};
    std::snprintf(number.data(), number.size(), "0x%X", static_cast<unsigned int>(result));
    const ResultMeaning* const known = find(root, result);
    const char* const text = known == nullptr ? backendResultText(result) : known->text;
    return std::string("result ") + number.data() + " (" + text + ")";
}

}  // namespace vrx
