// The input is an enumeration file: it loads whole or not at all, and every description is found by type and value.
#include <cstdint>
#include <string>
#include <vector>

#include "fuzz/alarm_host.h"
#include "fuzz/finding.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    AlarmHost alarms;
    AlarmHost::enumerations().write(data, size);
    std::string failure;
    CAlarmConfigParser* const parser = AlarmHost::load(failure);
    if (parser == nullptr) {
        require(failure.rfind("CVRX_Exception: ", 0) == 0, "a load failed without a reason");
        return 0;
    }
    for (const auto& [key, description] : parser->enumDescMap()) {
        // Any split at a "_" gives a type and a value of that key.
        const std::size_t bar = key.find('_');
        require(bar != std::string::npos, "a key without type");
        const std::string value = key.substr(bar + 1);
        std::vector<std::string> values = {value, value};
        parser->replaceAlarmParamEnumValueDesc(1, values, {{1, key.substr(0, bar)}, {2, key}});
        require(values[0] == value && values[1] == description, "a code has another description");
    }
    return 0;
}
