// Object identifiers as the agent keeps them: sub-identifiers in a vector, compared lexicographically.
#pragma once

#include <string>
#include <vector>

// AGENT++ makes names visible everywhere that Net-SNMP's headers declare, too (counter64, snmp_pdu, snmp_callback), so
// those headers do not compile after its own. A source that uses SNMP++'s values gets the type of a sub-identifier
// alone.
#ifdef AGENTPP_NAMESPACE
#include <net-snmp/net-snmp-config.h>
// The configuration header comes first.
#include <net-snmp/library/oid.h>
#else
#include "host/snmp/net_snmp.h"
#endif

namespace vrx {

using OidVector = std::vector<oid>;

// Reads "1.3.6.1", with or without a leading dot. Throws std::invalid_argument naming the text when it is no OID.
OidVector parseOid(const std::string& text);

// "1.3.6.1"
std::string oidText(const oid* name, std::size_t length);
inline std::string oidText(const OidVector& name) {
    return oidText(name.data(), name.size());
}

// A name as the octets of an SnmpValue: its sub-identifiers as this machine has them in memory.
std::string octetsOfOid(const OidVector& name);
OidVector oidOfOctets(const std::string& octets);

// Less than, equal to or greater than 0, as the first name sorts before, equal to or after the second.
int compareOid(const oid* a, std::size_t aLength, const oid* b, std::size_t bLength);

// Whether `name` is `root` or stands below it.
bool isBelow(const oid* name, std::size_t length, const OidVector& root);

}  // namespace vrx
