// The input is a definition file: it loads whole or not at all, what it loads is what a plain reading finds, and
// whatever it defines can be looked up and rendered.
#include <cstdint>
#include <cstdlib>
#include <map>
#include <sstream>
#include <string>

#include "fuzz/alarm_host.h"
#include "fuzz/finding.h"
#include "fuzz/plain_alarm_file.h"

namespace {

std::string textOf(const TiXmlElement& element, const char* attribute) {
    const char* const text = element.Attribute(attribute);
    return text != nullptr ? text : "None";
}

POSITION_LIST codesOf(const TiXmlElement& element) {
    POSITION_LIST codes;
    const char* const text = element.Attribute("paramDesc");
    std::istringstream words(text != nullptr ? text : "");
    for (std::string word; std::getline(words, word, ',');) {
        const std::size_t equals = word.find('=');
        if (equals == std::string::npos) continue;
        const long long position = std::strtoll(word.substr(0, equals).c_str(), nullptr, 10);
        codes.emplace_back(static_cast<unsigned int>(position), word.substr(equals + 1));
    }
    return codes;
}

void compare(const CAlarmConfigItem& item, const TiXmlElement& element) {
    require(item.name == textOf(element, "name"), "another name than in the file");
    require(item.reason == textOf(element, "reason"), "another reason than in the file");
    require(item.suggestion == textOf(element, "suggestion"), "another suggestion than in the file");
    require(item.detail == textOf(element, "detail"), "another detail than in the file");
    require(item.location == textOf(element, "location"), "another location than in the file");
    require(item.alarmOid == textOf(element, "alarmOid"), "another OID than in the file");
    require(item.paramEnumDescs == codesOf(element), "other codes than in the file");
}

// Of two definitions with one identifier the first counts, and each other one is a warning.
void compare(const CAlarmConfigParser& parser, const TiXmlElement& list, const FakeLog& log) {
    std::map<unsigned long long, const TiXmlElement*> expected;
    std::size_t elements = 0;
    for (const TiXmlElement* e = list.FirstChildElement("param"); e != nullptr; e = e->NextSiblingElement("param")) {
        const char* const id = e->Attribute("eventID");
        expected.emplace(id != nullptr ? static_cast<unsigned long long>(std::strtoll(id, nullptr, 10)) : 0, e);
        ++elements;
    }
    require(parser.alarmItems().size() == expected.size(), "not as many definitions as in the file");
    for (const auto& [id, element] : expected) {
        const auto found = parser.alarmItems().find(id);
        require(found != parser.alarmItems().end(), "a definition is missing");
        compare(*found->second, *element);
    }
    std::size_t repeated = 0;
    for (const FakeLogLine& line : log.entries())
        if (line.text.rfind("repeated alarm ", 0) == 0) ++repeated;
    require(repeated == elements - expected.size(), "not a warning for each repeated definition");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    AlarmHost alarms;
    AlarmHost::definitions().write(data, size);
    const PlainAlarmFile plain(data, size, "root", "eventDefinition");
    std::string failure;
    CAlarmConfigParser* const parser = AlarmHost::load(failure);
    plain.checkLoad(parser, failure);
    if (parser == nullptr) {
        std::string again;
        require(AlarmHost::load(again) == nullptr && again == failure, "a failed load is not repeated");
        return 0;
    }
    compare(*parser, *plain.list(), alarms.host().log());
    for (const auto& [id, item] : parser->alarmItems()) {
        require(item->alarmId == id && item->level == static_cast<unsigned int>(id), "a definition has another number");
        std::string oid;
        require(parser->getAlarmOidInfo(id, oid) == (id == 0 ? -1 : 0), "a definition is not found");
        std::string location, detail, name, suggestion;
        u_int level = 0;
        const int result = parser->getAlarmInfo(id, "7,CTE0&#44;A,1", location, detail, level, name, suggestion);
        if (id == 0) {
            require(result == -1, "alarm 0 is rendered");
        } else {
            require(result == 0 || result == CAlarmConfigParser::NO_PARAMETER_POS, "an alarm cannot be rendered");
            require(result != 0 || name == item->name, "an alarm has another name");
            require(oid == item->alarmOid, "an alarm has another OID");
        }
    }
    return 0;
}
