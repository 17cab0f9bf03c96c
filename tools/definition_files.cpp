#include "tools/definition_files.h"

#include "platform/vrx_utility.h"
#include "platform/vrx_xml_config.h"

namespace vrx {

namespace {

std::string configuredPath(const std::string& key) {
    std::string value;
    value = CVRXXmlConfig::instance()->getDeviceItem("SNMP_CONF", key, value);
    return value.empty() ? value : VRX_Utility::getVRXRootEnv() + "/" + value;
}

}  // namespace

DefinitionFiles configuredDefinitionFiles() {
    return {configuredPath("ALARM_INI_PATH"), configuredPath("ALARM_PARAM_ENUM_PATH")};
}

}  // namespace vrx
