// Loads service modules and keeps what they register: handlers by OID, and the shapes from their MIB files.
//
// A module's objects are ordered as they were registered. Handlers, which no module deletes, are deleted with the
// loader. Libraries stay mapped until the process ends: the dispatcher keeps the notification handlers that loading
// registered.
//
// Threads: the loading thread, before any request or notification; reloadMibs() while no handler is at work.
#pragma once

#include <list>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/agent/objects/mib_model.h"
#include "platform/snmp_svc_module.h"

namespace vrx {

// The module cannot be used; what() says which file and why.
class ModuleError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct LoadedObject {
    const MibObject* mib;
    CSnmpHandler* handler;
};

class ModuleLoader {
public:
    // `mibDirectory` holds the files that modules name.
    explicit ModuleLoader(std::string mibDirectory) : m_mibDirectory(std::move(mibDirectory)) {}
    ~ModuleLoader();
    ModuleLoader(const ModuleLoader&) = delete;
    ModuleLoader& operator=(const ModuleLoader&) = delete;

    // Throws ModuleError.
    void load(const std::string& path);

    // Adopts a module that was made otherwise. Throws ModuleError.
    void adopt(std::unique_ptr<CSNMP_Svc_Module> module, const std::string& name);

    // The MIB files of the modules.
    const std::vector<std::string>& mibFiles() const { return m_mibFiles; }

    // Reads them again: objects() has the new shapes, and references to the former ones stay valid. Throws ModuleError
    // when a file has faults or describes an object as another kind than its handler; nothing has changed then.
    void reloadMibs();

    const std::vector<LoadedObject>& objects() const { return m_objects; }

private:
    std::string m_mibDirectory;
    std::vector<std::string> m_mibFiles;  // one a module
    std::list<MibModel> m_models;         // the former ones too: snapshots refer to them
    std::list<SNMP_HANDLER_LIST> m_handlers;
    std::vector<std::unique_ptr<CSNMP_Svc_Module>> m_modules;
    std::vector<LoadedObject> m_objects;
    std::vector<std::size_t> m_moduleOf;  // number of each object's module
};

}  // namespace vrx
