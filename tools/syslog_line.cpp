#include "tools/syslog_line.h"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string_view>

#include "host/notification_log/tamrel_notifications.h"
#include "tools/trap_texts.h"

namespace vrx {

namespace {

using nlohmann::json;

constexpr unsigned int LOCAL0 = 16;
enum Severity : unsigned int { CRITICAL = 2, ERROR, WARNING, NOTICE };

struct LevelSeverity {
    std::string_view level;
    Severity severity;
};
constexpr LevelSeverity SEVERITIES[] = {
    {"critical", CRITICAL}, {"major", ERROR}, {"minor", WARNING}, {"warning", NOTICE}};

// A binding of the alarm's notifications, by the name of the parameter that it becomes.
struct AlarmText {
    const char* parameter;
    unsigned int binding;
};
constexpr AlarmText ALARM_TEXTS[] = {{"node", tamrel_notification::NODE},
                                     {"location", tamrel_notification::LOCATION},
                                     {"advice", tamrel_notification::ADVICE},
                                     {"title", tamrel_notification::NAME}};

// In one line, whoever ends messages at line ends.
std::string oneLine(std::string text) {
    std::replace_if(
        text.begin(), text.end(), [](unsigned char c) { return c < ' ' || c == 0x7F; }, ' ');
    return text;
}

std::string parameter(std::string_view name, const json& value) {
    std::string escaped;
    for (const char c : oneLine(value.is_string() ? value.get<std::string>() : value.dump())) {
        if (c == '"' || c == '\\' || c == ']') escaped += '\\';
        escaped += c;
    }
    return fmt::format(" {}=\"{}\"", name, escaped);
}

std::string alarmTexts(const json& bindings) {
    std::string parameters;
    for (const AlarmText& text : ALARM_TEXTS) {
        for (const char* base : {tamrel_notification::COMMON_BASE, tamrel_notification::OWN_BASE}) {
            const std::string name = fmt::format("{}.{}.0", base, text.binding);
            for (const json& binding : bindings) {
                if (binding["name"] == name && binding["value"].is_string()) {
                    parameters += parameter(text.parameter, binding["value"]);
                }
            }
        }
    }
    return parameters;
}

Severity severityOf(const std::string& type, const json& fields) {
    if (type != "notification") return WARNING;
    if (fields["kind"] != "raise") return NOTICE;
    const auto* found = std::find_if(std::begin(SEVERITIES), std::end(SEVERITIES),
                                     [&fields](const LevelSeverity& one) { return fields["levelName"] == one.level; });
    return found == std::end(SEVERITIES) ? WARNING : found->severity;
}

}  // namespace

bool isSyslogHost(const std::string& host) {
    constexpr std::size_t LONGEST = 255;
    return !host.empty() && host.size() <= LONGEST &&
           std::all_of(host.begin(), host.end(), [](char c) { return c > ' ' && c <= '~'; });
}

std::string syslogLine(const std::string& host, const std::string& type, const std::string& time, const json& fields) {
    std::string parameters;
    std::string text;
    for (const auto& [name, value] : fields.items()) {
        if (name == "bindings") {
            parameters += alarmTexts(value);
        } else if (name == "destinations") {
            parameters += parameter(name, joined(value.get<std::vector<std::string>>()));
        } else if (name == "text") {
            text = " " + value.get<std::string>();
        } else if (name != "time" && !value.is_null()) {
            parameters += parameter(name, value);
        }
    }
    const std::string message = type == "notification" ? fields["kind"].get<std::string>() : type;
    return fmt::format("<{}>1 {} {} vrx - {} [vrx@99871{}]{}", LOCAL0 * 8 + severityOf(type, fields), time, host,
                       message, parameters, text);
}

}  // namespace vrx
