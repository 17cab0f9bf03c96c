// Words of the alarm records that a management backend sends, those that the module reads or writes: tags of cells, and
// the numbers in them. docs/backend-protocol.md has the records one by one.
//
// Active alarms, pushed events and the requests GET_CURRENT_ALARM and CLEAR_ALARM share the tags. The numbers are on
// the wire: a backend has them too. Constants only, which neither throw nor own anything.
#pragma once

namespace alarm_tag {
constexpr unsigned short TYPE = 0;          // UINT 4: an AlarmType in its low 16 bits
constexpr unsigned short ID = 1;            // UINT 8: key of the alarm definition
constexpr unsigned short LEVEL = 2;         // UINT 4: as the backend grades it
constexpr unsigned short SERIAL = 3;        // UINT 4: names one occurrence of an alarm; 0 is none
constexpr unsigned short RAISED = 4;        // UINT 8: seconds since 1970 UTC
constexpr unsigned short ENDED = 5;         // UINT 8: seconds since 1970 UTC, 0 while active
constexpr unsigned short SECOND_END = 6;    // UINT 8: as ENDED; goes before it where both are set
constexpr unsigned short CLEARED_BY = 7;    // STRING: who asks for the clearing
constexpr unsigned short PARAMETERS = 8;    // STRING: comma-separated values for the definition's placeholders
constexpr unsigned short COUNT = 9;         // UINT 4: alarms wanted
constexpr unsigned short NO_ALARM = 0xFFF;  // its presence marks a record that is not an alarm
}  // namespace alarm_tag

enum AlarmType : unsigned int { ALARM_TYPE_FAULT = 1, ALARM_TYPE_CLEAR = 8 };

// What the end times of a record make of its alarm.
constexpr unsigned int ALARM_CATEGORY_ACTIVE = 1;
constexpr unsigned int ALARM_CATEGORY_ENDED = 2;
constexpr unsigned int ALARM_CATEGORY_UNTRACKED = 3;  // of no record; callers of the repository operations may pass it
