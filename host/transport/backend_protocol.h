// Words of the backend protocol: command codes, cell tags, and the cells they are written with and read from.
// docs/backend-protocol.md has the commands one by one.
//
// The backend, the agent's transport and the tools share this header; the command codes come from the device
// configuration, so that an installation can match the numbers of its backend.
#pragma once

#include <string>

#include "alarm/alarm_record.h"
#include "vrxpub/record_access.h"
#include "vrxpub/vrx_message_package.h"

namespace vrx {

// Record identifiers of requests and answers.
struct BackendCommands {
    unsigned long long getSystemWwn = 0;
    unsigned long long getBackendStatus = 0;
    unsigned long long getCurrentAlarm = 0;
    unsigned long long clearAlarm = 0;
    unsigned long long raiseAlarm = 0;
    unsigned long long subscribeAlarm = 0;

    // From section COMMAND of the device configuration. Throws std::invalid_argument when a code is missing, is no
    // number above 0 or stands for two commands.
    static BackendCommands fromDevice();
};

// Tags of events and subscriptions, beside those of alarm/alarm_record.h.
namespace event_tag {
constexpr unsigned short SEQUENCE = 20;       // UINT 8: number of an event
constexpr unsigned short HANDLED = 21;        // UINT 8: number of the last event that the subscriber has handled
constexpr unsigned short LAST_SEQUENCE = 22;  // UINT 8: number of the last event in the store
}  // namespace event_tag

// Tags of the answer to GET_SYSTEM_WWN.
namespace wwn_tag {
constexpr unsigned short WWN = 1;  // STRING: 16 hexadecimal digits
}

// Tags of the answer to GET_BACKEND_STATUS, all but the last UINT 8.
namespace status_tag {
constexpr unsigned short ACTIVE_ALARMS = 1;
constexpr unsigned short LAST_SEQUENCE = 2;    // number of the last event, 0 before the first one
constexpr unsigned short OLDEST_SEQUENCE = 3;  // number of the oldest event still kept, 0 when there is none
constexpr unsigned short CLIENTS = 4;          // connections now, subscribers included
constexpr unsigned short SUBSCRIBERS = 5;
constexpr unsigned short REQUESTS = 6;  // since the backend's start
constexpr unsigned short REFUSALS = 7;  // of these
constexpr unsigned short STORE = 8;     // STRING: identity of the store that the events are numbered in
}  // namespace status_tag

// The longest identity of a store in bytes.
constexpr std::size_t LONGEST_STORE_IDENTITY = 64;

// The longest parameter text of an alarm in bytes: its record, with the other cells, fits the 16-bit record length.
constexpr std::size_t LONGEST_ALARM_PARAMETERS = 60000;

// The cells of these records: vrxpub/record_access.h.
using tlv::appendText;
using tlv::appendUint32;
using tlv::appendUint64;
using tlv::textOf;
using tlv::uint32Of;
using tlv::uint64Of;

}  // namespace vrx
