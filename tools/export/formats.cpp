#include "tools/export/formats.h"

#include <algorithm>

namespace vrx {

// Each in a file of its own.
std::vector<ExportFile> catalogueFiles(const Catalogue& catalogue);
std::vector<ExportFile> csvFiles(const Catalogue& catalogue);
std::vector<ExportFile> grafanaFiles(const Catalogue& catalogue);
std::vector<ExportFile> jsonFiles(const Catalogue& catalogue);
std::vector<ExportFile> mibFiles(const Catalogue& catalogue);
std::vector<ExportFile> opennmsFiles(const Catalogue& catalogue);
std::vector<ExportFile> prometheusFiles(const Catalogue& catalogue);
std::vector<ExportFile> snmpttFiles(const Catalogue& catalogue);
std::vector<ExportFile> zabbixFiles(const Catalogue& catalogue);

const std::vector<ExportFormat>& exportFormats() {
    static const std::vector<ExportFormat> FORMATS = {
        {"mib", "VRX-TAMREL-ALARM-MIB: a notification for each alarm", mibFiles, true, false},
        {"snmptt", "configuration of snmptt: severity by level, texts, cause and advice", snmpttFiles, true, false},
        {"zabbix", "template of Zabbix 6.0: alarms as problems, traps, state of the agent", zabbixFiles, false, false},
        {"opennms", "event definitions of OpenNMS: severity by level, alarms that clear", opennmsFiles, true, false},
        {"prometheus", "scrape configuration, module of snmp_exporter, alert rules and their tests", prometheusFiles,
         false, true},
        {"grafana", "dashboard over the metrics of prometheus", grafanaFiles, false, false},
        {"catalogue", "a page to search, link to and print", catalogueFiles, false, false},
        {"json", "the catalogue of alarms as data, and its JSON schema", jsonFiles, false, false},
        {"csv", "the same as a table", csvFiles, false, false},
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
