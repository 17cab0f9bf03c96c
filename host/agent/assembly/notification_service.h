// Everything between the backend's alarm events and the traps on the wire, in one object for the program.
//
//     NotificationService notifications(loop, [&] { snapshots.markChanged(); });
//     notifications.start();
//     loop.run();
//     notifications.stop();
//
// Threads: agent thread only, except where another is named.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "host/agent/informs/inform_sender.h"
#include "host/agent/informs/net_snmp_inform_transport.h"
#include "host/agent/loop/object_worker.h"
#include "host/agent/loop/timer.h"
#include "host/agent/loop/wakeup.h"
#include "host/agent/notifications/active_alarms.h"
#include "host/agent/notifications/event_ledger.h"
#include "host/agent/notifications/notification_delivery.h"
#include "host/agent/notifications/notification_log.h"
#include "host/agent/notifications/notification_pipeline.h"
#include "host/agent/settings/notification_limits.h"
#include "host/agent/tamrel/alarm_definitions.h"
#include "host/agent/tamrel/tamrel_binding.h"
#include "host/agent/traps/net_snmp_trap_transport.h"
#include "host/agent/traps/trap_sender.h"
#include "host/base/mutex.h"
#include "host/transport/alarm_event_source.h"

namespace vrx {

struct NotificationStatus {
    NotificationPipeline::Counters path;
    AlarmEventSource::Counters source;
    std::optional<unsigned long long> lastDone;   // event up to which all are done with
    std::optional<std::string> definitionsFault;  // while it lasts events wait
    TrapStatus traps;
    InformStatus informs;
    NotificationLog::Counters log;
    ActiveAlarms::State alarms;
    std::string backendAddress;
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

    // Sends coldStart, then asks the backend for events; both wait while the list of trap destinations cannot be read.
    // The alarm definitions are loaded by a thread of its own, and what needs them waits; ones that cannot be loaded
    // are a log line. Throws std::bad_alloc, also without a thread.
    void start();

    // Called from the event source's thread before anybody else is told: an event has come; events may have been
    // missed. To be set before start().
    std::function<void(const AlarmEvent&)> onEvent;
    std::function<void()> onGap;

    // What the loop does when the definitions have been read, or cannot be. To be set before it runs.
    std::function<void()> onDefinitionsRead;

    // No notification is handled while somebody holds it; events wait. It waits for the one under way.
    Mutex& handling() { return m_pipeline.handling(); }

    // Lets the module read its alarm definitions anew; see AlarmDefinitions. REQUIRES: handling() and all workers held.
    void reloadDefinitions() { m_definitions.reload(); }

    // Why the module's alarm definitions cannot be used now; nothing when they can. Any thread.
    [[nodiscard]] std::optional<std::string> definitionsFault() { return m_definitions.fault(); }

    // What the configuration says, at the start and whenever it was read again.
    void setLimits(const NotificationLimits& limits);

    // A logged trap once more; see NotificationDelivery. Any thread.
    NotificationDelivery::SentAgain sendAgain(std::uint64_t number, const std::string& to) {
        return m_delivery.sendAgain(number, to);
    }

    // The receivers of informs, at the start and whenever the configuration was read again; see InformSender.
    void setInforms(const std::vector<InformDestination>& destinations, bool complete) {
        m_informs.setDestinations(destinations, complete);
    }

    // The configuration was read again: communities, users and destinations may have changed.
    void configurationChanged();

    // No event is taken and no trap sent from here on; events whose traps still wait come again in the next life of
    // the process. Logs what became of all.
    void stop();

    // Whether `alarmsChanged` is called soon for every change; see AlarmEventSource. Any thread.
    bool isCurrent() const { return m_source.isCurrent(); }

    NotificationStatus status() const;

    // The parts of it that cost nothing. Any thread.
    ActiveAlarms::State alarms() const { return m_alarms.state(); }
    TrapCounters trapTotals() const { return m_sender.totals(); }

private:
    class DestinationReader;

    // First to hear of the alarms.
    class Feed : public AlarmEventSource::Listener {
    public:
        explicit Feed(NotificationService& service) : m_service(service) {}
        std::optional<HandledEvent> lastHandledEvent() override { return m_service.m_alarms.lastHandledEvent(); }
        void onConnected(const BackendState& state) override;
        void onEvent(const AlarmEvent& event, const CTLVRecordV3& record) override;
        void onDisconnected() override;

    private:
        NotificationService& m_service;
    };

    void begin();
    void storeProgress();

    NetSnmpTrapTransport m_transport;
    TrapSender m_sender;
    NetSnmpInformTransport m_informTransport;
    InformSender m_informs;
    NotificationLog m_log;
    EventLedger m_ledger;  // its thread uses the log
    TamrelBinding m_binding;
    AlarmDefinitions m_definitions;
    NotificationDelivery m_delivery;
    NotificationPipeline m_pipeline;
    ActiveAlarms m_alarms;
    Feed m_feed{*this};
    AlarmEventSource m_source;
    std::shared_ptr<DestinationReader> m_reader;  // shared with the listener of the list, which another thread may run
    LoopTimer m_nextAttempt;                      // to read that list
    bool m_running = false;
    LoopWakeup m_definitionsRead;
    ObjectWorker m_loader;  // of the definitions; last: it uses the others
};

}  // namespace vrx
