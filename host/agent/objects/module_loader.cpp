#include "host/agent/objects/module_loader.h"

#include <dlfcn.h>

#include <algorithm>
#include <exception>
#include <utility>

#include "host/base/log_line.h"
#include "host/log_lines/start.h"
#include "module/snmp_handler.h"

namespace vrx {

namespace {

constexpr const char* CREATOR = "SNMP_SvcModuleCreator";

std::string lastLoaderError() {
    const char* const text = ::dlerror();
    return text == nullptr ? "no reason given" : text;
}

[[noreturn]] void refuse(const std::string& module, const std::string& object, const std::string& why) {
    throw ModuleError("module " + module + ", object " + object + ": " + why);
}

bool isScalar(CSnmpHandler& handler) {
    return dynamic_cast<CSnmpLeafHandler*>(&handler) != nullptr;
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
        m_mibFiles.push_back(m_mibDirectory + "/" + mibFile);
        m_models.push_back(MibModel::load(m_mibFiles.back()));
    } catch (const MibError& error) {
        throw ModuleError(error.what() + (" (module " + name + ")"));
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
        if (isScalar(*handler) == mib->table)
            refuse(name, oidOfObject, "handler and " + mibFile + " disagree on table or scalar");
        const bool taken = std::any_of(m_objects.begin(), m_objects.end(), [&](const LoadedObject& other) {
            return isBelow(root.data(), root.size(), other.mib->root) ||
                   isBelow(other.mib->root.data(), other.mib->root.size(), root);
        });
        if (taken) refuse(name, oidOfObject, "another object is registered there");
        m_objects.push_back({mib, handler});
        m_moduleOf.push_back(m_modules.size());
    }
    logLine<lines::MODULE_LOADED>(name, handlers.size(), mibFile);
    m_modules.push_back(std::move(module));
}

void ModuleLoader::reloadMibs() {
    std::list<MibModel> models;
    std::vector<const MibModel*> byModule;
    try {
        for (const std::string& file : m_mibFiles) byModule.push_back(&models.emplace_back(MibModel::load(file)));
    } catch (const MibError& error) {
        throw ModuleError(error.what());
    }
    std::vector<const MibObject*> shapes;
    for (std::size_t i = 0; i < m_objects.size(); ++i) {
        const MibObject* const shape = byModule[m_moduleOf[i]]->find(m_objects[i].mib->root);
        if (shape == nullptr || shape->table == isScalar(*m_objects[i].handler)) {
            throw ModuleError(
                m_mibFiles[m_moduleOf[i]] + ": " + m_objects[i].mib->name +
                (shape == nullptr ? " is missing" : " is another kind of object than its handler serves"));
        }
        shapes.push_back(shape);
    }
    m_models.splice(m_models.end(), models);
    for (std::size_t i = 0; i < m_objects.size(); ++i) m_objects[i].mib = shapes[i];
}

}  // namespace vrx
