// Scoped logging of one operation.
//
//     CVRXDebugKitGuard guard(TAMREL_LOG_MODULE, "int CThing::work(u_int)"_scope);
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

// The name of a scope that is written as a literal, "..."_scope: it lasts as long as the program and is not copied.
class CVRXScopeName {
public:
    constexpr std::string_view text() const { return m_text; }

private:
    friend constexpr CVRXScopeName operator""_scope(const char* text, std::size_t length);
    constexpr explicit CVRXScopeName(std::string_view text) : m_text(text) {}

    std::string_view m_text;
};

constexpr CVRXScopeName operator""_scope(const char* text, std::size_t length) {
    return CVRXScopeName(std::string_view(text, length));
}

class CVRXDebugKitGuard {
public:
    // `name` is the full signature of the enclosing function; a copy is kept.
    CVRXDebugKitGuard(int module, const std::string& name);
    CVRXDebugKitGuard(int module, CVRXScopeName name);
    ~CVRXDebugKitGuard();
    CVRXDebugKitGuard(const CVRXDebugKitGuard&) = delete;
    CVRXDebugKitGuard& operator=(const CVRXDebugKitGuard&) = delete;

    // Marks the scope as failed (false) or not (true): decides between "NOK" and "OK".
    void setResult(bool ok) { m_result = ok; }

    // Whether trace lines, and warn() lines, go anywhere now: for what costs something and serves them alone.
    bool takesTrace() const;
    bool takesWarnings() const;

    void debug(unsigned long long code, const char* function, unsigned int line, const char* format, ...)
        __attribute__((format(printf, 5, 6)));
    void warn(unsigned long long code, const char* function, unsigned int line, const char* format, ...)
        __attribute__((format(printf, 5, 6)));
    void error(unsigned long long code, const char* function, unsigned int line, const char* format, ...)
        __attribute__((format(printf, 5, 6)));

private:
    void trace(const char* begin, const char* end) const __attribute__((cold));

    CVRXDebugKit* m_logger;   // the host's
    std::string m_owned;      // the name, where it is no literal
    std::string_view m_name;  // the literal, or m_owned
    bool m_result = true;
};
