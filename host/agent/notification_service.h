// Everything between the backend's alarm events and the traps on the wire, in one object for the program.
//
//     NotificationService notifications(loop, [&] { snapshots.markChanged(); });
//     notifications.start();
//     loop.run();
//     notifications.stop();
//
// Threads: agent thread only, except status().
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <optional>

#include "host/agent/notification_ledger.h"
#include "host/agent/notification_path.h"
#include "host/agent/tamrel_binding.h"
#include "host/agent/trap_sender.h"
#include "host/agent/trap_session.h"
#include "host/services/alarm_event_source.h"

struct NotificationStatus {
    NotificationPath::Counters path;
    AlarmEventSource::Counters source;
    std::optional<unsigned long long> lastDone;  // event up to which all are done with
    TrapStatus traps;
};

class NotificationService {
public:
    // After the modules are loaded and the engine has read its configuration. `alarmsChanged` is called from the event
    // source's thread. Throws std::invalid_argument for a faulty device configuration, SqliteError when the state
    // folder cannot be used.
    NotificationService(AgentLoop& loop, std::function<void()> alarmsChanged);
    ~NotificationService();
    NotificationService(const NotificationService&) = delete;
    NotificationService& operator=(const NotificationService&) = delete;

    // Sends coldStart, then asks the backend for events.
    void start();

    // No notification is handled while the lock lives; events wait. It waits for the one under way.
    std::unique_lock<std::mutex> hold() { return m_path.hold(); }

    // Lets the module read its alarm definitions anew; see TamrelBinding. REQUIRES: hold(), and all workers held.
    void reloadDefinitions() { m_binding.reloadDefinitions(); }

    // The configuration was read again: communities, users and destinations may have changed.
    void configurationChanged();

    // No event is taken and no trap sent from here on; events whose traps still wait come again in the next life of
    // the process. Logs what became of all.
    void stop();

    NotificationStatus status() const;

private:
    class DestinationReader;

    void storeProgress();

    NetSnmpTrapTransport m_transport;
    TrapSender m_sender;
    NotificationLedger m_ledger;
    TamrelBinding m_binding;
    NotificationPath m_path;
    AlarmEventSource m_source;
    std::shared_ptr<DestinationReader> m_reader;  // shared with the listener of the list, which another thread may run
    bool m_running = false;
};
