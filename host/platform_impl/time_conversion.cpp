#include <ctime>
#include <string>

#include "platform/snmp_util.h"

namespace {

constexpr long LAST_YEAR = 65535;  // what the two octets of a DateAndTime hold

// Local time and its offset from UTC in minutes. A time that has no DateAndTime becomes the epoch.
struct LocalTime {
    std::tm parts = {};
    long offsetMinutes = 0;
};

LocalTime localTime(long seconds) {
    LocalTime local;
    const std::time_t time = seconds;
    if (localtime_r(&time, &local.parts) == nullptr || local.parts.tm_year + 1900L > LAST_YEAR ||
        local.parts.tm_year + 1900L < 0) {
        const std::time_t epoch = 0;
        localtime_r(&epoch, &local.parts);
    }
    local.offsetMinutes = local.parts.tm_gmtoff / 60;
    return local;
}

// At least that many digits.
void appendNumber(std::string& text, long number, unsigned int digits) {
    const std::string shown = std::to_string(number);
    if (shown.size() < digits) text.append(digits - shown.size(), '0');
    text += shown;
}

}  // namespace

void CSnmpUtil::convertTime2DateTime(Snmp_pp::OctetStr& out, long seconds) {
    const LocalTime local = localTime(seconds);
    const std::tm& t = local.parts;
    const long year = t.tm_year + 1900L;
    const long offset = local.offsetMinutes < 0 ? -local.offsetMinutes : local.offsetMinutes;
    const auto octet = [](long number) { return static_cast<unsigned char>(number); };
    const unsigned char octets[] = {octet(year >> 8),
                                    octet(year & 0xFF),
                                    octet(t.tm_mon + 1),
                                    octet(t.tm_mday),
                                    octet(t.tm_hour),
                                    octet(t.tm_min),
                                    octet(t.tm_sec),
                                    0,  // tenths of a second
                                    octet(local.offsetMinutes < 0 ? '-' : '+'),
                                    octet(offset / 60),
                                    octet(offset % 60)};
    out.set_data(octets, sizeof octets);
}

void CSnmpUtil::convertTime2DateTimeStr(Snmp_pp::OctetStr& out, long seconds) {
    const LocalTime local = localTime(seconds);
    const std::tm& t = local.parts;
    const long offset = local.offsetMinutes < 0 ? -local.offsetMinutes : local.offsetMinutes;
    std::string text;
    appendNumber(text, t.tm_year + 1900L, 4);
    const struct {
        const char* before;
        long number;
    } parts[] = {{"-", t.tm_mon + 1L}, {"-", t.tm_mday}, {",", t.tm_hour},
                 {":", t.tm_min},      {":", t.tm_sec},  {local.offsetMinutes < 0 ? ".0,-" : ".0,+", offset / 60},
                 {":", offset % 60}};
    for (const auto& part : parts) {
        text += part.before;
        appendNumber(text, part.number, 2);
    }
    out = text.c_str();
}
