// A dashboard of Grafana over the metrics that the files for Prometheus collect. Alarms come by SNMP; fates of traps,
// requests and backend calls are metrics of the agent. It takes the texts of alarms from their labels, so it is the
// same for all definitions.
#include <nlohmann/json.hpp>

#include <string>
#include <vector>

#include "tools/export/catalogue.h"
#include "tools/export/formats.h"

namespace vrx {

namespace {

using Json = nlohmann::ordered_json;

struct Query {
    const char* expression;
    const char* legend;
};

struct Panel {
    const char* type;
    const char* title;
    const char* description;
    const char* unit;
    int width;  // of 24 columns
    int height;
    std::vector<Query> queries;
};

constexpr int GRID_COLUMNS = 24;

const std::vector<Panel>& panels() {
    static const std::vector<Panel> PANELS = {
        {"stat",
         "Agent",
         "Whether the agent answers by SNMP.",
         "bool_yes_no",
         3,
         4,
         {{R"(min(up{job="vrx-snmp",instance=~"$system"}))", "answers"}}},
        {"stat",
         "Backend",
         "Whether the agent is connected with the management backend.",
         "bool_yes_no",
         3,
         4,
         {{R"(min(vrxAgentBackendState{instance=~"$system",vrxAgentBackendState="connected"}))", "connected"}}},
        {"stat",
         "Active alarms",
         "By level, as the backend counts them.",
         "short",
         18,
         4,
         {{R"(sum(vrxAgentAlarmsCritical{instance=~"$system"}))", "critical"},
          {R"(sum(vrxAgentAlarmsMajor{instance=~"$system"}))", "major"},
          {R"(sum(vrxAgentAlarmsMinor{instance=~"$system"}))", "minor"},
          {R"(sum(vrxAgentAlarmsWarning{instance=~"$system"}))", "warning"}}},
        {"table",
         "Alarms",
         "Those of the alarm table; the value is when the alarm was raised.",
         "dateTimeAsIso",
         24,
         10,
         {{R"(vrx:alarm:active{instance=~"$system"} * on (instance, serial) group_left () vrxAlarmFaultTime * 1000)",
           ""}}},
        {"timeseries",
         "Alarms by level",
         "",
         "short",
         12,
         8,
         {{R"(sum(vrxAgentAlarmsCritical{instance=~"$system"}))", "critical"},
          {R"(sum(vrxAgentAlarmsMajor{instance=~"$system"}))", "major"},
          {R"(sum(vrxAgentAlarmsMinor{instance=~"$system"}))", "minor"},
          {R"(sum(vrxAgentAlarmsWarning{instance=~"$system"}))", "warning"}}},
        {"timeseries",
         "Traps by SNMP",
         "Sent and dropped, to all destinations.",
         "short",
         12,
         8,
         {{R"(sum(increase(vrxAgentTrapsSent{instance=~"$system"}[$__rate_interval])))", "sent"},
          {R"(sum(increase(vrxAgentTrapsDropped{instance=~"$system"}[$__rate_interval])))", "dropped"},
          {R"(sum(vrxAgentTrapsWaiting{instance=~"$system"}))", "waiting"}}},
        {"timeseries",
         "Fate of traps by destination",
         "",
         "short",
         12,
         8,
         {{R"(sum by (destination) (increase(vrx_traps_sent_total{instance=~"$agent"}[$__rate_interval])))",
           "{{destination}} sent"},
          {R"(sum by (destination, reason) (increase(vrx_traps_dropped_total{instance=~"$agent"}[$__rate_interval])))",
           "{{destination}} dropped: {{reason}}"},
          {R"(sum by (destination) (increase(vrx_traps_filtered_total{instance=~"$agent"}[$__rate_interval])))",
           "{{destination}} filtered"},
          {R"(sum by (destination) (increase(vrx_traps_suppressed_total{instance=~"$agent"}[$__rate_interval])))",
           "{{destination}} suppressed"},
          {R"(sum by (destination) (vrx_traps_waiting{instance=~"$agent"}))", "{{destination}} waiting"}}},
        {"timeseries",
         "Informs by receiver",
         "",
         "short",
         12,
         8,
         {{R"(sum by (destination) (increase(vrx_informs_acknowledged_total{instance=~"$agent"}[$__rate_interval])))",
           "{{destination}} acknowledged"},
          {R"(sum by (destination, reason) (increase(vrx_informs_dropped_total{instance=~"$agent"}[$__rate_interval])))",
           "{{destination}} dropped: {{reason}}"},
          {R"(sum by (destination) (vrx_informs_waiting{instance=~"$agent"}))", "{{destination}} waiting"}}},
        {"timeseries",
         "Request latency",
         "From the arrival of a request to its answer: half and 99 of 100 are quicker.",
         "s",
         12,
         8,
         {{R"(histogram_quantile(0.5, sum by (le, kind) (rate(vrx_request_seconds_bucket{instance=~"$agent"}[$__rate_interval]))))",
           "{{kind}} half"},
          {R"(histogram_quantile(0.99, sum by (le, kind) (rate(vrx_request_seconds_bucket{instance=~"$agent"}[$__rate_interval]))))",
           "{{kind}} 99 %"}}},
        {"timeseries",
         "Requests by result",
         "",
         "reqps",
         12,
         8,
         {{R"(sum by (kind, result) (rate(vrx_requests_total{instance=~"$agent"}[$__rate_interval])))",
           "{{kind}} {{result}}"}}},
        {"timeseries",
         "Backend calls: latency",
         "Time that answered calls took.",
         "s",
         12,
         8,
         {{R"(histogram_quantile(0.5, sum by (le) (rate(vrx_backend_call_seconds_bucket{instance=~"$agent"}[$__rate_interval]))))",
           "half"},
          {R"(histogram_quantile(0.99, sum by (le) (rate(vrx_backend_call_seconds_bucket{instance=~"$agent"}[$__rate_interval]))))",
           "99 %"}}},
        {"timeseries",
         "Backend calls",
         "",
         "reqps",
         12,
         8,
         {{R"(sum(rate(vrx_backend_calls_total{instance=~"$agent"}[$__rate_interval])))", "calls"},
          {R"(sum(rate(vrx_backend_refusals_total{instance=~"$agent"}[$__rate_interval])))", "refused"},
          {R"(sum(rate(vrx_backend_failures_total{instance=~"$agent"}[$__rate_interval])))", "not answered"}}},
    };
    return PANELS;
}

Json colour(const char* name, const char* value) {
    return {{"matcher", {{"id", "byName"}, {"options", name}}},
            {"properties", {{{"id", "color"}, {"value", {{"mode", "fixed"}, {"fixedColor", value}}}}}}};
}

// Of the value's place in the table's row of labels: what nobody reads is left out.
Json transformations() {
    const Json hidden = {{"Time", true}, {"instance", true}, {"number", true}};
    const Json order = {{"Value", 0},    {"level", 1},  {"node", 2},  {"title", 3},
                        {"location", 4}, {"detail", 5}, {"advice", 6}};
    return {
        {{"id", "organize"},
         {"options", {{"excludeByName", hidden}, {"indexByName", order}, {"renameByName", {{"Value", "raised"}}}}}}};
}

Json jsonOf(const Panel& panel, int id, int x, int y) {
    const Json source = {{"type", "prometheus"}, {"uid", "${datasource}"}};
    const bool isTable = std::string(panel.type) == "table";
    Json targets = Json::array();
    for (const Query& query : panel.queries) {
        Json target = {{"refId", std::string(1, static_cast<char>('A' + targets.size()))},
                       {"datasource", source},
                       {"expr", query.expression},
                       {"legendFormat", query.legend}};
        if (isTable) target.update({{"format", "table"}, {"instant", true}});
        targets.push_back(std::move(target));
    }
    Json json = {{"id", id},
                 {"type", panel.type},
                 {"title", panel.title},
                 {"description", panel.description},
                 {"datasource", source},
                 {"gridPos", {{"h", panel.height}, {"w", panel.width}, {"x", x}, {"y", y}}},
                 {"targets", std::move(targets)},
                 {"fieldConfig",
                  {{"defaults", {{"min", 0}}},
                   {"overrides",
                    {colour("critical", "red"), colour("major", "orange"), colour("minor", "yellow"),
                     colour("warning", "blue")}}}}};
    if (isTable) {
        const Json unit = {{"matcher", {{"id", "byName"}, {"options", "raised"}}},
                           {"properties", {{{"id", "unit"}, {"value", panel.unit}}}}};
        json["fieldConfig"] = {{"defaults", Json::object()}, {"overrides", {unit}}};
        json["transformations"] = transformations();
    } else {
        json["fieldConfig"]["defaults"]["unit"] = panel.unit;
    }
    return json;
}

Json variable(const char* name, const char* label, const char* query) {
    return {{"name", name},
            {"label", label},
            {"type", "query"},
            {"datasource", {{"type", "prometheus"}, {"uid", "${datasource}"}}},
            {"query", {{"query", query}, {"refId", name}}},
            {"refresh", 2},
            {"includeAll", true},
            {"multi", true},
            {"allValue", ".*"},
            {"current", {{"text", "All"}, {"value", "$__all"}}}};
}

}  // namespace

std::vector<ExportFile> grafanaFiles(const Catalogue& /*catalogue*/) {
    Json placed = Json::array();
    int x = 0;
    int y = 0;
    for (const Panel& panel : panels()) {
        placed.push_back(jsonOf(panel, static_cast<int>(placed.size()) + 1, x, y));
        x += panel.width;
        if (x < GRID_COLUMNS) continue;
        x = 0;
        y += panel.height;
    }
    const Json source = {
        {"name", "datasource"}, {"label", "Data source"}, {"type", "datasource"}, {"query", "prometheus"}};
    const Json dashboard = {
        {"uid", "vrx-storage"},
        {"title", "VRX storage systems"},
        {"tags", {"vrx"}},
        {"schemaVersion", 37},
        {"version", 1},
        {"editable", true},
        {"refresh", "30s"},
        {"timezone", "browser"},
        {"time", {{"from", "now-6h"}, {"to", "now"}}},
        {"templating",
         {{"list",
           {source, variable("system", "Storage system", "label_values(up{job=\"vrx-snmp\"}, instance)"),
            variable("agent", "Metrics of agent", "label_values(up{job=\"vrx-metrics\"}, instance)")}}}},
        {"annotations", {{"list", Json::array()}}},
        {"panels", std::move(placed)}};
    return {{"vrx-dashboard.json", dashboard.dump(2) + "\n"}};
}

}  // namespace vrx
