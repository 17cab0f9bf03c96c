// The real libsnmp_tamrel.so, loaded as a host loads it.
#pragma once

#include <dlfcn.h>

#include <stdexcept>
#include <string>

#include "platform/snmp_svc_module.h"

class LoadedModule {
public:
    LoadedModule() : m_library(dlopen(SNMP_TAMREL_MODULE, RTLD_NOW | RTLD_LOCAL)) {
        if (m_library == nullptr) throw std::runtime_error(dlerror());
    }
    ~LoadedModule() { unload(); }
    LoadedModule(const LoadedModule&) = delete;
    LoadedModule& operator=(const LoadedModule&) = delete;

    void unload() {
        if (m_library != nullptr) dlclose(m_library);
        m_library = nullptr;
    }

    // Whether the library is in the process, by whoever loaded it.
    static bool isInProcess() {
        void* found = dlopen(SNMP_TAMREL_MODULE, RTLD_NOW | RTLD_NOLOAD);
        if (found != nullptr) dlclose(found);
        return found != nullptr;
    }

    template <typename Function>
    Function* symbol(const char* name) const {
        void* found = dlsym(m_library, name);
        if (found == nullptr) throw std::runtime_error(std::string("no symbol ") + name);
        return reinterpret_cast<Function*>(found);
    }

    // What the module's one exported function gives; the caller's.
    CSNMP_Svc_Module* create() const { return symbol<CSNMP_Svc_Module*()>("SNMP_SvcModuleCreator")(); }

private:
    void* m_library;
};
