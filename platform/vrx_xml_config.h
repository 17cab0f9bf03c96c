// The device configuration: values by section and key.
#pragma once

#include <string>

class CVRXXmlConfig {
public:
    // The one configuration of the process; never null.
    static CVRXXmlConfig* instance();

    // The value of a key, returned and stored in `value`; both are empty when section or key is missing.
    // Callable from any thread.
    std::string getDeviceItem(const std::string& section, const std::string& key, std::string& value);
};
