#include <iostream>  // first: the standard streams exist before any static object of this file

#include "alarm/snmp_alarm_iniparser.h"
