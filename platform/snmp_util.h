// Time conversion. Times are seconds since 1970 UTC; both forms show local time with the zone's offset.
#pragma once

#include <snmp_pp/octet.h>

class CSnmpUtil {
public:
    // DateAndTime of RFC 2579 in its 11-octet form.
    static void convertTime2DateTime(Snmp_pp::OctetStr& out, long seconds);

    // "YYYY-MM-DD,hh:mm:ss.d,+hh:mm"
    static void convertTime2DateTimeStr(Snmp_pp::OctetStr& out, long seconds);
};
