// A read request (GET, GETNEXT, GETBULK) on its way: which objects' values it needs and has.
//
// The dispatcher (request_dispatcher.h) prepares it and passes the request to Net-SNMP's engine, which calls the
// registrations of the objects (object_registration.h); these find the transaction by the request's transaction number.
// A request may turn out to need an object that was not prepared, when a walk leaves the object before: the
// registration then notes it and ends the pass, and the dispatcher starts another one when it has the object's values.
//
// Threads: agent thread only.
#pragma once

#include <climits>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "host/agent/objects/managed_object.h"
#include "host/agent/requests/request_counters.h"

namespace vrx {

struct PendingRead {
    struct ObjectData {
        enum class State { Pending, Ready, Failed };
        State state = State::Pending;
        SnapshotPointer snapshot;                // when Ready
        std::uint64_t changes = 0;               // of the object when the request came
        std::vector<SnapshotStore::Span> spans;  // what the last pass answered from the snapshot
    };

    std::uint64_t id = 0;
    std::string client;  // address and identity: whose walks these are
    int command = 0;     // SNMP_MSG_GET, SNMP_MSG_GETNEXT or SNMP_MSG_GETBULK
    SnapshotStore::TimePoint arrived;
    std::optional<RequestResult> givenUp;  // why it is answered without its values
    std::map<ManagedObject*, ObjectData> objects;

    // What the last pass ran into, if it could not be completed.
    ManagedObject* unprepared = nullptr;
    long repetitionsBefore = LONG_MAX;            // complete repetitions of a GETBULK in front of it
    netsnmp_agent_session* unfinished = nullptr;  // the engine's part of the pass, to be dropped

    bool pending() const {
        for (const auto& [object, data] : objects) {
            if (data.state == ObjectData::State::Pending) return true;
        }
        return false;
    }
};

// The transactions that are in the engine just now.
class PendingReads {
public:
    void enter(long transactionNumber, PendingRead& transaction) { m_active[transactionNumber] = &transaction; }
    void leave(long transactionNumber) { m_active.erase(transactionNumber); }
    PendingRead* find(long transactionNumber) const {
        const auto found = m_active.find(transactionNumber);
        return found == m_active.end() ? nullptr : found->second;
    }

private:
    std::map<long, PendingRead*> m_active;
};

}  // namespace vrx
