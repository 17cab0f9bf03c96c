#include "host/agent/module_loader.h"

#include <dlfcn.h>

#include <algorithm>
#include <exception>
#include <utility>

#include "host/agent/agent_log.h"
#include "module/snmp_handler.h"

namespace {

constexpr const char* CREATOR = "SNMP_SvcModuleCreator";

std::string lastLoaderError() {
    const char* const text = ::dlerror();
    return text == nullptr ? "no reason given" : text;
}

[[noreturn]] void refuse(const std::string& module, const std::string& object, const std::string& why) {
    throw ModuleError("module " + module + ", object " + object + ": " + why);
}

}  // namespace

ModuleLoader::~ModuleLoader() {
    for (const SNMP_HANDLER_LIST& handlers : m_handlers) {
        for (const auto& [name, handler] : handlers) delete handler;
    }
}

void ModuleLoader::load(const std::string& path) {
    // RTLD_NOW: a symbol that is missing shows here, not in the middle of a request. Never closed, see the header.
    void* const library = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    if (library == nullptr) throw ModuleError("module " + path + ": " + lastLoaderError());
    void* const symbol = ::dlsym(library, CREATOR);
    if (symbol == nullptr) throw ModuleError("module " + path + ": exports no " + CREATOR);
    using Creator = CSNMP_Svc_Module* (*)();
    const auto create = reinterpret_cast<Creator>(symbol);
    std::unique_ptr<CSNMP_Svc_Module> module;
    try {
        module.reset(create());
    } catch (const std::exception& error) {
        throw ModuleError("module " + path + ": " + CREATOR + " threw: " + error.what());
    }
    if (module == nullptr) throw ModuleError("module " + path + ": " + CREATOR + " returned no module");
    adopt(std::move(module), path);
}

void ModuleLoader::adopt(std::unique_ptr<CSNMP_Svc_Module> module, const std::string& name) {
    SNMP_HANDLER_LIST& handlers = m_handlers.emplace_back();
    std::string mibFile;
    try {
        module->getSvcHandler(handlers);
        mibFile = module->getMibFileName();
        m_models.push_back(MibModel::load(m_mibDirectory + "/" + mibFile));
    } catch (const std::exception& error) {
        throw ModuleError("module " + name + ": " + error.what());
    }
    for (const auto& [oidOfObject, handler] : handlers) {
        OidVector root;
        try {
            root = parseOid(oidOfObject);
        } catch (const std::invalid_argument& error) {
            refuse(name, oidOfObject, error.what());
        }
        const MibObject* const mib = m_models.back().find(root);
        if (mib == nullptr) refuse(name, oidOfObject, "not in " + mibFile);
        const bool isLeaf = dynamic_cast<CSnmpLeafHandler*>(handler) != nullptr;
        if (isLeaf == mib->table) refuse(name, oidOfObject, "handler and " + mibFile + " disagree on table or scalar");
        const bool taken = std::any_of(m_objects.begin(), m_objects.end(), [&](const LoadedObject& other) {
            return isBelow(root.data(), root.size(), other.mib->root) ||
                   isBelow(other.mib->root.data(), other.mib->root.size(), root);
        });
        if (taken) refuse(name, oidOfObject, "another object is registered there");
        m_objects.push_back({mib, handler});
    }
    agent_log::info("module " + name + ": " + std::to_string(handlers.size()) + " objects by " + mibFile);
    m_modules.push_back(std::move(module));
}
