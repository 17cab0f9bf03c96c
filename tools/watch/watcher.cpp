#include "tools/watch/watcher.h"

#include <algorithm>
#include <exception>
#include <new>
#include <utility>

#include "alarm/snmp_alarm_iniparser.h"
#include "host/base/device_config.h"
#include "host/base/product_root.h"
#include "tools/agent_call.h"

namespace vrx {

namespace {

constexpr std::chrono::seconds PATIENCE{10};

// These fields as they are now: what was read when they were the same is still true.
StatusJson stateOf(const StatusJson& status, std::initializer_list<const char*> fields) {
    StatusJson state = StatusJson::array();
    for (const char* field : fields) state.push_back(statusField(status, field));
    return state;
}

// Faults other than of memory become the text of `fault`.
template <typename Work>
bool attempted(std::string& fault, const Work& work) {
    try {
        work();
        fault.clear();
        return true;
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception& error) {
        fault = error.what();
        return false;
    }
}

StatusJson askedStatus() {
    StatusJson status = parsedAnswer(callAgent("GET", "/status", {}, PATIENCE));
    if (!status.is_object()) throw AgentCallError("the agent's answer is no status");
    return status;
}

}  // namespace

std::shared_ptr<const Watched> Watcher::look() {
    auto watched = std::make_shared<Watched>(*m_last);
    StatusJson status;
    std::vector<std::string> troubles;
    const bool answered = attempted(watched->agentFault, [&] {
        status = askedStatus();
        troubles = troublesIn(status);
    });
    watched->at = std::chrono::system_clock::now();
    if (answered) {
        watched->agentAwaySince.reset();
        watched->statusAt = watched->at;
        watched->status = std::move(status);
        watched->troubles = std::move(troubles);
        readConfiguration(watched->status);
        readAlarms(*watched);
        readNotifications(*watched);
        for (const std::string& fault : {m_alarmsFault, m_notificationsFault}) {
            if (!fault.empty()) watched->troubles.push_back(fault);
        }
    } else if (!watched->agentAwaySince) {
        watched->agentAwaySince = watched->at;
    }
    m_last = watched;
    return watched;
}

// Definitions may have changed with a reload, and where they are.
void Watcher::readConfiguration(const StatusJson& status) {
    StatusJson state = stateOf(status, {"/agent/pid", "/agent/reloads_taken"});
    if (state == m_configurationState) return;
    std::string fault;  // of a file that is being written: the agent has the one before, as we have
    if (!m_configurationState.is_null()) attempted(fault, reloadDeviceConfig);
    CAlarmConfigParser::destroy();
    m_alarmsState = nullptr;
    m_configurationState = std::move(state);
}

void Watcher::readAlarms(Watched& watched) {
    StatusJson state =
        stateOf(watched.status, {"/agent/pid", "/backend/connections", "/backend/store", "/alarms/changes"});
    if (state == m_alarmsState) return;
    const bool read = attempted(
        m_alarmsFault, [&watched] { watched.alarms = std::make_shared<std::vector<ListedAlarm>>(listAlarms()); });
    if (!read) {
        m_alarmsFault = "the list of alarms cannot be read: " + m_alarmsFault;
        m_alarmsState = nullptr;
        return;
    }
    m_alarmsState = std::move(state);
}

void Watcher::readNotifications(Watched& watched) {
    StatusJson state = stateOf(watched.status, {"/agent/pid", "/notification_log/written"});
    if (state == m_notificationsState || m_keep == 0) return;
    std::vector<TrapTexts> texts;
    const bool read = attempted(m_notificationsFault, [&] {
        if (statusField(watched.status, "/notification_log/kept") == 0) return;  // there may be no file
        NotificationLogFilter filter;
        filter.last = m_keep;
        NotificationLogReader(productPath("state/notification_log.db"))
            .list(filter, [&texts](const LoggedNotification& entry) { texts.push_back(trapTexts(entry)); });
    });
    if (!read) {
        m_notificationsFault = "the notification log cannot be read: " + m_notificationsFault;
        m_notificationsState = nullptr;
        return;
    }
    watched.notifications.assign(texts.rbegin(), texts.rend());
    m_notificationsState = std::move(state);
}

}  // namespace vrx
