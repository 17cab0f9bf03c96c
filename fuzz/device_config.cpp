// The input is a device configuration: it is taken over whole or refused with a reason that names the file, and
// whatever reads its values gets a value or a reason, too.
#include <ace/Log_Msg.h>

#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <string>

#include "fuzz/finding.h"
#include "fuzz/memory_file.h"
#include "fuzz/temporary_folder.h"
#include "host/backend/backend.h"
#include "host/base/device_config.h"
#include "host/base/logging.h"
#include "host/base/product_root.h"
#include "host/transport/backend_options.h"
#include "host/transport/backend_protocol.h"
#include "platform/vrx_xml_config.h"

namespace vrx {

namespace {

// A product root whose device configuration is in memory.
class Root {
public:
    Root() {
        LogOptions options;
        options.threshold = LogLevel::Off;
        startLogging(options);
        std::filesystem::create_directory(m_folder.path() + "/conf");
        std::filesystem::create_symlink(m_file.path(), m_folder.path() + "/conf/device.xml");
        setProductRoot(m_folder.path());
    }

    MemoryFile& file() { return m_file; }
    std::string path() const { return m_folder.path() + "/conf/device.xml"; }

private:
    TemporaryFolder m_folder;
    MemoryFile m_file;
};

template <typename Read>
void readOrRefuse(const Read& read) {
    try {
        read();
    } catch (const std::invalid_argument& fault) {
        require(*fault.what() != '\0', "a refusal without a reason");
    }
}

// As a file that says the same, when it is plain text: anything else XML writes in more than one way.
bool write(const DeviceConfig& config, std::string& out) {
    const auto quoted = [](const std::string& text) {
        std::string quote = "\"";
        for (const char c : text) {
            if (c < ' ' || c > '~') throw std::domain_error("not plain");
            if (c == '"' || c == '&' || c == '<' || c == '>') {
                quote += "&#" + std::to_string(static_cast<int>(c)) + ";";
            } else {
                quote += c;
            }
        }
        return quote + "\"";
    };
    try {
        out = "<device>\n";
        for (const auto& [section, items] : config) {
            out += "<section name=" + quoted(section) + ">\n";
            for (const auto& [key, value] : items)
                out += "<item key=" + quoted(key) + " value=" + quoted(value) + "/>\n";
            out += "</section>\n";
        }
        out += "</device>\n";
    } catch (const std::domain_error&) {
        return false;
    }
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static Root root;
    root.file().write(data, size);
    DeviceConfig config;
    try {
        config = readDeviceConfig(root.path());
    } catch (const DeviceConfigError& fault) {
        require(std::string(fault.what()).rfind(root.path() + ":", 0) == 0, "a refusal does not name the file");
        return 0;
    }
    reloadDeviceConfig();
    for (const auto& [section, items] : config) {
        for (const auto& [key, value] : items) {
            std::string read;
            CVRXXmlConfig::instance()->getDeviceItem(section, key, read);
            require(read == value, "the process has another value");
        }
    }
    readOrRefuse([] {
        const LocalAddress address = BackendOptions::fromDevice().address;
        require(parseLocalAddress(address.text(), "").text() == address.text(), "an address does not come back");
    });
    readOrRefuse([] { (void)BackendCommands::fromDevice(); });
    readOrRefuse([] { (void)BackendSettings::fromDevice(); });
    readOrRefuse([] { (void)logOptionsFromDevice(); });

    std::string again;
    if (write(config, again)) {
        root.file().write(again);
        require(readDeviceConfig(root.path()) == config, "a configuration does not come back");
    }
    return 0;
}

}  // namespace vrx
