// Alarm records as the backend pushes them.
#pragma once

#include <memory>

#include "host/transport/backend_protocol.h"

namespace vrx {

// Raised, or ended when `ended` is not 0.
inline std::unique_ptr<CTLVRecordV3> alarmRecord(unsigned long long alarmId, unsigned int serial,
                                                 unsigned long long ended = 0) {
    auto record = std::make_unique<CTLVRecordV3>(1, CTLVRecordV3::DEFAULT_BUCKETS);
    appendUint64(*record, alarm_tag::ID, alarmId);
    appendUint32(*record, alarm_tag::LEVEL, 5);
    appendUint32(*record, alarm_tag::SERIAL, serial);
    appendUint64(*record, alarm_tag::RAISED, 1000);
    appendUint64(*record, alarm_tag::ENDED, ended);
    appendUint64(*record, alarm_tag::SECOND_END, 0);
    appendText(*record, alarm_tag::PARAMETERS, "");
    return record;
}

// One that lacks everything.
inline std::unique_ptr<CTLVRecordV3> emptyRecord() {
    return std::make_unique<CTLVRecordV3>(1, CTLVRecordV3::DEFAULT_BUCKETS);
}

}  // namespace vrx
