#include "notify/alarm_trap_bindings.h"

#include <snmp_pp/vb.h>

#include <iterator>

#include "alarm/alarm_record.h"
#include "notify/alarm_trap_values.h"
#include "platform/snmp_basic_impl.h"

namespace {

using Agentpp::Vbx;
using Values = tAlarmTrapValues;

constexpr int FAULT_TYPE = 2;
constexpr int FAULT_TYPE_UNTRACKED = 3;

Snmp_pp::Counter64 counter64(unsigned long long number) {
    return Snmp_pp::Counter64(static_cast<unsigned int>(number >> 32), static_cast<unsigned int>(number));
}

struct tBinding {
    int number;         // after the base OID, and 0 after that
    const char* label;  // in the log
    void (*fill)(Vbx& vb, Values& values);
};

// clang-format off
constexpr tBinding BINDINGS[] = {
    { 1, "ReportingAlarmNodeCode      --- ", [](Vbx& vb, Values&)   { vb.set_value(CSNMPBasicImpl::getNodeCode()); }},
    { 2, "ReportingAlarmLocationInfo  --- ", [](Vbx& vb, Values& v) { vb.set_value(v.location.c_str()); }},
    { 3, "ReportingAlarmRestoreAdvice --- ", [](Vbx& vb, Values& v) { vb.set_value(v.suggestion.c_str()); }},
    { 4, "ReportingAlarmFaultTitle    --- ", [](Vbx& vb, Values& v) { vb.set_value(v.name.c_str()); }},
    { 5, "ReportingAlarmFaultType     --- ", [](Vbx& vb, Values& v) { vb.set_value(Snmp_pp::SnmpInt32(v.category == ALARM_CATEGORY_UNTRACKED ? FAULT_TYPE_UNTRACKED : FAULT_TYPE)); }},
    { 6, "ReportingAlarmFaultLevel    --- ", [](Vbx& vb, Values& v) { vb.set_value(Snmp_pp::SnmpInt32(v.faultLevel)); }},
    { 7, "ReportingAlarmAlarmID       --- ", [](Vbx& vb, Values& v) { vb.set_value(Snmp_pp::Gauge32(v.level)); }},
    { 8, "ReportingAlarmFaultTime     --- ", [](Vbx& vb, Values& v) { vb.set_value(v.time); }},
    { 9, "ReportingAlarmSerialNo      --- ", [](Vbx& vb, Values& v) { vb.set_value(Snmp_pp::Gauge32(v.serialNo)); }},
    {10, "ReportingAlarmAdditionInfo  --- ", [](Vbx& vb, Values& v) { vb.set_value(v.detail.c_str()); }},
    {11, "ReportingAlarmFaultCategory --- ", [](Vbx& vb, Values& v) { vb.set_value(Snmp_pp::SnmpInt32(static_cast<int>(v.category))); }},
    {12, "ReportingAlarmLocationAlmID --- ", [](Vbx& vb, Values& v) { vb.set_value(counter64(v.alarmId)); }},
    {13, "ReportingAlarmProductModel  --- ", [](Vbx& vb, Values&)   { vb.set_value(Snmp_pp::SnmpInt32(CSNMPBasicImpl::device_type)); }},
    {14, "ReportingAlarmProductSN     --- ", [](Vbx& vb, Values&)   { vb.set_value(CSNMPBasicImpl::product_sn.c_str()); }},
    {15, "ReportingAlarmProductSystemName     --- ", [](Vbx& vb, Values&) { vb.set_value(GetSystemName().c_str()); }},
};
// clang-format on

// The host is asked for its part in this order.
constexpr int FILL_ORDER[] = {1, 2, 3, 4, 6, 7, 8, 9, 10, 11, 5, 12, 13, 14, 15};

constexpr int FAULT_TIME = 8;

static_assert(std::size(BINDINGS) == ALARM_TRAP_BINDINGS && std::size(FILL_ORDER) == ALARM_TRAP_BINDINGS);

}  // namespace

void fillAlarmTrapBindings(const Agentpp::Oidx& baseOid, tAlarmTrapValues& values, Agentpp::Vbx* bindings,
                           const char** texts) {
    // The bindings' OIDs differ in one place: no text is read for each.
    const auto place = static_cast<unsigned int>(baseOid.len());
    Snmp_pp::Oid name(baseOid);
    name += Snmp_pp::SmiUINT32{};  // each binding's number
    name += Snmp_pp::SmiUINT32{0};
    for (const int number : FILL_ORDER) {
        const tBinding& row = BINDINGS[number - 1];
        Vbx& vb = bindings[number - 1];
        name[place] = static_cast<Snmp_pp::SmiUINT32>(number);
        vb.set_oid(name);
        row.fill(vb, values);
        if (texts == nullptr) continue;
        // The log shows the time as text, also where the trap carries octets.
        texts[number - 1] = number == FAULT_TIME ? values.timeText.get_printable() : vb.get_printable_value();
    }
}

std::string describeAlarmTrapBindings(const char** texts) {
    std::string description = "the content of alarm is \n";
    for (const tBinding& row : BINDINGS) {
        const char*& text = texts[row.number - 1];
        if (text == nullptr) text = "Unknown";
        description.append(row.label).append(text).append("\n");
    }
    return description;
}
