// Scoped logging of one operation.
//
//     CVRXDebugKitGuard guard(TAMREL_LOG_MODULE, "int CThing::work(u_int)");
//     if (failed) guard.error(LOGCODE_GENERAL, __FUNCTION__, __LINE__, "work of %u failed.", number);
//
// Writes "enter NAME..." when it is made and "leave NAME: OK" (or "NOK") when the scope closes, by whatever way it is
// left. Several guards may exist on any threads; one guard belongs to one thread.
//
// REQUIRES: the host's CVRXDebugKitMgr is available.
#pragma once

#include <string>
#include <string_view>

class CVRXDebugKit;

class CVRXDebugKitGuard {
public:
    // `name` is the full signature of the enclosing function.
    CVRXDebugKitGuard(int module, const std::string& name);
    CVRXDebugKitGuard(int module, const char* name);  // the same for a literal, which need not be copied before
    ~CVRXDebugKitGuard();
    CVRXDebugKitGuard(const CVRXDebugKitGuard&) = delete;
    CVRXDebugKitGuard& operator=(const CVRXDebugKitGuard&) = delete;

    // Marks the scope as failed (false) or not (true): decides between "NOK" and "OK".
    void setResult(bool ok) { m_result = ok; }

    void debug(unsigned long long code, const char* function, unsigned int line, const char* format, ...)
        __attribute__((format(printf, 5, 6)));
    void warn(unsigned long long code, const char* function, unsigned int line, const char* format, ...)
        __attribute__((format(printf, 5, 6)));
    void error(unsigned long long code, const char* function, unsigned int line, const char* format, ...)
        __attribute__((format(printf, 5, 6)));

private:
    CVRXDebugKitGuard(int module, std::string_view name);

    CVRXDebugKit* m_logger;  // the host's
    std::string m_line;      // the line that was traced: most guards trace for nobody, so one piece of memory is enough
    bool m_result = true;
};
