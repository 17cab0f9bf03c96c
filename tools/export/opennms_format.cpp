// Event definitions of OpenNMS (eventconf): for each alarm's own notification, and for the one that all have in common,
// an event for each level while the alarm is active, and one for its end, which clears the alarm. An SNMPv1 trap has no
// binding 12, and what follows it is moved: only bindings 1 to 11 are used.
#include <fmt/format.h>

#include <iterator>
#include <string>
#include <string_view>

#include "host/notification_log/heartbeat_notification.h"
#include "host/notification_log/tamrel_notifications.h"
#include "host/snmp/oid_vector.h"
#include "tools/export/catalogue.h"
#include "tools/export/formats.h"
#include "tools/export/plain_text.h"

namespace vrx {

namespace {

constexpr const char* EVENTS_HEAD = R"(<?xml version="1.0" encoding="UTF-8"?>
<!-- Events of VRX storage systems, written by "vrxctl export opennms". Severity is the level of binding 6, Normal when
     binding 11 says that the alarm has ended. -->
<events xmlns="http://xmlns.opennms.org/xsd/eventconf">
)";

constexpr const char* EVENTS_TAIL = "</events>\n";

// Children of an event have a fixed order. OpenNMS shows descriptions as HTML.
constexpr const char* EVENT = R"(  <event>
    <mask>
      <maskelement><mename>id</mename><mevalue>.{enterprise}</mevalue></maskelement>
      <maskelement><mename>generic</mename><mevalue>6</mevalue></maskelement>
      <maskelement><mename>specific</mename><mevalue>{specific}</mevalue></maskelement>
{varbinds}    </mask>
    <uei>uei.opennms.org/vendor/vrx/traps/{uei}</uei>
    <event-label>VRX: {label}</event-label>
    <descr>{descr}</descr>
    <logmsg dest="logndisplay">{logmsg}</logmsg>
    <severity>{severity}</severity>
{rest}  </event>
)";

constexpr const char* ALARM_PARAMETERS = R"(    <operinstruct>%parm[#3]%</operinstruct>
    <parameter name="node" value="%parm[#1]%" expand="true"/>
    <parameter name="location" value="%parm[#2]%" expand="true"/>
    <parameter name="advice" value="%parm[#3]%" expand="true"/>
    <parameter name="title" value="%parm[#4]%" expand="true"/>
    <parameter name="number" value="%parm[#7]%" expand="true"/>
    <parameter name="serial" value="%parm[#9]%" expand="true"/>
    <parameter name="detail" value="%parm[#10]%" expand="true"/>
)";

// The same for both traps of an alarm and for all levels: where both are sent they are one alarm.
constexpr const char* ALARM_DATA_RAISED =
    R"(    <alarm-data reduction-key="vrx:%nodeid%:%parm[#1]%:%parm[#7]%:%parm[#9]%" alarm-type="1" auto-clean="false"/>
)";
constexpr const char* ALARM_DATA_ENDED =
    R"(    <alarm-data reduction-key="vrx-end:%nodeid%:%parm[#1]%:%parm[#7]%:%parm[#9]%" alarm-type="2" clear-key="vrx:%nodeid%:%parm[#1]%:%parm[#7]%:%parm[#9]%" auto-clean="false"/>
)";

struct EventKind {
    const char* name;
    const char* severity;
    unsigned int level;  // binding 6; 0: any
    bool isEnd;
};

constexpr EventKind EVENT_KINDS[] = {
    {"critical", "Critical", 1, false}, {"major", "Major", 2, false}, {"minor", "Minor", 3, false},
    {"warning", "Warning", 4, false},   {"end", "Normal", 0, true},
};

constexpr std::size_t LONGEST_LABEL = 250;
constexpr std::size_t LONGEST_DESCRIPTION = 2000;

// How OpenNMS matches a trap: of SNMPv2, RFC 3584, section 3.2, makes enterprise and specific trap of its OID.
struct TrapNumbers {
    std::string_view enterprise;
    std::string_view specific;
};

TrapNumbers numbersOf(std::string_view oid) {
    const std::size_t dot = oid.rfind('.');
    std::string_view enterprise = oid.substr(0, dot);
    constexpr std::string_view ZERO = ".0";
    if (enterprise.size() > ZERO.size() && enterprise.substr(enterprise.size() - ZERO.size()) == ZERO)
        enterprise.remove_suffix(ZERO.size());
    return {enterprise, oid.substr(dot + 1)};
}

// A text in HTML in XML, in an element whose %tokens% OpenNMS replaces.
std::string descriptionText(const std::string& text) {
    return replacedAll(markupText(markupText(shortened(oneLine(text), LONGEST_DESCRIPTION))), "%", "%pctsign%");
}

std::string varbindsOf(const EventKind& kind) {
    constexpr const char* VARBIND = "      <varbind><vbnumber>{}</vbnumber>{}</varbind>\n";
    std::string varbinds;
    if (kind.level != 0) varbinds = fmt::format(VARBIND, 6, fmt::format("<vbvalue>{}</vbvalue>", kind.level));
    return varbinds +
           fmt::format(VARBIND, 11, kind.isEnd ? "<vbvalue>2</vbvalue>" : "<vbvalue>1</vbvalue><vbvalue>3</vbvalue>");
}

// `label` and `cause` are XML.
void addEvents(std::string& text, std::string_view uei, std::string_view oid, const std::string& label,
               const std::string& cause) {
    const TrapNumbers numbers = numbersOf(oid);
    for (const EventKind& kind : EVENT_KINDS)
        fmt::format_to(
            std::back_inserter(text), EVENT, fmt::arg("enterprise", numbers.enterprise),
            fmt::arg("specific", numbers.specific), fmt::arg("varbinds", varbindsOf(kind)),
            fmt::arg("uei", fmt::format("{}/{}", uei, kind.name)),
            fmt::arg("label", fmt::format("{}, {}", label, kind.name)),
            fmt::arg("descr", "&lt;p&gt;%parm[#10]%&lt;/p&gt;" + cause),
            fmt::arg("logmsg", kind.isEnd ? "%parm[#4]%: ended. %parm[#2]%" : "%parm[#4]%: %parm[#2]% %parm[#10]%"),
            fmt::arg("severity", kind.severity),
            fmt::arg("rest", std::string(ALARM_PARAMETERS).append(kind.isEnd ? ALARM_DATA_ENDED : ALARM_DATA_RAISED)));
}

// No alarm: a count to compare with.
void addHeartbeat(std::string& text) {
    using namespace heartbeat_notification;
    const std::string oid = oidText(NOTIFICATION);
    const TrapNumbers numbers = numbersOf(oid);
    constexpr const char* PARAMETER = "    <parameter name=\"{}\" value=\"%parm[#{}]%\" expand=\"true\"/>\n";
    fmt::format_to(
        std::back_inserter(text), EVENT, fmt::arg("enterprise", numbers.enterprise),
        fmt::arg("specific", numbers.specific), fmt::arg("varbinds", ""), fmt::arg("uei", "heartbeat"),
        fmt::arg("label", "heartbeat of the agent"),
        fmt::arg("descr",
                 "How many traps the agent has sent to a destination: \"vrxctl gaps\" finds those that are "
                 "missing in a receiver's log."),
        fmt::arg("logmsg", fmt::format("Heartbeat %parm[#{}]% of trap destination %parm[#{}]%: %parm[#{}]% traps sent "
                                       "so far, next heartbeat in %parm[#{}]% s (0: none)",
                                       NUMBER, DESTINATION, TRAPS, NEXT)),
        fmt::arg("severity", "Normal"),
        fmt::arg("rest", fmt::format(PARAMETER, "engine", ENGINE) + fmt::format(PARAMETER, "destination", DESTINATION) +
                             fmt::format(PARAMETER, "heartbeat", NUMBER) + fmt::format(PARAMETER, "traps", TRAPS) +
                             fmt::format(PARAMETER, "next", NEXT)));
}

}  // namespace

std::vector<ExportFile> opennmsFiles(const Catalogue& catalogue) {
    std::string text = EVENTS_HEAD;
    addEvents(text, "anyAlarm", tamrel_notification::COMMON, "any alarm", "");
    for (const CatalogueAlarm& alarm : catalogue.alarms)
        addEvents(text, alarm.notification, alarm.oid, markupText(shortened(oneLine(alarm.title), LONGEST_LABEL)),
                  "&lt;p&gt;Cause: " + descriptionText(alarm.cause) + "&lt;/p&gt;");
    addHeartbeat(text);
    text += EVENTS_TAIL;
    return {{"vrx.events.xml", std::move(text)}};
}

}  // namespace vrx
