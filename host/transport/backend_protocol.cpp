#include "host/transport/backend_protocol.h"

#include <charconv>
#include <map>
#include <stdexcept>

#include "platform/vrx_xml_config.h"

namespace vrx {

namespace {

constexpr char COMMAND_SECTION[] = "COMMAND";

struct CommandKey {
    const char* key;
    unsigned long long BackendCommands::*code;
};

constexpr CommandKey COMMAND_KEYS[] = {
    {"GET_SYSTEM_WWN", &BackendCommands::getSystemWwn},
    {"GET_BACKEND_STATUS", &BackendCommands::getBackendStatus},
    {"GET_CURRENT_ALARM", &BackendCommands::getCurrentAlarm},
    {"CLEAR_ALARM", &BackendCommands::clearAlarm},
    {"RAISE_ALARM", &BackendCommands::raiseAlarm},
    {"SUBSCRIBE_ALARM", &BackendCommands::subscribeAlarm},
};

unsigned long long readCode(const std::string& key) {
    std::string value;
    CVRXXmlConfig::instance()->getDeviceItem(COMMAND_SECTION, key, value);
    unsigned long long code = 0;
    const char* end = value.data() + value.size();
    const auto [stop, error] = std::from_chars(value.data(), end, code);
    if (error != std::errc() || stop != end || code == 0)
        throw std::invalid_argument("device configuration: " + std::string(COMMAND_SECTION) + "/" + key + " is \"" +
                                    value + "\", which is no command code");
    return code;
}

}  // namespace

BackendCommands BackendCommands::fromDevice() {
    BackendCommands commands;
    std::map<unsigned long long, std::string> used;
    for (const CommandKey& command : COMMAND_KEYS) {
        const unsigned long long code = readCode(command.key);
        const auto [other, isNew] = used.emplace(code, command.key);
        if (!isNew)
            throw std::invalid_argument("device configuration: commands " + other->second + " and " + command.key +
                                        " have the same code " + std::to_string(code));
        commands.*command.code = code;
    }
    return commands;
}

}  // namespace vrx
