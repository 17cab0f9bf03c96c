// Stands in front of Net-SNMP's engine and takes every request first: those that need values which are not there wait
// here, not in the engine, until a worker has them. So no request waits for another one's backend call.
//
// Reads: the request's objects are prepared (a snapshot of each), then the request is answered: directly when it is a
// plain one (direct_answer.h), else it goes through the engine, which answers. A GETBULK that runs from one object into
// a second that is not prepared is answered up to there, if it has a repetition to answer with: the manager's next
// request asks the second. SETs below our objects never reach the engine: the dispatcher answers them itself. A retry
// of a request that waits takes its place and starts nothing. Every request ends: at the deadline with genErr, the same
// when too many wait.
//
// Threads: agent thread only.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/agent/loop/agent_loop.h"
#include "host/agent/objects/managed_object.h"
#include "host/agent/requests/answer_rate.h"
#include "host/agent/requests/direct_answer.h"
#include "host/agent/requests/pending_read.h"
#include "host/agent/requests/request_counters.h"
#include "host/agent/sets/set_refusals.h"
#include "host/agent/sets/set_transaction.h"
#include "host/base/fault_line.h"
#include "host/base/log_rate_limiter.h"

namespace vrx {

struct DispatcherLimits {
    std::chrono::milliseconds deadline{5'000};
    std::size_t waiting = 256;
    std::size_t answerRate = 1'000'000;  // octets a second for a peer that is not authenticated
};

class RequestDispatcher {
public:
    // Objects and loop outlive the dispatcher; it becomes the objects' onRefreshed.
    RequestDispatcher(AgentLoop& loop, std::vector<ManagedObject*> objects, const DispatcherLimits& limits);
    ~RequestDispatcher();
    RequestDispatcher(const RequestDispatcher&) = delete;
    RequestDispatcher& operator=(const RequestDispatcher&) = delete;

    // A session's callback, with the dispatcher as the session's magic.
    static int receive(int operation, netsnmp_session* session, int requestId, netsnmp_pdu* pdu, void* dispatcher);

    // Called with the session of each request that its sender may make.
    std::function<void(const netsnmp_session*)> onAllowed;

    // Called before a SET is checked.
    std::function<void()> onSet;

    const PendingReads& transactions() const { return m_transactions; }

    void setLimits(const DispatcherLimits& limits);  // they hold for requests that come from now on

    // Told of each answer that the engine encodes.
    void answered(const netsnmp_pdu& answer, std::size_t octets);

    std::size_t waiting() const { return m_waiting.size(); }
    const RequestCounters& counters() const { return m_counters; }

private:
    struct FreePdu {
        void operator()(netsnmp_pdu* pdu) const { snmp_free_pdu(pdu); }
    };
    using PduPointer = std::unique_ptr<netsnmp_pdu, FreePdu>;

    struct Waiting {
        netsnmp_session* session;
        int requestId;
        std::string key;  // of retries
        PduPointer pdu;   // our own copy
        std::unique_ptr<PendingRead> read;
        std::shared_ptr<SetTransaction> set;
        SnapshotStore::TimePoint arrived{};  // of a SET
    };

    int take(netsnmp_session* session, int requestId, netsnmp_pdu* pdu);
    bool holdsBack(const netsnmp_pdu& pdu);
    int takeRead(netsnmp_session* session, int requestId, netsnmp_pdu* pdu);
    int takeSet(netsnmp_session* session, int requestId, netsnmp_pdu* pdu);
    bool isRetry(netsnmp_session* session, int requestId, netsnmp_pdu* pdu, const std::string& key);

    ManagedObject* objectOf(const netsnmp_variable_list& varbind) const;
    ObjectFinder finder() const;
    void prepare(PendingRead& transaction, netsnmp_pdu* pdu);
    void acquire(PendingRead& transaction, ManagedObject& object, const std::vector<OidVector>& names);
    bool answerDirectly(PendingRead& transaction, netsnmp_session* session, netsnmp_pdu* pdu);
    bool pass(PendingRead& transaction, netsnmp_session* session, int requestId, netsnmp_pdu* pdu);

    [[nodiscard]] bool wait(std::uint64_t id, netsnmp_session* session, int requestId, netsnmp_pdu* pdu,
                            const std::string& key);
    void resume(std::uint64_t id);
    void refreshed(ManagedObject& object, const ReadOutcome& outcome);
    void rowsRead(std::uint64_t id, ManagedObject& object, const ReadOutcome& outcome);
    void expire(std::uint64_t id);
    void drop(const netsnmp_session* session);
    static void fail(PendingRead& transaction, RequestResult reason);
    void noteAnswer(PendingRead& transaction, RequestResult result);
    void noteSet(SnapshotStore::TimePoint arrived, RequestResult result);
    void markAllChanged();
    [[nodiscard]] static bool answerSet(netsnmp_session* session, PduPointer pdu, const SetResult& result);
    static RequestKind kindOf(const Waiting& waiting);

    AgentLoop& m_loop;
    std::vector<ManagedObject*> m_objects;
    DispatcherLimits m_limits;
    DirectAnswer m_directAnswer;
    AnswerRate m_answerRate;
    LogRateLimiter m_lines;
    PendingReads m_transactions;
    std::map<std::uint64_t, Waiting> m_waiting;
    SetQueue m_sets;
    RequestCounters m_counters;
    SetRefusals m_refusals;
    std::uint64_t m_nextId = 1;
    FaultLine m_refusing;
};

}  // namespace vrx
