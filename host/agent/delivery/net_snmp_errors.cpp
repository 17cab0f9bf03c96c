#include "host/agent/delivery/net_snmp_errors.h"

#include <cerrno>
#include <cstdlib>

namespace vrx {

std::string takeErrorText(char* text) {
    std::string copy = text != nullptr ? text : "unknown error";
    std::free(text);
    return copy;
}

std::string openingError(netsnmp_session& wanted) {
    char* text = nullptr;
    snmp_error(&wanted, nullptr, nullptr, &text);
    return takeErrorText(text);
}

bool isFaultOfPdu(int snmpError, int systemError) {
    return snmpError == SNMPERR_TOO_LONG || snmpError == SNMPERR_BAD_ASN1_BUILD ||
           (snmpError == SNMPERR_BAD_SENDTO && systemError == EMSGSIZE);
}

}  // namespace vrx
