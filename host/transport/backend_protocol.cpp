#include "host/transport/backend_protocol.h"

#include <charconv>
#include <map>
#include <memory>
#include <stdexcept>

#include "platform/vrx_xml_config.h"

namespace vrx {

namespace {

constexpr char SECTION[] = "COMMAND";

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
    CVRXXmlConfig::instance()->getDeviceItem(SECTION, key, value);
    unsigned long long code = 0;
    const char* end = value.data() + value.size();
    const auto [stop, error] = std::from_chars(value.data(), end, code);
    if (error != std::errc() || stop != end || code == 0)
        throw std::invalid_argument("device configuration: " + std::string(SECTION) + "/" + key + " is \"" + value +
                                    "\", which is no command code");
    return code;
}

void appendCell(CTLVRecordV3& record, std::unique_ptr<CTLVCell> cell) {
    record.append(cell.get());
    (void)cell.release();  // the record owns it from here
}

template <typename Number>
void appendUint(CTLVRecordV3& record, unsigned short tag, Number value) {
    unsigned char bytes[sizeof(Number)];
    for (unsigned char& byte : bytes) {
        byte = static_cast<unsigned char>(value & 0xFFU);
        value = static_cast<Number>(value >> 8);
    }
    auto cell = std::make_unique<CTLVCell>();
    cell->set_i(CTLVCell::TLV_TYPE_UINT, tag, bytes, sizeof(bytes));
    appendCell(record, std::move(cell));
}

template <typename Number>
Number numberOf(const CTLVRecordV3& record, unsigned short tag) {
    const CTLVCell& cell = record[tag];
    cell.checkNumerical();
    return CTLVCell::ValueCast<Number>()(&cell);
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

void appendUint32(CTLVRecordV3& record, unsigned short tag, unsigned int value) {
    appendUint(record, tag, value);
}

void appendUint64(CTLVRecordV3& record, unsigned short tag, unsigned long long value) {
    appendUint(record, tag, value);
}

void appendText(CTLVRecordV3& record, unsigned short tag, const std::string& text) {
    auto cell = std::make_unique<CTLVCell>();
    cell->set(tag, text.c_str());
    appendCell(record, std::move(cell));
}

unsigned int uint32Of(const CTLVRecordV3& record, unsigned short tag) {
    return numberOf<unsigned int>(record, tag);
}

unsigned long long uint64Of(const CTLVRecordV3& record, unsigned short tag) {
    return numberOf<unsigned long long>(record, tag);
}

std::string textOf(const CTLVRecordV3& record, unsigned short tag) {
    const CTLVCell& cell = record[tag];
    cell.checkString();
    return cell.toString();
}

}  // namespace vrx
