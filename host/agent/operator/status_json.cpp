#include "host/agent/operator/status_json.h"

#include <utility>

namespace vrx {

std::string jsonOf(const StatusValue& value) {
    return value.dump(-1, ' ', false, StatusValue::error_handler_t::replace);
}

std::string statusAsJson(const std::vector<StatusSection>& sections) {
    StatusValue document = StatusValue::object();
    for (const StatusSection& section : sections) {
        StatusValue rows = StatusValue::array();
        for (const std::vector<StatusValue>& row : section.rows) {
            StatusValue object = StatusValue::object();
            for (std::size_t i = 0; i < row.size(); ++i) {
                if (*section.fields[i].key != '\0') object[section.fields[i].key] = row[i];
            }
            rows.push_back(std::move(object));
        }
        document[section.name] = section.list ? std::move(rows) : rows.at(0);
    }
    return jsonOf(document);
}

}  // namespace vrx
