#include "tools/status_text.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>

#include "tools/agent_call.h"
#include "tools/terminal_text.h"

namespace vrx {

namespace {

bool isHistogram(const StatusJson& value) {
    return value.is_object() && value.contains("p99_seconds");
}

bool areNumbers(const StatusJson& value) {
    return value.is_object() && std::all_of(value.begin(), value.end(),
                                            [](const StatusJson& number) { return number.is_number_unsigned(); });
}

// "0.0041" for seconds: as exact as anybody needs.
std::string plainNumber(const StatusJson& value) {
    return value.is_number_float() ? fmt::format("{:.4g}", value.get<double>()) : value.dump();
}

std::string timesOf(const StatusJson& histogram) {
    if (histogram.at("count") == 0) return "-";
    const auto milliseconds = [&](const char* name) { return histogram.at(name).get<double>() * 1000; };
    return fmt::format("{}; half within {:.3g} ms, 90 % {:.3g} ms, 99 % {:.3g} ms, longest {:.3g} ms",
                       plainNumber(histogram.at("count")), milliseconds("p50_seconds"), milliseconds("p90_seconds"),
                       milliseconds("p99_seconds"), milliseconds("max_seconds"));
}

// What of a member of a list is at fault: its name and what it says of itself.
struct Listed {
    const char* list;
    const char* name;
    const char* state;
    std::vector<const char*> good;
    const char* title;
};
const Listed LISTED[] = {
    {"destinations", "number", "state", {"ready", "not used yet"}, "trap destination"},
    {"informs", "destination", "state", {"answers", "not used yet"}, "inform destination"},
    {"objects", "name", "readable", {"yes"}, "object"},
};

struct Trouble {
    const char* field;
    bool good;
    const char* text;
};
constexpr Trouble TROUBLES[] = {
    {"/backend/connected", true, "the backend is away"},
    {"/events/definitions_loaded", true, "the alarm definitions cannot be loaded, alarm events wait"},
    {"/agent/last_reload_taken", true, "the last reload was refused"},
};

}  // namespace

StatusJson parsedAnswer(const std::string& text) {
    StatusJson answer = StatusJson::parse(text, nullptr, false);
    if (answer.is_discarded()) throw AgentCallError("the agent's answer is no JSON");
    return answer;
}

StatusJson statusField(const StatusJson& status, const char* path) {
    return status.value(StatusJson::json_pointer(path), StatusJson());
}

std::string countsText(const StatusJson& counts) {
    std::uint64_t sum = 0;
    std::string parts;
    for (const auto& [name, count] : counts.items()) {
        const auto number = count.get<std::uint64_t>();
        if (number == 0) continue;
        sum += number;
        parts += fmt::format("{}{} {}", parts.empty() ? " (" : ", ", name, number);
    }
    return std::to_string(sum) + (parts.empty() ? "" : parts + ")");
}

std::string statusText(const StatusJson& value) {
    if (value.is_null()) return "-";
    if (value.is_string()) return value.get<std::string>().empty() ? "-" : terminalText(value.get<std::string>());
    if (value.is_boolean()) return value.get<bool>() ? "yes" : "no";
    if (value.is_number()) return plainNumber(value);
    if (isHistogram(value)) return timesOf(value);
    if (areNumbers(value)) return countsText(value);
    if (!value.is_array()) return value.dump();
    std::string list;
    for (const StatusJson& one : value) list += (list.empty() ? "" : " ") + statusText(one);
    return list.empty() ? "-" : list;
}

std::string durationText(const StatusJson& seconds) {
    if (!seconds.is_number()) return "-";
    constexpr std::uint64_t MINUTE = 60;
    constexpr std::uint64_t HOUR = 60 * MINUTE;
    constexpr std::uint64_t DAY = 24 * HOUR;
    const auto whole = static_cast<std::uint64_t>(std::max(0.0, seconds.get<double>()));
    if (whole >= DAY) return fmt::format("{} d {} h", whole / DAY, whole % DAY / HOUR);
    if (whole >= HOUR) return fmt::format("{} h {} min", whole / HOUR, whole % HOUR / MINUTE);
    return whole >= MINUTE ? fmt::format("{} min", whole / MINUTE) : fmt::format("{} s", whole);
}

std::vector<std::string> troublesIn(const StatusJson& status) {
    std::vector<std::string> troubles;
    for (const Trouble& trouble : TROUBLES) {
        const StatusJson value = statusField(status, trouble.field);
        if (value.is_boolean() && value.get<bool>() != trouble.good) troubles.emplace_back(trouble.text);
    }
    if (const StatusJson fault = statusField(status, "/notification_log/fault");
        fault.is_string() && !fault.get_ref<const std::string&>().empty()) {
        troubles.push_back("the notification log cannot be written: " + statusText(fault));
    }
    for (const Listed& listed : LISTED) {
        for (const StatusJson& one : status.value(listed.list, StatusJson::array())) {
            const std::string state = statusText(one.value(listed.state, StatusJson()));
            if (std::find(listed.good.begin(), listed.good.end(), state) != listed.good.end()) continue;
            troubles.push_back(fmt::format("{} {} {}", listed.title, statusText(one.value(listed.name, StatusJson())),
                                           state == "no" ? "cannot be read" : state));
        }
    }
    return troubles;
}

}  // namespace vrx
