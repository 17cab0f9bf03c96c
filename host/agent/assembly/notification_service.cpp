#include "host/agent/assembly/notification_service.h"

#include <chrono>
#include <exception>
#include <list>
#include <new>
#include <string>

#include "host/base/fault_line.h"
#include "host/base/log_line.h"
#include "host/destinations/trap_api.h"
#include "host/log_lines/events.h"
#include "host/log_lines/traps.h"
#include "platform/notify_handler.h"
#include "platform/snmp_trap_api.h"
#include "platform/vrx_utility.h"

namespace vrx {

namespace {

constexpr std::chrono::seconds LIST_INTERVAL{1};  // between two attempts to read the list of trap destinations

}  // namespace

// Hands the list of trap destinations to the sender, whole changes in their order.
class NotificationService::DestinationReader {
public:
    explicit DestinationReader(TrapSender& sender) : m_sender(&sender) {}

    // Whether it was there. One line for each change of state.
    bool read() {
        const MutexLock lock(m_mutex);
        if (m_sender == nullptr) return false;
        std::list<tTrapDestInfo> destinations;
        const int result = CSNMP_TrapApi::getAllTrapAddr(destinations);
        if (result != 0) {
            m_reading.begins([&] { logLine<lines::DESTINATIONS_UNREADABLE>(result); });
            return false;
        }
        m_reading.ends([] { logLine<lines::DESTINATIONS_READABLE>(); });
        m_sender->setDestinations(destinations);
        return true;
    }

    void stop() {
        const MutexLock lock(m_mutex);
        m_sender = nullptr;
    }

private:
    Mutex m_mutex;
    TrapSender* m_sender GUARDED_BY(m_mutex);  // null after stop()
    FaultLine m_reading;
};

void NotificationService::Feed::onConnected(const BackendState& state) {
    m_service.onGap();
    m_service.m_alarms.onConnected(state);
}

void NotificationService::Feed::onEvent(const AlarmEvent& event, const CTLVRecordV3& record) {
    event.serial == 0 ? m_service.onGap() : m_service.onEvent(event);  // 0: whose row it changed is not known
    m_service.m_alarms.onEvent(event, record);
}

void NotificationService::Feed::onDisconnected() {
    m_service.onGap();
    m_service.m_alarms.onDisconnected();
}

NotificationService::NotificationService(AgentLoop& loop, std::function<void()> alarmsChanged)
    : m_sender(loop, TrapOptions::fromDevice(), m_transport),
      m_informs(loop, m_informTransport, VRX_Utility::getVRXRootEnv() + "/state/informs.db",
                TrapOptions::fromDevice().resolveInterval),
      m_log(VRX_Utility::getVRXRootEnv() + "/state/notification_log.db"),
      m_ledger(VRX_Utility::getVRXRootEnv() + "/state/notifications.db", [this] { m_log.flushWhatCanBe(); }),
      m_binding(CNotifyHandler::instance()->handlers()),
      m_definitions(m_binding),
      m_delivery(loop, {&m_sender, &m_informs}, m_ledger, m_log),
      m_pipeline(CNotifyHandler::instance()->handlers(), m_binding, m_definitions, m_delivery, m_ledger,
                 std::move(alarmsChanged)),
      m_alarms(m_pipeline),
      m_source(m_feed),
      m_reader(std::make_shared<DestinationReader>(m_sender)),
      m_nextAttempt(loop, [this] { begin(); }),
      m_definitionsRead(loop, [this] { onDefinitionsRead(); }),
      m_loader("definitions", std::chrono::milliseconds(0)) {}

NotificationService::~NotificationService() {
    try {
        stop();
    } catch (const std::exception& fault) {  // the parts come to their end all the same
        logFault<lines::NOTIFICATION_STATUS_UNREADABLE>(fault.what());
    }
}

void NotificationService::start() {
    m_running = true;
    m_loader.submit([this] {
        try {
            (void)m_definitions.fault();
        } catch (const std::bad_alloc&) {  // who needs them tries again
        }
        m_definitionsRead.request();
    });
    setTrapDestinationListener([reader = m_reader] { reader->read(); });
    begin();
}

// Without the list the events would be done with, and nobody told of them.
void NotificationService::begin() {
    if (!m_running) return;
    if (!m_reader->read()) {
        m_nextAttempt.start(LIST_INTERVAL);
        return;
    }
    m_sender.sendColdStart();
    m_informs.sendColdStart();
    m_source.start();
}

void NotificationService::setLimits(const NotificationLimits& limits) {
    m_log.setKept(limits.logged);
    m_sender.setMessageSize(limits.messageSize);
    m_sender.setHeartbeats(limits.heartbeats, VRX_Utility::getVRXRootEnv() + "/state/heartbeats");
    m_informs.setMessageSize(limits.messageSize);
    m_delivery.setLimits(limits.storms);
}

void NotificationService::configurationChanged() {
    m_reader->read();
    m_sender.refresh();
}

void NotificationService::stop() {
    if (!m_running) return;
    m_running = false;
    setTrapDestinationListener(nullptr);
    m_reader->stop();
    m_pipeline.stop();
    m_source.stop();
    m_delivery.stop();
    m_sender.stop();
    m_informs.stop();
    storeProgress();
    const NotificationPipeline::Counters counters = m_pipeline.counters();
    logLine<lines::EVENTS_HANDLED>(counters.events, counters.notBuilt);
}

// Now, and not when this object goes: a program whose end is held up leaves without destroying anything.
void NotificationService::storeProgress() {
    try {
        m_ledger.flush();
    } catch (const std::exception& fault) {
        logFault<lines::LAST_EVENT_LOST>(fault.what());
    }
    try {
        m_log.flush();
    } catch (const std::exception& fault) {
        logFault<lines::NOTIFICATION_LOG_LOST>(fault.what());
    }
}

NotificationStatus NotificationService::status() const {
    NotificationStatus status;
    status.path = m_pipeline.counters();
    status.source = m_source.counters();
    status.lastDone = m_ledger.lastDone();
    status.traps = m_sender.status();
    status.informs = m_informs.status();
    const std::map<std::string, NotificationDelivery::Paced> paced = m_delivery.paced();
    for (DestinationStatus& destination : status.traps.destinations) {
        const auto found = paced.find(trapDestinationKey(destination.index));
        if (found == paced.end()) continue;
        destination.held = found->second.held;
        destination.suppressed = found->second.suppressed;
    }
    status.definitionsFault = m_definitions.lastFault();
    status.log = m_log.counters();
    status.alarms = m_alarms.state();
    status.backendAddress = m_source.address();
    return status;
}

}  // namespace vrx
