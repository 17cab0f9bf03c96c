// The agent's subscription to the backend's alarm events: one thread that stays connected, finds out which alarms are
// active and delivers each event in the order of its number.
//
//     AlarmEventSource source(listener);
//     source.start();
//     ...
//     source.stop();  // the listener is not called any more
//
// On each connection the listener is asked for the last event it handled, hears with onConnected() where the store
// stands, then gets every later event once. Events that came up while either side was away are therefore delivered
// after the reconnect. A listener that remembers an event durably after it has handled it sees every event at least
// once.
//
// Threads: start() and stop() from one thread, the listener is called from the source's thread, counters() from any.
// Errors: whatever the backend sends or fails to send ends in a log line and a new attempt, with pauses of 50 ms to 1
// s.
#pragma once

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "host/base/backoff.h"
#include "host/base/fault_line.h"
#include "host/base/log_rate_limiter.h"
#include "host/transport/alarm_event.h"
#include "host/transport/backend_connection.h"
#include "host/transport/backend_options.h"
#include "host/transport/backend_protocol.h"

namespace vrx {

// An alarm as the backend lists it among the active ones.
struct ActiveAlarm {
    unsigned int serial = 0;
    unsigned int level = 0;  // as the backend grades it; 0 when it does not say
};

// The last event that was handled.
struct HandledEvent {
    unsigned long long sequence = 0;
    std::string store;  // identity of the store that numbered it; empty: not known
};

// What the backend had when the subscription began.
struct BackendState {
    unsigned long long lastSequence = 0;  // number of the store's last event before the alarms were read
    unsigned long long listedUpTo = 0;    // and after: the list may be ahead of the events up to here
    std::vector<ActiveAlarm> alarms;      // the active ones, ascending by serial number
    std::string store;                    // the store's identity; empty: the backend does not tell
    bool isAnother = false;               // store than that of lastHandledEvent(): all its events follow, from 1 on
};

class AlarmEventSource {
public:
    // What a listener throws is logged, and the source goes on with the next event.
    class Listener {
    public:
        virtual ~Listener() = default;

        // The last event handled, in this life of the process or an earlier one; nothing when none ever was. Asked
        // before each subscription.
        virtual std::optional<HandledEvent> lastHandledEvent() = 0;

        // Connected. The events after lastHandledEvent() follow, and where that was nothing those after
        // state.lastSequence: a listener remembers that number then, and the store's identity with it.
        virtual void onConnected(const BackendState& state) = 0;

        // An alarm was raised or cleared: what its record says, and the record itself, in which nothing but the event's
        // number is checked.
        virtual void onEvent(const AlarmEvent& event, const CTLVRecordV3& record) = 0;

        // The connection that onConnected() told of is gone.
        virtual void onDisconnected() = 0;
    };

    struct Counters {
        unsigned long long connections = 0;  // subscriptions that began
        unsigned long long events = 0;       // delivered
        unsigned long long missing = 0;      // event numbers that were skipped: no longer kept by the backend
        unsigned long long malformed = 0;    // records without a number, or with one that was delivered already
    };

    // `listener` outlives the source. The first form takes addresses and command codes from the device configuration
    // and throws std::invalid_argument when they are faulty.
    explicit AlarmEventSource(Listener& listener);
    AlarmEventSource(const BackendOptions& options, const BackendCommands& commands, Listener& listener);
    ~AlarmEventSource();
    AlarmEventSource(const AlarmEventSource&) = delete;
    AlarmEventSource& operator=(const AlarmEventSource&) = delete;

    void start();
    void stop();  // returns within moments, unless the listener is at work
    Counters counters() const;
    std::string address() const { return m_options.address.text(); }  // of the backend

    // Whether the listener hears of every change soon: it is connected, was told so without an exception, and has every
    // event that the store had then. False from before onDisconnected() on. Any thread.
    bool isCurrent() const { return m_current; }

private:
    void run();
    void runConnection();
    void askStore(BackendConnection& connection, BackendState& state);
    std::vector<ActiveAlarm> askActiveAlarms(BackendConnection& connection);
    unsigned long long chooseStart(BackendState& state);
    unsigned long long subscribe(BackendConnection& connection, unsigned long long handled);
    void deliverEvents(BackendConnection& connection, unsigned long long handled);
    void deliver(const CTLVRecordV3& record, unsigned long long& handled);
    [[nodiscard]] bool mayComplain();  // whether another line about what the backend sends is written
    void noteHandled(unsigned long long sequence);
    void ask(BackendConnection& connection, std::unique_ptr<CTLVRecordV3> request, CR8KPackageV3& answer);
    void noteFailure(const char* reason);

    const BackendOptions m_options;
    const BackendCommands m_commands;
    Listener& m_listener;
    WakeFlag m_stop;
    std::thread m_thread;

    // of the source's thread
    Backoff m_backoff;
    LogRateLimiter m_complaints{60, std::chrono::seconds(60)};  // a backend may send what cannot be used without end
    FaultLine m_subscribing;
    std::optional<unsigned long long> m_currentAt;  // event with which the listener has come up with the store

    std::atomic<bool> m_current{false};
    std::atomic<unsigned long long> m_connections{0};
    std::atomic<unsigned long long> m_events{0};
    std::atomic<unsigned long long> m_missing{0};
    std::atomic<unsigned long long> m_malformed{0};
};

}  // namespace vrx
