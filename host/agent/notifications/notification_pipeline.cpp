#include "host/agent/notifications/vbx_conversion.h"  // first: see there

#include "host/agent/notifications/notification_pipeline.h"

#include <exception>
#include <new>
#include <string>
#include <utility>

#include "host/base/log_line.h"
#include "host/base/logging.h"
#include "host/base/memory_retry.h"
#include "host/log_lines/events.h"
#include "host/transport/backend_protocol.h"
#include "platform/notify_msg_handler.h"

namespace vrx {

namespace {

// Of each place in the module, for one trap.
constexpr std::uint64_t LINES_OF_A_RENDERING = 10;

// What an operator finds the alarm by: "4 (alarm 4295032833, serial 7)".
std::string nameOf(const AlarmEvent& event) {
    const auto known = [](std::uint64_t number) { return number == 0 ? "unknown" : std::to_string(number); };
    return std::to_string(event.sequence) + " (alarm " + known(event.alarmId) + ", serial " + known(event.serial) + ")";
}

// A step of an event that has begun: when it finds no memory for about a second the event goes on without it, with a
// line. False then. The step goes on where it stopped when it is run again.
template <const LogRow& LOST, typename Step>
bool withMemory(const AlarmEvent& event, const Step& step) {
    try {
        retryForASecond(step);
        return true;
    } catch (const std::bad_alloc& fault) {
        logFault<LOST>(event.sequence, fault.what());
        return false;
    }
}

}  // namespace

NotificationPipeline::NotificationPipeline(const std::list<INotifyMsgHandler*>& handlers, const TamrelBinding& binding,
                                           AlarmDefinitions& definitions, NotificationDelivery& delivery,
                                           EventLedger& ledger, std::function<void()> alarmsChanged)
    : m_handlers(handlers),
      m_binding(binding),
      m_definitions(definitions),
      m_delivery(delivery),
      m_sinks(delivery.sinks()),
      m_ledger(ledger),
      m_alarmsChanged(std::move(alarmsChanged)),
      m_parts(m_sinks.size()) {}

// Events that began in this life of the process are in the sinks' queues already and need not come again.
std::optional<HandledEvent> NotificationPipeline::lastHandledEvent() {
    const std::optional<unsigned long long> last = m_ledger.lastBegun();
    if (!last) return std::nullopt;
    return HandledEvent{*last, m_ledger.store()};
}

void NotificationPipeline::onConnected(const BackendState& state) {
    const MutexLock handling(m_handling);
    if (!m_ledger.lastBegun()) {
        startAfter(state.lastSequence, state.store);
    } else if (state.isAnother) {
        startAfter(0, state.store);
    } else if (!state.store.empty()) {
        m_ledger.setStore(state.store);  // it may be the first time that the backend tells it
    }
    std::vector<unsigned int> serials;
    serials.reserve(state.alarms.size());
    for (const ActiveAlarm& alarm : state.alarms) serials.push_back(alarm.serial);
    m_comparedAt = state.lastSequence;
    m_listedUpTo = state.listedUpTo;
    m_held.clear();
    if (m_listedUpTo > m_comparedAt) m_held.insert(serials.begin(), serials.end());
    const TamrelBinding::Difference difference = m_binding.compare(serials);
    if (difference.added + difference.deleted > 0) {
        logLine<lines::REPOSITORY_MATCHED>(difference.added, difference.deleted);
    }
    m_alarmsChanged();
}

// The ledger last: without its word all of this is done again at the next contact.
void NotificationPipeline::startAfter(unsigned long long sequence, const std::string& store) {
    for (NotificationSink* sink : m_sinks) sink->startAfter(sequence);
    m_ledger.startAfter(sequence, store);
}

void NotificationPipeline::onEvent(const AlarmEvent& event, const CTLVRecordV3& record) {
    MutexLock handling(m_handling);
    // Without memory the event has not begun, and comes again.
    const std::optional<Ticket> ticket = retryForASecond([&]() REQUIRES(m_handling) {
        return mayBegin(handling) ? std::optional<Ticket>(m_ledger.begin(event.sequence)) : std::nullopt;
    });
    if (!ticket) return;
    struct Open {
        ~Open() { ledger.settle(ticket); }
        EventLedger& ledger;
        const Ticket ticket;
    } const open{m_ledger, *ticket};
    ++m_events;
    std::optional<bool> changes;
    const bool followed = withMemory<lines::REPOSITORY_CANNOT_FOLLOW>(
        event, [&]() REQUIRES(m_handling) { follow(event, record, changes); });
    if (!followed) ++m_badRecords;
    m_alarmsChanged();
    std::optional<NotificationDelivery::Begun> begun;
    if (!withMemory<lines::EVENT_SKIPPED>(event, [&] { begun.emplace(m_delivery.begin(event, open.ticket)); })) {
        ++m_notBuilt;
        return;
    }
    unsigned int place = 0;
    for (INotifyMsgHandler* handler : m_handlers) notify(*handler, place++, *begun, record);
}

// Waits while traps of the event are wanted and cannot be built; false when the wait ended because the path stops.
bool NotificationPipeline::mayBegin(MutexLock& handling) {
    while (!m_stopping) {
        if (allDestinations().empty() || !m_definitions.fault()) return true;
        m_stopped.wait_for(handling, m_definitions.pause());
    }
    return false;
}

void NotificationPipeline::stop() {
    const MutexLock handling(m_handling);
    m_stopping = true;
    m_stopped.notify_all();
}

void NotificationPipeline::onDisconnected() {
    m_alarmsChanged();  // whoever reads now learns how things are, not how they were
}

NotificationPipeline::Counters NotificationPipeline::counters() const {
    Counters counters;
    counters.events = m_events;
    counters.notBuilt = m_notBuilt;
    counters.badRecords = m_badRecords;
    return counters;
}

// Whether the repository is behind the event. The module takes an alarm that it has already for an error.
bool NotificationPipeline::changesList(const AlarmEvent& event) {
    if (event.sequence <= m_comparedAt) return false;
    if (event.sequence > m_listedUpTo) {
        if (!m_held.empty()) m_held = {};
        return true;
    }
    if (event.serial == 0) return true;  // who follows it says what is wrong
    return event.raised ? m_held.insert(event.serial).second : m_held.erase(event.serial) > 0;
}

// `changes` is whether the event changes the repository: it is asked once.
void NotificationPipeline::follow(const AlarmEvent& event, const CTLVRecordV3& record, std::optional<bool>& changes) {
    try {
        if (!changes) changes = changesList(event);
        if (*changes) m_binding.follow(record);
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception& fault) {
        if (mayComplain()) logLine<lines::REPOSITORY_CANNOT_FOLLOW>(nameOf(event), fault.what());
        ++m_badRecords;
    }
}

// What the handlers choose from.
const TrapDestinationMap& NotificationPipeline::allDestinations() {
    static const TrapDestinationMap NONE;
    const TrapDestinationMap* only = &NONE;
    bool several = false;
    bool same = m_merged != nullptr;
    for (std::size_t i = 0; i < m_sinks.size(); ++i) {
        Destinations now = m_sinks[i]->destinations();
        if (!now->empty()) {
            several = several || !only->empty();
            only = now.get();
        }
        if (now != m_parts[i]) same = false;
        m_parts[i] = std::move(now);
    }
    if (!several || !same) m_merged.reset();
    if (!several) return *only;
    if (m_merged == nullptr) {
        const auto merged = std::make_shared<TrapDestinationMap>();
        for (const Destinations& part : m_parts) merged->insert(part->begin(), part->end());
        m_merged = merged;
    }
    return *m_merged;
}

void NotificationPipeline::notify(INotifyMsgHandler& handler, unsigned int place,
                                  const NotificationDelivery::Begun& begun, const CTLVRecordV3& record) {
    NotificationDelivery::Delivery delivery{begun, place, m_parts, {}, nullptr};
    bool prepared = false;
    const bool delivered = withMemory<lines::EVENT_SKIPPED>(begun.event, [&]() REQUIRES(m_handling) {
        if (!prepared) prepare(handler, record, delivery);
        prepared = true;
        m_delivery.deliver(delivery);
    });
    if (!delivered) ++m_notBuilt;
}

// Lets the handler choose the destinations, and build the trap if it chose any.
void NotificationPipeline::prepare(INotifyMsgHandler& handler, const CTLVRecordV3& record,
                                   NotificationDelivery::Delivery& delivery) {
    const AlarmEvent& event = delivery.begun.event;
    try {
        const TrapDestinationMap& all = allDestinations();
        delivery.chosen.clear();
        handler.filterTrapMap(all, delivery.chosen);
        if (!delivery.chosen.empty()) delivery.trap = build(handler, event, record);
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception& fault) {
        if (mayComplain()) logLine<lines::EVENT_WITHOUT_TRAP>(nameOf(event), fault.what());
        ++m_notBuilt;
    }
}

bool NotificationPipeline::mayComplain() {
    const auto leftOut = m_complaints.take(LogRateLimiter::TimePoint::clock::now());
    m_quiet = !leftOut;
    if (leftOut.value_or(0) > 0) logLine<lines::EVENT_LINES_LEFT_OUT>(*leftOut);
    return !m_quiet;
}

// Null when the handler cannot use the record.
std::shared_ptr<const Notification> NotificationPipeline::build(INotifyMsgHandler& handler, const AlarmEvent& event,
                                                                const CTLVRecordV3& record) {
    Agentpp::Vbx* raw = nullptr;
    struct Release {
        Agentpp::Vbx*& bindings;
        ~Release() { delete[] bindings; }
    } const release{raw};
    const ModuleLineLimit limit(m_quiet ? 0 : LINES_OF_A_RENDERING);
    const int result = handler.constructAlarmTrapVb(record, raw);
    if (result != 0 || raw == nullptr) {
        if (mayComplain()) logLine<lines::EVENT_NOT_RENDERED>(nameOf(event), result);
        ++m_notBuilt;
        return nullptr;
    }
    const Agentpp::Oidx& trapOid = handler.getTrapOid(uint64Of(record, alarm_tag::ID));
    int leftOut = 0;
    auto trap = std::make_shared<Notification>(trapOf(trapOid, raw, handler.getTrapVbLen(), leftOut));
    if (leftOut > 0) {
        logLine<lines::BINDINGS_LEFT_OUT>(nameOf(event), leftOut);
    }
    if (trap->oid.empty()) {
        if (mayComplain()) logLine<lines::TRAP_OID_UNUSABLE>(nameOf(event), trapOid.get_printable());
    }
    m_quiet = false;
    return trap;
}

}  // namespace vrx
