// A module whose creator fails with an exception.
#include <stdexcept>

#include "platform/snmp_svc_module.h"

CSNMP_Svc_Module* SNMP_SvcModuleCreator() {
    throw std::runtime_error("no dispatcher");
}
