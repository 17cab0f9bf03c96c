// Registers an object with Net-SNMP's engine and answers GET, GETNEXT and GETBULK from the transaction's snapshot, all
// three natively. GETBULK checks the reader's view itself, since the engine looks at the first repetition only.
//
// SETs do not come this way (set_transaction.h): one that reaches the engine all the same is refused with genErr.
//
// Threads: agent thread only.
#pragma once

#include "host/agent/objects/managed_object.h"
#include "host/agent/requests/pending_read.h"

namespace vrx {

class ObjectRegistration {
public:
    // Throws std::runtime_error when the engine refuses the registration. Both arguments outlive the registration.
    // REQUIRES: it is destroyed before the engine shuts down.
    ObjectRegistration(ManagedObject& object, const PendingReads& transactions);
    ~ObjectRegistration();
    ObjectRegistration(const ObjectRegistration&) = delete;
    ObjectRegistration& operator=(const ObjectRegistration&) = delete;

private:
    static int handle(netsnmp_mib_handler* self, netsnmp_handler_registration* registration,
                      netsnmp_agent_request_info* info, netsnmp_request_info* requests);
    void read(netsnmp_agent_request_info* info, netsnmp_request_info* requests);
    void get(const TableSnapshot& snapshot, netsnmp_request_info* request);
    void getNext(PendingRead::ObjectData& data, netsnmp_request_info* request);
    void getBulk(PendingRead::ObjectData& data, netsnmp_pdu* pdu, netsnmp_request_info* request);
    void refuse(netsnmp_pdu* pdu, netsnmp_request_info* request) const;
    bool needsValues(int mode, netsnmp_request_info* request) const;

    ManagedObject& m_object;
    const PendingReads& m_transactions;
    netsnmp_handler_registration* m_registration;        // the engine's
    TableSnapshot::See m_see = TableSnapshot::See::All;  // in the call that is under way
};

}  // namespace vrx
