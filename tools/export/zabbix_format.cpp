// A template of Zabbix 6.0. Each row of the alarm table becomes an item by discovery: its value is the row's level, and
// 0 when the row has left, which ends the problem. A table that cannot be read gives no value at all: problems stay.
//
// Texts of alarms reach Zabbix when it reads the table; of the definitions the template has the causes, which neither
// traps nor the table have.
#include <fmt/format.h>

#include <string>
#include <utility>
#include <vector>

#include "host/notification_log/tamrel_notifications.h"
#include "tools/export/catalogue.h"
#include "tools/export/formats.h"
#include "tools/export/plain_text.h"
#include "tools/export/snmp_objects.h"

namespace vrx {

namespace {

// Zabbix knows template, items and triggers of an earlier import again by their UUIDs (RFC 4122, version 4): they never
// change.
constexpr const char* TEMPLATE_BEGIN =
    R"YAML(# Template of Zabbix 6.0 for VRX storage systems, written by "vrxctl export zabbix".
zabbix_export:
  version: '6.0'
  groups:
    - uuid: 053d4abcbd114cb1ad61ea3d3317f974
      name: Templates/VRX
  templates:
    - uuid: bfb82cb344444b068294e20144d0936a
      template: VRX storage system
      name: VRX storage system
      description: 'Active alarms as problems, traps, and the state of the SNMP agent. Needs an SNMP interface.'
      groups:
        - name: Templates/VRX
      tags:
        - {tag: class, value: storage}
      items:
        - uuid: 9d9fb02d2a5b4936b03c0edba74dcd5a
          name: SNMP agent availability
          type: INTERNAL
          key: 'zabbix[host,snmp,available]'
          delay: '{$VRX.INTERVAL}'
          history: 7d
          valuemap: {name: VRX availability}
          tags:
            - {tag: component, value: agent}
          triggers:
            - uuid: 2ec502d901714fb49eaf2dac8d3c4bae
              expression: 'max(/VRX storage system/zabbix[host,snmp,available],{$VRX.GONE})=0'
              name: 'The SNMP agent does not answer'
              priority: DISASTER
              description: 'Problems of its alarms show what was last known. Look at "systemctl status vrx-agentd" there, and at the community of the host.'
              tags:
                - {tag: scope, value: availability}
        - uuid: 58fe6fdbf9d6472ea354016900f44c68
          name: Alarm table
          type: SNMP_AGENT
          snmp_oid: 'discovery[{#LEVEL},ALARM_ROW.6,{#NODE},ALARM_ROW.1,{#LOCATION},ALARM_ROW.2,{#ADVICE},ALARM_ROW.3,{#TITLE},ALARM_ROW.4,{#DETAIL},ALARM_ROW.10,{#NUMBER},ALARM_ROW.7]'
          key: vrx.alarm.table
          delay: '{$VRX.INTERVAL}'
          history: '0'
          trends: '0'
          value_type: TEXT
          description: 'All rows at once. It has no value while the table cannot be read.'
          preprocessing:
            - type: JAVASCRIPT
              parameters:
                - |
                  // Net-SNMP shows octets that are not ASCII in hex.
                  function plain(text) {
                      if (!/^([0-9A-F]{2}\s+)*[0-9A-F]{2}\s*$/.test(text) || !/[89A-F][0-9A-F](\s|$)/.test(text)) return text;
                      try {
                          return decodeURIComponent(text.replace(/\s+/g, '').replace(/../g, '%$&'));
                      } catch (error) {
                          return text;
                      }
                  }
                  // No macro begins in a text, and none is longer than its field takes.
                  function field(text, length) {
                      text = plain(text || '').replace(/\{(?=\S)/g, '{ ');
                      return text.length <= length ? text : text.substring(0, length - 3).replace(/[\uD800-\uDBFF]$/, '') + '...';
                  }
                  // Columns are read one after the other: a row that came meanwhile lacks the first, one that left the last.
                  return JSON.stringify(JSON.parse(value).filter(function (row) {
                      return /^[1-4]$/.test(row['{#LEVEL}']) && /^[0-9]+$/.test(row['{#NUMBER}']);
                  }).map(function (row) {
                      return {
                          serial: row['{#SNMPINDEX}'], level: row['{#LEVEL}'], number: row['{#NUMBER}'],
                          node: field(row['{#NODE}'], 200), title: field(row['{#TITLE}'], 100),
                          location: field(row['{#LOCATION}'], 100), detail: field(row['{#DETAIL}'], 1500),
                          advice: field(row['{#ADVICE}'], 2000)
                      };
                  }));
          tags:
            - {tag: component, value: alarms}
        - uuid: 2b568384b8434429bacaf0efd45dc1ce
          name: Alarms in the table
          type: DEPENDENT
          key: vrx.alarm.rows
          delay: '0'
          history: 7d
          description: 'Those that the alarm table shows.'
          preprocessing:
            - type: JSONPATH
              parameters:
                - $.length()
          master_item: {key: vrx.alarm.table}
          tags:
            - {tag: component, value: alarms}
        - uuid: 6a498faa756a43c081daad84077ba170
          name: Traps of alarms
          type: SNMP_TRAP
          key: 'snmptrap["(ALARM_TRAPS|VRX-TAMREL-MIB::vrxAlarmNotification\b|VRX-TAMREL-ALARM-MIB::vrx)"]'
          delay: '0'
          history: 90d
          trends: '0'
          value_type: LOG
          description: 'Alarms that were raised and have ended, as they arrived: the common trap, and each alarm''s own.'
          tags:
            - {tag: component, value: traps}
        - uuid: be44134316094ec78f6d69b9cdf84119
          name: Heartbeats of the agent
          type: SNMP_TRAP
          key: 'snmptrap["(HEARTBEAT_TRAP\b|VRX-AGENT-MIB::vrxAgentHeartbeat\b)"]'
          delay: '0'
          history: 7d
          trends: '0'
          value_type: LOG
          description: 'How many traps were sent to this receiver.'
          tags:
            - {tag: component, value: traps}
)YAML";

// One of VRX-AGENT-MIB, of the topology or of SNMPv2-MIB.
struct AgentItem {
    const char* uuid;
    const char* name;
    const char* key;
    const char* oid;
    const char* more;  // lines of its own
};

constexpr const char* STATE_VALUES = R"(          valuemap: {name: VRX backend state}
          triggers:
            - uuid: e40c2bd078ba457da379d2080e66ab11
              expression: 'min(/VRX storage system/vrx.agent.backend.state,{$VRX.GONE})=2'
              name: 'The agent has lost its management backend'
              priority: HIGH
              description: 'It learns of no alarms and sends no traps; problems of alarms show what was last known. Look at the management backend there, and at "vrxctl status".'
              dependencies:
                - name: 'The SNMP agent does not answer'
                  expression: 'max(/VRX storage system/zabbix[host,snmp,available],{$VRX.GONE})=0'
              tags:
                - {tag: scope, value: availability}
)";

constexpr const char* DROPPED_VALUES = R"(          preprocessing:
            - type: SIMPLE_CHANGE
              parameters:
                - ''
          triggers:
            - uuid: 8f6a549d1b654ae5ab7529a76bdd1aba
              expression: 'sum(/VRX storage system/vrx.agent.traps.dropped,{$VRX.DROPPED})>0'
              name: 'The agent has dropped traps'
              priority: WARNING
              description: 'Their receivers will not learn of alarms that were raised or have ended. Reasons by destination: "vrxctl status" there.'
              tags:
                - {tag: scope, value: notice}
)";

constexpr const char* UPTIME_VALUES = R"(          units: uptime
          preprocessing:
            - type: MULTIPLIER
              parameters:
                - '0.01'
)";

constexpr const char* CHANGES = R"(          preprocessing:
            - type: SIMPLE_CHANGE
              parameters:
                - ''
)";

constexpr AgentItem AGENT_ITEMS[] = {
    {"52557a968d7a49789bd7aaab1aba0050", "Uptime of the agent", "vrx.agent.uptime", "1.3.6.1.2.1.1.3.0", UPTIME_VALUES},
    {"550f25efbd2e4b33b0afd44378961a0a", "Status of the storage system", "vrx.topology.status", "TOPOLOGY_ROW.8.1",
     "          valuemap: {name: VRX topology status}\n"},
    {"0077170a1c224e08a510c5ec97016563", "Active alarms", "vrx.agent.alarms.active", "AGENT_OBJECTS.1.1.0", ""},
    {"342bc8fb97fd44568458208c92f91bfe", "Active alarms: critical", "vrx.agent.alarms.critical", "AGENT_OBJECTS.1.2.0",
     ""},
    {"7b285a902c314622b057300e5a297805", "Active alarms: major", "vrx.agent.alarms.major", "AGENT_OBJECTS.1.3.0", ""},
    {"468d6480c4d44c3bb90abf87a15890f6", "Active alarms: minor", "vrx.agent.alarms.minor", "AGENT_OBJECTS.1.4.0", ""},
    {"7746cbaa8c7149c7a8c66fc6dff94556", "Active alarms: warning", "vrx.agent.alarms.warning", "AGENT_OBJECTS.1.5.0",
     ""},
    {"58b14365d6f4444b93cdc0b945776488", "Management backend", "vrx.agent.backend.state", "AGENT_OBJECTS.2.1.0",
     STATE_VALUES},
    {"545c9148c0864bb898ec2c44c076084e", "Traps sent since the last check", "vrx.agent.traps.sent",
     "AGENT_OBJECTS.3.1.0", CHANGES},
    {"f8081288d8b249f89257ff6a1000ffcb", "Traps dropped since the last check", "vrx.agent.traps.dropped",
     "AGENT_OBJECTS.3.2.0", DROPPED_VALUES},
    {"7190e683cf064c69879ddaaefca38d0a", "Traps that wait to be sent", "vrx.agent.traps.waiting", "AGENT_OBJECTS.3.3.0",
     ""},
};

constexpr const char* DISCOVERY = R"(      discovery_rules:
        - uuid: a79ce4674aee4b8ca10b68e268c1c032
          name: Active alarms
          type: DEPENDENT
          key: vrx.alarm.discovery
          delay: '0'
          lifetime: 1d
          description: 'One item for each row of the alarm table; it stays for a day after the alarm has ended.'
          item_prototypes:
            - uuid: 26eb150851234ed58334279dd15887d2
              name: 'Alarm {#SERIAL}: {#TITLE}'
              type: DEPENDENT
              key: 'vrx.alarm.level[{#SERIAL}]'
              delay: '0'
              history: 7d
              trends: '0'
              description: '{#LOCATION} {#DETAIL}'
              valuemap: {name: VRX alarm level}
              preprocessing:
                - type: JSONPATH
                  parameters:
                    - '$[?(@.serial == "{#SERIAL}")].level.first()'
                  error_handler: CUSTOM_VALUE
                  error_handler_params: '0'
              master_item: {key: vrx.alarm.table}
              tags:
                - {tag: component, value: alarms}
                - {tag: node, value: '{#NODE}'}
                - {tag: number, value: '{#NUMBER}'}
                - {tag: serial, value: '{#SERIAL}'}
              trigger_prototypes:
)";

struct Level {
    int value;
    const char* name;
    const char* priority;
    const char* uuid;
};

constexpr Level LEVELS[] = {
    {1, "critical", "DISASTER", "3bc9697ab9be47aaaa88d4bcc28bc1cc"},
    {2, "major", "HIGH", "93dd1cdbbec34239a5848fffbe6313f8"},
    {3, "minor", "AVERAGE", "89e3516f248b4404afd9c3453d92dc62"},
    {4, "warning", "WARNING", "d0d74511994c4947b8da3ae1053647f5"},
};

constexpr const char* TRIGGER_PROTOTYPE = R"(                - uuid: UUID
                  expression: 'last(/VRX storage system/vrx.alarm.level[{#SERIAL}])=VALUE'
                  name: '{#TITLE}: {#LOCATION} (LEVEL, serial {#SERIAL})'
                  event_name: '{#TITLE}: {#LOCATION} {#DETAIL}'
                  priority: PRIORITY
                  description: |
                    {#DETAIL}
                    Advice: {#ADVICE}
                    Cause: {$VRX.CAUSE:"{#NUMBER}"}
                  tags:
                    - {tag: level, value: LEVEL}
                    - {tag: scope, value: alarm}
)";

constexpr const char* DISCOVERY_END = R"(          master_item: {key: vrx.alarm.table}
          lld_macro_paths:
            - {lld_macro: '{#ADVICE}', path: $.advice}
            - {lld_macro: '{#DETAIL}', path: $.detail}
            - {lld_macro: '{#LEVEL}', path: $.level}
            - {lld_macro: '{#LOCATION}', path: $.location}
            - {lld_macro: '{#NODE}', path: $.node}
            - {lld_macro: '{#NUMBER}', path: $.number}
            - {lld_macro: '{#SERIAL}', path: $.serial}
            - {lld_macro: '{#TITLE}', path: $.title}
      macros:
        - macro: '{$VRX.CAUSE}'
          description: 'Cause of an alarm that the exported definitions do not have; those of others are below its number.'
        - macro: '{$VRX.DROPPED}'
          value: 15m
          description: 'How long dropped traps are a problem.'
        - macro: '{$VRX.GONE}'
          value: 5m
          description: 'How long agent or backend is away before that is a problem.'
        - macro: '{$VRX.INTERVAL}'
          value: 1m
          description: 'How often alarm table and agent are read.'
)";

constexpr const char* VALUE_MAPS = R"(      valuemaps:
        - uuid: c5953e24350547c98b17becb42669a20
          name: VRX alarm level
          mappings:
            - {value: '0', newvalue: ended}
            - {value: '1', newvalue: critical}
            - {value: '2', newvalue: major}
            - {value: '3', newvalue: minor}
            - {value: '4', newvalue: warning}
        - uuid: 624434fec6254c678b2200fff01f5ea5
          name: VRX availability
          mappings:
            - {value: '0', newvalue: not available}
            - {value: '1', newvalue: available}
            - {value: '2', newvalue: unknown}
        - uuid: d5fe0fe9fd444634a0f7d341d9ff56d1
          name: VRX backend state
          mappings:
            - {value: '1', newvalue: connected}
            - {value: '2', newvalue: away}
        - uuid: 0e22eec7a1874d86b5a0760680dc83f0
          name: VRX topology status
          mappings:
            - {value: '1', newvalue: online}
            - {value: '2', newvalue: offline}
)";

std::string replaced(std::string text, const std::vector<std::pair<std::string, std::string>>& words) {
    for (const auto& [word, replacement] : words) text = replacedAll(std::move(text), word, replacement);
    return text;
}

// Of several items, so of none of them. It speaks only while agent and backend have been there all the time: else
// others do.
constexpr const char* TABLE_TRIGGER = R"(  triggers:
    - uuid: 4473f9cfedaa4f299e4df80b78931681
      expression: |
        nodata(/VRX storage system/vrx.alarm.rows,{$VRX.GONE})=1 and
        min(/VRX storage system/zabbix[host,snmp,available],{$VRX.GONE})=1 and
        max(/VRX storage system/vrx.agent.backend.state,{$VRX.GONE})=1
      name: 'The alarm table cannot be read'
      priority: HIGH
      description: 'The agent answers, but not for its alarms; problems of alarms show what was last known. Look at "vrxctl status" and the log there: the alarm definitions may be at fault.'
      tags:
        - {tag: scope, value: availability}
)";

// An OID as a regular expression finds it, also where Net-SNMP writes names for its first arcs.
std::string oidPattern(std::string_view oid) {
    constexpr std::string_view ENTERPRISES = "1.3.6.1.4.1";
    return replacedAll(std::string(oid.substr(ENTERPRISES.size())), ".", R"(\.)");
}

std::string agentItem(const AgentItem& item) {
    return fmt::format(
        "        - uuid: {}\n          name: '{}'\n          type: SNMP_AGENT\n          snmp_oid: {}\n"
        "          key: {}\n          delay: '{{$VRX.INTERVAL}}'\n          history: 7d\n{}"
        "          tags:\n            - {{tag: component, value: agent}}\n",
        item.uuid, item.name, item.oid, item.key, item.more);
}

std::string triggerPrototype(const Level& level) {
    return replaced(TRIGGER_PROTOTYPE, {{"UUID", level.uuid},
                                        {"VALUE", std::to_string(level.value)},
                                        {"LEVEL", level.name},
                                        {"PRIORITY", level.priority}});
}

// A value of a macro has at most 2048 characters.
constexpr std::size_t LONGEST_CAUSE = 2000;

// The cause of each alarm that the table can show, the first of each number.
std::string causes(const Catalogue& catalogue) {
    std::string text;
    const CatalogueAlarm* former = nullptr;
    for (const CatalogueAlarm& alarm : catalogue.alarms) {
        if (!alarm.isInTable || (former != nullptr && former->number == alarm.number)) continue;
        former = &alarm;
        text +=
            fmt::format("        - macro: '{{$VRX.CAUSE:\"{}\"}}'\n          value: {}\n          description: {}\n",
                        alarm.number, yamlText(shortened(oneLine(alarm.cause), LONGEST_CAUSE)),
                        yamlText(shortened(oneLine(alarm.title), LONGEST_CAUSE)));
    }
    return text;
}

}  // namespace

std::vector<ExportFile> zabbixFiles(const Catalogue& catalogue) {
    std::string objects = TEMPLATE_BEGIN;
    for (const AgentItem& item : AGENT_ITEMS) objects += agentItem(item);
    const std::string alarmTraps =
        oidPattern(tamrel_notification::COMMON) + R"(\b|)" + oidPattern(tamrel_notification::OWN);
    std::string text = replaced(std::move(objects), {{"ALARM_TRAPS", alarmTraps},
                                                     {"HEARTBEAT_TRAP", oidPattern(snmp_object::HEARTBEAT)},
                                                     {"ALARM_ROW", snmp_object::ALARM_ROW},
                                                     {"TOPOLOGY_ROW", snmp_object::TOPOLOGY_ROW},
                                                     {"AGENT_OBJECTS", snmp_object::AGENT_OBJECTS}});
    text += DISCOVERY;
    for (const Level& level : LEVELS) text += triggerPrototype(level);
    return {{"vrx-zabbix.yaml", text + DISCOVERY_END + causes(catalogue) + VALUE_MAPS + TABLE_TRIGGER}};
}

}  // namespace vrx
