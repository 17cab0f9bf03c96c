#include "host/agent/engine/listener_address.h"

#include <algorithm>
#include <array>
#include <sstream>

#include "host/snmp/limits.h"
#include "platform/vrx_utility.h"

namespace vrx {

std::vector<std::string> splitListeners(const std::string& list) {
    std::vector<std::string> pieces;
    std::istringstream in(list);
    for (std::string piece; std::getline(in, piece, ',');) {
        if (!piece.empty()) pieces.push_back(piece);
    }
    return pieces;
}

std::string listenerFault(const std::string& address) {
    constexpr std::array TRANSPORTS = {"udp", "udp6", "tcp", "tcp6"};
    constexpr std::size_t MAX_DIGITS = 5;
    const std::size_t behindTransport = address.find(':');
    const bool known = std::any_of(TRANSPORTS.begin(), TRANSPORTS.end(), [&](const char* transport) {
        return behindTransport != std::string::npos && address.substr(0, behindTransport) == transport;
    });
    // Without a transport it is a UDP port, or a host and its port.
    const std::string place = known ? address.substr(behindTransport + 1) : address;
    const std::size_t colon = place.rfind(':');
    const bool bracketed = !place.empty() && place.back() == ']';
    if (colon == std::string::npos || bracketed) {
        const bool number = !place.empty() && place.find_first_not_of("0123456789") == std::string::npos;
        if (!number) return {};  // a host: the port is the standard one
    }
    const std::string port = bracketed || colon == std::string::npos ? place : place.substr(colon + 1);
    const bool digits =
        !port.empty() && port.size() <= MAX_DIGITS && port.find_first_not_of("0123456789") == std::string::npos;
    const unsigned int number = digits ? StrToUint(port) : 0;
    if (number < 1 || number > HIGHEST_PORT) return "\"" + address + "\": the port is no number from 1 to 65535";
    return {};
}

}  // namespace vrx
