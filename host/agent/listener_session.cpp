#include "host/agent/listener_session.h"

#include "host/agent/answer_bound.h"
#include "host/agent/message_numbers.h"

namespace {

int countPacket(netsnmp_session*, netsnmp_transport*, void*, int) {
    snmp_increment_statistic(STAT_SNMPINPKTS);
    return 1;
}

}  // namespace

netsnmp_session* openSession(netsnmp_transport* transport, RequestDesk& desk, std::string& error,
                             int (*lengthOfMessage)(u_char*, std::size_t)) {
    netsnmp_session session;
    snmp_sess_init(&session);
    session.version = SNMP_DEFAULT_VERSION;
    session.isAuthoritative = SNMP_SESS_AUTHORITATIVE;
    session.callback = &RequestDesk::receive;
    session.callback_magic = &desk;
    netsnmp_session* const opened =
        snmp_add_full(&session, transport, countPacket, parseMessage, netsnmp_agent_check_parse, nullptr, buildMessage,
                      lengthOfMessage, nullptr);
    if (opened == nullptr) error = snmp_api_errstring(session.s_snmp_errno);
    return opened;
}
