#include "host/agent/web/alarm_rows.h"

#include <ctime>

namespace vrx {

AlarmRows::AlarmRows(const TableSnapshot& snapshot) : m_snapshot(snapshot) {
    for (std::size_t i = 0; i < snapshot.columns(); ++i) {
        const oid number = snapshot.columnName(i).back();
        if (number < m_places.size()) m_places.at(number) = i;
    }
}

std::string_view AlarmRows::text(std::size_t row, alarm_table::Column column) const {
    const auto place = m_places.at(column);
    return place ? m_snapshot.value({*place, row}).octets : std::string_view();
}

std::uint64_t AlarmRows::number(std::size_t row, alarm_table::Column column) const {
    const auto place = m_places.at(column);
    return place ? m_snapshot.value({*place, row}).number : 0;
}

FaultLevel AlarmRows::level(std::size_t row) const {
    const std::uint64_t level = number(row, alarm_table::LEVEL);
    return level >= 1 && level <= FAULT_LEVELS ? static_cast<FaultLevel>(level) : FaultLevel::Warning;
}

// Of a DateAndTime with its zone.
std::int64_t AlarmRows::raised(std::size_t row) const {
    constexpr std::size_t LENGTH = 11;
    const std::string_view octets = text(row, alarm_table::RAISED);
    if (octets.size() != LENGTH) return 0;
    const auto at = [&](std::size_t i) { return static_cast<int>(static_cast<unsigned char>(octets[i])); };
    std::tm parts{};
    parts.tm_year = at(0) * 256 + at(1) - 1900;
    parts.tm_mon = at(2) - 1;
    parts.tm_mday = at(3);
    parts.tm_hour = at(4);
    parts.tm_min = at(5);
    parts.tm_sec = at(6);
    const int east = (at(9) * 60 + at(10)) * 60;
    return ::timegm(&parts) + (octets[8] == '+' ? -east : east);
}

}  // namespace vrx
