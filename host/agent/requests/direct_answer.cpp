#include "host/agent/requests/direct_answer.h"

#include <algorithm>

#include "host/agent/objects/table_rules.h"
#include "host/agent/requests/answer_size.h"
#include "host/snmp/limits.h"
#include "host/snmp/net_snmp.h"

namespace vrx {

namespace {

constexpr unsigned char SEQUENCE = ASN_SEQUENCE | ASN_CONSTRUCTOR;

// How many followers each of the variables is to be answered with, as the engine bounds it.
std::size_t repetitionsOf(const netsnmp_pdu& pdu, std::size_t variables) {
    if (pdu.command != SNMP_MSG_GETBULK) return 1;
    long repetitions = pdu.max_repetitions;
    const int mostRepeats = netsnmp_ds_get_int(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_MAX_GETBULKREPEATS);
    if (mostRepeats > 0) repetitions = std::min<long>(repetitions, mostRepeats);
    repetitions = std::min(repetitions, mostBulkResponses() / static_cast<long>(variables));
    return static_cast<std::size_t>(std::max(repetitions, 0L));
}

// Of SNMPv3: to this engine, whose keys are in the request's security state.
bool isToOwnUser(const netsnmp_pdu& pdu) {
    unsigned char own[SNMP_MAX_ENG_SIZE];
    const std::size_t size = snmpv3_get_engineID(own, sizeof own);
    return pdu.securityModel == SNMP_SEC_MODEL_USM && pdu.securityStateRef != nullptr &&
           pdu.contextEngineIDLen == size && std::equal(own, own + size, pdu.contextEngineID);
}

bool isPlain(const netsnmp_pdu& pdu) {
    if (pdu.version == SNMP_VERSION_3 ? !isToOwnUser(pdu)
                                      : pdu.version != SNMP_VERSION_1 && pdu.version != SNMP_VERSION_2c) {
        return false;
    }
    if (pdu.contextNameLen != 0) return false;
    if (pdu.command != SNMP_MSG_GETBULK) return true;
    return pdu.version != SNMP_VERSION_1 && pdu.non_repeaters <= 0 && pdu.max_repetitions > 0;
}

// Nothing else is registered within the object.
bool isUndivided(const OidVector& root) {
    const netsnmp_subtree* const range = netsnmp_subtree_find(root.data(), root.size(), nullptr, "");
    if (range == nullptr) return false;
    OidVector end = root;
    ++end.back();
    return compareOid(range->start_a, range->start_len, root.data(), root.size()) == 0 &&
           compareOid(range->end_a, range->end_len, end.data(), end.size()) == 0;
}

// False for a type that is left to the engine.
bool writeValue(BerWriter& out, const TableSnapshot::Value& value) {
    switch (value.type) {
        case ASN_INTEGER:
            out.integer(value.type, static_cast<std::int64_t>(value.number));
            return true;
        case ASN_GAUGE:
        case ASN_COUNTER:
        case ASN_TIMETICKS:
        case ASN_COUNTER64:
            out.unsignedInteger(value.type, value.number);
            return true;
        case ASN_OCTET_STR:
        case ASN_IPADDRESS:
            out.octets(value.type, value.octets);
            return true;
        default:
            return false;
    }
}

}  // namespace

std::size_t DirectAnswer::send(PendingRead& transaction, netsnmp_session* session, netsnmp_pdu* pdu) {
    if (!isPlain(*pdu) || transaction.objects.size() != 1) return 0;
    const MibObject& mib = transaction.objects.begin()->first->mib();
    PendingRead::ObjectData& data = transaction.objects.begin()->second;
    if (data.state != PendingRead::ObjectData::State::Ready || !isUndivided(mib.root)) return 0;
    netsnmp_transport* const transport = snmp_sess_transport(snmp_sess_pointer(session));
    if (transport == nullptr || (transport->flags & NETSNMP_TRANSPORT_FLAG_STREAM) != 0) return 0;

    const TableSnapshot& snapshot = *data.snapshot;
    const TableRules* const rules = tableRules(mib.root);
    m_see = rules == nullptr || rules->seesSecrets(*pdu, mib) ? TableSnapshot::See::All
                                                              : TableSnapshot::See::WithoutSecrets;
    if (!collect(mib, snapshot, pdu)) return 0;
    const std::size_t longest = longestAnswer(*session, *pdu);
    m_buffer.resize(longest);
    BerWriter out(m_buffer);
    if (!write(out, snapshot, *pdu)) return 0;
    std::string_view message(reinterpret_cast<const char*>(out.data()), out.size());
    if (pdu->version == SNMP_VERSION_3) message = secured(out, session, pdu);
    if (message.empty() || message.size() > longest) return 0;
    if (pdu->command != SNMP_MSG_GET) data.spans = spans(snapshot, *pdu);
    void* address = pdu->transport_data;
    int addressLength = pdu->transport_data_length;
    if (netsnmp_transport_send(transport, message.data(), static_cast<int>(message.size()), &address, &addressLength) <=
        0) {
        return 0;
    }

    if (pdu->command == SNMP_MSG_GET) snmp_increment_statistic(STAT_SNMPINGETREQUESTS);
    if (pdu->command == SNMP_MSG_GETNEXT) snmp_increment_statistic(STAT_SNMPINGETNEXTS);
    snmp_increment_statistic_by(STAT_SNMPINTOTALREQVARS, static_cast<int>(m_instances.size()));
    snmp_increment_statistic(STAT_SNMPOUTPKTS);
    snmp_increment_statistic(STAT_SNMPOUTGETRESPONSES);
    return message.size();
}

// Finds what the answer shows: all of it, or false.
bool DirectAnswer::collect(const MibObject& mib, const TableSnapshot& snapshot, netsnmp_pdu* pdu) {
    std::size_t variables = 0;
    for (const netsnmp_variable_list* at = pdu->variables; at != nullptr; at = at->next_variable) ++variables;
    if (variables == 0) return false;
    const std::size_t repetitions = repetitionsOf(*pdu, variables);
    if (repetitions == 0 || repetitions > MOST_VARIABLES / variables) return false;
    m_columns.assign(snapshot.columns(), Column());
    m_instances.resize(repetitions * variables);

    std::size_t position = 0;
    for (const netsnmp_variable_list* at = pdu->variables; at != nullptr; at = at->next_variable, ++position) {
        if (!isBelow(at->name, at->name_length, mib.root)) return false;
        const oid* const suffix = at->name + mib.root.size();
        const std::size_t length = at->name_length - mib.root.size();
        std::optional<Instance> instance;
        if (pdu->command == SNMP_MSG_GET) {
            Instance found{};
            if (snapshot.find(suffix, length, found) == TableSnapshot::Found::Instance) instance = found;
        } else {
            instance = snapshot.next(suffix, length, false);
        }
        if (!collectFollowing(instance, snapshot, pdu, position, variables)) return false;
    }
    return true;
}

// The instance and those after it take every `step`th place of the answer.
bool DirectAnswer::collectFollowing(std::optional<Instance> instance, const TableSnapshot& snapshot, netsnmp_pdu* pdu,
                                    std::size_t position, std::size_t step) {
    for (; position < m_instances.size(); position += step) {
        if (!instance || !isVisible(snapshot, *instance, pdu)) return false;
        m_instances[position] = *instance;
        instance = snapshot.next(*instance);
    }
    return true;
}

bool DirectAnswer::isVisible(const TableSnapshot& snapshot, Instance instance, netsnmp_pdu* pdu) {
    Column& column = m_columns[instance.column];
    if (!column.known) {
        OidVector name = snapshot.columnName(instance.column);
        column.known = true;
        column.visible = netsnmp_acm_check_subtree(pdu, name.data(), name.size()) == VACM_SUCCESS;
        column.name = berContentOf(name);
    }
    // SNMPv1 has no Counter64: such an instance is passed over, or an error.
    return column.visible && (pdu->version != SNMP_VERSION_1 || snapshot.type(instance) != ASN_COUNTER64);
}

bool DirectAnswer::write(BerWriter& out, const TableSnapshot& snapshot, const netsnmp_pdu& pdu) {
    for (auto at = m_instances.rbegin(); at != m_instances.rend(); ++at) {
        const std::size_t varbindEnd = out.size();
        if (!writeValue(out, snapshot.value(*at, m_see))) return false;
        const std::size_t nameEnd = out.size();
        out.subIdentifier(snapshot.lastOfName(*at));
        out.bytes(m_columns[at->column].name);
        out.header(ASN_OBJECT_ID, nameEnd);
        out.header(SEQUENCE, varbindEnd);
    }
    out.header(SEQUENCE, 0);
    out.integer(ASN_INTEGER, 0);  // error index
    out.integer(ASN_INTEGER, 0);  // error status
    out.integer(ASN_INTEGER, pdu.reqid);
    out.header(SNMP_MSG_RESPONSE, 0);
    if (pdu.version == SNMP_VERSION_3) return !out.overflowed();
    out.octets(ASN_OCTET_STR, {reinterpret_cast<const char*>(pdu.community), pdu.community_len});
    out.integer(ASN_INTEGER, pdu.version);
    out.header(SEQUENCE, 0);
    return !out.overflowed();
}

// The whole message; empty where the library cannot make it.
std::string_view DirectAnswer::secured(const BerWriter& answer, netsnmp_session* session, netsnmp_pdu* pdu) {
    const int asked = pdu->command;
    pdu->command = SNMP_MSG_RESPONSE;  // the header tells whether a report may come of the message
    const std::string_view message = m_secured.around(answer, session, pdu);
    pdu->command = asked;
    return message;
}

// Each variable's name and the last one of its answer.
std::vector<SnapshotStore::Span> DirectAnswer::spans(const TableSnapshot& snapshot, const netsnmp_pdu& pdu) const {
    std::vector<SnapshotStore::Span> spans;
    for (const netsnmp_variable_list* at = pdu.variables; at != nullptr; at = at->next_variable) {
        spans.push_back({OidVector(at->name, at->name + at->name_length), {}});
    }
    auto last = m_instances.end() - static_cast<std::ptrdiff_t>(spans.size());
    for (SnapshotStore::Span& span : spans) span.last = snapshot.name(*last++);
    return spans;
}

}  // namespace vrx
