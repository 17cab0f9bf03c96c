#include <iostream>  // first: the standard streams exist before any static object of this file

#include "alarm/snmp_alarm_iniparser.h"

#include <ace/Guard_T.h>
#include <tinyxml.h>

#include <cstdlib>

#include "alarm/alarm_constants.h"
#include "alarm/alarm_grading.h"
#include "alarm/alarm_xml_file.h"
#include "module/tamrel_log.h"
#include "module/vrx_debug_kit_guard.h"
#include "module/vrx_exception.h"
#include "platform/vrx_utility.h"
#include "platform/vrx_xml_config.h"

// All static objects of the alarm definitions, in the order in which they are built; the host relies on it.
extern const std::string KNONESTRING("None");
extern const std::string KSNMPCONF("SNMP_CONF");
ACE_Thread_Mutex CAlarmConfigParser::_oSingletonMutex;
const std::string CAlarmConfigParser::COMMA(",");
const std::string CAlarmConfigParser::ESC_COMMA("&#44;");
const std::string CAlarmConfigParser::AMPERSAND("&");
const std::string CAlarmConfigParser::ECS_AMPERSAND("&#38;");

std::atomic<CAlarmConfigParser*> CAlarmConfigParser::_pInstance{nullptr};

namespace {

// A lock that cannot be taken leaves the guard unlocked: the operation goes on and nothing is released.
using Lock = ACE_Guard<ACE_Thread_Mutex>;

const char* textAttribute(const TiXmlElement& element, const char* attribute) {
    const char* text = element.Attribute(attribute);
    return text != nullptr ? text : KNONESTRING.c_str();
}

}  // namespace

CAlarmConfigItem::CAlarmConfigItem(unsigned long long id, unsigned int alarmLevel, const char* alarmName,
                                   const char* reasonText, const char* suggestionText, const char* detailText,
                                   const char* locationText, const char* oid)
    : alarmId(id),
      level(alarmLevel),
      name(alarmName),
      reason(reasonText),
      suggestion(suggestionText),
      detail(detailText),
      location(locationText),
      alarmOid(oid) {}

CAlarmConfigParser* CAlarmConfigParser::instance() {
    CVRXDebugKitGuard guard(TAMREL_LOG_MODULE, "static CAlarmConfigParser* CAlarmConfigParser::instance()"_scope);
    CAlarmConfigParser* parser = _pInstance.load(std::memory_order_acquire);
    if (parser != nullptr) return parser;
    const Lock lock(_oSingletonMutex);
    parser = _pInstance.load(std::memory_order_acquire);
    if (parser == nullptr) {
        // A load that fails takes the half-built parser with it, the definitions read so far included: callers try
        // again with every notification.
        const auto deleter = [](CAlarmConfigParser* loaded) { delete loaded; };
        std::unique_ptr<CAlarmConfigParser, decltype(deleter)> loading(new CAlarmConfigParser(), deleter);
        loading->init();
        parser = loading.release();
        _pInstance.store(parser, std::memory_order_release);
    }
    return parser;
}

void CAlarmConfigParser::destroy() {
    CVRXDebugKitGuard guard(TAMREL_LOG_MODULE, "static void CAlarmConfigParser::destroy()"_scope);
    const Lock lock(_oSingletonMutex);
    delete _pInstance.exchange(nullptr, std::memory_order_acq_rel);
}

CAlarmConfigParser::~CAlarmConfigParser() {
    CVRXDebugKitGuard guard(TAMREL_LOG_MODULE, "CAlarmConfigParser::~CAlarmConfigParser()"_scope);
    const Lock lock(m_oMutex);
    for (auto& entry : m_AlarmItems) entry.second.reset();
    m_AlarmItems.clear();
    m_EnumDescMap.clear();
}

void CAlarmConfigParser::init() {
    CVRXDebugKitGuard guard(TAMREL_LOG_MODULE, "void CAlarmConfigParser::init()"_scope);
    std::string definitions;
    getAlarmFilePath(definitions);
    parse(definitions);
    std::string enumerations;
    getAlarmParamEnumFilePath(enumerations);
    parseAlarmParamEnumDesc(enumerations);
}

void CAlarmConfigParser::getAlarmFilePath(std::string& path) {
    CVRXDebugKitGuard guard(TAMREL_LOG_MODULE, "void CAlarmConfigParser::getAlarmFilePath(std::string&)"_scope);
    path = CVRXXmlConfig::instance()->getDeviceItem(KSNMPCONF, "ALARM_INI_PATH", path);
    if (!path.empty()) guard.debug(LOGCODE_DEBUG, __FUNCTION__, __LINE__, "file path : %s", path.c_str());
}

void CAlarmConfigParser::parse(std::string& path) {
    CVRXDebugKitGuard guard(TAMREL_LOG_MODULE, "void CAlarmConfigParser::parse(std::string&)"_scope);
    path = VRX_Utility::getVRXRootEnv() + "/" + path;
    TiXmlDocument document;
    document.SetTabSize(0);  // nobody asks an element for its place
    loadAlarmXmlFile("open config file(", path, document);
    TiXmlElement* root = document.FirstChildElement();
    if (root == nullptr) throw CVRX_Exception("parse root element failed!");
    if (root->ValueStr() != "root") {
        throw CVRX_Exception("root element(" + root->ValueStr() + ") is invalid, should be (root).");
    }
    TiXmlElement* definitions = root->FirstChildElement("eventDefinition");
    if (definitions == nullptr) throw CVRX_Exception("parse eventDefinition element failed!");
    for (TiXmlNode* node = definitions->FirstChild("param"); node != nullptr; node = node->NextSibling("param")) {
        parseAlarmItem(node);
    }
}

int CAlarmConfigParser::parseAlarmItem(TiXmlNode* node) {
    CVRXDebugKitGuard guard(TAMREL_LOG_MODULE, "int CAlarmConfigParser::parseAlarmItem(TiXmlNode*)"_scope);
    const TiXmlElement* element = node != nullptr ? node->ToElement() : nullptr;
    if (element == nullptr) {
        guard.setResult(false);
        return -1;
    }
    const char* idText = element->Attribute("eventID");
    // A negative number keeps its bits.
    const auto id = idText != nullptr ? static_cast<unsigned long long>(std::strtoll(idText, nullptr, 10)) : 0ULL;
    const auto position = m_AlarmItems.lower_bound(id);
    if (position != m_AlarmItems.end() && position->first == id) {
        guard.setResult(false);
        guard.warn(LOGCODE_GENERAL, __FUNCTION__, __LINE__, "repeated alarm %llu, so ignore it.", id);
        return -1;
    }
    auto item = std::make_unique<CAlarmConfigItem>(
        id, static_cast<unsigned int>(id), textAttribute(*element, "name"), textAttribute(*element, "reason"),
        textAttribute(*element, "suggestion"), textAttribute(*element, "detail"), textAttribute(*element, "location"),
        textAttribute(*element, "alarmOid"));
    const char* paramDesc = element->Attribute("paramDesc");
    if (paramDesc != nullptr) parseAlarmParamEnumDescPair(paramDesc, item->paramEnumDescs);
    m_AlarmItems.emplace_hint(position, id, std::move(item));
    return 0;
}

void CAlarmConfigParser::resolveAlarmId(unsigned long long alarmId, u_int& shortId) {
    CVRXDebugKitGuard guard(TAMREL_LOG_MODULE,
                            "void CAlarmConfigParser::resolveAlarmId(long long unsigned int, u_int&)"_scope);
    shortId = static_cast<u_int>(alarmId & 0xFFFF);
}

int CAlarmConfigParser::converToQ7700AlarmLevel(int level) {
    CVRXDebugKitGuard guard(TAMREL_LOG_MODULE, "int CAlarmConfigParser::converToQ7700AlarmLevel(int)"_scope);
    return managementLevelOf(level);
}
