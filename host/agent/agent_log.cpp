#include "host/agent/agent_log.h"

#include <spdlog/spdlog.h>

namespace agent_log {

// The texts are whole: no part of them is a format.
void error(const std::string& text) {
    spdlog::error("{}", text);
}
void warn(const std::string& text) {
    spdlog::warn("{}", text);
}
void info(const std::string& text) {
    spdlog::info("{}", text);
}
void debug(const std::string& text) {
    spdlog::debug("{}", text);
}

}  // namespace agent_log
