#include "tools/watch/alarm_choice.h"

#include <algorithm>
#include <stdexcept>
#include <string_view>
#include <tuple>

namespace vrx {

namespace {

char lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool contains(std::string_view text, std::string_view part) {
    return std::search(text.begin(), text.end(), part.begin(), part.end(),
                       [](char left, char right) { return lower(left) == lower(right); }) != text.end();
}

// Of each two with what is asked for alike, the newer one is first.
bool isBefore(const ListedAlarm& left, const ListedAlarm& right, AlarmOrder order) {
    const auto level = [](const ListedAlarm& alarm) { return faultLevelOf(alarm.level); };
    if (order == AlarmOrder::Level && level(left) != level(right)) return level(left) < level(right);
    if (order == AlarmOrder::Name && left.name != right.name) return left.name < right.name;
    return std::tie(left.raisedAt, left.serial) > std::tie(right.raisedAt, right.serial);
}

}  // namespace

const char* textOf(AlarmOrder order) {
    constexpr const char* TEXTS[ALARM_ORDERS] = {"newest first", "by level", "by name"};
    return TEXTS[static_cast<std::size_t>(order)];
}

FaultLevel faultLevelNamed(const std::string& name) {
    for (const FaultLevel level : {FaultLevel::Critical, FaultLevel::Major, FaultLevel::Minor, FaultLevel::Warning}) {
        if (name == textOf(level)) return level;
    }
    throw std::invalid_argument("\"" + name + "\" is no level");
}

bool AlarmChoice::takes(const ListedAlarm& alarm) const {
    if (faultLevelOf(alarm.level) > least) return false;
    const std::string numbers[] = {std::to_string(alarm.serial), std::to_string(alarm.alarmId)};
    return contains(alarm.name, text) || contains(alarm.location, text) || contains(alarm.detail, text) ||
           contains(alarm.advice, text) || contains(numbers[0], text) || contains(numbers[1], text);
}

std::vector<const ListedAlarm*> chosen(const std::vector<ListedAlarm>& alarms, const AlarmChoice& choice,
                                       AlarmOrder order) {
    std::vector<const ListedAlarm*> taken;
    for (const ListedAlarm& alarm : alarms) {
        if (choice.takes(alarm)) taken.push_back(&alarm);
    }
    std::sort(taken.begin(), taken.end(),
              [order](const ListedAlarm* left, const ListedAlarm* right) { return isBefore(*left, *right, order); });
    return taken;
}

std::string titleOf(const ListedAlarm& alarm) {
    const std::string name =
        alarm.name.empty() ? "alarm " + std::to_string(alarm.alarmId) + " (not defined)" : alarm.name;
    return alarm.location.empty() ? name : name + ": " + alarm.location;
}

}  // namespace vrx
