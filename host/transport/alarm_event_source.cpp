#include "host/transport/alarm_event_source.h"

#include <algorithm>
#include <exception>
#include <stdexcept>

#include "host/base/local_socket.h"
#include "host/base/log_line.h"
#include "host/base/memory_retry.h"
#include "host/log_lines/events.h"
#include "host/transport/backend_result.h"
#include "host/transport/batch_reader.h"
#include "module/vrx_exception.h"

namespace vrx {

namespace {

using Clock = std::chrono::steady_clock;

// Active alarms asked for at once.
constexpr unsigned int SERIALS_PER_REQUEST = 1000;

// The backend sends something every 2 s; after this much silence it is taken for dead.
constexpr std::chrono::seconds LONGEST_SILENCE{6};

// Why there is no subscription, or none any more.
struct ConnectionLost : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// stop() was called.
struct Stopped {};

void check(BackendConnection::Result result, const BackendConnection& connection) {
    if (result == BackendConnection::Result::Cancelled) throw Stopped();
    if (result != BackendConnection::Result::Ok) throw ConnectionLost(connection.failure());
}

// Runs a call of the listener; what it throws must not end the subscription. But for lack of memory: what was not
// handled for that comes again with the next one.
template <typename Call>
void guarded(const char* what, const Call& call) {
    try {
        call();
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception& fault) {
        logLine<lines::LISTENER_FAILED>(what, fault.what());
    }
}

unsigned int levelOf(const CTLVRecordV3& record) {
    try {
        return uint32Of(record, alarm_tag::LEVEL);
    } catch (const CVRX_Exception&) {  // a backend that does not grade its alarms
        return 0;
    }
}

}  // namespace

AlarmEventSource::AlarmEventSource(Listener& listener)
    : AlarmEventSource(BackendOptions::fromDevice(), BackendCommands::fromDevice(), listener) {}

AlarmEventSource::AlarmEventSource(const BackendOptions& options, const BackendCommands& commands, Listener& listener)
    : m_options(options), m_commands(commands), m_listener(listener) {}

AlarmEventSource::~AlarmEventSource() {
    stop();
}

void AlarmEventSource::start() {
    if (m_thread.joinable()) return;
    m_stop.lower();
    m_thread = std::thread([this] { run(); });
}

void AlarmEventSource::stop() {
    if (!m_thread.joinable()) return;
    m_stop.raise();
    m_thread.join();
}

AlarmEventSource::Counters AlarmEventSource::counters() const {
    Counters counters;
    counters.connections = m_connections;
    counters.events = m_events;
    counters.missing = m_missing;
    counters.malformed = m_malformed;
    return counters;
}

void AlarmEventSource::run() {
    try {
        for (;;) {
            try {
                runConnection();
            } catch (const std::exception& fault) {
                noteFailure(fault.what());
            }
            m_backoff.failed(Clock::now());
            if (waitFor(-1, 0, m_backoff.nextTry(), m_stop.descriptor()) == Wait::Cancelled) return;
        }
    } catch (const Stopped&) {
        return;
    }
}

// One line when the subscription ends or does not come about, none for the attempts that follow.
void AlarmEventSource::noteFailure(const char* reason) {
    m_subscribing.begins([&] { logLine<lines::NOT_SUBSCRIBED>(m_options.address.text(), reason); });
}

// Ends only by an exception.
void AlarmEventSource::runConnection() {
    Expected<FileDescriptor> socket =
        connectSocket(m_options.address, Clock::now() + m_options.callDeadline, m_stop.descriptor());
    if (!socket) throw ConnectionLost(socket.failure());
    BackendConnection connection(*std::move(socket), m_options.packageLimit, m_stop.descriptor());

    // The store's last number first: an event that comes up from here on is among those subscribed to.
    BackendState state;
    askStore(connection, state);
    state.alarms = askActiveAlarms(connection);
    const unsigned long long handled = chooseStart(state);
    state.listedUpTo = std::max(subscribe(connection, handled), state.lastSequence);

    m_subscribing.ends();
    m_backoff.succeeded();
    ++m_connections;
    logLine<lines::SUBSCRIBED>(m_options.address.text(), handled, state.alarms.size());

    // Tells the listener of the end, however it comes.
    struct Connected {
        Connected(Listener& l, std::atomic<bool>& c) : listener(l), current(c) {}
        ~Connected() {
            current = false;
            retryForever([this] { guarded("the listener's onDisconnected", [this] { listener.onDisconnected(); }); });
        }
        Connected(const Connected&) = delete;
        Connected& operator=(const Connected&) = delete;
        Listener& listener;
        std::atomic<bool>& current;
    };
    const Connected connected(m_listener, m_current);
    m_currentAt.reset();
    guarded("the listener's onConnected", [&] {
        m_listener.onConnected(state);
        m_currentAt = state.lastSequence;
    });
    noteHandled(handled);
    deliverEvents(connection, handled);
}

void AlarmEventSource::ask(BackendConnection& connection, std::unique_ptr<CTLVRecordV3> request,
                           CR8KPackageV3& answer) {
    CR8KPackageV3 package;
    package.append(std::move(request));
    const auto bytes = encodePackage(package, m_options.packageLimit);
    if (!bytes) throw ConnectionLost("the package limit is too small for a request");
    const Deadline deadline = Clock::now() + m_options.callDeadline;
    check(connection.send(*bytes, deadline), connection);
    check(connection.receive(answer, deadline), connection);
    const int result = static_cast<int>(answer.head().uiHeadParam1);
    if (result != BACKEND_OK) throw ConnectionLost(std::string("refused: ") + backendResultText(result));
}

void AlarmEventSource::askStore(BackendConnection& connection, BackendState& state) {
    CR8KPackageV3 answer;
    ask(connection, std::make_unique<CTLVRecordV3>(m_commands.getBackendStatus, CTLVRecordV3::DEFAULT_BUCKETS), answer);
    state.lastSequence = uint64Of(*answer[0], status_tag::LAST_SEQUENCE);
    if (!answer[0]->has(status_tag::STORE)) return;
    state.store = textOf(*answer[0], status_tag::STORE);
    if (state.store.size() > LONGEST_STORE_IDENTITY) throw ConnectionLost("the identity of its store is too long");
}

// Until an answer is empty: one with fewer alarms than asked for may have been cut at the package limit.
std::vector<ActiveAlarm> AlarmEventSource::askActiveAlarms(BackendConnection& connection) {
    std::vector<ActiveAlarm> alarms;
    const BatchesRead read = readBatches(0, [&](unsigned long long after) -> std::optional<Batch> {
        auto last = static_cast<unsigned int>(after);
        auto request = std::make_unique<CTLVRecordV3>(m_commands.getCurrentAlarm, CTLVRecordV3::DEFAULT_BUCKETS);
        appendUint32(*request, alarm_tag::SERIAL, last);
        appendUint32(*request, alarm_tag::COUNT, SERIALS_PER_REQUEST);
        CR8KPackageV3 answer;
        ask(connection, std::move(request), answer);
        if (answer.records().empty()) return std::nullopt;
        for (const CTLVRecordV3* record : answer.records()) {
            const unsigned int serial = uint32Of(*record, alarm_tag::SERIAL);
            if (serial <= last) throw ConnectionLost("active alarms are not in the order of their serial numbers");
            alarms.push_back({serial, levelOf(*record)});
            last = serial;
        }
        return Batch{answer.records().size(), last};
    });
    if (read.end != BatchEnd::Complete) throw ConnectionLost("the list of active alarms does not end");
    return alarms;
}

// Where one side knows no identity the numbers alone decide.
unsigned long long AlarmEventSource::chooseStart(BackendState& state) {
    const std::optional<HandledEvent> remembered = m_listener.lastHandledEvent();
    if (!remembered) return state.lastSequence;
    if (!remembered->store.empty() && !state.store.empty() && remembered->store != state.store) {
        logLine<lines::STORE_IS_ANOTHER>(remembered->sequence, remembered->store, state.store);
    } else if (remembered->sequence > state.lastSequence) {
        logLine<lines::STORE_IS_YOUNGER>(remembered->sequence, state.lastSequence);
    } else {
        return remembered->sequence;
    }
    state.isAnother = true;
    return 0;
}

// The number of the store's last event, once it is done; 0 from a backend that does not tell.
unsigned long long AlarmEventSource::subscribe(BackendConnection& connection, unsigned long long handled) {
    auto request = std::make_unique<CTLVRecordV3>(m_commands.subscribeAlarm, CTLVRecordV3::DEFAULT_BUCKETS);
    appendUint64(*request, event_tag::HANDLED, handled);
    CR8KPackageV3 answer;
    ask(connection, std::move(request), answer);
    if (answer.records().empty() || !answer[0]->has(event_tag::LAST_SEQUENCE)) return 0;
    return uint64Of(*answer[0], event_tag::LAST_SEQUENCE);
}

void AlarmEventSource::deliverEvents(BackendConnection& connection, unsigned long long handled) {
    for (;;) {
        CR8KPackageV3 events;
        const Deadline deadline = Clock::now() + LONGEST_SILENCE;
        const BackendConnection::Result result = connection.receive(events, deadline);
        if (result == BackendConnection::Result::Timeout) throw ConnectionLost("the backend is silent");
        check(result, connection);
        for (const CTLVRecordV3* record : events.records()) {
            deliver(*record, handled);
            if (waitFor(-1, 0, Clock::now(), m_stop.descriptor()) == Wait::Cancelled) throw Stopped();
        }
    }
}

void AlarmEventSource::deliver(const CTLVRecordV3& record, unsigned long long& handled) {
    unsigned long long sequence = 0;
    try {
        sequence = uint64Of(record, event_tag::SEQUENCE);
    } catch (const std::exception& fault) {
        ++m_malformed;
        if (mayComplain()) logLine<lines::RECORD_WITHOUT_NUMBER>(fault.what());
        return;
    }
    if (sequence <= handled) {
        ++m_malformed;
        if (mayComplain()) logLine<lines::EVENT_OUT_OF_ORDER>(sequence, handled);
        return;
    }
    if (sequence > handled + 1) {
        m_missing += sequence - handled - 1;
        if (mayComplain()) logLine<lines::EVENTS_MISSING>(handled + 1, sequence - 1);
    }
    const AlarmEvent event = retryForASecond([&] { return alarmEventOf(sequence, record); });
    handled = sequence;
    ++m_events;
    guarded("the listener's onEvent", [&] { m_listener.onEvent(event, record); });
    noteHandled(sequence);
}

bool AlarmEventSource::mayComplain() {
    const auto leftOut = m_complaints.take(Clock::now());
    if (leftOut.value_or(0) > 0) logLine<lines::BACKEND_LINES_LEFT_OUT>(*leftOut);
    return leftOut.has_value();
}

void AlarmEventSource::noteHandled(unsigned long long sequence) {
    if (m_currentAt && sequence >= *m_currentAt) m_current = true;
}

}  // namespace vrx
