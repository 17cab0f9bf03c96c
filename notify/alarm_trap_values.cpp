#include "notify/alarm_trap_values.h"

#include "alarm/alarm_record.h"
#include "alarm/snmp_alarm_iniparser.h"
#include "notify/snmp_tamrel_notify_handler.h"
#include "platform/snmp_util.h"
#include "vrxpub/record_access.h"

namespace {

unsigned long long readEventTime(const CTLVRecordV3& record, unsigned int category) {
    const auto raised = tlv::uint64Of(record, alarm_tag::RAISED);
    if (category != ALARM_CATEGORY_ENDED) return raised;
    const auto second = tlv::uint64Of(record, alarm_tag::SECOND_END);
    const auto first = tlv::uint64Of(record, alarm_tag::ENDED);
    return second != 0 ? second : first;
}

}  // namespace

// Reads 32 bits of times that readEventTime reads whole: an end time whose low 32 bits are 0 counts as none.
void CTamrelNotifyMsgHandler::getAlarmCategory(const CTLVRecordV3& record, unsigned int& category) {
    const bool ended =
        tlv::uint32Of(record, alarm_tag::SECOND_END) != 0 || tlv::uint32Of(record, alarm_tag::ENDED) != 0;
    category = ended ? ALARM_CATEGORY_ENDED : ALARM_CATEGORY_ACTIVE;
}

int readAlarmTrapValues(CTamrelNotifyMsgHandler& handler, const CTLVRecordV3& record, tAlarmTrapValues& values) {
    CAlarmConfigParser* parser = CAlarmConfigParser::instance();
    values.alarmId = tlv::uint64Of(record, alarm_tag::ID);
    const std::string parameters = tlv::textOf(record, alarm_tag::PARAMETERS);
    const int rc = parser->getAlarmInfo(values.alarmId, parameters, values.location, values.detail, values.level,
                                        values.name, values.suggestion);
    if (rc != 0) return rc;
    values.faultLevel = parser->converToQ7700AlarmLevel(static_cast<int>(tlv::uint32Of(record, alarm_tag::LEVEL)));
    handler.getAlarmCategory(record, values.category);
    values.serialNo = tlv::uint32Of(record, alarm_tag::SERIAL);
    const auto time = static_cast<long>(readEventTime(record, values.category));  // the host's conversions take a long
    CSnmpUtil::convertTime2DateTimeStr(values.timeText, time);
    if (handler.useDateAndTime()) {
        CSnmpUtil::convertTime2DateTime(values.time, time);
    } else {
        CSnmpUtil::convertTime2DateTimeStr(values.time, time);
    }
    return 0;
}
