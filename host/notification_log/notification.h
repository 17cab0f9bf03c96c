// A trap as the sender keeps it: what a notification handler built, in a neutral form that any number of destinations
// share and any protocol version is encoded from.
//
// Threads: constant once made.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "host/snmp/oid_vector.h"
#include "host/snmp/snmp_value.h"

namespace vrx {

struct NotificationBinding {
    OidVector name;
    SnmpValue value;  // NO_VALUE where the handler gave none
};

// A place for what senders make of a notification once, for all destinations. A copy has none: it may be changed.
//
// Threads: agent thread.
class EncodedBindings {
public:
    EncodedBindings() = default;
    ~EncodedBindings() = default;
    EncodedBindings(const EncodedBindings& /*other*/) {}
    EncodedBindings& operator=(const EncodedBindings& /*other*/) {
        m_octets.clear();
        return *this;
    }

    // In BER, one after the other; empty while nobody has kept them.
    const std::string& octets() const { return m_octets; }

    // Also of a notification that many share, which stays what it is.
    void keep(std::string octets) const { m_octets = std::move(octets); }

private:
    mutable std::string m_octets;
};

struct Notification {
    OidVector oid;  // snmpTrapOID; empty when the handler's was no object identifier
    std::vector<NotificationBinding> bindings;
    EncodedBindings encoded{};
};

}  // namespace vrx
