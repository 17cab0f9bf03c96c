// What a running agent tells of itself, as sections of fields: JSON (status_json.h) and metrics (prometheus_text.h) are
// both written from these, so that each field has one place.
//
//     constexpr StatusItem<Reloader::Counters> RELOADS[] = {
//         {{"taken", StatusKind::Counter, "vrx_reloads_taken_total", "Configurations that were taken over."},
//          [](const auto& reloads) -> StatusValue { return reloads.taken; }},
//     };
//     sections.push_back(statusSection("reloads", RELOADS, counters));
//
// Threads: any; nothing is kept.
#pragma once

#include <chrono>
#include <cstddef>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "host/base/latency_histogram.h"

namespace vrx {

enum class StatusKind {
    Text,       // of the JSON only
    Label,      // of the JSON, and a label of all samples of its row: `metric` is the label's name
    Info,       // of the JSON, and a label, named by its key, of the section's one sample that is always 1
    Gauge,      // a number, true or false; null gives no sample
    Counter,    // the same, which only grows while the agent runs
    Histogram,  // what statusOf(LatencyHistogram) gives
};

struct StatusField {
    const char* key;  // in the JSON; "": not there
    StatusKind kind = StatusKind::Text;
    const char* metric = "";  // name with its unit: "vrx_..._total" of counters, "..._seconds" of times
    const char* help = "";
    const char* parts = "";  // of an object of numbers: each is a sample, its name the value of this label
};

using StatusValue = nlohmann::ordered_json;

// A field and where its value comes from.
template <typename Source>
struct StatusItem {
    StatusField field;
    StatusValue (*value)(const Source& source);
};

struct StatusSection {
    std::string name;  // key in the JSON
    std::vector<StatusField> fields;
    bool list = false;                           // the JSON has an array of rows; else one object, the only row
    std::vector<std::vector<StatusValue>> rows;  // a value for each field
};

template <typename Source, std::size_t COUNT>
void addStatusRow(StatusSection& section, const StatusItem<Source> (&items)[COUNT], const Source& source) {
    std::vector<StatusValue> row;
    for (const StatusItem<Source>& item : items) row.push_back(item.value(source));
    section.rows.push_back(std::move(row));
}

template <typename Source, std::size_t COUNT>
StatusSection statusSection(std::string name, const StatusItem<Source> (&items)[COUNT]) {
    StatusSection section;
    section.name = std::move(name);
    for (const StatusItem<Source>& item : items) section.fields.push_back(item.field);
    return section;
}

// One object.
template <typename Source, std::size_t COUNT>
StatusSection statusSection(std::string name, const StatusItem<Source> (&items)[COUNT], const Source& source) {
    StatusSection section = statusSection(std::move(name), items);
    addStatusRow(section, items, source);
    return section;
}

// A list with a row for each source.
template <typename Source, std::size_t COUNT>
StatusSection statusSection(std::string name, const StatusItem<Source> (&items)[COUNT],
                            const std::vector<Source>& sources) {
    StatusSection section = statusSection(std::move(name), items);
    section.list = true;
    for (const Source& source : sources) addStatusRow(section, items, source);
    return section;
}

// The fields of both, row by row. REQUIRES: as many rows in one as in the other.
StatusSection joined(StatusSection left, const StatusSection& right);

// "2026-11-21T09:14:03Z"; null for a time that never was.
StatusValue statusOf(std::chrono::system_clock::time_point time);

// Count, sum, maximum, 50th, 90th and 99th percentile in seconds, and the buckets with the count of all up to each.
StatusValue statusOf(const LatencyHistogram& histogram);

}  // namespace vrx
