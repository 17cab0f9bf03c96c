#include "host/agent/traps/trap_options.h"

#include <charconv>
#include <stdexcept>
#include <string>

#include "platform/vrx_xml_config.h"

namespace vrx {

namespace {

constexpr unsigned int MOST = 10'000'000;

// A number from 1 to MOST.
unsigned int trapNumber(const char* key, unsigned long long standard) {
    std::string text;
    CVRXXmlConfig::instance()->getDeviceItem("TRAP", key, text);
    if (text.empty()) return static_cast<unsigned int>(standard);
    unsigned int number = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || stop != end || number < 1 || number > MOST) {
        throw std::invalid_argument("device configuration, section TRAP, " + std::string(key) + ": \"" + text +
                                    "\" is no number from 1 to " + std::to_string(MOST));
    }
    return number;
}

}  // namespace

TrapOptions TrapOptions::fromDevice() {
    TrapOptions options;
    options.queueLimit = trapNumber("QUEUE_LIMIT", options.queueLimit);
    options.rate = trapNumber("RATE_PER_SECOND", options.rate);
    options.burst = trapNumber("BURST", options.burst);
    options.unresolvedLimit = trapNumber("UNRESOLVED_LIMIT", options.unresolvedLimit);
    using std::chrono::seconds;
    const auto secondsOf = [](const char* key, seconds standard) {
        return seconds(trapNumber(key, static_cast<unsigned long long>(standard.count())));
    };
    options.unresolvedTime = secondsOf("UNRESOLVED_SECONDS", options.unresolvedTime);
    options.resolveInterval = secondsOf("RESOLVE_SECONDS", options.resolveInterval);
    return options;
}

}  // namespace vrx
