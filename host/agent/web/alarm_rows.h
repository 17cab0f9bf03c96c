// The rows of the alarm table by what is in them.
//
// Threads: any; constant as the snapshot is.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "host/agent/objects/table_snapshot.h"
#include "host/agent/tamrel/alarm_table.h"
#include "host/notification_log/fault_level.h"

namespace vrx {

class AlarmRows {
public:
    explicit AlarmRows(const TableSnapshot& snapshot);  // outlives it

    // Empty, or 0, where the row has no such column.
    std::string_view text(std::size_t row, alarm_table::Column column) const;
    std::uint64_t number(std::size_t row, alarm_table::Column column) const;

    FaultLevel level(std::size_t row) const;     // a warning where it is none of the others
    std::int64_t raised(std::size_t row) const;  // in seconds since 1970; 0 where that is unknown

private:
    const TableSnapshot& m_snapshot;
    std::array<std::optional<std::size_t>, alarm_table::ALARM_ID + 1> m_places;
};

}  // namespace vrx
