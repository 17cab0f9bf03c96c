#include "module/vrx_debug_kit_guard.h"

#include <ace/Singleton.h>
#include <ace/Thread_Mutex.h>

#include <cstdarg>

#include "platform/vrx_debug_kit.h"

namespace {

CVRXDebugKit* findLogger(int module) {
    return ACE_Unmanaged_Singleton<CVRXDebugKitMgr, ACE_Thread_Mutex>::instance()->find(
        static_cast<unsigned int>(module));
}

// Whether a trace line goes anywhere: all that most scopes cost.
bool takesTraceLines(const CVRXDebugKit& logger) {
    return logger.takes(CVRXDebugKit::Line::Trace);
}

}  // namespace

CVRXDebugKitGuard::CVRXDebugKitGuard(int module, const std::string& name)
    : m_logger(findLogger(module)), m_owned(name), m_name(m_owned) {
    if (takesTraceLines(*m_logger)) trace("enter ", "...");
}

CVRXDebugKitGuard::CVRXDebugKitGuard(int module, CVRXScopeName name)
    : m_logger(findLogger(module)), m_name(name.text()) {
    if (takesTraceLines(*m_logger)) trace("enter ", "...");
}

CVRXDebugKitGuard::~CVRXDebugKitGuard() {
    try {
        if (takesTraceLines(*m_logger)) trace("leave ", m_result ? ": OK" : ": NOK");
    } catch (...) {
        // A logger without memory for the line: losing it is better than losing the process.
    }
}

void CVRXDebugKitGuard::trace(const char* begin, const char* end) const {
    std::string line;
    line.reserve(m_name.size() + 16);
    line.append(begin).append(m_name).append(end);
    m_logger->trace(line);
}

bool CVRXDebugKitGuard::takesTrace() const {
    return takesTraceLines(*m_logger);
}

bool CVRXDebugKitGuard::takesWarnings() const {
    return m_logger->takes(CVRXDebugKit::Line::Warn);
}

void CVRXDebugKitGuard::debug(unsigned long long code, const char* function, unsigned int line, const char* format,
                              ...) {
    va_list args;
    va_start(args, format);
    m_logger->debug(code, function, line, format, args);
    va_end(args);
}

void CVRXDebugKitGuard::warn(unsigned long long code, const char* function, unsigned int line, const char* format,
                             ...) {
    va_list args;
    va_start(args, format);
    m_logger->warn(code, function, line, format, args);
    va_end(args);
}

void CVRXDebugKitGuard::error(unsigned long long code, const char* function, unsigned int line, const char* format,
                              ...) {
    va_list args;
    va_start(args, format);
    m_logger->error(code, function, line, format, args);
    va_end(args);
}
