#include "host/transport/alarm_event.h"

#include "host/transport/backend_protocol.h"
#include "module/vrx_exception.h"

namespace vrx {

namespace {

template <typename Reader>
void readIfThere(const Reader& read) {
    try {
        read();
    } catch (const CVRX_Exception&) {
        return;  // the default stands
    }
}

bool isSet(const CTLVRecordV3& record, unsigned short tag) {
    bool set = false;
    readIfThere([&] { set = uint64Of(record, tag) != 0; });
    return set;
}

}  // namespace

AlarmEvent alarmEventOf(std::uint64_t sequence, const CTLVRecordV3& record) {
    AlarmEvent event;
    event.sequence = sequence;
    readIfThere([&] { event.alarmId = uint64Of(record, alarm_tag::ID); });
    readIfThere([&] { event.serial = uint32Of(record, alarm_tag::SERIAL); });
    readIfThere([&] { event.level = uint32Of(record, alarm_tag::LEVEL); });
    readIfThere([&] { event.parameters = textOf(record, alarm_tag::PARAMETERS); });
    event.raised = !isSet(record, alarm_tag::ENDED) && !isSet(record, alarm_tag::SECOND_END);
    return event;
}

}  // namespace vrx
