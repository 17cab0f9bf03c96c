// Files for Prometheus with snmp_exporter: one series for each row of the alarm table, with the row's texts as labels,
// and rules that make an alert of it. No text of a definition stands in a template: annotations take the texts from
// labels.
#include <fmt/format.h>

#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "tools/export/catalogue.h"
#include "tools/export/formats.h"
#include "tools/export/plain_text.h"
#include "tools/export/snmp_objects.h"

namespace vrx {

namespace {

// The alarm table is a module of its own: while it cannot be read, the agent's state still can.
constexpr const char* SNMP_MODULE_TEMPLATES =
    R"(# Modules of snmp_exporter 0.21, written by "vrxctl export prometheus". Set your read-only community.
vrx_alarms:
  version: 2
  auth: {community: public}
  max_repetitions: 25
  timeout: 10s
  # No row has this number. snmp_exporter takes a table that cannot be read for an empty one when it walks, but not here.
  get:
    - ALARM_ROW.6.4294967295
  walk:
    - ALARM_ROW
  metrics:
    - name: vrxAlarmFaultLevel
      oid: ALARM_ROW.6
      type: EnumAsInfo
      help: An active alarm.
      indexes:
        - {labelname: serial, type: gauge}
      lookups:
        - {labels: [serial], labelname: node, oid: ALARM_ROW.1, type: DisplayString}
        - {labels: [serial], labelname: location, oid: ALARM_ROW.2, type: DisplayString}
        - {labels: [serial], labelname: advice, oid: ALARM_ROW.3, type: DisplayString}
        - {labels: [serial], labelname: title, oid: ALARM_ROW.4, type: DisplayString}
        - {labels: [serial], labelname: number, oid: ALARM_ROW.7, type: gauge}
        - {labels: [serial], labelname: detail, oid: ALARM_ROW.10, type: DisplayString}
      enum_values: {1: critical, 2: major, 3: minor, 4: warning}
    - name: vrxAlarmFaultTime
      oid: ALARM_ROW.8
      type: DateAndTime
      help: When the alarm was raised.
      indexes:
        - {labelname: serial, type: gauge}

vrx_agent:
  version: 2
  auth: {community: public}
  max_repetitions: 25
  timeout: 10s
  walk:
    - AGENT_OBJECTS
  get:
    - 1.3.6.1.2.1.1.3.0
    - TOPOLOGY_ROW.1.1
    - TOPOLOGY_ROW.4.1
    - TOPOLOGY_ROW.5.1
    - TOPOLOGY_ROW.8.1
  metrics:
    - name: sysUpTime
      oid: 1.3.6.1.2.1.1.3
      type: gauge
      help: Hundredths of a second since the agent's start.
    - name: vrxTopologyStatus
      oid: TOPOLOGY_ROW.8
      type: EnumAsStateSet
      help: Whether the management backend answered when this was read.
      indexes:
        - {labelname: vrxTopologyIndex, type: gauge}
      lookups:
        - {labels: [vrxTopologyIndex], labelname: node, oid: TOPOLOGY_ROW.1, type: DisplayString}
        - {labels: [vrxTopologyIndex], labelname: address, oid: TOPOLOGY_ROW.4, type: DisplayString}
        - {labels: [vrxTopologyIndex], labelname: kind, oid: TOPOLOGY_ROW.5, type: DisplayString}
      enum_values: {1: online, 2: offline}
    - name: vrxAgentAlarmsActive
      oid: AGENT_OBJECTS.1.1
      type: gauge
      help: Active alarms.
    - name: vrxAgentAlarmsCritical
      oid: AGENT_OBJECTS.1.2
      type: gauge
      help: Active alarms of level critical.
    - name: vrxAgentAlarmsMajor
      oid: AGENT_OBJECTS.1.3
      type: gauge
      help: Active alarms of level major.
    - name: vrxAgentAlarmsMinor
      oid: AGENT_OBJECTS.1.4
      type: gauge
      help: Active alarms of level minor.
    - name: vrxAgentAlarmsWarning
      oid: AGENT_OBJECTS.1.5
      type: gauge
      help: Active alarms of level warning.
    - name: vrxAgentAlarmChanges
      oid: AGENT_OBJECTS.1.6
      type: counter
      help: Changes of the active alarms since the agent's start.
    - name: vrxAgentAlarmLastChange
      oid: AGENT_OBJECTS.1.7
      type: gauge
      help: sysUpTime of the last of these changes.
    - name: vrxAgentAlarmLastChangeTime
      oid: AGENT_OBJECTS.1.8
      type: DateAndTime
      help: The same moment as date and time.
    - name: vrxAgentAlarmLastEvent
      oid: AGENT_OBJECTS.1.9
      type: gauge
      help: Number of the backend's last event.
    - name: vrxAgentBackendState
      oid: AGENT_OBJECTS.2.1
      type: EnumAsStateSet
      help: Whether the agent receives events from the management backend.
      enum_values: {1: connected, 2: away}
    - name: vrxAgentBackendSince
      oid: AGENT_OBJECTS.2.2
      type: gauge
      help: sysUpTime when this state began.
    - name: vrxAgentBackendConnections
      oid: AGENT_OBJECTS.2.3
      type: counter
      help: Connections with the backend since the agent's start.
    - name: vrxAgentTrapsSent
      oid: AGENT_OBJECTS.3.1
      type: counter
      help: Traps that were handed to the network since the agent's start.
    - name: vrxAgentTrapsDropped
      oid: AGENT_OBJECTS.3.2
      type: counter
      help: Traps that were dropped since the agent's start.
    - name: vrxAgentTrapsWaiting
      oid: AGENT_OBJECTS.3.3
      type: gauge
      help: Traps that wait to be sent.
)";

constexpr const char* PROMETHEUS =
    R"(# Configuration of Prometheus, written by "vrxctl export prometheus". Rules depend on the names of the jobs.
global:
  scrape_interval: 30s
  evaluation_interval: 30s
rule_files:
  - vrx-rules.yml
alerting:
  alertmanagers:
    - static_configs:
        - targets: ["127.0.0.1:9093"]
scrape_configs:
  # Storage systems by SNMP, through snmp_exporter: the list of their addresses is in vrx-systems.json.
  - job_name: vrx-alarms
    metrics_path: /snmp
    params: {module: [vrx_alarms]}
    scrape_timeout: 25s
    file_sd_configs: &systems
      - files: [vrx-systems.json]
    relabel_configs: &exporter
      - {source_labels: [__address__], target_label: __param_target}
      - {source_labels: [__address__], target_label: instance}
      - {target_label: __address__, replacement: "127.0.0.1:9116"}
  - job_name: vrx-snmp
    metrics_path: /snmp
    params: {module: [vrx_agent]}
    scrape_timeout: 25s
    file_sd_configs: *systems
    relabel_configs: *exporter
  # Metrics of the agent itself (vrxMetrics tcp:127.0.0.1:9161), for a Prometheus on the same machine: vrx-agents.json.
  - job_name: vrx-metrics
    file_sd_configs:
      - files: [vrx-agents.json]
  # Storage systems by the metrics of their agents alone, alarms included, over TLS: vrx-fleet.json has their addresses.
  - job_name: vrx-fleet
    scheme: https
    # tls_config: {ca_file: vrx-agents-ca.pem, cert_file: vrx-collector.pem, key_file: vrx-collector.key}
    file_sd_configs:
      - files: [vrx-fleet.json]
)";

// While the table cannot be read, or its metrics have not all of it, alarms stay as they were last seen: an agent that
// restarts, or loses its backend, is not the end of its alarms.
//
// To a Prometheus that was killed, series that ended meanwhile seem to go on for five minutes: nothing has marked their
// end. So rows are those of the last scrape, which are as old as its "up", and what other rules have recorded is taken
// from this evaluation ([1ms]) alone.
constexpr const char* ALARM_RULES =
    R"YAML(# Rules of Prometheus, written by "vrxctl export prometheus"; vrx-rules-test.yml has their tests.
groups:
  - name: vrx-alarms
    rules:
      - record: vrx:alarm:row
        expr: |
          sum without (job, vrxAlarmFaultLevel) (label_replace(
            vrxAlarmFaultLevel_info
              unless (timestamp(vrxAlarmFaultLevel_info) < on (job, instance) group_left () timestamp(up)),
            "level", "$1", "vrxAlarmFaultLevel", "(.*)"))
          or
          sum without (job, name, alarm_id) (label_replace(
            vrx_alarm{job="vrx-fleet"}
              unless (timestamp(vrx_alarm{job="vrx-fleet"}) < on (job, instance) group_left () timestamp(up)),
            "title", "$1", "name", "(.*)"))
      - record: vrx:alarm:active
        expr: |
          last_over_time(vrx:alarm:row[1ms]) * on (number) group_left (cause) topk by (number) (1, vrx_alarm_definition_info)
          or on (instance, serial)
          last_over_time(vrx:alarm:row[1ms])
          or
          (vrx:alarm:active
            and on (instance) (
              up{job=~"vrx-alarms|vrx-fleet"} == 0
              or vrx_alarms_current{job="vrx-fleet"} == 0
              or vrx_alarms_left_out{job="vrx-fleet"} > 0)
            unless on (instance, serial) last_over_time(vrx:alarm:row[1ms]))
)YAML";

struct AlertLevel {
    const char* alert;
    const char* severity;
    const char* matcher;
};

// An alarm of another level would be a warning, as the agent counts it.
constexpr AlertLevel ALERT_LEVELS[] = {
    {"VrxAlarmCritical", "critical", "level=\"critical\""},
    {"VrxAlarmMajor", "major", "level=\"major\""},
    {"VrxAlarmMinor", "minor", "level=\"minor\""},
    {"VrxAlarmWarning", "warning", "level!~\"critical|major|minor\""},
};

// Long texts are annotations only: labels are an alert's identity.
constexpr const char* ALARM_ALERT = R"(      - alert: {}
        expr: last_over_time(vrx:alarm:active{{{}}}[1ms])
        labels: {{severity: {}, level: "", detail: "", advice: "", cause: ""}}
        annotations:)";

constexpr const char* ALARM_ANNOTATIONS = R"(
          summary: '{{ $labels.title }}: {{ $labels.location }}'
          title: '{{ $labels.title }}'
          location: '{{ $labels.location }}'
          detail: '{{ $labels.detail }}'
          advice: '{{ $labels.advice }}'
          cause: '{{ $labels.cause }}'
)";

constexpr const char* AGENT_RULES =
    R"(
  - name: vrx-agent
    rules:
      - alert: VrxAgentGone
        expr: up{job="vrx-snmp"} == 0
        for: 2m
        labels: {severity: critical}
        annotations:
          summary: 'The SNMP agent of {{ $labels.instance }} does not answer'
          description: 'Alerts for its alarms show what was last known.'
          advice: 'Look at "systemctl status vrx-agentd" there, at the community in snmp.yml, and at snmp_exporter.'
      - alert: VrxBackendAway
        expr: vrxAgentBackendState{vrxAgentBackendState="away"} == 1 or vrx_backend_connected{job="vrx-fleet"} == 0
        for: 1m
        labels: {severity: critical, vrxAgentBackendState: ""}
        annotations:
          summary: 'The agent of {{ $labels.instance }} has lost its management backend'
          description: 'It learns of no alarms and sends no traps; alerts for alarms show what was last known.'
          advice: 'Look at the management backend there, and at "vrxctl status".'
      - alert: VrxAlarmsUnreadable
        expr: |
          up{job="vrx-alarms"} == 0
          unless on (instance) (up{job="vrx-snmp"} == 0 or vrxAgentBackendState{vrxAgentBackendState="away"} == 1)
          or
          vrx_alarms_current{job="vrx-fleet"} == 0 unless on (instance) vrx_backend_connected == 0
        for: 5m
        labels: {severity: critical}
        annotations:
          summary: 'The alarm table of {{ $labels.instance }} cannot be read'
          description: 'The agent answers, but not for its alarms; alerts for them show what was last known.'
          advice: 'Look at "vrxctl status" and the log there: the alarm definitions may be at fault.'
      - alert: VrxTrapsDropped
        expr: increase(vrxAgentTrapsDropped[15m]) > 0
        labels: {severity: warning}
        annotations:
          summary: '{{ $labels.instance }} has dropped {{ $value | printf "%.0f" }} traps in 15 minutes'
          description: 'Their receivers will not learn of alarms that were raised or have ended.'
          advice: 'Reasons by destination: "vrxctl status" there.'

  - name: vrx-metrics
    rules:
      - alert: VrxAgentMetricsGone
        expr: up{job=~"vrx-metrics|vrx-fleet"} == 0
        for: 2m
        labels: {severity: critical}
        annotations:
          summary: 'The metrics of the agent at {{ $labels.instance }} cannot be read'
          advice: 'Look at "systemctl status vrx-agentd", and at vrxMetrics in vrx-agentd.conf.'
      - alert: VrxDestinationNotReady
        expr: vrx_destination_ready == 0
        for: 5m
        labels: {severity: warning}
        annotations:
          summary: '{{ $labels.instance }} cannot send traps to destination {{ $labels.destination }}'
          advice: 'The reason: "vrxctl status" there.'
      - alert: VrxInformsNotAcknowledged
        expr: vrx_inform_receiver_answers == 0
        for: 5m
        labels: {severity: warning}
        annotations:
          summary: 'Inform receiver {{ $labels.destination }} of {{ $labels.instance }} does not acknowledge'
          advice: 'Its last failure: "vrxctl status" there.'
      - alert: VrxAlarmDefinitionsFaulty
        expr: vrx_alarm_definitions_loaded == 0
        for: 1m
        labels: {severity: critical}
        annotations:
          summary: 'The agent at {{ $labels.instance }} cannot load its alarm definitions'
          description: 'No alarm is reported until it can.'
          advice: 'Check the files by "vrxctl lint".'
      - alert: VrxAlarmsLeftOut
        expr: vrx_alarms_left_out{job="vrx-fleet"} > 0
        for: 5m
        labels: {severity: warning}
        annotations:
          summary: 'The metrics of {{ $labels.instance }} lack {{ $value | printf "%.0f" }} active alarms'
          description: 'The newest ones are there. Until all are, alerts for others stay, also when these end.'
          advice: 'Raise vrxMetricsAlarms in vrx-agentd.conf.'
)";

constexpr const char* DEFINITIONS = R"(
  # Causes, which neither traps nor the alarm table have.
  - name: vrx-definitions
    interval: 1m
    rules:
)";

constexpr const char* AGENT_TESTS =
    R"(  # Alarms of an agent that is away stay; those of one that is back are as its table has them.
  - name: an agent that is away
    interval: 1m
    input_series:
      - {series: 'up{job="vrx-alarms",instance="storage"}', values: '1x2 0x3 1x4'}
      - {series: 'up{job="vrx-snmp",instance="storage"}', values: '1x2 0x3 1x4'}
      - {series: 'vrxAlarmFaultLevel_info{job="vrx-alarms",instance="storage",serial="1",number="0",vrxAlarmFaultLevel="major"}', values: '1x2 stale _x3 1x3'}
      - {series: 'vrxAlarmFaultLevel_info{job="vrx-alarms",instance="storage",serial="2",number="0",vrxAlarmFaultLevel="major"}', values: '1x2 stale'}
    promql_expr_test:
      - expr: count(vrx:alarm:active)
        eval_time: 5m
        exp_samples: [{value: 2}]
      - expr: count(vrx:alarm:active)
        eval_time: 7m
        exp_samples: [{value: 1}]
    alert_rule_test:
      - eval_time: 4m
        alertname: VrxAgentGone
      - eval_time: 5m
        alertname: VrxAgentGone
        exp_alerts:
          - exp_labels: {severity: critical, job: vrx-snmp, instance: storage}
            exp_annotations:
              summary: 'The SNMP agent of storage does not answer'
              description: 'Alerts for its alarms show what was last known.'
              advice: 'Look at "systemctl status vrx-agentd" there, at the community in snmp.yml, and at snmp_exporter.'
      - eval_time: 7m
        alertname: VrxAgentGone

  - name: a backend that is away
    interval: 1m
    input_series:
      - {series: 'up{job="vrx-alarms",instance="storage"}', values: '1x2 0x7'}
      - {series: 'up{job="vrx-snmp",instance="storage"}', values: '1x9'}
      - {series: 'vrxAgentBackendState{job="vrx-snmp",instance="storage",vrxAgentBackendState="away"}', values: '0x2 1x6 0'}
      - {series: 'vrxAlarmFaultLevel_info{job="vrx-alarms",instance="storage",serial="1",number="0",vrxAlarmFaultLevel="major"}', values: '1x2 stale'}
    promql_expr_test:
      - expr: count(vrx:alarm:active)
        eval_time: 8m
        exp_samples: [{value: 1}]
    alert_rule_test:
      - eval_time: 5m
        alertname: VrxBackendAway
        exp_alerts:
          - exp_labels: {severity: critical, job: vrx-snmp, instance: storage}
            exp_annotations:
              summary: 'The agent of storage has lost its management backend'
              description: 'It learns of no alarms and sends no traps; alerts for alarms show what was last known.'
              advice: 'Look at the management backend there, and at "vrxctl status".'
      - eval_time: 9m
        alertname: VrxAlarmsUnreadable

  - name: an alarm table that cannot be read
    interval: 1m
    input_series:
      - {series: 'up{job="vrx-alarms",instance="storage"}', values: '0x9'}
      - {series: 'up{job="vrx-snmp",instance="storage"}', values: '1x9'}
    alert_rule_test:
      - eval_time: 6m
        alertname: VrxAlarmsUnreadable
        exp_alerts:
          - exp_labels: {severity: critical, job: vrx-alarms, instance: storage}
            exp_annotations:
              summary: 'The alarm table of storage cannot be read'
              description: 'The agent answers, but not for its alarms; alerts for them show what was last known.'
              advice: 'Look at "vrxctl status" and the log there: the alarm definitions may be at fault.'

  - name: traps that are dropped
    interval: 1m
    input_series:
      - {series: 'vrxAgentTrapsDropped{job="vrx-snmp",instance="storage"}', values: '0x20 10x40'}
    alert_rule_test:
      - eval_time: 20m
        alertname: VrxTrapsDropped
      - eval_time: 25m
        alertname: VrxTrapsDropped
        exp_alerts:
          - exp_labels: {severity: warning, job: vrx-snmp, instance: storage}
            exp_annotations:
              summary: 'storage has dropped 10 traps in 15 minutes'
              description: 'Their receivers will not learn of alarms that were raised or have ended.'
              advice: 'Reasons by destination: "vrxctl status" there.'
      - eval_time: 50m
        alertname: VrxTrapsDropped

  - name: metrics of the agent
    interval: 1m
    input_series:
      - {series: 'up{job="vrx-metrics",instance="a"}', values: '0x9'}
      - {series: 'vrx_destination_ready{job="vrx-metrics",instance="b",destination="1"}', values: '0x9'}
      - {series: 'vrx_destination_ready{job="vrx-metrics",instance="b",destination="2"}', values: '1x9'}
      - {series: 'vrx_inform_receiver_answers{job="vrx-metrics",instance="b",destination="3"}', values: '0x9'}
      - {series: 'vrx_alarm_definitions_loaded{job="vrx-metrics",instance="b"}', values: '0x9'}
    alert_rule_test:
      - eval_time: 6m
        alertname: VrxAgentMetricsGone
        exp_alerts:
          - exp_labels: {severity: critical, job: vrx-metrics, instance: a}
            exp_annotations:
              summary: 'The metrics of the agent at a cannot be read'
              advice: 'Look at "systemctl status vrx-agentd", and at vrxMetrics in vrx-agentd.conf.'
      - eval_time: 6m
        alertname: VrxDestinationNotReady
        exp_alerts:
          - exp_labels: {severity: warning, job: vrx-metrics, instance: b, destination: 1}
            exp_annotations:
              summary: 'b cannot send traps to destination 1'
              advice: 'The reason: "vrxctl status" there.'
      - eval_time: 6m
        alertname: VrxInformsNotAcknowledged
        exp_alerts:
          - exp_labels: {severity: warning, job: vrx-metrics, instance: b, destination: 3}
            exp_annotations:
              summary: 'Inform receiver 3 of b does not acknowledge'
              advice: 'Its last failure: "vrxctl status" there.'
      - eval_time: 6m
        alertname: VrxAlarmDefinitionsFaulty
        exp_alerts:
          - exp_labels: {severity: critical, job: vrx-metrics, instance: b}
            exp_annotations:
              summary: 'The agent at b cannot load its alarm definitions'
              description: 'No alarm is reported until it can.'
              advice: 'Check the files by "vrxctl lint".'

  # The agent is away, and back with one of its two alarms, which then ends.
  - name: alarms among the metrics
    interval: 1m
    input_series:
      - {series: 'up{job="vrx-fleet",instance="far"}', values: '1x2 0x2 1x10'}
      - {series: 'vrx_alarms_current{job="vrx-fleet",instance="far"}', values: '1x2 stale _x2 1x10'}
      - {series: 'vrx_alarm{job="vrx-fleet",instance="far",node="A",serial="1",alarm_id="9",number="0",level="major",name="Fan",location="Left.",detail="It stopped.",advice="Turn it."}', values: '1x2 stale _x2 1x2 stale'}
      - {series: 'vrx_alarm{job="vrx-fleet",instance="far",node="A",serial="2",alarm_id="9",number="0",level="major",name="Fan"}', values: '1x2 stale'}
      - {series: 'vrx_alarm{job="vrx-metrics",instance="near",node="B",serial="3",alarm_id="9",number="0",level="major",name="Fan"}', values: '1x16'}
    promql_expr_test:
      - expr: count(vrx:alarm:active)
        eval_time: 1m
        exp_samples: [{value: 2}]
      - expr: count(vrx:alarm:active)
        eval_time: 5m
        exp_samples: [{value: 2}]
      - expr: count(vrx:alarm:active)
        eval_time: 7m
        exp_samples: [{value: 1}]
    alert_rule_test:
      - eval_time: 5m
        alertname: VrxAgentMetricsGone
        exp_alerts:
          - exp_labels: {severity: critical, job: vrx-fleet, instance: far}
            exp_annotations:
              summary: 'The metrics of the agent at far cannot be read'
              advice: 'Look at "systemctl status vrx-agentd", and at vrxMetrics in vrx-agentd.conf.'
      - eval_time: 7m
        alertname: VrxAlarmMajor
        exp_alerts:
          - exp_labels: {severity: major, instance: far, node: A, serial: 1, number: 0, title: Fan, location: Left.}
            exp_annotations: {summary: 'Fan: Left.', title: Fan, location: Left., detail: It stopped., advice: Turn it., cause: ''}
      - eval_time: 10m
        alertname: VrxAlarmMajor

  # Prometheus was away, so no scrape has told it of the ends of alarms, and series seem to go on for five minutes.
  - name: alarms that ended while Prometheus was away
    interval: 1m
    input_series:
      - {series: 'up{job="vrx-fleet",instance="far"}', values: '1x2 _x2 1x5'}
      - {series: 'vrx_alarm{job="vrx-fleet",instance="far",serial="1",level="major",name="Fan"}', values: '1x2 _x7'}
      - {series: 'vrx_alarm{job="vrx-fleet",instance="far",serial="2",level="minor",name="Fan"}', values: '1x2 _x2 1x5'}
      - {series: 'up{job="vrx-alarms",instance="storage"}', values: '1x2 _x2 1x5'}
      - {series: 'vrxAlarmFaultLevel_info{job="vrx-alarms",instance="storage",serial="1",vrxAlarmFaultLevel="major"}', values: '1x2 _x7'}
      - {series: 'vrxAlarmFaultLevel_info{job="vrx-alarms",instance="storage",serial="2",vrxAlarmFaultLevel="minor"}', values: '1x2 _x2 1x5'}
    promql_expr_test:
      - expr: count(vrx:alarm:active)
        eval_time: 2m
        exp_samples: [{value: 4}]
      - expr: count(vrx:alarm:active{level="minor"})
        eval_time: 5m
        exp_samples: [{value: 2}]
    alert_rule_test:
      - eval_time: 5m
        alertname: VrxAlarmMajor

  - name: alarms that the metrics lack
    interval: 1m
    input_series:
      - {series: 'up{job="vrx-fleet",instance="full"}', values: '1x20'}
      - {series: 'up{job="vrx-fleet",instance="unread"}', values: '1x20'}
      - {series: 'up{job="vrx-fleet",instance="cut off"}', values: '1x20'}
      - {series: 'vrx_alarms_left_out{job="vrx-fleet",instance="full"}', values: '0x2 5x6 0x10'}
      - {series: 'vrx_alarms_current{job="vrx-fleet",instance="unread"}', values: '1x2 0x6 1x10'}
      - {series: 'vrx_backend_connected{job="vrx-fleet",instance="unread"}', values: '1x20'}
      - {series: 'vrx_alarms_current{job="vrx-fleet",instance="cut off"}', values: '1x2 0x6 1x10'}
      - {series: 'vrx_backend_connected{job="vrx-fleet",instance="cut off"}', values: '1x2 0x6 1x10'}
      - {series: 'vrx_alarm{job="vrx-fleet",instance="full",serial="1",level="major",name="Fan"}', values: '1x2 stale'}
      - {series: 'vrx_alarm{job="vrx-fleet",instance="unread",serial="1",level="major",name="Fan"}', values: '1x2 stale'}
      - {series: 'vrx_alarm{job="vrx-fleet",instance="unread",serial="2",level="major",name="Fan"}', values: '1x20'}
      - {series: 'vrx_alarm{job="vrx-fleet",instance="cut off",serial="1",level="major",name="Fan"}', values: '1x2 stale'}
    promql_expr_test:
      - expr: count(vrx:alarm:active)
        eval_time: 8m
        exp_samples: [{value: 4}]
      - expr: count(vrx:alarm:active)
        eval_time: 11m
        exp_samples: [{value: 1}]
    alert_rule_test:
      - eval_time: 8m
        alertname: VrxAlarmsLeftOut
        exp_alerts:
          - exp_labels: {severity: warning, job: vrx-fleet, instance: full}
            exp_annotations:
              summary: 'The metrics of full lack 5 active alarms'
              description: 'The newest ones are there. Until all are, alerts for others stay, also when these end.'
              advice: 'Raise vrxMetricsAlarms in vrx-agentd.conf.'
      - eval_time: 8m
        alertname: VrxAlarmsUnreadable
        exp_alerts:
          - exp_labels: {severity: critical, job: vrx-fleet, instance: unread}
            exp_annotations:
              summary: 'The alarm table of unread cannot be read'
              description: 'The agent answers, but not for its alarms; alerts for them show what was last known.'
              advice: 'Look at "vrxctl status" and the log there: the alarm definitions may be at fault.'
      - eval_time: 8m
        alertname: VrxBackendAway
        exp_alerts:
          - exp_labels: {severity: critical, job: vrx-fleet, instance: cut off}
            exp_annotations:
              summary: 'The agent of cut off has lost its management backend'
              description: 'It learns of no alarms and sends no traps; alerts for alarms show what was last known.'
              advice: 'Look at the management backend there, and at "vrxctl status".'
)";

std::string snmpModules() {
    std::string text = SNMP_MODULE_TEMPLATES;
    for (const auto& [name, oid] : {std::pair("ALARM_ROW", snmp_object::ALARM_ROW),
                                    {"TOPOLOGY_ROW", snmp_object::TOPOLOGY_ROW},
                                    {"AGENT_OBJECTS", snmp_object::AGENT_OBJECTS}})
        text = replacedAll(std::move(text), name, oid);
    return text;
}

constexpr std::size_t LONGEST_ANNOTATION = 2000;

std::string causeOf(const CatalogueAlarm& alarm) {
    return shortened(oneLine(alarm.cause), LONGEST_ANNOTATION);
}

// The first alarm of each number: a second series of one number would leave it to chance which cause is shown.
std::vector<const CatalogueAlarm*> byNumber(const Catalogue& catalogue) {
    std::vector<const CatalogueAlarm*> alarms;
    for (const CatalogueAlarm& alarm : catalogue.alarms)
        if (alarms.empty() || alarms.back()->number != alarm.number) alarms.push_back(&alarm);
    return alarms;
}

std::string rules(const std::vector<const CatalogueAlarm*>& alarms) {
    std::string text = ALARM_RULES;
    for (const AlertLevel& level : ALERT_LEVELS)
        text += fmt::format(ALARM_ALERT, level.alert, level.matcher, level.severity) + ALARM_ANNOTATIONS;
    text += AGENT_RULES;
    if (!alarms.empty()) text += DEFINITIONS;
    for (const CatalogueAlarm* alarm : alarms)
        text += fmt::format(
            "      - record: vrx_alarm_definition_info\n        expr: vector(1)\n"
            "        labels: {{number: \"{}\", title: {}, cause: {}}}\n",
            alarm->number, yamlText(oneLine(alarm->title)), yamlText(causeOf(*alarm)));
    return text;
}

// In double quotes, as PromQL reads it; U+FFFD as it is would be a fault of the encoding there.
std::string promqlText(std::string text) {
    for (const auto& [from, to] : {std::pair("\\", "\\\\"), {"\"", "\\\""}, {"\n", "\\n"}, {"\xEF\xBF\xBD", "\\uFFFD"}})
        text = replacedAll(std::move(text), from, to);
    return '"' + text + '"';
}

// An occurrence of an alarm that shows in the table. Levels take turns, so that alarms stand for all of them.
struct Occurrence {
    const CatalogueAlarm* alarm;
    std::size_t serial;

    [[nodiscard]] const AlertLevel& level() const { return ALERT_LEVELS[serial % std::size(ALERT_LEVELS)]; }
};

std::string seriesOf(const Occurrence& occurrence) {
    const CatalogueAlarm& alarm = *occurrence.alarm;
    return fmt::format(
        "vrxAlarmFaultLevel_info{{job=\"vrx-alarms\",instance=\"storage\",node=\"VRX-0001\",serial=\"{}\",number=\"{}"
        "\","
        "vrxAlarmFaultLevel=\"{}\",title={},location={},detail={},advice={}}}",
        occurrence.serial, alarm.number, occurrence.level().severity, promqlText(alarm.title),
        promqlText(alarm.sample.location), promqlText(alarm.sample.detail), promqlText(alarm.sample.advice));
}

// A label without a text is none.
std::string expectedLabel(const char* name, const std::string& text) {
    return text.empty() ? "" : fmt::format(", {}: {}", name, yamlText(text));
}

std::string expectedAlert(const Occurrence& occurrence) {
    const CatalogueAlarm& alarm = *occurrence.alarm;
    const AlarmTexts& texts = alarm.sample;
    return fmt::format(
        "          - exp_labels: {{severity: {}, instance: storage, node: VRX-0001, serial: {}, number: {}{}{}}}\n"
        "            exp_annotations: {{summary: {}, title: {}, location: {}, detail: {}, advice: {}, cause: {}}}\n",
        occurrence.level().severity, occurrence.serial, alarm.number, expectedLabel("title", alarm.title),
        expectedLabel("location", texts.location), yamlText(alarm.title + ": " + texts.location), yamlText(alarm.title),
        yamlText(texts.location), yamlText(texts.detail), yamlText(texts.advice), yamlText(causeOf(alarm)));
}

// A test holds as many alarms as promtool can load.
constexpr std::size_t ALARMS_OF_A_TEST = 1000;

std::string alarmTest(const std::vector<Occurrence>& occurrences) {
    std::string text =
        "  - name: each alarm is raised and ends\n"
        "    interval: 1m\n"
        "    input_series:\n"
        "      - {series: 'up{job=\"vrx-alarms\",instance=\"storage\"}', values: '1x4'}\n";
    for (const Occurrence& occurrence : occurrences)
        text += "      - {series: " + yamlText(seriesOf(occurrence)) + ", values: '1x2 stale'}\n";
    text += "    alert_rule_test:\n";
    for (const AlertLevel& level : ALERT_LEVELS) {
        text += fmt::format("      - {{alertname: {}, eval_time: 4m}}\n", level.alert);
        text += fmt::format("      - alertname: {}\n        eval_time: 2m\n        exp_alerts:\n", level.alert);
        for (const Occurrence& occurrence : occurrences)
            if (&occurrence.level() == &level) text += expectedAlert(occurrence);
    }
    return text + "\n";
}

std::string tests(const std::vector<const CatalogueAlarm*>& alarms) {
    std::string text =
        "# Tests of vrx-rules.yml: promtool test rules vrx-rules-test.yml\n"
        "rule_files: [vrx-rules.yml]\n"
        "evaluation_interval: 1m\n"
        "tests:\n";
    std::vector<Occurrence> occurrences;
    std::size_t serial = 0;
    for (const CatalogueAlarm* alarm : alarms) {
        if (alarm->isInTable) occurrences.push_back({alarm, ++serial});
        const bool isLast = alarm == alarms.back();
        if (occurrences.size() < ALARMS_OF_A_TEST && !(isLast && !occurrences.empty())) continue;
        text += alarmTest(occurrences);
        occurrences.clear();
    }
    return text + AGENT_TESTS;
}

}  // namespace

std::vector<ExportFile> prometheusFiles(const Catalogue& catalogue) {
    const std::vector<const CatalogueAlarm*> alarms = byNumber(catalogue);
    return {{"prometheus.yml", PROMETHEUS},
            {"snmp.yml", snmpModules()},
            {"vrx-rules-test.yml", tests(alarms)},
            {"vrx-rules.yml", rules(alarms)}};
}

}  // namespace vrx
