// The catalogue as JSON. Identifiers are texts: they have 64 bits, and many readers keep 53 of a number.
#include <nlohmann/json.hpp>

#include "tools/export/catalogue.h"
#include "tools/export/formats.h"

namespace vrx {

namespace {

using Json = nlohmann::ordered_json;

constexpr const char* SCHEMA_FILE = "vrx-alarms.schema.json";

constexpr const char* SCHEMA = R"({
  "$schema": "https://json-schema.org/draft/2020-12/schema",
  "title": "Alarms of a VRX storage system",
  "type": "object",
  "required": ["version", "revision", "enumerations", "alarms"],
  "additionalProperties": false,
  "properties": {
    "$schema": {"type": "string"},
    "version": {"description": "of this form; keys that are added do not change it", "const": 1},
    "revision": {"description": "of the definition file: YYYYMMDDHHMMZ", "type": "string", "pattern": "^[0-9]{12}Z$"},
    "enumerations": {
      "description": "texts of coded parameters, by type",
      "type": "object",
      "additionalProperties": {"$ref": "#/$defs/texts"}
    },
    "alarms": {
      "description": "by number",
      "type": "array",
      "items": {"$ref": "#/$defs/alarm"}
    }
  },
  "$defs": {
    "texts": {
      "type": "array",
      "items": {
        "type": "object",
        "required": ["code", "text"],
        "additionalProperties": false,
        "properties": {"code": {"type": "string"}, "text": {"type": "string"}}
      }
    },
    "rendered": {
      "type": "object",
      "required": ["location", "detail", "advice"],
      "additionalProperties": false,
      "properties": {
        "location": {"description": "binding 2", "type": "string"},
        "detail": {"description": "binding 10", "type": "string"},
        "advice": {"description": "binding 3", "type": "string"}
      }
    },
    "parameter": {
      "type": "object",
      "required": ["position"],
      "additionalProperties": false,
      "properties": {
        "position": {"type": "integer", "minimum": 0, "maximum": 99},
        "enumeration": {"description": "its value is a code of this type", "type": "string"},
        "shown_as": {"description": "the texts that stand for its values", "$ref": "#/$defs/texts"}
      }
    },
    "alarm": {
      "type": "object",
      "required": ["number", "identifier", "oid", "notification", "in_table", "title", "cause", "templates",
                   "parameters", "sample"],
      "additionalProperties": false,
      "properties": {
        "number": {"description": "binding 7", "type": "integer", "minimum": 0, "maximum": 4294967295},
        "identifier": {"description": "binding 12, an unsigned 64-bit number", "type": "string", "pattern": "^[0-9]{1,20}$"},
        "oid": {"description": "of its own notification", "type": "string", "pattern": "^[0-9]+([.][0-9]+)*$"},
        "notification": {
          "description": "name in VRX-TAMREL-ALARM-MIB; null where it can have none",
          "anyOf": [{"type": "string", "pattern": "^vrx[A-Za-z0-9]{1,61}$"}, {"type": "null"}]
        },
        "in_table": {"description": "the alarm table shows it while it is active", "type": "boolean"},
        "title": {"description": "binding 4", "type": "string"},
        "cause": {"type": "string"},
        "templates": {"description": "texts with ##NN for parameter NN", "$ref": "#/$defs/rendered"},
        "parameters": {"description": "by position", "type": "array", "items": {"$ref": "#/$defs/parameter"}},
        "sample": {
          "description": "texts with the first code of each coded parameter, and [N] for parameter N else",
          "$ref": "#/$defs/rendered"
        }
      }
    }
  }
}
)";

Json jsonOf(const std::vector<CodedText>& texts) {
    Json array = Json::array();
    for (const CodedText& text : texts) array.push_back({{"code", text.code}, {"text", text.text}});
    return array;
}

Json jsonOf(const AlarmTexts& texts) {
    return {{"location", texts.location}, {"detail", texts.detail}, {"advice", texts.advice}};
}

Json jsonOf(const CatalogueParameter& parameter) {
    Json json = {{"position", parameter.position}};
    if (!parameter.enumeration.empty()) json["enumeration"] = parameter.enumeration;
    if (!parameter.shownAs.empty()) json["shown_as"] = jsonOf(parameter.shownAs);
    return json;
}

Json jsonOf(const CatalogueAlarm& alarm) {
    Json parameters = Json::array();
    for (const CatalogueParameter& parameter : alarm.parameters) parameters.push_back(jsonOf(parameter));
    return {{"number", alarm.number},
            {"identifier", std::to_string(alarm.identifier)},
            {"oid", alarm.oid},
            {"notification", alarm.notification.empty() ? Json() : Json(alarm.notification)},
            {"in_table", alarm.isInTable},
            {"title", alarm.title},
            {"cause", alarm.cause},
            {"templates", jsonOf(alarm.templates)},
            {"parameters", std::move(parameters)},
            {"sample", jsonOf(alarm.sample)}};
}

}  // namespace

std::vector<ExportFile> jsonFiles(const Catalogue& catalogue) {
    Json enumerations = Json::object();
    for (const auto& [name, members] : catalogue.enumerations) enumerations[name] = jsonOf(members);
    Json alarms = Json::array();
    for (const CatalogueAlarm& alarm : catalogue.alarms) alarms.push_back(jsonOf(alarm));
    const Json document = {{"$schema", SCHEMA_FILE},
                           {"version", 1},
                           {"revision", catalogue.revision},
                           {"enumerations", std::move(enumerations)},
                           {"alarms", std::move(alarms)}};
    return {{"vrx-alarms.json", document.dump(2) + "\n"}, {SCHEMA_FILE, SCHEMA}};
}

}  // namespace vrx
