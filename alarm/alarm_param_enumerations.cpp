// The file of parameter enumerations, the paramDesc attribute and the replacement of raw values by descriptions.
#include <tinyxml.h>

#include <cstdlib>
#include <cstring>

#include "alarm/alarm_constants.h"
#include "alarm/alarm_xml_file.h"
#include "alarm/snmp_alarm_iniparser.h"
#include "module/tamrel_log.h"
#include "module/vrx_debug_kit_guard.h"
#include "module/vrx_exception.h"
#include "platform/vrx_utility.h"
#include "platform/vrx_xml_config.h"

namespace {

std::string enumKey(const std::string& type, const std::string& value) {
    std::string key;
    key.reserve(type.size() + 1 + value.size());
    return key.append(type).append(1, '_').append(value);
}

}  // namespace

void CAlarmConfigParser::getAlarmParamEnumFilePath(std::string& path) {
    CVRXDebugKitGuard guard(TAMREL_LOG_MODULE,
                            "void CAlarmConfigParser::getAlarmParamEnumFilePath(std::string&)"_scope);
    path = CVRXXmlConfig::instance()->getDeviceItem(KSNMPCONF, "ALARM_PARAM_ENUM_PATH", path);
    if (!path.empty()) guard.debug(LOGCODE_DEBUG, __FUNCTION__, __LINE__, "file path : %s", path.c_str());
}

int CAlarmConfigParser::parseAlarmParamEnumDesc(std::string& path) {
    CVRXDebugKitGuard guard(TAMREL_LOG_MODULE, "int CAlarmConfigParser::parseAlarmParamEnumDesc(std::string&)"_scope);
    path = VRX_Utility::getVRXRootEnv() + "/" + path;
    TiXmlDocument document;
    document.SetTabSize(0);  // nobody asks an element for its place
    loadAlarmXmlFile("open alarm config file(", path, document);
    TiXmlElement* root = document.FirstChildElement();
    if (root == nullptr) throw CVRX_Exception("parse root element failed!");
    if (root->ValueStr() != "alarm") {
        throw CVRX_Exception("root element(" + root->ValueStr() + ") is invalid, should be (alarm).");
    }
    TiXmlElement* enumerations = root->FirstChildElement("param_enum");
    if (enumerations == nullptr) throw CVRX_Exception("parse param_enum element failed!");
    for (TiXmlNode* node = enumerations->FirstChild("enum_type"); node != nullptr;
         node = node->NextSibling("enum_type")) {
        parseAlarmParamEnumType(node);
    }
    return 0;
}

int CAlarmConfigParser::parseAlarmParamEnumType(TiXmlNode* node) {
    CVRXDebugKitGuard guard(TAMREL_LOG_MODULE, "int CAlarmConfigParser::parseAlarmParamEnumType(TiXmlNode*)"_scope);
    TiXmlElement* element = node != nullptr ? node->ToElement() : nullptr;
    const char* type = element != nullptr ? element->Attribute("name") : nullptr;
    if (type == nullptr) {
        guard.setResult(false);
        return -1;
    }
    for (TiXmlNode* child = element->FirstChild("enum_member"); child != nullptr;
         child = child->NextSibling("enum_member")) {
        const TiXmlElement* member = child->ToElement();
        const char* value = member != nullptr ? member->Attribute("value") : nullptr;
        const char* text = member != nullptr ? member->GetText() : nullptr;
        if (value == nullptr || text == nullptr) continue;
        const std::string key = enumKey(type, value);
        guard.debug(LOGCODE_DEBUG, __FUNCTION__, __LINE__, "EnumDescKey is (%s)", key.c_str());
        m_EnumDescMap.emplace(key, text);  // the first description of a key stays
    }
    return 0;
}

int CAlarmConfigParser::parseAlarmParamEnumDescPair(const char* paramDesc, POSITION_LIST& out) {
    CVRXDebugKitGuard guard(TAMREL_LOG_MODULE,
                            "int CAlarmConfigParser::parseAlarmParamEnumDescPair(const char*, POSITION_LIST&)"_scope);
    if (paramDesc == nullptr) {
        guard.setResult(false);
        throw CVRX_Exception("Null pointer.");
    }
    std::string copy(std::strlen(paramDesc) + 1, '\0');  // its final zero included
    if (memcpy_s(copy.data(), copy.size(), paramDesc, copy.size()) != 0) {
        guard.setResult(false);
        throw CVRX_Exception("parameter description can't be copied.");
    }
    char* rest = nullptr;
    for (const char* token = strtok_r(copy.data(), ",", &rest); token != nullptr;
         token = strtok_r(nullptr, ",", &rest)) {
        const char* const equals = std::strchr(token, '=');
        if (equals == nullptr) continue;
        const long position = std::strtol(token, nullptr, 10);              // ends at the "=" at the latest
        out.emplace_back(static_cast<unsigned int>(position), equals + 1);  // its low 32 bits
    }
    return 0;
}

void CAlarmConfigParser::replaceAlarmParamEnumValueDesc(unsigned long long alarmId, std::vector<std::string>& params,
                                                        const POSITION_LIST& enumDescs) {
    CVRXDebugKitGuard guard(TAMREL_LOG_MODULE,
                            "void CAlarmConfigParser::replaceAlarmParamEnumValueDesc(long long unsigned int, "
                            "std::vector<std::string>&, const POSITION_LIST&)"_scope);
    const auto count = static_cast<unsigned int>(params.size());
    for (const auto& [position, type] : enumDescs) {
        if (position >= count) {
            // Rules of log collectors match this spelling; the line shows both numbers signed.
            guard.warn(LOGCODE_GENERAL, __FUNCTION__, __LINE__,
                       "alarm %llu parameter enume value %d is out of rang[0, %d]", alarmId, static_cast<int>(position),
                       static_cast<int>(count));
            continue;
        }
        const std::string key = enumKey(type, params[position]);
        const auto found = m_EnumDescMap.find(key);
        if (found != m_EnumDescMap.end()) {
            params[position] = found->second;
        } else {
            guard.warn(LOGCODE_GENERAL, __FUNCTION__, __LINE__, "not found enum value literal desc of key %s in map",
                       key.c_str());
        }
    }
}
