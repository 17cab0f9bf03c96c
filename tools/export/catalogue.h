// The alarms of a definition file as receivers and people need them: what every format of "vrxctl export" is written
// from.
//
// A level is none of it: it belongs to the event, and receivers take it from the notification's sixth binding.
//
// All texts are UTF-8 without control characters but line feeds and tabs; what was neither is U+FFFD.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace vrx {

struct CodedText {
    std::string code;
    std::string text;
};

struct CatalogueParameter {
    unsigned int position = 0;
    std::string enumeration;         // name of its type; empty where the parameter is no code
    std::vector<CodedText> shownAs;  // the detail's map of values to texts, in its order
};

// What a notification carries of these texts.
struct AlarmTexts {
    std::string location;
    std::string detail;
    std::string advice;
};

struct CatalogueAlarm {
    std::uint64_t identifier = 0;
    std::uint32_t number = 0;  // the low 32 bits of it
    std::string alarmOid;      // as in the file: "0.403"
    std::string oid;           // of its own notification: "1.3.6.1...0.403"
    std::string notification;  // name of that one in VRX-TAMREL-ALARM-MIB; empty where it can have none
    bool isInTable = true;     // the alarm table shows it while it is active
    std::string title;
    std::string cause;
    AlarmTexts templates;                        // as in the file
    std::vector<CatalogueParameter> parameters;  // by position
    AlarmTexts sample;  // as rendered with the first code of each coded parameter, and "[N]" for parameter N else
};

struct Catalogue {
    std::string revision;                                        // YYYYMMDDHHMMZ
    std::map<std::string, std::vector<CodedText>> enumerations;  // by name of the type
    std::vector<CatalogueAlarm> alarms;                          // by number
};

// REQUIRES: lintDefinitions() finds no error in the files. A file that cannot be read is a CVRX_Exception. Without an
// enumeration file (an empty path) codes are shown as they are.
[[nodiscard]] Catalogue readCatalogue(const std::string& definitionFile, const std::string& enumerationFile);

}  // namespace vrx
