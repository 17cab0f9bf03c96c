// Loggers of the host. The module reaches them through CVRXDebugKitGuard (module/vrx_debug_kit_guard.h), never
// directly.
//
// Threads: every operation may be called from any thread at any time.
#pragma once

#include <cstdarg>
#include <string>

// The logger of one module. Where lines end up, which levels pass and what stands before a line is the host's.
// `code` is a 64-bit message code, `function` the short name of the calling function, `line` its source line, `format`
// a printf format that `args` fits.
class CVRXDebugKit {
public:
    virtual ~CVRXDebugKit() = default;
    virtual void trace(const std::string& text) = 0;
    virtual void debug(unsigned long long code, const char* function, unsigned int line, const char* format,
                       va_list args) = 0;
    virtual void warn(unsigned long long code, const char* function, unsigned int line, const char* format,
                      va_list args) = 0;
    virtual void error(unsigned long long code, const char* function, unsigned int line, const char* format,
                       va_list args) = 0;

    // Whether a line of that kind goes anywhere now: one that does not need not be made. A host that does not say
    // gets all of them.
    enum class Line { Trace, Debug, Warn, Error };
    virtual bool takes(Line) const { return true; }
};

// Registry of loggers by module number, reached as ACE_Unmanaged_Singleton<CVRXDebugKitMgr, ACE_Thread_Mutex>.
// The host has it ready before any handler runs.
class CVRXDebugKitMgr {
public:
    CVRXDebugKitMgr();
    ~CVRXDebugKitMgr();
    CVRXDebugKitMgr(const CVRXDebugKitMgr&) = delete;
    CVRXDebugKitMgr& operator=(const CVRXDebugKitMgr&) = delete;

    // The logger of a module; never null, owned by the host, valid until the process ends.
    CVRXDebugKit* find(unsigned int module);
};
