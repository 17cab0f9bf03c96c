// The module's table of active alarms: its root, and columns by their numbers.
#pragma once

#include "host/snmp/oid_vector.h"

namespace vrx::alarm_table {

const OidVector ROOT = {1, 3, 6, 1, 4, 1, 99871, 2, 91, 10, 1, 1};

enum Column : unsigned int {
    NODE = 1,
    LOCATION,
    ADVICE,
    TITLE,
    LEVEL = 6,
    NUMBER,
    RAISED,
    SERIAL,
    DETAIL,
    ALARM_ID = 12
};

}  // namespace vrx::alarm_table
