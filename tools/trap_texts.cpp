#include "tools/trap_texts.h"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <optional>

#include "host/notification_log/notification_codec.h"
#include "host/notification_log/notification_texts.h"
#include "host/snmp/hexadecimal.h"
#include "tools/terminal_text.h"
#include "tools/time_text.h"

namespace vrx {

using nlohmann::json;

namespace {

constexpr const char* ROW = "{:>8}  {:<23}  {:>20}  {:<5}  {:<8}  {:<6}  {:<12}  {}\n";

struct TypeName {
    unsigned char type;
    const char* name;
};
constexpr TypeName TYPES[] = {
    {ASN_NULL, "NULL"},           {ASN_INTEGER, "INTEGER"},     {ASN_COUNTER, "Counter32"},
    {ASN_GAUGE, "Gauge32"},       {ASN_TIMETICKS, "TimeTicks"}, {ASN_COUNTER64, "Counter64"},
    {ASN_IPADDRESS, "IpAddress"}, {ASN_OBJECT_ID, "OID"},       {ASN_OCTET_STR, "STRING"},
};

// UTF-8 without control characters but those of line ends and tabs.
bool isText(std::string octets) {
    octets.erase(std::remove(octets.begin(), octets.end(), '\r'), octets.end());
    return terminalLines(octets) == octets;
}

// For a terminal, in one line.
std::string lineOf(std::string text) {
    std::replace_if(
        text.begin(), text.end(), [](char c) { return c == '\n' || c == '\r' || c == '\t'; }, ' ');
    return terminalText(text);
}

}  // namespace

std::string joined(const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& name : names) text += (text.empty() ? "" : ",") + name;
    return text;
}

std::string typeText(unsigned char type) {
    const auto* found =
        std::find_if(std::begin(TYPES), std::end(TYPES), [type](const TypeName& one) { return one.type == type; });
    return found == std::end(TYPES) ? fmt::format("type {}", type) : found->name;
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

namespace {

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

}  // namespace

json jsonOf(const LoggedNotification& entry) {
    json object = {{"number", entry.number},
                   {"time", utcTime(entry.time)},
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

std::string dumped(const json& document, int indent) {
    return document.dump(indent, ' ', true, json::error_handler_t::replace);
}

std::string trapTableHead() {
    return fmt::format(ROW, "NUMBER", "TIME", "ALARM ID", "KIND", "LEVEL", "TRAP", "DESTINATIONS", "TEXT");
}

TrapTexts trapTexts(const LoggedNotification& entry) {
    const std::string because = becauseText(entry);
    return {
        localTime(entry.time),          kindText(entry),
        levelText(entry).value_or("-"), trapText(entry),
        joined(entry.destinations),     lineOf(descriptionOf(entry)) + (because.empty() ? "" : " (" + because + ")")};
}

std::string trapTableRow(const LoggedNotification& entry) {
    const TrapTexts texts = trapTexts(entry);
    return fmt::format(ROW, entry.number, texts.time, entry.alarmId, texts.kind, texts.level, texts.trap,
                       texts.destinations, texts.text);
}

}  // namespace vrx
