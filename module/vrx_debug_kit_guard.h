// Scoped logging of one operation.
//
//     CVRXDebugKitGuard guard(TAMREL_LOG_MODULE, "int CThing::work(u_int)");
//     if (failed) guard.error(LOGCODE_GENERAL, __FUNCTION__, __LINE__, "work of %u failed.", number);
//
// Writes "enter NAME..." when it is made and "leave NAME: OK" (or "NOK") when the scope closes, by whatever way it is
// left. Several guards may exist on any threads; one guard belongs to one thread.
//
// A guard costs next to nothing while the host takes no trace lines: most scopes are left without a line.
//
// REQUIRES: the host's CVRXDebugKitMgr is available.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

class CVRXDebugKit;

class CVRXDebugKitGuard {
public:
    // `name` is the full signature of the enclosing function.
    CVRXDebugKitGuard(int module, const std::string& name);
    template <std::size_t SIZE>
    CVRXDebugKitGuard(int module, const char (&name)[SIZE])  // a literal, which need not be copied
        : CVRXDebugKitGuard(module, std::string_view(name), tLiteral()) {}
    ~CVRXDebugKitGuard();
    CVRXDebugKitGuard(const CVRXDebugKitGuard&) = delete;
    CVRXDebugKitGuard& operator=(const CVRXDebugKitGuard&) = delete;

    // Marks the scope as failed (false) or not (true): decides between "NOK" and "OK".
    void setResult(bool ok) { m_result = ok; }

    // Whether warn() lines go anywhere now: for texts that cost something to make.
    bool takesWarnings() const;

    void debug(unsigned long long code, const char* function, unsigned int line, const char* format, ...)
        __attribute__((format(printf, 5, 6)));
    void warn(unsigned long long code, const char* function, unsigned int line, const char* format, ...)
        __attribute__((format(printf, 5, 6)));
    void error(unsigned long long code, const char* function, unsigned int line, const char* format, ...)
        __attribute__((format(printf, 5, 6)));

private:
    struct tLiteral {};
    CVRXDebugKitGuard(int module, std::string_view name, tLiteral);

    void trace(std::string_view begin, std::string_view end) const;

    CVRXDebugKit* m_logger;   // the host's
    std::string m_owned;      // the name, where it is no literal
    std::string_view m_name;  // the literal, or m_owned
    bool m_result = true;
};
