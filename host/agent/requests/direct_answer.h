// Answers the reads that make up a manager's walks and polls without Net-SNMP's engine: over datagrams, all variables
// of one object, all values there and wholly visible to the reader. The engine takes a kilobyte and several checks for
// each variable; this writes the answer as bytes. Those of an SNMPv3 answer go to the library's security model, which
// encrypts and signs them.
//
// Whatever is not as plain as that is the engine's: security models other than USM, contexts, errors and exceptions,
// the end of a table, columns that are visible in parts, answers that are too long for a message. Both give the same
// answer, access control included, and count it alike.
//
// Threads: agent thread only.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/agent/requests/pending_read.h"
#include "host/snmp/ber_writer.h"
#include "host/snmp/secure_message.h"

namespace vrx {

class DirectAnswer {
public:
    // Answers the request, whose sender has passed the engine's check_access(), from the transaction's snapshot and
    // notes the spans there. Gives the answer's octets; 0 when the engine has to: then nothing has been done.
    std::size_t send(PendingRead& transaction, netsnmp_session* session, netsnmp_pdu* pdu);

private:
    using Instance = TableSnapshot::Instance;

    // What is known of a column of the object, for the time of a request.
    struct Column {
        bool known = false;
        bool visible = false;
        std::string name;  // of its instances, without their last sub-identifiers: in BER
    };

    [[nodiscard]] bool collect(const MibObject& mib, const TableSnapshot& snapshot, netsnmp_pdu* pdu);
    bool collectFollowing(std::optional<Instance> instance, const TableSnapshot& snapshot, netsnmp_pdu* pdu,
                          std::size_t position, std::size_t step);
    bool isVisible(const TableSnapshot& snapshot, Instance instance, netsnmp_pdu* pdu);
    [[nodiscard]] bool write(BerWriter& out, const TableSnapshot& snapshot, const netsnmp_pdu& pdu);
    std::string_view secured(const BerWriter& answer, netsnmp_session* session, netsnmp_pdu* pdu);
    std::vector<SnapshotStore::Span> spans(const TableSnapshot& snapshot, const netsnmp_pdu& pdu) const;

    // Members for their memory's sake only: nothing of a request is needed by the next.
    std::vector<Instance> m_instances;  // in the answer's order
    std::vector<Column> m_columns;
    std::vector<unsigned char> m_buffer;
    SecureMessage m_secured;
    TableSnapshot::See m_see = TableSnapshot::See::All;
};

}  // namespace vrx
