#include "host/services/alarm_event_source.h"

#include <exception>
#include <stdexcept>

#include "host/services/backend_result.h"
#include "host/services/logging.h"
#include "host/services/out_of_memory.h"
#include "module/vrx_exception.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr char LOG_NAME[] = "events";

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
        logLine(LOG_NAME, LogLevel::Error, std::string(what) + " failed: " + fault.what());
    }
}

unsigned int levelOf(const CTLVRecordV3& record) {
    try {
        return uint32Of(record, alarm_tag::LEVEL);
    } catch (const CVRX_Exception&) {  // a backend that does not grade its alarms
        return 0;
    }
}

std::vector<unsigned int> serialsOf(const std::vector<ActiveAlarm>& alarms) {
    std::vector<unsigned int> serials;
    serials.reserve(alarms.size());
    for (const ActiveAlarm& alarm : alarms) serials.push_back(alarm.serial);
    return serials;
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
                untilMemory([&] { noteFailure(fault.what()); });
            }
            m_backoff.failed(Clock::now());
            if (waitFor(-1, 0, m_backoff.nextTry(), m_stop.descriptor()) == Wait::Cancelled) return;
        }
    } catch (const Stopped&) {
        return;
    }
}

// One line when the subscription ends or does not come about, none for the attempts that follow.
void AlarmEventSource::noteFailure(const std::string& reason) {
    if (m_failureKnown) return;
    logLine(LOG_NAME, LogLevel::Warn, "no subscription at " + m_options.address.text() + ": " + reason);
    m_failureKnown = true;
}

// Ends only by an exception.
void AlarmEventSource::runConnection() {
    std::string failure;
    FileDescriptor socket =
        connectSocket(m_options.address, Clock::now() + m_options.callDeadline, m_stop.descriptor(), failure);
    if (!socket) throw ConnectionLost(failure);
    BackendConnection connection(std::move(socket), m_options.packageLimit, m_stop.descriptor());

    // The store's last number first: an event that comes up from here on is among those subscribed to.
    const unsigned long long lastSequence = askLastSequence(connection);
    const std::vector<ActiveAlarm> alarms = askActiveAlarms(connection);
    const unsigned long long handled = chooseStart(lastSequence);
    subscribe(connection, handled);

    m_failureKnown = false;
    m_backoff.succeeded();
    ++m_connections;
    logLine(LOG_NAME, LogLevel::Info,
            "subscribed at " + m_options.address.text() + " behind event " + std::to_string(handled) + ", " +
                std::to_string(alarms.size()) + " active alarms");

    // Tells the listener of the end, however it comes.
    struct Connected {
        Connected(Listener& l, std::atomic<bool>& c) : listener(l), current(c) {}
        ~Connected() {
            current = false;
            untilMemory([this] { guarded("the listener's onDisconnected", [this] { listener.onDisconnected(); }); });
        }
        Connected(const Connected&) = delete;
        Connected& operator=(const Connected&) = delete;
        Listener& listener;
        std::atomic<bool>& current;
    };
    const Connected connected(m_listener, m_current);
    m_currentAt.reset();
    guarded("the listener's onConnected", [&] {
        m_listener.onActiveAlarms(alarms);
        m_listener.onConnected(lastSequence, serialsOf(alarms));
        m_currentAt = lastSequence;
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

unsigned long long AlarmEventSource::askLastSequence(BackendConnection& connection) {
    CR8KPackageV3 answer;
    ask(connection, std::make_unique<CTLVRecordV3>(m_commands.getBackendStatus, CTLVRecordV3::DEFAULT_BUCKETS), answer);
    return uint64Of(*answer[0], status_tag::LAST_SEQUENCE);
}

// Until an answer is empty: one with fewer alarms than asked for may have been cut at the package limit.
std::vector<ActiveAlarm> AlarmEventSource::askActiveAlarms(BackendConnection& connection) {
    std::vector<ActiveAlarm> alarms;
    unsigned int start = 0;
    for (;;) {
        auto request = std::make_unique<CTLVRecordV3>(m_commands.getCurrentAlarm, CTLVRecordV3::DEFAULT_BUCKETS);
        appendUint32(*request, alarm_tag::SERIAL, start);
        appendUint32(*request, alarm_tag::COUNT, SERIALS_PER_REQUEST);
        CR8KPackageV3 answer;
        ask(connection, std::move(request), answer);
        if (answer.records().empty()) return alarms;
        for (const CTLVRecordV3* record : answer.records()) {
            const unsigned int serial = uint32Of(*record, alarm_tag::SERIAL);
            if (serial <= start) throw ConnectionLost("active alarms are not in the order of their serial numbers");
            alarms.push_back({serial, levelOf(*record)});
            start = serial;
        }
    }
}

unsigned long long AlarmEventSource::chooseStart(unsigned long long lastSequenceOfStore) {
    const std::optional<unsigned long long> remembered = m_listener.lastHandledEvent();
    if (!remembered) return lastSequenceOfStore;
    if (*remembered <= lastSequenceOfStore) return *remembered;
    logLine(LOG_NAME, LogLevel::Warn,
            "event " + std::to_string(*remembered) + " was handled, but the backend's last one is " +
                std::to_string(lastSequenceOfStore) + ": its store is a younger one, going on with its first event");
    return 0;
}

void AlarmEventSource::subscribe(BackendConnection& connection, unsigned long long handled) {
    auto request = std::make_unique<CTLVRecordV3>(m_commands.subscribeAlarm, CTLVRecordV3::DEFAULT_BUCKETS);
    appendUint64(*request, alarm_tag::HANDLED, handled);
    CR8KPackageV3 answer;
    ask(connection, std::move(request), answer);
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
        sequence = uint64Of(record, alarm_tag::SEQUENCE);
    } catch (const std::exception& fault) {
        ++m_malformed;
        logLine(LOG_NAME, LogLevel::Error, std::string("a record without a number is skipped: ") + fault.what());
        return;
    }
    if (sequence <= handled) {
        ++m_malformed;
        logLine(LOG_NAME, LogLevel::Error,
                "event " + std::to_string(sequence) + " behind event " + std::to_string(handled) + " is skipped");
        return;
    }
    if (sequence > handled + 1) {
        m_missing += sequence - handled - 1;
        logLine(LOG_NAME, LogLevel::Error,
                "events " + std::to_string(handled + 1) + " to " + std::to_string(sequence - 1) +
                    " are missing, the backend does not keep them any more");
    }
    handled = sequence;
    ++m_events;
    guarded("the listener's onEvent", [&] { m_listener.onEvent(sequence, record); });
    noteHandled(sequence);
}

void AlarmEventSource::noteHandled(unsigned long long sequence) {
    if (m_currentAt && sequence >= *m_currentAt) m_current = true;
}
