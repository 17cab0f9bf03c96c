#include "host/transport/backend_options.h"

#include <charconv>
#include <stdexcept>

#include "platform/vrx_utility.h"
#include "platform/vrx_xml_config.h"

namespace vrx {

namespace {

constexpr char BACKEND_SECTION[] = "BACKEND";
constexpr char DEFAULT_ADDRESS[] = "unix:state/backend.sock";

constexpr unsigned long long LONGEST_DEADLINE_MS = 60'000;
constexpr unsigned long long SMALLEST_PACKAGE_LIMIT = 128ULL * 1024;  // twice the largest record: any answer can be cut
constexpr unsigned long long LARGEST_PACKAGE_LIMIT = 1ULL << 30;
constexpr unsigned long long MOST_CONNECTIONS = 32;  // the backend serves several transports

}  // namespace

unsigned long long backendNumber(const std::string& key, unsigned long long standard, unsigned long long least,
                                 unsigned long long most) {
    std::string text;
    CVRXXmlConfig::instance()->getDeviceItem(BACKEND_SECTION, key, text);
    if (text.empty()) return standard;
    unsigned long long number = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || stop != end || number < least || number > most)
        throw std::invalid_argument("device configuration: " + std::string(BACKEND_SECTION) + "/" + key + " is \"" +
                                    text + "\", which is no number from " + std::to_string(least) + " to " +
                                    std::to_string(most));
    return number;
}

BackendOptions BackendOptions::fromDevice() {
    BackendOptions options;
    std::string address;
    CVRXXmlConfig::instance()->getDeviceItem(BACKEND_SECTION, "ADDRESS", address);
    options.address = parseLocalAddress(address.empty() ? DEFAULT_ADDRESS : address, VRX_Utility::getVRXRootEnv());

    const auto deadline = static_cast<unsigned long long>(options.callDeadline.count());
    options.callDeadline =
        std::chrono::milliseconds(backendNumber("CALL_DEADLINE_MS", deadline, 1, LONGEST_DEADLINE_MS));
    options.packageLimit =
        backendNumber("PACKAGE_LIMIT_BYTES", options.packageLimit, SMALLEST_PACKAGE_LIMIT, LARGEST_PACKAGE_LIMIT);
    options.connections =
        static_cast<unsigned int>(backendNumber("CONNECTIONS", options.connections, 1, MOST_CONNECTIONS));
    return options;
}

}  // namespace vrx
