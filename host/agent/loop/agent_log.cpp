#include "host/agent/loop/agent_log.h"

#include <cstdio>
#include <exception>

#include "host/base/logging.h"

namespace vrx {

namespace agent_log {

void error(const std::string& text) {
    logLine("agent", LogLevel::Error, text);
}
void warn(const std::string& text) {
    logLine("agent", LogLevel::Warn, text);
}
void info(const std::string& text) {
    logLine("agent", LogLevel::Info, text);
}
void debug(const std::string& text) {
    logLine("agent", LogLevel::Debug, text);
}

void fault(std::initializer_list<std::string_view> pieces) noexcept {
    try {
        std::string text;
        for (const std::string_view piece : pieces) text += piece;
        error(text);
    } catch (const std::exception&) {
        for (const std::string_view piece : pieces) {
            std::fwrite(piece.data(), 1, piece.size(), stderr);  // has no buffer to allocate
        }
        std::fputc('\n', stderr);
    }
}

}  // namespace agent_log

}  // namespace vrx
