// A module whose creator says that it could not make one.
#include "platform/snmp_svc_module.h"

CSNMP_Svc_Module* SNMP_SvcModuleCreator() {
    return nullptr;
}
