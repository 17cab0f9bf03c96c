#include "host/agent/requests/request_counters.h"

#include "host/snmp/net_snmp.h"

namespace vrx {

const char* textOf(RequestKind kind) {
    constexpr const char* TEXTS[REQUEST_KINDS] = {"GET", "GETNEXT", "GETBULK", "SET"};
    return TEXTS[static_cast<std::size_t>(kind)];
}

const char* textOf(RequestResult result) {
    constexpr const char* TEXTS[REQUEST_RESULTS] = {"ok",        "gen_err",  "other_error", "not_allowed", "overload",
                                                    "timed_out", "repeated", "held_back",   "lost"};
    return TEXTS[static_cast<std::size_t>(result)];
}

std::optional<RequestKind> requestKindOf(int command) {
    switch (command) {
        case SNMP_MSG_GET:
            return RequestKind::Get;
        case SNMP_MSG_GETNEXT:
            return RequestKind::GetNext;
        case SNMP_MSG_GETBULK:
            return RequestKind::GetBulk;
        case SNMP_MSG_SET:
            return RequestKind::Set;
        default:
            return std::nullopt;
    }
}

RequestResult requestResultOf(int snmpError) {
    if (snmpError == SNMP_ERR_NOERROR) return RequestResult::Ok;
    return snmpError == SNMP_ERR_GENERR ? RequestResult::GenErr : RequestResult::OtherError;
}

EngineAnswer::Counters EngineAnswer::now() {
    return {snmp_get_statistic(STAT_SNMPOUTGETRESPONSES), snmp_get_statistic(STAT_SNMPOUTGENERRS),
            snmp_get_statistic(STAT_SNMPOUTTOOBIGS) + snmp_get_statistic(STAT_SNMPOUTNOSUCHNAMES) +
                snmp_get_statistic(STAT_SNMPOUTBADVALUES)};
}

RequestResult EngineAnswer::result() const {
    const Counters after = now();
    if (after.genErrs != m_before.genErrs) return RequestResult::GenErr;
    if (after.otherErrors != m_before.otherErrors) return RequestResult::OtherError;
    return after.responses != m_before.responses ? RequestResult::Ok : RequestResult::Lost;
}

}  // namespace vrx
