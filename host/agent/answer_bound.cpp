#include "host/agent/answer_bound.h"

#include <algorithm>

void boundAnswer(netsnmp_pdu& pdu, std::size_t longestValue) {
    if (pdu.command != SNMP_MSG_GETBULK || pdu.version != SNMP_VERSION_3 || pdu.msgMaxSize <= 0) return;
    const auto variable = static_cast<long>(std::max(LONG_VARIABLE, VARIABLE_OVERHEAD + longestValue));
    const long octets = std::max(pdu.msgMaxSize - static_cast<long>(MESSAGE_OVERHEAD), 0L);
    const long room = octets / variable;  // variables that fit for sure
    long variables = 0;
    for (const netsnmp_variable_list* v = pdu.variables; v != nullptr; v = v->next_variable) ++variables;
    const long single = std::clamp(pdu.non_repeaters, 0L, variables);
    const long repeated = variables - single;
    const long repetitions = repeated == 0 ? 0 : (room - single) / repeated;
    if (repetitions >= 1) {
        pdu.max_repetitions = std::min(pdu.max_repetitions, repetitions);
        return;
    }
    if (variables <= room) return;
    if (pdu.max_repetitions <= 0) {  // only the first ones are to be answered: the engine takes no other way for it
        netsnmp_variable_list** rest = &pdu.variables;
        for (long kept = 0; kept < single; ++kept) rest = &(*rest)->next_variable;
        snmp_free_varbind(*rest);
        *rest = nullptr;
        if (pdu.variables == nullptr) return;
    }
    pdu.command = SNMP_MSG_GETNEXT;
    pdu.non_repeaters = 0;
    pdu.max_repetitions = 0;
}
