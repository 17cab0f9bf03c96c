// The input is a definition file: it loads whole or not at all, and whatever it defines can be looked up and rendered.
#include <cstdint>
#include <string>

#include "fuzz/alarm_host.h"
#include "fuzz/finding.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    AlarmHost alarms;
    AlarmHost::definitions().write(data, size);
    std::string failure;
    CAlarmConfigParser* const parser = AlarmHost::load(failure);
    if (parser == nullptr) {
        require(failure.rfind("CVRX_Exception: ", 0) == 0, "a load failed without a reason");
        std::string again;
        require(AlarmHost::load(again) == nullptr && again == failure, "a failed load is not repeated");
        return 0;
    }
    for (const auto& [id, item] : parser->alarmItems()) {
        require(item->alarmId == id && item->level == static_cast<unsigned int>(id), "a definition has another number");
        std::string oid;
        require(parser->getAlarmOidInfo(id, oid) == (id == 0 ? -1 : 0), "a definition is not found");
        std::string location, detail, name, suggestion;
        u_int level = 0;
        const int result = parser->getAlarmInfo(id, "7,CTE0&#44;A,1", location, detail, level, name, suggestion);
        if (id == 0) {
            require(result == -1, "alarm 0 is rendered");
        } else {
            require(result == 0 || result == CAlarmConfigParser::NO_PARAMETER_POS, "an alarm cannot be rendered");
            require(result != 0 || name == item->name, "an alarm has another name");
            require(oid == item->alarmOid, "an alarm has another OID");
        }
    }
    return 0;
}
