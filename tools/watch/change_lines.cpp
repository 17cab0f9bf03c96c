#include "tools/watch/change_lines.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "tools/terminal_text.h"
#include "tools/time_text.h"

namespace vrx {

namespace {

// What is in one list and not in the other.
template <typename List>
List without(const List& list, const List& others) {
    List rest;
    for (const auto& one : list) {
        if (std::find(others.begin(), others.end(), one) == others.end()) rest.push_back(one);
    }
    return rest;
}

std::vector<const ListedAlarm*> bySerial(const std::vector<ListedAlarm>& alarms) {
    std::vector<const ListedAlarm*> sorted;
    sorted.reserve(alarms.size());
    for (const ListedAlarm& alarm : alarms) sorted.push_back(&alarm);
    std::sort(sorted.begin(), sorted.end(),
              [](const ListedAlarm* left, const ListedAlarm* right) { return left->serial < right->serial; });
    return sorted;
}

std::vector<const ListedAlarm*> without(const std::vector<ListedAlarm>& alarms,
                                        const std::vector<ListedAlarm>& others) {
    const auto left = bySerial(alarms);
    const auto right = bySerial(others);
    std::vector<const ListedAlarm*> rest;
    std::set_difference(left.begin(), left.end(), right.begin(), right.end(), std::back_inserter(rest),
                        [](const ListedAlarm* one, const ListedAlarm* other) {
                            return std::pair(one->serial, one->alarmId) < std::pair(other->serial, other->alarmId);
                        });
    return rest;
}

// How much more; counts that are lower began anew.
StatusJson grown(const StatusJson& counts, const StatusJson& before) {
    StatusJson more = StatusJson::object();
    for (const auto& [name, count] : counts.items()) {
        const auto now = count.get<std::uint64_t>();
        const auto then = before.value(name, std::uint64_t{0});
        more[name] = now >= then ? now - then : now;
    }
    return more;
}

StatusJson rowNamed(const StatusJson& rows, const char* field, const StatusJson& name) {
    for (const StatusJson& row : rows) {
        if (row.value(field, StatusJson()) == name) return row;
    }
    return StatusJson::object();
}

bool isSameAgent(const Watched& one, const Watched& other) {
    return statusField(one.status, "/agent/pid") == statusField(other.status, "/agent/pid");
}

constexpr struct {
    const char* list;
    const char* name;
    const char* what;
} DROPPING[] = {{"destinations", "number", "traps to trap destination"},
                {"informs", "destination", "informs to inform destination"}};

}  // namespace

std::vector<std::string> ChangeLines::next(std::shared_ptr<const Watched> watched) {
    addAgent(*watched);
    if (!watched->agentAwaySince) {
        addTroubles(*watched);
        if (m_last->statusAt) {  // else these are no changes
            addAlarms(*watched);
            addDropped(*watched);
        }
    }
    const std::string time = localTime(std::chrono::system_clock::to_time_t(watched->at)) + " ";
    for (std::string& line : m_lines) line = terminalText(line).insert(0, time);
    m_last = std::move(watched);
    return std::exchange(m_lines, {});
}

void ChangeLines::addAgent(const Watched& now) {
    if (now.agentAwaySince) {
        if (!m_last->agentAwaySince) m_lines.push_back("agent away: " + now.agentFault);
        return;
    }
    const std::string back =
        m_last->agentAwaySince
            ? " back after " + durationText(std::chrono::duration<double>(now.at - *m_last->agentAwaySince).count())
            : "";
    if (!m_last->statusAt || !isSameAgent(*m_last, now)) {
        m_lines.push_back(fmt::format("agent{}: vrx-agentd {}, up {}; backend {}, {} alarms active",
                                      m_last->statusAt ? " restarted" : "",
                                      statusText(statusField(now.status, "/agent/version")),
                                      durationText(statusField(now.status, "/agent/uptime_seconds")),
                                      statusField(now.status, "/backend/connected") == true ? "connected" : "away",
                                      statusText(statusField(now.status, "/alarms/by_level"))));
    } else if (!back.empty()) {
        m_lines.push_back("agent" + back);
    }
}

void ChangeLines::addTroubles(const Watched& now) {
    for (const std::string& text : without(m_last->troubles, now.troubles)) m_lines.push_back("trouble over: " + text);
    for (const std::string& text : without(now.troubles, m_last->troubles)) m_lines.push_back("trouble: " + text);
}

void ChangeLines::addAlarms(const Watched& now) {
    if (now.alarms == m_last->alarms) return;
    const auto add = [this](const char* what, const std::vector<const ListedAlarm*>& alarms) {
        for (const ListedAlarm* alarm : alarms) {
            if (!m_choice.takes(*alarm)) continue;
            m_lines.push_back(
                fmt::format("{} {} {} {}", what, alarm->serial, textOf(faultLevelOf(alarm->level)), titleOf(*alarm)));
        }
    };
    add("raised", without(*now.alarms, *m_last->alarms));
    add("cleared", without(*m_last->alarms, *now.alarms));
}

void ChangeLines::addDropped(const Watched& now) {
    const bool sameAgent = isSameAgent(*m_last, now);
    for (const auto& dropping : DROPPING) {
        const StatusJson former = m_last->status.value(dropping.list, StatusJson::array());
        for (const StatusJson& row : now.status.value(dropping.list, StatusJson::array())) {
            const StatusJson name = row.value(dropping.name, StatusJson());
            const StatusJson before = sameAgent ? rowNamed(former, dropping.name, name) : StatusJson::object();
            const std::string more = countsText(
                grown(row.value("dropped", StatusJson::object()), before.value("dropped", StatusJson::object())));
            if (more != "0") m_lines.push_back(fmt::format("dropped {} {} {}", more, dropping.what, statusText(name)));
        }
    }
}

}  // namespace vrx
