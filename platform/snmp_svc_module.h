// What the host loads: a service module that hands over its MIB handlers and names its MIB file.
#pragma once

#include <list>
#include <string>
#include <utility>

class CSnmpHandler;

// Registered objects in order: dotted OID without a leading dot, and its handler. The module appends; the host keeps
// the handlers for the life of the process.
using SNMP_HANDLER_LIST = std::list<std::pair<const std::string, CSnmpHandler*>>;

// The host calls through the slots in this order: do not reorder.
class CSNMP_Svc_Module {
public:
    virtual ~CSNMP_Svc_Module() = default;
    virtual std::string getMibFileName() = 0;
    virtual void getSvcHandler(SNMP_HANDLER_LIST& handlers) = 0;
};

// The one function that a module exports, under this name and with C linkage. Null means that the load failed; the
// caller owns the module and deletes it through its virtual destructor.
extern "C" CSNMP_Svc_Module* SNMP_SvcModuleCreator();
