// Notification records and the definitions that they name.
#pragma once

#include <memory>
#include <vector>

#include "tests/alarm/alarm_files.h"

// 2026-01-02 03:04:05 UTC in its three forms, and a second and an hour later.
constexpr unsigned long long RAISED = 1767323045ULL;
const std::string RAISED_OCTETS("\x07\xEA\x01\x02\x03\x04\x05\x00+\x00\x00", 11);
constexpr const char* RAISED_TEXT = "2026-01-02,03:04:05.0,+00:00";
constexpr unsigned long long ENDED = RAISED + 1;
constexpr const char* ENDED_TEXT = "2026-01-02,03:04:06.0,+00:00";
constexpr unsigned long long SECOND_END = RAISED + 3600;
constexpr const char* SECOND_END_TEXT = "2026-01-02,04:04:05.0,+00:00";

// The record of an active disk fault. `instead`: cells that replace the one with their tag.
inline TlvRecord notification(const std::vector<TlvCell>& instead = {}) {
    TlvRecord record = recordOf(7, u64(1, DISK_FAULT), u32(2, 5), u32(3, 42), u64(4, RAISED), u64(5, 0), u64(6, 0),
                                text(8, "7,CTE0&#44;A,1"));
    for (const TlvCell& cell : instead) {
        for (TlvCell& own : record.cells) {
            if (own.tag == cell.tag) own = cell;
        }
    }
    return record;
}

inline TlvRecord notificationWithout(unsigned short tag) {
    TlvRecord record = notification();
    std::vector<TlvCell> kept;
    for (const TlvCell& cell : record.cells) {
        if (cell.tag != tag) kept.push_back(cell);
    }
    record.cells = kept;
    return record;
}
