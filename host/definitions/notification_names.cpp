#include "host/definitions/notification_names.h"

#include <fmt/format.h>
#include <tinyxml.h>

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <map>
#include <string_view>

#include "alarm/alarm_xml_file.h"
#include "module/vrx_exception.h"

namespace vrx {

namespace {

constexpr std::size_t LONGEST_NAME = 64;        // RFC 2578, section 3.1
constexpr std::size_t LONGEST_USUAL_NAME = 32;  // the same section recommends it, and some compilers take no longer one
constexpr const char* NO_REVISION = "200001010000Z";

// What VRX-TAMREL-ALARM-MIB and the objects that it imports have names of their own for.
constexpr const char* RESERVED[] = {"vrxtamrel", "vrxnamedalarm"};

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

bool isLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool isUpper(char c) {
    return c >= 'A' && c <= 'Z';
}

constexpr char CASE_DISTANCE = 'a' - 'A';

std::string lowered(std::string text) {
    for (char& c : text)
        if (isUpper(c)) c = static_cast<char>(c + CASE_DISTANCE);
    return text;
}

// Empty where the words make no name. Letters that are not of ASCII would leave holes.
std::string nameOf(const std::string& title) {
    std::string name = "vrx";
    bool isStart = true;
    for (const char c : title) {
        if (static_cast<unsigned char>(c) >= 0x80) return "";
        if (isLetter(c) || isDigit(c)) {
            name += isStart && isLetter(c) && !isUpper(c) ? static_cast<char>(c - CASE_DISTANCE) : c;
            isStart = false;
        } else {
            isStart = true;
        }
    }
    if (name.size() == 3 || name.size() > LONGEST_NAME) return "";
    const std::string lower = lowered(name);
    for (const std::string reserved : RESERVED)
        if (lower.compare(0, reserved.size(), reserved) == 0) return "";
    constexpr std::string_view BY_NUMBER = "vrxalarm";
    const std::string_view number = std::string_view(lower).substr(std::min(BY_NUMBER.size(), lower.size()));
    const bool looksNumbered = lower.compare(0, BY_NUMBER.size(), BY_NUMBER) == 0 && !number.empty() &&
                               std::all_of(number.begin(), number.end(), isDigit);
    return looksNumbered ? "" : name;
}

std::string textOf(const TiXmlElement& element, const char* attribute) {
    const char* const text = element.Attribute(attribute);
    return text == nullptr ? "" : text;
}

unsigned int numberAt(const std::string& text, std::size_t begin, std::size_t digits) {
    return static_cast<unsigned int>(std::strtoul(text.substr(begin, digits).c_str(), nullptr, 10));
}

// YYYYMMDDHHMMZ of a year that SMIv2 can have.
bool isDate(const std::string& text) {
    if (text.size() != 13 || text.back() != 'Z' || !std::all_of(text.begin(), text.end() - 1, isDigit)) return false;
    const unsigned int year = numberAt(text, 0, 4);
    const unsigned int month = numberAt(text, 4, 2);
    const unsigned int day = numberAt(text, 6, 2);
    constexpr unsigned int DAYS[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    if (year < 1990 || month < 1 || month > 12) return false;
    const bool isLeap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
    const unsigned int days = DAYS[month - 1] + (month == 2 && isLeap ? 1 : 0);
    return day >= 1 && day <= days && numberAt(text, 8, 2) < 24 && numberAt(text, 10, 2) < 60;
}

}  // namespace

std::optional<std::uint32_t> notificationNumber(const std::string& alarmOid) {
    if (alarmOid.compare(0, 2, "0.") != 0 || alarmOid.size() < 3 || alarmOid.size() > 12 || alarmOid[2] == '0' ||
        !std::all_of(alarmOid.begin() + 2, alarmOid.end(), isDigit))
        return std::nullopt;
    const unsigned long long number = std::strtoull(alarmOid.c_str() + 2, nullptr, 10);
    if (number > std::numeric_limits<std::uint32_t>::max()) return std::nullopt;
    return static_cast<std::uint32_t>(number);
}

std::vector<std::string> notificationNames(const std::vector<AlarmTitle>& alarms) {
    std::vector<std::string> names;
    std::map<std::string, int> uses;  // smilint takes names that differ in case only for a fault
    for (const AlarmTitle& alarm : alarms) {
        names.push_back(nameOf(alarm.name));
        ++uses[lowered(names.back())];
    }
    for (std::size_t i = 0; i < names.size(); ++i) {
        if (!names[i].empty() && uses[lowered(names[i])] == 1) continue;
        const auto number = notificationNumber(alarms[i].alarmOid);
        names[i] = number ? fmt::format("vrxAlarm{}", *number) : "";
    }
    return names;
}

std::string moduleRevision(const std::string& mibRevision) {
    return isDate(mibRevision) ? mibRevision : NO_REVISION;
}

std::vector<LintFinding> lintForMib(const std::string& definitionFile) {
    TiXmlDocument document;
    try {
        loadAlarmXmlFile("cannot load (", definitionFile, document);
    } catch (const CVRX_Exception&) {
        return {};  // lintDefinitions() has said why
    }
    const TiXmlElement* const root = document.FirstChildElement("root");
    const TiXmlElement* const list = root == nullptr ? nullptr : root->FirstChildElement("eventDefinition");
    if (list == nullptr) return {};

    std::vector<LintFinding> findings;
    const auto warning = [&](const TiXmlElement& element, const char* rule, const std::string& text) {
        findings.push_back({definitionFile, element.Row(), LintSeverity::Warning, rule, text});
    };
    const std::string revision = textOf(*list, "mibRevision");
    if (moduleRevision(revision) != revision)
        warning(
            *list, "mib-revision",
            fmt::format("mibRevision \"{}\" is no date YYYYMMDDHHMMZ; the MIB module has {}", revision, NO_REVISION));

    std::vector<AlarmTitle> alarms;
    std::vector<const TiXmlElement*> elements;
    for (const TiXmlElement* alarm = list->FirstChildElement("param"); alarm != nullptr;
         alarm = alarm->NextSiblingElement("param")) {
        alarms.push_back({textOf(*alarm, "name"), textOf(*alarm, "alarmOid")});
        elements.push_back(alarm);
    }
    const std::vector<std::string> names = notificationNames(alarms);
    for (std::size_t i = 0; i < names.size(); ++i) {
        const std::string wanted = nameOf(alarms[i].name);
        if (names[i].empty()) continue;  // its alarmOid is at fault, too
        if (wanted != names[i])
            warning(
                *elements[i], "notification-name",
                wanted.empty()
                    ? fmt::format("name \"{}\" cannot be that of a notification; it is {}", alarms[i].name, names[i])
                    : fmt::format("another alarm's notification is {}, too; this one is {}", wanted, names[i]));
        else if (wanted.size() > LONGEST_USUAL_NAME)
            warning(*elements[i], "long-notification-name",
                    fmt::format("{} has {} characters; some MIB compilers take {}", wanted, wanted.size(),
                                LONGEST_USUAL_NAME));
    }
    return findings;
}

}  // namespace vrx
