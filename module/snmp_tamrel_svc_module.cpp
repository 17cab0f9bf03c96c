#include <iostream>  // first: the standard streams exist before any static object of this library

#include "module/snmp_tamrel_svc_module.h"

#include <memory>

#include "handlers/snmp_tamrel_alarm_handler.h"
#include "handlers/snmp_tamrel_trap_addr_handler.h"
#include "handlers/snmp_topo_handler.h"
#include "notify/snmp_tamrel_notify_handler.h"
#include "platform/notify_handler.h"

namespace {

template <typename Handler>
CSnmpHandler* make() {
    return new Handler();
}

struct tRegistration {
    const char* oid;
    CSnmpHandler* (*make)();
};

constexpr tRegistration REGISTRATIONS[] = {
    {"1.3.6.1.4.1.99871.2.91.9.1", make<CSnmpTopoHandler>},
    {"1.3.6.1.4.1.99871.2.91.10.1.1", make<CSnmpTamrelVrxAlarmHandler>},
    {"1.3.6.1.4.1.99871.2.91.10.1.2", make<CSnmpTamrelVrxClearAlarmHandler>},
    {"1.3.6.1.4.1.99871.2.91.10.4.1", make<CTamrelTrapAddrHandler>},
};

template <typename Handler>
void registerNotifyHandler() {
    auto handler = std::make_unique<Handler>();
    CNotifyHandler::instance()->handlers().push_back(handler.get());
    (void)handler.release();  // the dispatcher keeps it for the life of the process
}

}  // namespace

CSNMP_Tamrel_Mib_Module::~CSNMP_Tamrel_Mib_Module() = default;

std::string CSNMP_Tamrel_Mib_Module::getMibFileName() {
    return "VRX-TAMREL-MIB.xml";
}

void CSNMP_Tamrel_Mib_Module::getSvcHandler(SNMP_HANDLER_LIST& handlers) {
    for (const tRegistration& row : REGISTRATIONS) {
        std::string oid = row.oid;
        handlers.emplace_back(std::move(oid), row.make());
    }
}

bool CSNMP_Tamrel_Mib_Module::init() {
    registerNotifyHandler<CTamrelNotifyMsgHandler>();
    registerNotifyHandler<CTamrelOIDBasedMsgHandler>();
    return true;
}

extern "C" CSNMP_Svc_Module* SNMP_SvcModuleCreator() {
    auto module = std::make_unique<CSNMP_Tamrel_Mib_Module>();
    return module->init() ? module.release() : nullptr;
}
