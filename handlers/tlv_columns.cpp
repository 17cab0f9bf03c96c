#include "handlers/tlv_columns.h"

#include <cstdlib>
#include <string>

#include "platform/vrx_xml_config.h"

namespace handlers {

long long commandCode(const char* command) {
    std::string text;
    text = CVRXXmlConfig::instance()->getDeviceItem("COMMAND", command, text);
    return std::strtoll(text.c_str(), nullptr, 10);
}

std::unique_ptr<CTLVRecordV3> makeRow() {
    return std::make_unique<CTLVRecordV3>(CTLVRecordV3::NO_IDENTIFIER, CTLVRecordV3::DEFAULT_BUCKETS);
}

}  // namespace handlers
