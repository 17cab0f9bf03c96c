// The module as the host sees it: registers the notification handlers when it is made, hands over the MIB handlers.
//
// Threads: used by the host's loading thread only, before any request or notification.
#pragma once

#include "platform/snmp_svc_module.h"

class CSNMP_Tamrel_Mib_Module : public CSNMP_Svc_Module {
public:
    ~CSNMP_Tamrel_Mib_Module() override;  // frees none of the handlers: host and dispatcher keep them
    std::string getMibFileName() override;

    // Appends the four MIB handlers, each newly made. When an append throws, rows appended before stay and the handler
    // of the failing row is not freed.
    void getSvcHandler(SNMP_HANDLER_LIST& handlers) override;

    // Appends both notification handlers to the host's dispatcher; true, or an exception (the handler that could not
    // be appended is freed).
    bool init();
};
