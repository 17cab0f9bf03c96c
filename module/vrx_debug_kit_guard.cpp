#include "module/vrx_debug_kit_guard.h"

#include <ace/Singleton.h>
#include <ace/Thread_Mutex.h>

#include <cstdarg>

#include "platform/vrx_debug_kit.h"

namespace {

constexpr std::string_view BEGUN = "enter ";
constexpr std::string_view DONE = "leave ";
constexpr std::string_view BEGUN_END = "...";
constexpr std::size_t LONGEST_END = 5;  // of either line: ": NOK"

CVRXDebugKit* findLogger(int module) {
    return ACE_Unmanaged_Singleton<CVRXDebugKitMgr, ACE_Thread_Mutex>::instance()->find(
        static_cast<unsigned int>(module));
}

}  // namespace

CVRXDebugKitGuard::CVRXDebugKitGuard(int module, const std::string& name)
    : CVRXDebugKitGuard(module, std::string_view(name)) {}

CVRXDebugKitGuard::CVRXDebugKitGuard(int module, const char* name)
    : CVRXDebugKitGuard(module, std::string_view(name)) {}

CVRXDebugKitGuard::CVRXDebugKitGuard(int module, std::string_view name) : m_logger(findLogger(module)) {
    m_line.reserve(BEGUN.size() + name.size() + LONGEST_END);
    m_line.append(BEGUN).append(name).append(BEGUN_END);
    m_logger->trace(m_line);
}

CVRXDebugKitGuard::~CVRXDebugKitGuard() {
    try {
        m_line.replace(0, BEGUN.size(), DONE);
        m_line.resize(m_line.size() - BEGUN_END.size());
        m_line.append(m_result ? ": OK" : ": NOK");
        m_logger->trace(m_line);
    } catch (...) {
        // A logger without memory for the line: losing it is better than losing the process.
    }
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
