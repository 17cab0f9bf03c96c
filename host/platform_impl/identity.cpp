#include "host/platform_impl/identity.h"

#include <unistd.h>

#include <algorithm>
#include <climits>

#include "platform/snmp_basic_impl.h"
#include "platform/vrx_utility.h"
#include "platform/vrx_xml_config.h"

// What platform/ declares has no namespace.
using namespace vrx;

int CSNMPBasicImpl::device_type = 0;
std::string CSNMPBasicImpl::product_sn;

namespace {

std::string nodeItem(const std::string& key) {
    std::string value;
    return CVRXXmlConfig::instance()->getDeviceItem("NODE", key, value);
}

std::string hostName() {
    char name[HOST_NAME_MAX + 1] = {};
    return gethostname(name, sizeof name - 1) == 0 ? name : "";
}

}  // namespace

void vrx::loadIdentity() {
    const unsigned int type = StrToUint(nodeItem("DEVICE_TYPE"));
    CSNMPBasicImpl::device_type = static_cast<int>(std::min(type, static_cast<unsigned int>(INT_MAX)));
    CSNMPBasicImpl::product_sn = nodeItem("PRODUCT_SN");
}

// Read once: identity does not change while the process runs, whatever becomes of the file.
const char* CSNMPBasicImpl::getNodeCode() {
    static const std::string& code = *new std::string(nodeItem("CODE"));
    return code.empty() ? nullptr : code.c_str();
}

unsigned int CSNMPBasicImpl::getNodeType() {
    static const unsigned int type = StrToUint(nodeItem("TYPE"));
    return type;
}

std::string GetSystemName() {
    static const std::string& name = *new std::string(nodeItem("SYSTEM_NAME"));
    return name.empty() ? hostName() : name;
}
