#include "tools/export/formats.h"

#include <algorithm>

namespace vrx {

// Each in a file of its own.
std::vector<ExportFile> jsonFiles(const Catalogue& catalogue);

const std::vector<ExportFormat>& exportFormats() {
    static const std::vector<ExportFormat> FORMATS = {
        {"json", "the catalogue of alarms as data, and its JSON schema", jsonFiles, false, false},
    };
    return FORMATS;
}

const ExportFormat* exportFormat(const std::string& name) {
    const std::vector<ExportFormat>& formats = exportFormats();
    const auto found =
        std::find_if(formats.begin(), formats.end(), [&](const ExportFormat& format) { return format.name == name; });
    return found == formats.end() ? nullptr : &*found;
}

}  // namespace vrx
