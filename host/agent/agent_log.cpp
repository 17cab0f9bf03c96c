#include "host/agent/agent_log.h"

#include "host/services/logging.h"

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

}  // namespace agent_log
