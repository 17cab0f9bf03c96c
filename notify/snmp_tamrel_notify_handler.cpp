#include <iostream>  // first: the standard streams exist before any static object of this library

#include "notify/snmp_tamrel_notify_handler.h"
