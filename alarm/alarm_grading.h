// How the module grades alarms, for whoever counts or checks them without it.
#pragma once

// The management system's level (1 critical, 2 major, 3 minor, 4 warning) of the one that the backend grades an alarm
// with: VrxFaultLevel of the MIB.
constexpr int managementLevelOf(int backendLevel) {
    switch (backendLevel) {
        case 4:
            return 3;
        case 5:
            return 2;
        case 6:
        case 7:
            return 1;
        default:
            return 4;
    }
}

// Whether alarms of that number (the low 32 bits of an identifier) report no fault: they are sent as traps and never
// rows of the alarm table.
constexpr bool reportsNoFault(unsigned int number) {
    return number >= 507010006 && number <= 507010010;
}
