#include "host/agent/sets/set_refusals.h"

#include <string>

#include "host/base/log_line.h"
#include "host/log_lines/requests.h"
#include "host/snmp/net_snmp.h"

namespace vrx {

namespace {

std::string place(const netsnmp_pdu* pdu, int variable, const ObjectFinder& objectOf) {
    const netsnmp_variable_list* varbind = pdu == nullptr ? nullptr : pdu->variables;
    for (int at = 1; varbind != nullptr && at < variable; ++at) varbind = varbind->next_variable;
    if (varbind == nullptr || variable == 0) return "as a whole";
    const ManagedObject* const object = objectOf(*varbind);
    return "at " + (object == nullptr ? oidText(varbind->name, varbind->name_length)
                                      : object->mib().nameOf(varbind->name, varbind->name_length));
}

}  // namespace

void SetRefusals::note(const netsnmp_pdu* pdu, const SetResult& result, const ObjectFinder& objectOf) {
    if (result.error == SNMP_ERR_NOACCESS) {
        const auto leftOut = m_lineLimit.take(LogRateLimiter::TimePoint::clock::now());
        if (!leftOut) return;
        if (*leftOut > 0) logLine<lines::SET_LINES_LEFT_OUT>(*leftOut);
    }
    const std::string error = snmp_errstring(result.error);
    logLine<lines::SET_REFUSED>(place(pdu, result.variable, objectOf),
                                result.reason.empty() ? error : error + ": " + result.reason);
}

}  // namespace vrx
