// What vrxctl watch shows: the agent's status, the active alarms with their texts, the last notifications.
#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/notification_log/notification_log_file.h"
#include "tools/alarm_commands.h"
#include "tools/status_text.h"
#include "tools/trap_texts.h"

namespace vrx {

// As it was found at a moment. While the agent is away it stays as it was last.
struct Watched {
    using Time = std::chrono::system_clock::time_point;

    Time at;                             // of the look
    std::optional<Time> agentAwaySince;  // as far as we have seen
    std::string agentFault;              // why it does not answer
    std::optional<Time> statusAt;        // nothing: it has never answered
    StatusJson status = StatusJson::object();
    std::vector<std::string> troubles;  // what needs attention
    std::shared_ptr<const std::vector<ListedAlarm>> alarms = std::make_shared<std::vector<ListedAlarm>>();
    std::vector<TrapTexts> notifications;  // newest first
};

class Watcher {
public:
    explicit Watcher(std::size_t notifications) : m_keep(notifications) {}

    // Asks the agent and, when it says that something has changed, reads alarms and notifications anew. Takes no longer
    // than the patience with agent and backend. Throws nothing but for lack of memory.
    std::shared_ptr<const Watched> look();

private:
    void readConfiguration(const StatusJson& status);
    void readAlarms(Watched& watched);
    void readNotifications(Watched& watched);

    const std::size_t m_keep;
    std::shared_ptr<const Watched> m_last = std::make_shared<Watched>();
    // What the agent said when that was read; null: it has to be read.
    StatusJson m_configurationState;
    StatusJson m_alarmsState;
    StatusJson m_notificationsState;
    std::string m_alarmsFault;
    std::string m_notificationsFault;
};

}  // namespace vrx
