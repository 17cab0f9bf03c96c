#include "tools/trap_commands.h"

#include <fmt/format.h>
#include <sysexits.h>
#include <time.h>

#include <algorithm>
#include <charconv>
#include <iostream>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>

#include "host/base/product_root.h"
#include "host/command_line/option_parser.h"
#include "host/notification_log/notification_codec.h"
#include "host/notification_log/notification_texts.h"
#include "host/snmp/hexadecimal.h"
#include "tools/agent_call.h"
#include "tools/terminal_text.h"

namespace vrx {

namespace {

using nlohmann::json;
using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::system_clock;

NotificationLogReader openLog() {
    return NotificationLogReader(productPath("state/notification_log.db"));
}

LoggedNotification entryOf(std::uint64_t number) {
    const std::optional<LoggedNotification> entry = openLog().find(number);
    if (!entry) throw std::runtime_error("the notification log has no entry " + std::to_string(number));
    return *entry;
}

// Local time, with milliseconds.
std::string timeText(system_clock::time_point time) {
    const std::time_t whole = system_clock::to_time_t(std::chrono::floor<seconds>(time));
    std::tm parts{};
    ::localtime_r(&whole, &parts);
    char text[32];
    const std::size_t length = std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts);
    const auto rest = std::chrono::duration_cast<milliseconds>(time - std::chrono::floor<seconds>(time));
    return fmt::format("{}.{:03}", std::string(text, length), rest.count());
}

// RFC 3339, in UTC.
std::string utcText(system_clock::time_point time) {
    const std::time_t whole = system_clock::to_time_t(std::chrono::floor<seconds>(time));
    std::tm parts{};
    ::gmtime_r(&whole, &parts);
    char text[32];
    const std::size_t length = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &parts);
    const auto rest = std::chrono::duration_cast<milliseconds>(time - std::chrono::floor<seconds>(time));
    return fmt::format("{}.{:03}Z", std::string(text, length), rest.count());
}

std::string joined(const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& name : names) text += (text.empty() ? "" : ",") + name;
    return text;
}

struct TypeName {
    unsigned char type;
    const char* name;
};
constexpr TypeName TYPES[] = {
    {ASN_NULL, "NULL"},           {ASN_INTEGER, "INTEGER"},     {ASN_COUNTER, "Counter32"},
    {ASN_GAUGE, "Gauge32"},       {ASN_TIMETICKS, "TimeTicks"}, {ASN_COUNTER64, "Counter64"},
    {ASN_IPADDRESS, "IpAddress"}, {ASN_OBJECT_ID, "OID"},       {ASN_OCTET_STR, "STRING"},
};

std::string typeText(unsigned char type) {
    const auto* found =
        std::find_if(std::begin(TYPES), std::end(TYPES), [type](const TypeName& one) { return one.type == type; });
    return found == std::end(TYPES) ? fmt::format("type {}", type) : found->name;
}

// UTF-8 without control characters but those of line ends and tabs.
bool isText(std::string octets) {
    octets.erase(std::remove(octets.begin(), octets.end(), '\r'), octets.end());
    return terminalLines(octets) == octets;
}

std::string valueText(const SnmpValue& value) {
    switch (value.type) {
        case ASN_NULL:
            return "";
        case ASN_INTEGER:
            return std::to_string(static_cast<std::int64_t>(value.number));
        case ASN_OCTET_STR:
            return isText(value.octets) ? value.octets : "0x" + hexadecimal(value.octets);
        case ASN_OBJECT_ID:
            return oidText(oidOfOctets(value.octets));
        case ASN_IPADDRESS: {
            std::string text;
            for (const char octet : value.octets) {
                text += (text.empty() ? "" : ".") + std::to_string(static_cast<unsigned char>(octet));
            }
            return text;
        }
        default:
            return std::to_string(value.number);
    }
}

json valueJson(const SnmpValue& value) {
    switch (value.type) {
        case ASN_NULL:
            return nullptr;
        case ASN_INTEGER:
            return static_cast<std::int64_t>(value.number);
        case ASN_OCTET_STR:
        case ASN_OBJECT_ID:
        case ASN_IPADDRESS:
            return valueText(value);
        default:
            return value.number;
    }
}

// For a terminal, in one line.
std::string lineOf(std::string text) {
    std::replace_if(
        text.begin(), text.end(), [](char c) { return c == '\n' || c == '\r' || c == '\t'; }, ' ');
    return terminalText(text);
}

json jsonOf(const LoggedNotification& entry) {
    json object = {{"number", entry.number},
                   {"time", utcText(entry.time)},
                   {"event", entry.sequence},
                   {"alarmId", entry.alarmId},
                   {"serial", entry.serial},
                   {"kind", kindText(entry)},
                   {"level", entry.level ? json(*entry.level) : json()},
                   {"levelName", levelText(entry) ? json(*levelText(entry)) : json()},
                   {"trapOid", entry.trapOid},
                   {"trap", trapText(entry)},
                   {"destinations", entry.destinations},
                   {"held", entry.because == SentBecause::Held},
                   {"again", entry.again > 0 ? json(entry.again) : json()},
                   {"text", lineOf(descriptionOf(entry))},
                   {"bindings", json::array()}};
    const std::optional<Notification> trap = trapFrom(entry.trap);
    if (!trap) return object;
    for (const NotificationBinding& binding : trap->bindings) {
        object["bindings"].push_back({{"name", oidText(binding.name)},
                                      {"type", typeText(binding.value.type)},
                                      {"value", valueJson(binding.value)}});
    }
    return object;
}

// Texts come from files and backends of others: bytes that are no UTF-8 are replaced, not fatal, and a terminal gets
// none of their control characters.
void print(std::ostream& out, const json& document, int indent) {
    out << document.dump(indent, ' ', true, json::error_handler_t::replace);
}

struct Unit {
    char letter;
    long length;  // in seconds
};
constexpr Unit UNITS[] = {{'s', 1}, {'m', 60}, {'h', 3600}, {'d', 86400}};

std::optional<long> numberOf(std::string_view text) {
    long number = 0;
    const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    constexpr long MOST = 100'000'000'000;  // the year 5138, in seconds
    if (text.empty() || error != std::errc() || stop != text.data() + text.size() || number < 0 || number > MOST) {
        return std::nullopt;
    }
    return number;
}

}  // namespace

system_clock::time_point momentOf(const std::string& text, system_clock::time_point now) {
    const std::invalid_argument wrong("\"" + text +
                                      "\" is no time: 2026-11-21, \"2026-11-21 09:14:03\", 2026-11-21T09:14:03Z, "
                                      "@SECONDS since 1970, or how long ago: 90s, 15m, 2h, 3d");
    if (text.empty()) throw wrong;
    if (text.front() == '@') {
        const std::optional<long> count = numberOf(std::string_view(text).substr(1));
        if (!count) throw wrong;
        return system_clock::time_point(seconds(*count));
    }
    for (const Unit& unit : UNITS) {
        if (text.back() != unit.letter) continue;
        const std::optional<long> count = numberOf(std::string_view(text).substr(0, text.size() - 1));
        constexpr long MOST_DAYS = 100'000;
        if (!count || *count * unit.length > MOST_DAYS * 86400) throw wrong;
        return now - seconds(*count * unit.length);
    }
    const bool utc = text.back() == 'Z';
    const std::string local = utc ? text.substr(0, text.size() - 1) : text;
    for (const char* format :
         {"%Y-%m-%d", "%Y-%m-%d %H:%M", "%Y-%m-%dT%H:%M", "%Y-%m-%d %H:%M:%S", "%Y-%m-%dT%H:%M:%S"}) {
        std::tm parts{};
        const char* end = ::strptime(local.c_str(), format, &parts);
        if (end == nullptr || end != local.c_str() + local.size()) continue;
        parts.tm_isdst = -1;
        const std::time_t time = utc ? ::timegm(&parts) : ::mktime(&parts);
        return system_clock::from_time_t(time);
    }
    throw wrong;
}

TrapTexts trapTexts(const LoggedNotification& entry) {
    const std::string because = becauseText(entry);
    return {
        timeText(entry.time),           kindText(entry),
        levelText(entry).value_or("-"), trapText(entry),
        joined(entry.destinations),     lineOf(descriptionOf(entry)) + (because.empty() ? "" : " (" + because + ")")};
}

void printTraps(std::ostream& out, const NotificationLogFilter& filter) {
    constexpr const char* ROW = "{:>8}  {:<23}  {:>20}  {:<5}  {:<8}  {:<6}  {:<12}  {}\n";
    bool any = false;
    openLog().list(filter, [&](const LoggedNotification& entry) {
        if (!any)
            out << fmt::format(ROW, "NUMBER", "TIME", "ALARM ID", "KIND", "LEVEL", "TRAP", "DESTINATIONS", "TEXT");
        any = true;
        const TrapTexts texts = trapTexts(entry);
        out << fmt::format(ROW, entry.number, texts.time, entry.alarmId, texts.kind, texts.level, texts.trap,
                           texts.destinations, texts.text);
    });
    if (!any) out << "no such traps\n";
}

// One entry a line: the log may be long.
void printTrapsAsJson(std::ostream& out, const NotificationLogFilter& filter) {
    out << "[";
    const char* separator = "\n";
    openLog().list(filter, [&](const LoggedNotification& entry) {
        out << separator;
        print(out, jsonOf(entry), -1);
        separator = ",\n";
    });
    out << "\n]\n";
}

void printTrap(std::ostream& out, std::uint64_t number) {
    const LoggedNotification entry = entryOf(number);
    constexpr const char* ROW = "{:<13} {}\n";
    out << fmt::format(ROW, "number", entry.number) << fmt::format(ROW, "time", timeText(entry.time))
        << fmt::format(ROW, "alarm ID", entry.alarmId) << fmt::format(ROW, "serial", entry.serial)
        << fmt::format(ROW, "kind", kindText(entry)) << fmt::format(ROW, "level", levelText(entry).value_or("-"))
        << fmt::format(ROW, "event", entry.sequence)
        << fmt::format(ROW, "trap", fmt::format("{} ({})", entry.trapOid, trapText(entry)))
        << fmt::format(ROW, "destinations", joined(entry.destinations));
    if (const std::string because = becauseText(entry); !because.empty()) out << fmt::format(ROW, "sent", because);
    const std::optional<Notification> trap = trapFrom(entry.trap);
    if (!trap) throw std::runtime_error("the trap of entry " + std::to_string(number) + " cannot be read");
    out << "bindings\n";
    for (const NotificationBinding& binding : trap->bindings) {
        out << fmt::format("  {} = {}: {}\n", oidText(binding.name), typeText(binding.value.type),
                           terminalLines(valueText(binding.value)));
    }
}

void printTrapAsJson(std::ostream& out, std::uint64_t number) {
    print(out, jsonOf(entryOf(number)), 2);
    out << "\n";
}

void resendTrap(std::ostream& out, std::uint64_t number, const std::string& to) {
    json request = {{"number", number}};
    if (!to.empty()) request["to"] = to;
    const json answer = json::parse(callAgent("POST", "/traps/resend", request.dump()), nullptr, false);
    if (!answer.is_object()) throw AgentCallError("the agent's answer is no JSON");
    out << "sent again to " << joined(answer.at("destinations").get<std::vector<std::string>>()) << "\n";
    const auto missing = answer.at("missing").get<std::vector<std::string>>();
    if (!missing.empty()) out << "no longer there: " << joined(missing) << "\n";
}

void TrapsCommand::define(OptionParser& command) {
    command.setCommands(0, 1);
    command.add("--last", filter.last, "the newest of those selected, at most so many");
    command.add("--since", since, "from this time on: 2026-11-21, \"2026-11-21 09:14\", or 15m, 2h, 3d ago");
    command.add("--until", until, "up to this time");
    command.add("--alarm", filter.alarmId, "with this identifier in the definition file");
    command.add("--serial", filter.serial, "of the alarm with this serial number");
    command.add("--kind", kind, "raise or clear").oneOf({"raise", "clear"});
    command.add("--destination", filter.destination, "sent to this destination");
    command.addFlag("--json", json, "as JSON");
    show = &command.addCommand("show", "show one with all its variable bindings");
    show->add("NUMBER", number, "its number in the list").required();
    show->addFlag("--json", json, "as JSON");
    resend = &command.addCommand("resend", "make the agent send one again");
    resend->add("NUMBER", number, "its number in the list").required();
    resend->add("--to", to, "to this destination (default: those of the first time)");
}

int TrapsCommand::run() {
    if (resend->given()) {
        resendTrap(std::cout, number, to);
    } else if (show->given()) {
        json ? printTrapAsJson(std::cout, number) : printTrap(std::cout, number);
    } else {
        const auto now = system_clock::now();
        if (!since.empty()) filter.since = momentOf(since, now);
        if (!until.empty()) filter.until = momentOf(until, now);
        if (!kind.empty()) filter.raised = kind == "raise";
        json ? printTrapsAsJson(std::cout, filter) : printTraps(std::cout, filter);
    }
    return EX_OK;
}

}  // namespace vrx
