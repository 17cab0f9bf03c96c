// The formats of "vrxctl export": from the catalogue to files. formats.cpp has the table of all.
#pragma once

#include <string>
#include <vector>

namespace vrx {

struct Catalogue;

struct ExportFile {
    std::string name;  // in a folder
    std::string text;
};

struct ExportFormat {
    const char* name;
    const char* help;
    std::vector<ExportFile> (*write)(const Catalogue&);
    bool needsNotifications;  // it names alarms by their own notifications: each must have an OID of its own, "0.N"
    bool needsFolder;         // its files are of no use alone; else the first is what goes to a file or standard output
};

[[nodiscard]] const std::vector<ExportFormat>& exportFormats();

// Null where there is no such format.
[[nodiscard]] const ExportFormat* exportFormat(const std::string& name);

}  // namespace vrx
