// A configuration file of snmptt: for each alarm's own notification, and for the one that all have in common, an EVENT
// for each level while the alarm is active, and one for its end. An SNMPv1 trap has no binding 12, and what follows it
// is moved: only bindings 1 to 11 are used.
#include <fmt/format.h>

#include <string>

#include "host/notification_log/heartbeat_notification.h"
#include "host/notification_log/tamrel_notifications.h"
#include "host/snmp/oid_vector.h"
#include "tools/export/catalogue.h"
#include "tools/export/formats.h"
#include "tools/export/plain_text.h"

namespace vrx {

namespace {

constexpr const char* HEAD =
    R"(# snmptt configuration for the notifications of VRX storage systems, written by "vrxctl export snmptt".
# snmptt.ini must have multiple_event = 1, as it has where nobody changed it.
# Severity is the level of binding 6, Normal when binding 11 says that the alarm has ended.
)";

// An enumerated value is a number or a name: that depends on the options and the MIB modules of the receiver.
struct Kind {
    const char* severity;
    const char* level;  // regular expression for binding 6; null: any
    bool isEnd;
};

constexpr Kind KINDS[] = {
    {"Critical", "1|critical", false}, {"Major", "2|major", false}, {"Minor", "3|minor", false},
    {"Warning", "4|warning", false},   {"Normal", nullptr, true},
};

constexpr std::size_t LONGEST_LINE = 2000;

// snmptt replaces variables before it makes "$$" a dollar, so "$$5" would be a dollar and binding 5. No variable begins
// with a blank.
std::string literal(const std::string& text) {
    std::string plain;
    const std::string line = shortened(oneLine(text), LONGEST_LINE);
    for (std::size_t i = 0; i < line.size(); ++i) {
        plain += line[i];
        if (line[i] != '$') continue;
        plain += '$';
        if (i + 1 < line.size() && line[i + 1] != ' ') plain += ' ';
    }
    return plain;
}

// `title` is part of the line, a text or a variable. Each line of the description begins with a word of ours: snmptt
// takes one that begins with EXEC for a command.
std::string eventsOf(const std::string& name, std::string_view oid, const std::string& title,
                     const std::string& description) {
    std::string events;
    for (const Kind& kind : KINDS) {
        events += fmt::format("\nEVENT {}{} .{} \"VRX\" {}\n", name, kind.isEnd ? "End" : "", oid, kind.severity);
        events += kind.isEnd ? fmt::format("FORMAT {}: ended. $2 (serial $9, alarm $7, node $1)\n", title)
                             : fmt::format("FORMAT {}: $2 $10 Advice: $3 (serial $9, alarm $7, node $1)\n", title);
        if (kind.level != nullptr) events += fmt::format("MATCH MODE=and\nMATCH $6: (^({})$)\n", kind.level);
        events += fmt::format("MATCH $11: {}(^(2|cleared)$)\n", kind.isEnd ? "" : "! ");
        events += "SDESC\n" + description + "EDESC\n";
    }
    return events;
}

// A category of its own, as whoever counts alarms by category does not want it.
std::string heartbeatEvent() {
    using namespace heartbeat_notification;
    return fmt::format(
        "\nEVENT vrxAgentHeartbeat .{} \"VRX heartbeat\" Normal\n"
        "FORMAT Heartbeat ${} of trap destination ${}: ${} traps sent so far, next heartbeat in ${} s (0: none) "
        "(engine ${})\n"
        "SDESC\nHow many traps the agent has sent to this destination: vrxctl gaps finds those that are missing in "
        "snmptrapd's log.\nEDESC\n",
        oidText(NOTIFICATION), NUMBER, DESTINATION, TRAPS, NEXT, ENGINE);
}

}  // namespace

std::vector<ExportFile> snmpttFiles(const Catalogue& catalogue) {
    std::string text = HEAD;
    text +=
        eventsOf("vrxAlarmNotification", tamrel_notification::COMMON, "$4", "Any alarm; its texts are in the trap.\n");
    for (const CatalogueAlarm& alarm : catalogue.alarms)
        text += eventsOf(alarm.notification, alarm.oid, literal(alarm.title),
                         "Cause: " + literal(alarm.cause) + "\nAdvice: " + literal(alarm.sample.advice) + "\n");
    text += heartbeatEvent();
    return {{"vrx-snmptt.conf", text}};
}

}  // namespace vrx
