#include "host/agent/requests/request_dispatcher.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "host/agent/requests/answer_size.h"
#include "host/agent/sets/set_request.h"
#include "host/base/log_line.h"
#include "host/log_lines/requests.h"
#include "host/snmp/net_snmp.h"

namespace vrx {

// Exported by the agent library, declared in none of its headers.
extern "C" int netsnmp_remove_from_delegated(netsnmp_agent_session* session);

namespace {

constexpr std::size_t SINGLE_ROWS = 8;  // of one request that are read one by one rather than with the whole table

constexpr unsigned int LINES = 5;  // of peers that get no answer
constexpr std::chrono::seconds LINES_PERIOD{60};

constexpr std::size_t KEY_SIZE = 256;  // octets that keys rarely have more of

template <typename Number>
void addNumber(std::string& key, Number number) {
    key.append(reinterpret_cast<const char*>(&number), sizeof number);
}

// The length in front keeps a part apart from what follows.
void addPart(std::string& key, const void* data, std::size_t size) {
    if (data == nullptr) size = 0;
    addNumber(key, size);
    key.append(static_cast<const char*>(data), size);
}

// Who asks: his walks are not another's.
std::string clientOf(const netsnmp_session* session, const netsnmp_pdu& pdu) {
    std::string key;
    key.reserve(KEY_SIZE);
    addNumber(key, session);
    addNumber(key, pdu.version);
    addPart(key, pdu.transport_data, static_cast<std::size_t>(std::max(pdu.transport_data_length, 0)));
    addPart(key, pdu.community, pdu.community_len);
    addPart(key, pdu.securityName, pdu.securityNameLen);
    addPart(key, pdu.contextName, pdu.contextNameLen);
    return key;
}

// Equal for a request and its retries: all but the message around it.
std::string retryKey(const netsnmp_session* session, const netsnmp_pdu& pdu) {
    std::string key = clientOf(session, pdu);
    addNumber(key, pdu.command);
    addNumber(key, pdu.reqid);
    addNumber(key, pdu.errstat);
    addNumber(key, pdu.errindex);
    for (const netsnmp_variable_list* varbind = pdu.variables; varbind != nullptr; varbind = varbind->next_variable) {
        addPart(key, varbind->name, varbind->name_length * sizeof(oid));
        addNumber(key, varbind->type);
        addPart(key, varbind->val.string, varbind->val_len);
    }
    return key;
}

int toEngine(netsnmp_session* session, int requestId, netsnmp_pdu* pdu) {
    return handle_snmp_packet(NETSNMP_CALLBACK_OP_RECEIVED_MESSAGE, session, requestId, pdu, nullptr);
}

// The rows that the names ask for, when they are few enough.
std::vector<std::uint32_t> rowsOf(const MibObject& mib, const std::vector<OidVector>& names) {
    std::vector<std::uint32_t> rows;
    for (const OidVector& name : names) {
        if (name.size() != mib.root.size() + MibObject::INSTANCE_LENGTH) continue;  // no instance has such a name
        const auto number = static_cast<std::uint32_t>(name.back());
        if (std::find(rows.begin(), rows.end(), number) == rows.end()) rows.push_back(number);
    }
    return rows;
}

}  // namespace

RequestDispatcher::RequestDispatcher(AgentLoop& loop, std::vector<ManagedObject*> objects,
                                     const DispatcherLimits& limits)
    : m_loop(loop),
      m_objects(std::move(objects)),
      m_limits(limits),
      m_answerRate(limits.answerRate),
      m_lines(LINES, LINES_PERIOD),
      m_sets(loop) {
    for (ManagedObject* object : m_objects) {
        object->onRefreshed = [this, object](const ReadOutcome& outcome) { refreshed(*object, outcome); };
    }
}

RequestDispatcher::~RequestDispatcher() {
    for (ManagedObject* object : m_objects) object->onRefreshed = nullptr;
}

void RequestDispatcher::setLimits(const DispatcherLimits& limits) {
    m_limits = limits;
    m_answerRate.setRate(limits.answerRate);
}

int RequestDispatcher::receive(int operation, netsnmp_session* session, int requestId, netsnmp_pdu* pdu,
                               void* dispatcher) {
    auto& self = *static_cast<RequestDispatcher*>(dispatcher);
    try {
        if (operation == NETSNMP_CALLBACK_OP_RECEIVED_MESSAGE && session->s_snmp_errno == 0) {
            return self.take(session, requestId, pdu);
        }
        if (operation == NETSNMP_CALLBACK_OP_DISCONNECT) self.drop(session);
    } catch (const std::exception& error) {  // the engine is C: nothing may leave. The manager will try again
        logFault<lines::REQUEST_LOST>(error.what());
        if (const auto kind = requestKindOf(pdu == nullptr ? 0 : pdu->command)) {
            self.m_counters.note(*kind, RequestResult::Lost);
        }
        return 1;
    }
    return handle_snmp_packet(operation, session, requestId, pdu, nullptr);
}

int RequestDispatcher::take(netsnmp_session* session, int requestId, netsnmp_pdu* pdu) {
    if (pdu->version == SNMP_VERSION_1 && pdu->command == SNMP_MSG_GETBULK) {  // SNMPv1 has no such message
        snmp_increment_statistic(STAT_SNMPINASNPARSEERRS);
        return 1;
    }
    const std::optional<RequestKind> kind = requestKindOf(pdu->command);
    if (!kind) return toEngine(session, requestId, pdu);
    boundAnswer(*session, *pdu);
    if (check_access(pdu) != 0) {  // the engine answers, or not
        m_counters.note(*kind, RequestResult::NotAllowed);
        return toEngine(session, requestId, pdu);
    }
    if (onAllowed) onAllowed(session);
    if (holdsBack(*pdu)) {
        m_counters.note(*kind, RequestResult::HeldBack);
        return 1;
    }
    const bool set = pdu->command == SNMP_MSG_SET;
    if (set && !answerFits(*session, *pdu)) {
        m_counters.note(*kind, answerTooBig(*session, *pdu) ? RequestResult::OtherError : RequestResult::Lost);
        return 1;
    }
    return set ? takeSet(session, requestId, pdu) : takeRead(session, requestId, pdu);
}

bool RequestDispatcher::holdsBack(const netsnmp_pdu& pdu) {
    const std::string peer = AnswerRate::peerOf(pdu);
    const auto now = TableSnapshot::Clock::now();
    if (m_answerRate.allows(peer, now)) return false;
    if (m_lines.take(now)) {
        logLine<lines::REQUESTS_DROPPED>(AnswerRate::textOf(peer), m_limits.answerRate);
    }
    return true;
}

void RequestDispatcher::answered(const netsnmp_pdu& answer, std::size_t octets) {
    m_answerRate.note(AnswerRate::peerOf(answer), octets, TableSnapshot::Clock::now());
}

ManagedObject* RequestDispatcher::objectOf(const netsnmp_variable_list& varbind) const {
    const auto found = std::find_if(m_objects.begin(), m_objects.end(), [&](const ManagedObject* object) {
        return isBelow(varbind.name, varbind.name_length, object->mib().root);
    });
    return found == m_objects.end() ? nullptr : *found;
}

ObjectFinder RequestDispatcher::finder() const {
    return [this](const netsnmp_variable_list& varbind) { return objectOf(varbind); };
}

// A retry is answered instead of what it repeats: an SNMPv3 manager takes no other answer.
bool RequestDispatcher::isRetry(netsnmp_session* session, int requestId, netsnmp_pdu* pdu, const std::string& key) {
    const auto found = std::find_if(m_waiting.begin(), m_waiting.end(),
                                    [&](const auto& waiting) { return waiting.second.key == key; });
    if (found == m_waiting.end()) return false;
    if (netsnmp_pdu* const copy = snmp_clone_pdu(pdu)) {
        found->second.session = session;
        found->second.requestId = requestId;
        found->second.pdu.reset(copy);
    }
    m_counters.note(kindOf(found->second), RequestResult::Repeated);
    return true;
}

int RequestDispatcher::takeRead(netsnmp_session* session, int requestId, netsnmp_pdu* pdu) {
    if (!m_waiting.empty() && isRetry(session, requestId, pdu, retryKey(session, *pdu))) return 1;
    auto transaction = std::make_unique<PendingRead>();
    transaction->id = m_nextId++;
    transaction->client = clientOf(session, *pdu);
    transaction->command = pdu->command;
    transaction->arrived = TableSnapshot::Clock::now();
    const std::uint64_t id = transaction->id;
    PendingRead& read = *transaction;
    prepare(read, pdu);
    if (!read.pending() && answerDirectly(read, session, pdu)) return 1;
    const std::string key = retryKey(session, *pdu);  // of what was asked: the engine may have to be asked for less
    if (!read.pending() && pass(read, session, requestId, pdu)) return 1;
    if (!wait(id, session, requestId, pdu, key)) {
        fail(read, RequestResult::Overload);
        pass(read, session, requestId, pdu);
        return 1;
    }
    m_waiting[id].read = std::move(transaction);
    return 1;
}

// Acquires the objects that the request names. Those that it runs into besides come in a later pass.
void RequestDispatcher::prepare(PendingRead& transaction, netsnmp_pdu* pdu) {
    std::map<ManagedObject*, std::vector<OidVector>> names;
    for (const netsnmp_variable_list* varbind = pdu->variables; varbind != nullptr; varbind = varbind->next_variable) {
        ManagedObject* const object = objectOf(*varbind);
        if (object == nullptr) continue;
        const std::size_t rootLength = object->mib().root.size();
        if (pdu->command == SNMP_MSG_GET &&
            TableSnapshot::findName(object->mib(), varbind->name + rootLength, varbind->name_length - rootLength) !=
                TableSnapshot::Found::Instance) {
            continue;
        }
        names[object].emplace_back(varbind->name, varbind->name + varbind->name_length);
    }
    for (const auto& [object, itsNames] : names) acquire(transaction, *object, itsNames);
}

void RequestDispatcher::acquire(PendingRead& transaction, ManagedObject& object, const std::vector<OidVector>& names) {
    PendingRead::ObjectData& data = transaction.objects[&object];
    SnapshotStore& store = object.snapshots();
    data.changes = store.changes();
    if (transaction.command != SNMP_MSG_GET) {
        for (const OidVector& name : names) {
            if (data.snapshot == nullptr) data.snapshot = store.ofWalk(transaction.client, name, transaction.arrived);
        }
    }
    if (data.snapshot == nullptr) data.snapshot = store.fresh(TableSnapshot::Clock::now());
    if (data.snapshot != nullptr) {
        data.state = PendingRead::ObjectData::State::Ready;
        return;
    }
    if (transaction.command == SNMP_MSG_GET && object.readsRows()) {
        std::vector<std::uint32_t> rows = rowsOf(object.mib(), names);
        if (rows.size() <= SINGLE_ROWS) {
            object.readRows(std::move(rows), [this, id = transaction.id, &object](const ReadOutcome& outcome) {
                rowsRead(id, object, outcome);
            });
            return;
        }
    }
    object.refresh();
}

// Takes the request through the engine. True when it is answered, false when it has to wait for another object.
bool RequestDispatcher::pass(PendingRead& transaction, netsnmp_session* session, int requestId, netsnmp_pdu* pdu) {
    const bool late = TableSnapshot::Clock::now() - transaction.arrived >= m_limits.deadline;
    const EngineAnswer answer;
    while (true) {
        transaction.unprepared = nullptr;
        transaction.repetitionsBefore = LONG_MAX;
        transaction.unfinished = nullptr;
        for (auto& [object, data] : transaction.objects) data.spans.clear();

        m_transactions.enter(pdu->transid, transaction);
        toEngine(session, requestId, pdu);
        m_transactions.leave(pdu->transid);
        if (transaction.unprepared == nullptr) break;

        netsnmp_remove_from_delegated(transaction.unfinished);
        free_agent_snmp_session(transaction.unfinished);
        if (pdu->command == SNMP_MSG_GETBULK && transaction.repetitionsBefore > 0) {
            pdu->max_repetitions = transaction.repetitionsBefore;
            continue;
        }
        acquire(transaction, *transaction.unprepared, {});
        if (late) fail(transaction, RequestResult::TimedOut);
        if (transaction.pending()) return false;
    }
    noteAnswer(transaction, answer.result());
    return true;
}

bool RequestDispatcher::answerDirectly(PendingRead& transaction, netsnmp_session* session, netsnmp_pdu* pdu) {
    const std::size_t octets = m_directAnswer.send(transaction, session, pdu);
    if (octets == 0) return false;
    answered(*pdu, octets);
    noteAnswer(transaction, RequestResult::Ok);
    return true;
}

void RequestDispatcher::noteAnswer(PendingRead& transaction, RequestResult result) {
    const auto now = TableSnapshot::Clock::now();
    if (const auto kind = requestKindOf(transaction.command)) {
        m_counters.note(*kind, transaction.givenUp.value_or(result), now - transaction.arrived);
    }
    for (auto& [object, data] : transaction.objects) {
        object->snapshots().answered(transaction.client, data.snapshot, std::move(data.spans), now);
    }
}

// Lets a request wait under `id`; false when there is no room for it.
bool RequestDispatcher::wait(std::uint64_t id, netsnmp_session* session, int requestId, netsnmp_pdu* pdu,
                             const std::string& key) {
    const bool full = m_waiting.size() >= m_limits.waiting;
    if (full) {
        m_refusing.begins([&] { logLine<lines::REQUESTS_REFUSED>(m_waiting.size()); });
        return false;
    }
    m_refusing.ends();
    PduPointer copy(snmp_clone_pdu(pdu));
    if (copy == nullptr) return false;
    m_loop.runAfter(m_limits.deadline, [this, id] { expire(id); });  // before it waits: none waits without an end
    m_waiting[id] = {session, requestId, key, std::move(copy), nullptr, nullptr, {}};
    return true;
}

void RequestDispatcher::resume(std::uint64_t id) {
    const auto found = m_waiting.find(id);
    if (found == m_waiting.end() || found->second.read->pending()) return;
    Waiting waiting = std::move(found->second);
    m_waiting.erase(found);
    if (snmp_sess_pointer(waiting.session) == nullptr) {  // the manager has hung up
        m_counters.note(kindOf(waiting), RequestResult::Lost);
        return;
    }
    waiting.session->s_snmp_errno = 0;  // of some other packet: the engine would drop this one
    if (answerDirectly(*waiting.read, waiting.session, waiting.pdu.get()) ||
        pass(*waiting.read, waiting.session, waiting.requestId, waiting.pdu.get())) {
        return;
    }
    m_waiting[id] = std::move(waiting);
}

void RequestDispatcher::refreshed(ManagedObject& object, const ReadOutcome& outcome) {
    using State = PendingRead::ObjectData::State;
    std::vector<std::uint64_t> served;
    bool again = false;
    for (auto& [id, waiting] : m_waiting) {
        if (waiting.read == nullptr) continue;
        const auto data = waiting.read->objects.find(&object);
        if (data == waiting.read->objects.end() || data->second.state != State::Pending) continue;
        if (outcome.snapshot == nullptr) {
            data->second.state = State::Failed;
        } else if (object.snapshots().answers(outcome.snapshot->changes(), outcome.snapshot->taken(),
                                              data->second.changes, waiting.read->arrived)) {
            data->second.state = State::Ready;
            data->second.snapshot = outcome.snapshot;
        } else {
            again = true;  // it came after the reading had begun, and something has changed between
            continue;
        }
        served.push_back(id);
    }
    if (again) object.refresh();
    for (const std::uint64_t id : served) resume(id);
}

void RequestDispatcher::rowsRead(std::uint64_t id, ManagedObject& object, const ReadOutcome& outcome) {
    using State = PendingRead::ObjectData::State;
    const auto found = m_waiting.find(id);
    if (found == m_waiting.end()) return;
    PendingRead::ObjectData& data = found->second.read->objects[&object];
    if (data.state != State::Pending) return;
    data.snapshot = outcome.snapshot;
    data.state = outcome.snapshot == nullptr ? State::Failed : State::Ready;
    resume(id);
}

// Answers without the values that have not come.
void RequestDispatcher::fail(PendingRead& transaction, RequestResult reason) {
    using State = PendingRead::ObjectData::State;
    for (auto& [object, data] : transaction.objects) {
        if (data.state != State::Pending) continue;
        data.state = State::Failed;
        transaction.givenUp = reason;
    }
}

void RequestDispatcher::expire(std::uint64_t id) {
    const auto found = m_waiting.find(id);
    if (found == m_waiting.end()) return;
    if (found->second.read != nullptr) {
        fail(*found->second.read, RequestResult::TimedOut);
        resume(id);
    } else if (found->second.set->cancel()) {
        const SetResult refusal{SNMP_ERR_GENERR, 1, "it came to its deadline before its turn"};
        m_refusals.note(found->second.pdu.get(), refusal, finder());
        // Nothing from here on needs memory.
        m_sets.withdraw(id);
        Waiting waiting = std::move(found->second);
        m_waiting.erase(found);
        const bool answered = answerSet(waiting.session, std::move(waiting.pdu), refusal);
        noteSet(waiting.arrived, answered ? RequestResult::TimedOut : RequestResult::Lost);
    }
}

void RequestDispatcher::drop(const netsnmp_session* session) {
    for (auto waiting = m_waiting.begin(); waiting != m_waiting.end();) {
        // A SET that is under way is carried through; only its answer has nowhere to go.
        if (waiting->second.session == session) {
            m_counters.note(kindOf(waiting->second), RequestResult::Lost);
            waiting = m_waiting.erase(waiting);
        } else {
            ++waiting;
        }
    }
}

RequestKind RequestDispatcher::kindOf(const Waiting& waiting) {
    return waiting.read == nullptr ? RequestKind::Set : requestKindOf(waiting.read->command).value_or(RequestKind::Get);
}

int RequestDispatcher::takeSet(netsnmp_session* session, int requestId, netsnmp_pdu* pdu) {
    const SnapshotStore::TimePoint arrived = TableSnapshot::Clock::now();
    bool ours = false;
    for (const netsnmp_variable_list* varbind = pdu->variables; varbind != nullptr; varbind = varbind->next_variable) {
        ours = ours || objectOf(*varbind) != nullptr;
    }
    if (!ours) {
        const EngineAnswer answer;
        const int taken = toEngine(session, requestId, pdu);
        noteSet(arrived, answer.result());
        return taken;
    }
    const std::string key = retryKey(session, *pdu);
    if (isRetry(session, requestId, pdu, key)) return 1;

    if (onSet) onSet();
    std::vector<SetStep> steps;
    const SetResult parsed = parseSet(pdu, finder(), steps);
    const std::uint64_t id = m_nextId++;
    auto transaction = std::make_shared<SetTransaction>(std::move(steps), [this, id](const SetResult& result) {
        markAllChanged();  // the handlers' values hang together: an alarm that is cleared leaves the table
        const auto found = m_waiting.find(id);
        const netsnmp_pdu* const asked = found == m_waiting.end() ? nullptr : found->second.pdu.get();
        if (!result.ok()) m_refusals.note(asked, result, finder());
        // Nothing from here on needs memory.
        m_sets.ended(id);
        if (asked == nullptr) return;
        Waiting waiting = std::move(found->second);
        m_waiting.erase(found);
        const bool answered = answerSet(waiting.session, std::move(waiting.pdu), result);
        noteSet(waiting.arrived, answered ? requestResultOf(result.error) : RequestResult::Lost);
    });
    if (!parsed.ok() || !wait(id, session, requestId, pdu, key)) {
        PduPointer copy(snmp_clone_pdu(pdu));
        const SetResult refusal = parsed.ok() ? SetResult{SNMP_ERR_RESOURCEUNAVAILABLE, 1, "too many wait"} : parsed;
        m_refusals.note(pdu, refusal, finder());
        const bool answered = copy != nullptr && answerSet(session, std::move(copy), refusal);
        const RequestResult result = parsed.ok() ? RequestResult::Overload : requestResultOf(refusal.error);
        noteSet(arrived, answered ? result : RequestResult::Lost);
        return 1;
    }
    m_waiting[id].arrived = arrived;
    m_waiting[id].set = transaction;
    m_sets.add(id, transaction);
    return 1;
}

void RequestDispatcher::noteSet(SnapshotStore::TimePoint arrived, RequestResult result) {
    if (result == RequestResult::Lost) {
        m_counters.note(RequestKind::Set, result);
    } else {
        m_counters.note(RequestKind::Set, result, TableSnapshot::Clock::now() - arrived);
    }
}

// False when the manager has hung up.
bool RequestDispatcher::answerSet(netsnmp_session* session, PduPointer pdu, const SetResult& result) {
    if (snmp_sess_pointer(session) == nullptr) return false;
    session->s_snmp_errno = 0;
    pdu->command = SNMP_MSG_RESPONSE;
    pdu->errstat = pdu->version == SNMP_VERSION_1 ? v1Error(result.error) : result.error;
    pdu->errindex = result.variable;
    if (snmp_send(session, pdu.get()) != 0) static_cast<void>(pdu.release());  // the library has freed it
    return true;
}

void RequestDispatcher::markAllChanged() {
    for (ManagedObject* object : m_objects) object->snapshots().markChanged();
}

}  // namespace vrx
