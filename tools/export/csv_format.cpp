// A row for each alarm, as RFC 4180 has it: CRLF, quotes doubled. Spreadsheets compute a field that begins with "=", so
// such a one begins with an apostrophe, which they take for "this is text".
#include <string>
#include <string_view>

#include "tools/export/catalogue.h"
#include "tools/export/formats.h"

namespace vrx {

namespace {

std::string field(const std::string& text) {
    constexpr std::string_view BEGINS_FORMULA = "=+-@\t\r\n";
    std::string quoted = "\"";
    if (!text.empty() && BEGINS_FORMULA.find(text[0]) != std::string_view::npos) quoted += '\'';
    for (const char c : text) quoted += c == '"' ? "\"\"" : std::string(1, c);
    return quoted + '"';
}

std::string listed(const std::vector<CodedText>& texts) {
    std::string list;
    for (const CodedText& text : texts) list += (list.empty() ? "" : ", ") + text.code + "=" + text.text;
    return list;
}

// "0; 1; 2 DiskState (1=offline, 2=read-only) shown as (offline=not reachable)"
std::string parametersText(const CatalogueAlarm& alarm, const Catalogue& catalogue) {
    std::string text;
    for (const CatalogueParameter& parameter : alarm.parameters) {
        text += (text.empty() ? "" : "; ") + std::to_string(parameter.position);
        if (!parameter.enumeration.empty()) {
            text += " " + parameter.enumeration;
            const auto type = catalogue.enumerations.find(parameter.enumeration);
            if (type != catalogue.enumerations.end()) text += " (" + listed(type->second) + ")";
        }
        if (!parameter.shownAs.empty()) text += " shown as (" + listed(parameter.shownAs) + ")";
    }
    return text;
}

struct Column {
    const char* name;
    std::string (*text)(const CatalogueAlarm&, const Catalogue&);
};

constexpr Column COLUMNS[] = {
    {"number", [](const CatalogueAlarm& alarm, const Catalogue&) { return std::to_string(alarm.number); }},
    {"identifier", [](const CatalogueAlarm& alarm, const Catalogue&) { return std::to_string(alarm.identifier); }},
    {"oid", [](const CatalogueAlarm& alarm, const Catalogue&) { return alarm.oid; }},
    {"notification", [](const CatalogueAlarm& alarm, const Catalogue&) { return alarm.notification; }},
    {"title", [](const CatalogueAlarm& alarm, const Catalogue&) { return alarm.title; }},
    {"cause", [](const CatalogueAlarm& alarm, const Catalogue&) { return alarm.cause; }},
    {"location", [](const CatalogueAlarm& alarm, const Catalogue&) { return alarm.sample.location; }},
    {"detail", [](const CatalogueAlarm& alarm, const Catalogue&) { return alarm.sample.detail; }},
    {"advice", [](const CatalogueAlarm& alarm, const Catalogue&) { return alarm.sample.advice; }},
    {"parameters", parametersText},
    {"in_table",
     [](const CatalogueAlarm& alarm, const Catalogue&) { return std::string(alarm.isInTable ? "yes" : "no"); }},
};

}  // namespace

std::vector<ExportFile> csvFiles(const Catalogue& catalogue) {
    std::string text;
    for (const Column& column : COLUMNS) text += (text.empty() ? "" : ",") + field(column.name);
    text += "\r\n";
    for (const CatalogueAlarm& alarm : catalogue.alarms) {
        for (const Column& column : COLUMNS)
            text += (&column == COLUMNS ? "" : ",") + field(column.text(alarm, catalogue));
        text += "\r\n";
    }
    return {{"vrx-alarms.csv", text}};
}

}  // namespace vrx
