#include "notify/alarm_trap_values.h"

#include "alarm/snmp_alarm_iniparser.h"
#include "notify/snmp_tamrel_notify_handler.h"
#include "platform/snmp_util.h"
#include "vrxpub/vrx_tlv_record.h"

namespace {

// Cells of a notification record.
constexpr unsigned short TAG_ALARM_ID = 1;
constexpr unsigned short TAG_LEVEL = 2;
constexpr unsigned short TAG_SERIAL_NO = 3;
constexpr unsigned short TAG_TIME_RAISED = 4;
constexpr unsigned short TAG_END_TIME = 5;
constexpr unsigned short TAG_SECOND_END_TIME = 6;
constexpr unsigned short TAG_PARAMETERS = 8;

constexpr unsigned int CATEGORY_ACTIVE = 1;
constexpr unsigned int CATEGORY_ENDED = 2;

template <typename Number>
Number readNumber(const CTLVRecordV3& record, unsigned short tag) {
    const CTLVCell& cell = record[tag];
    cell.checkNumerical();
    return CTLVCell::ValueCast<Number>()(&cell);
}

std::string readText(const CTLVRecordV3& record, unsigned short tag) {
    const CTLVCell& cell = record[tag];
    cell.checkString();
    return cell.toString();
}

unsigned long long readEventTime(const CTLVRecordV3& record, unsigned int category) {
    const auto raised = readNumber<unsigned long long>(record, TAG_TIME_RAISED);
    if (category != CATEGORY_ENDED) return raised;
    const auto second = readNumber<unsigned long long>(record, TAG_SECOND_END_TIME);
    const auto first = readNumber<unsigned long long>(record, TAG_END_TIME);
    return second != 0 ? second : first;
}

}  // namespace

// Reads 32 bits of times that readEventTime reads whole: an end time whose low 32 bits are 0 counts as none.
void CTamrelNotifyMsgHandler::getAlarmCategory(const CTLVRecordV3& record, unsigned int& category) {
    const bool ended = readNumber<unsigned int>(record, TAG_SECOND_END_TIME) != 0 ||
                       readNumber<unsigned int>(record, TAG_END_TIME) != 0;
    category = ended ? CATEGORY_ENDED : CATEGORY_ACTIVE;
}

int readAlarmTrapValues(CTamrelNotifyMsgHandler& handler, const CTLVRecordV3& record, tAlarmTrapValues& values) {
    CAlarmConfigParser* parser = CAlarmConfigParser::instance();
    values.alarmId = readNumber<unsigned long long>(record, TAG_ALARM_ID);
    const std::string parameters = readText(record, TAG_PARAMETERS);
    const int rc = parser->getAlarmInfo(values.alarmId, parameters, values.location, values.detail, values.level,
                                        values.name, values.suggestion);
    if (rc != 0) return rc;
    values.faultLevel = parser->converToQ7700AlarmLevel(static_cast<int>(readNumber<unsigned int>(record, TAG_LEVEL)));
    handler.getAlarmCategory(record, values.category);
    values.serialNo = readNumber<unsigned int>(record, TAG_SERIAL_NO);
    const auto time = static_cast<long>(readEventTime(record, values.category));  // the host's conversions take a long
    CSnmpUtil::convertTime2DateTimeStr(values.timeText, time);
    if (handler.useDateAndTime()) {
        CSnmpUtil::convertTime2DateTime(values.time, time);
    } else {
        CSnmpUtil::convertTime2DateTimeStr(values.time, time);
    }
    return 0;
}
