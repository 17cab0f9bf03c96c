#include "host/agent/requests/object_registration.h"

#include <algorithm>
#include <exception>
#include <map>
#include <optional>
#include <stdexcept>

#include "host/agent/objects/table_rules.h"
#include "host/base/log_line.h"
#include "host/log_lines/requests.h"
#include "host/snmp/net_snmp.h"

namespace vrx {

namespace {

// Where a name stands in an object: what stands after the root, empty for a name at or before it.
struct Suffix {
    const oid* start;
    std::size_t length;
};

Suffix suffixOf(const netsnmp_variable_list* varbind, const OidVector& root) {
    if (!isBelow(varbind->name, varbind->name_length, root)) return {nullptr, 0};
    return {varbind->name + root.size(), varbind->name_length - root.size()};
}

OidVector nameOf(const netsnmp_variable_list* varbind) {
    return {varbind->name, varbind->name + varbind->name_length};
}

void setName(netsnmp_variable_list* varbind, const OidVector& name) {
    snmp_set_var_objid(varbind, name.data(), name.size());
}

bool beforeEndOfRange(const netsnmp_request_info* request, const OidVector& name) {
    return request->range_end == nullptr ||
           compareOid(name.data(), name.size(), request->range_end, request->range_end_len) < 0;
}

// What of the object a reader may see, asked once for each column and, where that does not decide, for each instance.
class View {
public:
    explicit View(netsnmp_pdu* pdu) : m_pdu(pdu) {}

    bool hidesColumn(const TableSnapshot& snapshot, std::size_t column) {
        return decision(snapshot, column) == VACM_NOTINVIEW;
    }

    bool shows(const TableSnapshot& snapshot, TableSnapshot::Instance instance, OidVector& name, unsigned char type) {
        const int column = decision(snapshot, instance.column);
        // SNMPv1 has no Counter64: the check of a single instance knows.
        if (column == VACM_SUCCESS && type != ASN_COUNTER64) return true;
        std::size_t length = name.size();
        return in_a_view(name.data(), &length, m_pdu, type) == VACM_SUCCESS;
    }

private:
    int decision(const TableSnapshot& snapshot, std::size_t column) {
        const auto known = m_columns.find(column);
        if (known != m_columns.end()) return known->second;
        OidVector name = snapshot.columnName(column);
        return m_columns[column] = netsnmp_acm_check_subtree(m_pdu, name.data(), name.size());
    }

    netsnmp_pdu* m_pdu;
    std::map<std::size_t, int> m_columns;
};

}  // namespace

ObjectRegistration::ObjectRegistration(ManagedObject& object, const PendingReads& transactions)
    : m_object(object), m_transactions(transactions), m_registration(nullptr) {
    const MibObject& mib = object.mib();
    netsnmp_mib_handler* const handler = netsnmp_create_handler(mib.name.c_str(), &ObjectRegistration::handle);
    if (handler == nullptr) throw std::runtime_error(mib.name + ": no memory for its registration");
    handler->myvoid = this;
    m_registration = netsnmp_handler_registration_create(mib.name.c_str(), handler, mib.root.data(), mib.root.size(),
                                                         HANDLER_CAN_RWRITE | HANDLER_CAN_GETBULK);
    // A failed registration is freed by the library.
    if (m_registration == nullptr || netsnmp_register_handler(m_registration) != MIB_REGISTERED_OK) {
        throw std::runtime_error(mib.name + ": the engine refuses " + oidText(mib.root));
    }
}

ObjectRegistration::~ObjectRegistration() {
    netsnmp_unregister_handler(m_registration);
}

int ObjectRegistration::handle(netsnmp_mib_handler* self, netsnmp_handler_registration*,
                               netsnmp_agent_request_info* info, netsnmp_request_info* requests) {
    auto& registration = *static_cast<ObjectRegistration*>(self->myvoid);
    switch (info->mode) {
        case MODE_GET:
        case MODE_GETNEXT:
        case MODE_GETBULK:
            try {
                registration.read(info, requests);
            } catch (const std::exception& error) {  // the engine is C: nothing may leave
                logFault<lines::READ_FAILED>(registration.m_object.mib().name, error.what());
                netsnmp_set_all_requests_error(info, requests, SNMP_ERR_GENERR);
            }
            break;
        case MODE_SET_RESERVE1:
            netsnmp_set_all_requests_error(info, requests, SNMP_ERR_GENERR);
            break;
        default:
            break;
    }
    return SNMP_ERR_NOERROR;
}

// A GET of a name that no values could have needs none to be answered.
bool ObjectRegistration::needsValues(int mode, netsnmp_request_info* request) const {
    if (mode != MODE_GET) return true;
    const Suffix suffix = suffixOf(request->requestvb, m_object.mib().root);
    const auto atBest = TableSnapshot::findName(m_object.mib(), suffix.start, suffix.length);
    if (atBest == TableSnapshot::Found::Instance) return true;
    netsnmp_request_set_error(request,
                              atBest == TableSnapshot::Found::NoSuchInstance ? SNMP_NOSUCHINSTANCE : SNMP_NOSUCHOBJECT);
    return false;
}

void ObjectRegistration::read(netsnmp_agent_request_info* info, netsnmp_request_info* requests) {
    PendingRead* const transaction = m_transactions.find(info->asp->pdu->transid);
    if (transaction == nullptr) {
        netsnmp_set_all_requests_error(info, requests, SNMP_ERR_GENERR);
        return;
    }
    const auto data = transaction->objects.find(&m_object);
    const TableRules* const rules = tableRules(m_object.mib().root);
    m_see = rules == nullptr || rules->seesSecrets(*info->asp->pdu, m_object.mib())
                ? TableSnapshot::See::All
                : TableSnapshot::See::WithoutSecrets;
    for (netsnmp_request_info* request = requests; request != nullptr; request = request->next) {
        if (request->processed != 0 || !needsValues(info->mode, request)) continue;
        if (data == transaction->objects.end()) {
            transaction->unprepared = &m_object;
            transaction->unfinished = info->asp;
            transaction->repetitionsBefore =
                std::min(transaction->repetitionsBefore, static_cast<long>(request->orig_repeat - request->repeat));
            request->delegated = 1;  // keeps the engine from sending an answer
        } else if (data->second.state != PendingRead::ObjectData::State::Ready) {
            refuse(info->asp->pdu, request);
        } else if (info->mode == MODE_GET) {
            get(*data->second.snapshot, request);
        } else if (info->mode == MODE_GETNEXT) {
            getNext(data->second, request);
        } else {
            getBulk(data->second, info->asp->pdu, request);
        }
    }
}

// The object cannot be read. Nor does a walk that comes from before it pass it by: without its rows it would seem
// empty.
void ObjectRegistration::refuse(netsnmp_pdu* pdu, netsnmp_request_info* request) const {
    OidVector root = m_object.mib().root;
    const bool hidden = netsnmp_acm_check_subtree(pdu, root.data(), root.size()) == VACM_NOTINVIEW;
    if (!hidden) netsnmp_request_set_error(request, SNMP_ERR_GENERR);
}

void ObjectRegistration::get(const TableSnapshot& snapshot, netsnmp_request_info* request) {
    const Suffix suffix = suffixOf(request->requestvb, m_object.mib().root);
    TableSnapshot::Instance instance{};
    switch (snapshot.find(suffix.start, suffix.length, instance)) {
        case TableSnapshot::Found::Instance:
            if (!snapshot.fill(instance, request->requestvb, m_see))
                netsnmp_request_set_error(request, SNMP_ERR_GENERR);
            break;
        case TableSnapshot::Found::NoSuchInstance:
            netsnmp_request_set_error(request, SNMP_NOSUCHINSTANCE);
            break;
        case TableSnapshot::Found::NoSuchObject:
            netsnmp_request_set_error(request, SNMP_NOSUCHOBJECT);
            break;
    }
}

// Without an instance after the name the varbind stays as it is: the engine goes on to the next registration.
void ObjectRegistration::getNext(PendingRead::ObjectData& data, netsnmp_request_info* request) {
    const TableSnapshot& snapshot = *data.snapshot;
    netsnmp_variable_list* const varbind = request->requestvb;
    const Suffix suffix = suffixOf(varbind, m_object.mib().root);
    const auto instance = snapshot.next(suffix.start, suffix.length, request->inclusive != 0);
    if (!instance) return;
    const OidVector name = snapshot.name(*instance);
    if (!beforeEndOfRange(request, name)) return;
    data.spans.push_back({nameOf(varbind), name});
    setName(varbind, name);
    if (!snapshot.fill(*instance, varbind, m_see)) netsnmp_request_set_error(request, SNMP_ERR_GENERR);
}

// `repeat` more varbinds hang after the request's own, empty. Where the table ends before them, the first one left
// over says where the engine goes on.
void ObjectRegistration::getBulk(PendingRead::ObjectData& data, netsnmp_pdu* pdu, netsnmp_request_info* request) {
    const TableSnapshot& snapshot = *data.snapshot;
    View view(pdu);
    const OidVector asked = nameOf(request->requestvb);
    const Suffix suffix = suffixOf(request->requestvb, m_object.mib().root);
    auto instance = snapshot.next(suffix.start, suffix.length, request->inclusive != 0);

    netsnmp_variable_list* varbind = request->requestvb;
    netsnmp_variable_list* last = nullptr;
    int left = request->repeat + 1;
    while (instance && left > 0 && varbind != nullptr) {
        if (view.hidesColumn(snapshot, instance->column)) {
            instance = snapshot.nextColumn(instance->column);
            continue;
        }
        OidVector name = snapshot.name(*instance);
        if (!beforeEndOfRange(request, name)) break;
        if (view.shows(snapshot, *instance, name, snapshot.type(*instance))) {
            setName(varbind, name);
            if (!snapshot.fill(*instance, varbind, m_see)) {
                netsnmp_request_set_error(request, SNMP_ERR_GENERR);
                return;
            }
            last = varbind;
            varbind = varbind->next_variable;
            --left;
        }
        instance = snapshot.next(*instance);
    }
    if (last == nullptr) return;
    data.spans.push_back({asked, nameOf(last)});
    if (left > 0 && varbind != nullptr) {
        setName(varbind, nameOf(last));
        request->requestvb = varbind;
        request->repeat = left - 1;
    } else {
        request->requestvb = last;
        request->repeat = 0;
    }
}

}  // namespace vrx
