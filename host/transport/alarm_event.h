// What an alarm record of the backend says of the alarm, as far as anything on the way of its traps wants to know. The
// event source reads it, once; later stages take it from here.
//
// Threads: any.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

class CTLVRecordV3;

namespace vrx {

struct AlarmEvent {
    std::uint64_t sequence = 0;          // number of the event in the backend's store
    std::uint64_t alarmId = 0;           // of the definition
    std::uint32_t serial = 0;            // of this alarm
    bool raised = true;                  // else it has ended
    std::optional<std::uint32_t> level;  // as the backend grades it
    std::string parameters;              // which object it is about
};

// What is missing or unreadable stays as it is above. Throws std::bad_alloc only.
AlarmEvent alarmEventOf(std::uint64_t sequence, const CTLVRecordV3& record);

}  // namespace vrx
