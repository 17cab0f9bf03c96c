// The input is an enumeration file: it loads whole or not at all, what it loads is what a plain reading finds, and
// every description is found by type and value.
#include <cstdint>
#include <string>
#include <vector>

#include "fuzz/alarm_host.h"
#include "fuzz/finding.h"
#include "fuzz/plain_alarm_file.h"

namespace {

// Of two members with one key the first counts; one without a value or a text is none.
CAlarmConfigParser::ENUM_DESC_MAP descriptionsOf(const TiXmlElement& list) {
    CAlarmConfigParser::ENUM_DESC_MAP expected;
    for (const TiXmlElement* type = list.FirstChildElement("enum_type"); type != nullptr;
         type = type->NextSiblingElement("enum_type")) {
        const char* const name = type->Attribute("name");
        if (name == nullptr) continue;
        for (const TiXmlElement* member = type->FirstChildElement("enum_member"); member != nullptr;
             member = member->NextSiblingElement("enum_member")) {
            const char* const value = member->Attribute("value");
            const TiXmlText* const text = member->FirstChild() != nullptr ? member->FirstChild()->ToText() : nullptr;
            if (value == nullptr || text == nullptr) continue;
            expected.emplace(std::string(name) + "_" + value, text->Value());
        }
    }
    return expected;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    AlarmHost alarms;
    AlarmHost::enumerations().write(data, size);
    const PlainAlarmFile plain(data, size, "alarm", "param_enum");
    std::string failure;
    CAlarmConfigParser* const parser = AlarmHost::load(failure);
    plain.checkLoad(parser, failure);
    if (parser == nullptr) return 0;
    require(parser->enumDescMap() == descriptionsOf(*plain.list()), "other descriptions than in the file");
    for (const auto& [key, description] : parser->enumDescMap()) {
        // Any split at a "_" gives a type and a value of that key.
        const std::size_t bar = key.find('_');
        require(bar != std::string::npos, "a key without type");
        const std::string value = key.substr(bar + 1);
        std::vector<std::string> values = {value, value};
        parser->replaceAlarmParamEnumValueDesc(1, values, {{1, key.substr(0, bar)}, {2, key}});
        require(values[0] == value && values[1] == description, "a code has another description");
    }
    return 0;
}
