// Differential: the product and the reference render the same alarm and must give the same result, texts and log lines.
//
// The input is lines: parameters, detail, location, suggestion, name, paramDesc (each ends the definition when absent),
// then enumeration members as type=value=description.
#include <tinyxml.h>

#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "fuzz/alarm_host.h"
#include "fuzz/finding.h"
#include "fuzz/input.h"
#include "fuzz/reference_rendering.h"

namespace {

constexpr unsigned long long ALARM = 4295229443ULL;
constexpr unsigned long long UNKNOWN_ALARM = 4295229444ULL;

constexpr const char* ATTRIBUTES[] = {"detail", "location", "suggestion", "name", "paramDesc"};
constexpr std::size_t MEMBERS_AT = 1 + std::size(ATTRIBUTES);

// Values that hold placeholders of themselves are bounded, but far away: the fuzzer looks at cheaper ones, and the
// corpus has the others.
#ifdef TAMREL_FUZZER
constexpr std::size_t MOST_WORK = 1 << 20;
#else
constexpr std::size_t MOST_WORK = std::numeric_limits<std::size_t>::max();
#endif

struct Member {
    std::string type, value, description;
};

struct Case {
    std::string parameters;
    std::vector<std::optional<std::string>> attributes;
    std::vector<Member> members;
};

// XML holds no zero byte.
std::string asText(const std::string& line) {
    return line.c_str();
}

Case readCase(const std::uint8_t* data, std::size_t size) {
    const std::vector<std::string> lines = linesOf(data, size);
    Case c;
    if (!lines.empty()) c.parameters = lines[0];
    c.attributes.resize(std::size(ATTRIBUTES));
    for (std::size_t i = 0; i < std::size(ATTRIBUTES); ++i)
        if (i + 1 < lines.size()) c.attributes[i] = asText(lines[i + 1]);
    for (std::size_t i = MEMBERS_AT; i < lines.size(); ++i) {
        const std::string line = asText(lines[i]);
        const std::size_t first = line.find('=');
        const std::size_t second = first == std::string::npos ? first : line.find('=', first + 1);
        if (second == std::string::npos) continue;
        c.members.push_back(
            {line.substr(0, first), line.substr(first + 1, second - first - 1), line.substr(second + 1)});
    }
    return c;
}

void give(CAlarmConfigParser& parser, const Case& c) {
    TiXmlElement definition("param");
    definition.SetAttribute("eventID", std::to_string(ALARM));
    for (std::size_t i = 0; i < c.attributes.size(); ++i)
        if (c.attributes[i]) definition.SetAttribute(ATTRIBUTES[i], *c.attributes[i]);
    require(parser.parseAlarmItem(&definition) == 0, "a definition is not taken");
    for (const Member& member : c.members) {
        TiXmlElement type("enum_type");
        type.SetAttribute("name", member.type);
        TiXmlElement element("enum_member");
        element.SetAttribute("value", member.value);
        if (!member.description.empty()) element.InsertEndChild(TiXmlText(member.description));
        type.InsertEndChild(element);
        require(parser.parseAlarmParamEnumType(&type) == 0, "an enumeration is not taken");
    }
}

void give(reference::Renderer& renderer, const Case& c) {
    reference::Definition definition;
    definition.id = ALARM;
    definition.detail = c.attributes[0].value_or("None");
    definition.location = c.attributes[1].value_or("None");
    definition.suggestion = c.attributes[2].value_or("None");
    definition.name = c.attributes[3].value_or("None");
    definition.paramDesc = c.attributes[4];
    renderer.define(definition);
    for (const Member& member : c.members)
        if (!member.description.empty()) renderer.enumerate(member.type, member.value, member.description);
}

std::vector<std::string> warningsAndErrors(const FakeLog& log) {
    std::vector<std::string> texts;
    for (const FakeLogLine& line : log.entries())
        if (line.kind == "warn" || line.kind == "error") texts.push_back(line.text);
    return texts;
}

void compare(const std::string& what, const std::string& product, const std::string& reference) {
    if (product != reference) finding(what + "\n  product:   " + product + "\n  reference: " + reference);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const Case c = readCase(data, size);
    AlarmHost alarms;
    CAlarmConfigParser& parser = *CAlarmConfigParser::instance();
    give(parser, c);
    reference::Renderer renderer(MOST_WORK);
    give(renderer, c);

    for (const unsigned long long id : {ALARM, UNKNOWN_ALARM, 0ULL}) {
        reference::Texts expected{"location before", "detail before", 77, "name before", "suggestion before"};
        reference::Texts product = expected;
        const std::size_t logged = renderer.log().size();
        int expectedResult = 0;
        try {
            expectedResult = renderer.render(id, c.parameters, expected);
        } catch (const reference::TooMuchWork&) {
            return 0;
        }
        alarms.host().log().clear();
        const int result = parser.getAlarmInfo(id, c.parameters, product.location, product.detail, product.level,
                                               product.name, product.suggestion);

        compare("result", std::to_string(result), std::to_string(expectedResult));
        compare("level", std::to_string(product.level), std::to_string(expected.level));
        compare("location", product.location, expected.location);
        compare("detail", product.detail, expected.detail);
        compare("suggestion", product.suggestion, expected.suggestion);
        compare("name", product.name, expected.name);

        const std::vector<std::string> lines = warningsAndErrors(alarms.host().log());
        compare("log lines", std::to_string(lines.size()), std::to_string(renderer.log().size() - logged));
        for (std::size_t i = 0; i < lines.size(); ++i) compare("log line", lines[i], renderer.log()[logged + i]);
    }
    return 0;
}
