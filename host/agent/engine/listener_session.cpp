#include "host/agent/engine/listener_session.h"

#include <new>

#include "host/agent/engine/message_numbers.h"
#include "host/agent/requests/answer_size.h"

namespace vrx {

namespace {

int countPacket(netsnmp_session*, netsnmp_transport*, void*, int) {
    snmp_increment_statistic(STAT_SNMPINPKTS);
    return 1;
}

int build(netsnmp_session* session, netsnmp_pdu* pdu, unsigned char** buffer, std::size_t* size, std::size_t* used) {
    const int result = buildMessage(session, pdu, buffer, size, used);
    try {
        if (result == 0) static_cast<RequestDispatcher*>(session->callback_magic)->answered(*pdu, *used);
    } catch (const std::bad_alloc&) {  // the engine is C: nothing may leave. The answer is as good without
    }
    return result;
}

}  // namespace

Expected<netsnmp_session*> openSession(netsnmp_transport* transport, RequestDispatcher& dispatcher,
                                       int (*lengthOfMessage)(u_char*, std::size_t)) {
    netsnmp_session session;
    snmp_sess_init(&session);
    session.version = SNMP_DEFAULT_VERSION;
    session.isAuthoritative = SNMP_SESS_AUTHORITATIVE;
    session.callback = &RequestDispatcher::receive;
    session.callback_magic = &dispatcher;
    netsnmp_session* const opened = snmp_add_full(&session, transport, countPacket, parseMessage,
                                                  netsnmp_agent_check_parse, nullptr, build, lengthOfMessage, nullptr);
    if (opened == nullptr) return Unexpected{snmp_api_errstring(session.s_snmp_errno)};
    return opened;
}

}  // namespace vrx
