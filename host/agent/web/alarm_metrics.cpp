#include "host/agent/web/alarm_metrics.h"

#include <algorithm>
#include <numeric>
#include <stdexcept>
#include <tuple>
#include <utility>
#include <vector>

#include "host/agent/operator/prometheus_text.h"
#include "host/agent/web/alarm_rows.h"

namespace vrx {

namespace {

constexpr std::chrono::milliseconds PATIENCE{4'000};  // collectors wait for 10 s, unless they are told otherwise

struct Asked {
    std::size_t most = 0;
    AlarmReading reading;
};

constexpr std::pair<const char*, alarm_table::Column> LABELS[] = {{"name", alarm_table::TITLE},
                                                                  {"location", alarm_table::LOCATION},
                                                                  {"detail", alarm_table::DETAIL},
                                                                  {"advice", alarm_table::ADVICE}};

std::string head(const std::string& name, const char* help) {
    return "# HELP " + name + " " + help + "\n# TYPE " + name + " gauge\n";
}

std::string label(const char* name, std::string_view text) {
    return std::string(name) + "=\"" + labelValue(text) + "\"";
}

}  // namespace

AlarmMetrics::AlarmMetrics(AlarmList& alarms, std::function<std::size_t()> most)
    : m_alarms(alarms), m_most(std::move(most)) {}

std::string AlarmMetrics::text(AgentThreadCall& caller) {
    const auto asked = std::make_shared<Asked>();
    const auto begin = [this, asked](const AgentThreadCall::Finished& finished) {
        asked->most = m_most();
        if (asked->most == 0) {
            finished();
            return;
        }
        m_alarms.whenRead([asked, finished](const AlarmReading& reading) {
            asked->reading = reading;
            finished();
        });
    };
    Asked last;
    try {
        caller.run(begin, PATIENCE);
        last = *asked;
    } catch (const std::runtime_error&) {  // the backend takes its time, or the agent does
        last = caller.call<Asked>([this] { return Asked{m_most(), m_alarms.current()}; });
    }
    const AlarmReading& reading = last.reading;
    if (last.most == 0) return "";
    const bool isCurrent = reading.rows != nullptr && !reading.stale;
    std::string text =
        head("vrx_alarms_current", "1: the alarms here are those of the alarm table; 0: the last known.") +
        "vrx_alarms_current " + (isCurrent ? "1" : "0") + "\n";
    if (reading.rows == nullptr) return text;
    const MutexLock lock(m_mutex);
    if (m_made.text == nullptr || std::tie(m_made.reading, m_made.most) != std::tie(reading.number, last.most)) {
        m_made.text = std::make_shared<const std::string>(alarmSeries(*reading.rows, last.most));
        m_made.reading = reading.number;
        m_made.most = last.most;
    }
    return text + *m_made.text;
}

std::string alarmSeries(const TableSnapshot& snapshot, std::size_t most) {
    const AlarmRows alarms(snapshot);
    std::vector<std::tuple<std::int64_t, std::uint64_t, std::size_t>> rows;  // when, serial number, row
    for (std::size_t row = 0; row < snapshot.rows(); ++row) {
        rows.emplace_back(alarms.raised(row), alarms.number(row, alarm_table::SERIAL), row);
    }
    const std::size_t shown = std::min(most, rows.size());
    std::partial_sort(rows.begin(), rows.begin() + static_cast<std::ptrdiff_t>(shown), rows.end(), std::greater<>());

    std::string active = head("vrx_alarm", "An active alarm.");
    std::string starts = head("vrx_alarm_start_time_seconds", "When it was raised, in seconds since 1970.");
    for (std::size_t i = 0; i < shown; ++i) {
        const auto& [raised, serial, row] = rows[i];
        const std::string identity =
            "{" + label("node", alarms.text(row, alarm_table::NODE)) + ",serial=\"" + std::to_string(serial) + "\"";
        active += "vrx_alarm" + identity + ",alarm_id=\"" + std::to_string(alarms.number(row, alarm_table::ALARM_ID)) +
                  "\",number=\"" + std::to_string(alarms.number(row, alarm_table::NUMBER)) + "\",level=\"" +
                  textOf(alarms.level(row)) + "\"";
        for (const auto& [name, column] : LABELS) active += "," + label(name, alarms.text(row, column));
        active += "} 1\n";
        if (raised > 0) starts += "vrx_alarm_start_time_seconds" + identity + "} " + std::to_string(raised) + "\n";
    }
    return active + starts + head("vrx_alarms_left_out", "Active alarms beyond vrxMetricsAlarms, the oldest ones.") +
           "vrx_alarms_left_out " + std::to_string(rows.size() - shown) + "\n";
}

}  // namespace vrx
