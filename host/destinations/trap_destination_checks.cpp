#include "host/destinations/trap_destination_checks.h"

#include <arpa/inet.h>
#include <net/if.h>
#include <netinet/in.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstring>

#include "host/snmp/limits.h"

namespace vrx {

namespace destination_check {

namespace {

constexpr std::size_t LONGEST_LABEL = 63;

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

bool isLetterOrDigit(char c) {
    return isDigit(c) || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool isLabel(const std::string& label) {
    return !label.empty() && label.size() <= LONGEST_LABEL && label.front() != '-' && label.back() != '-' &&
           std::all_of(label.begin(), label.end(), [](char c) { return isLetterOrDigit(c) || c == '-'; });
}

// Whether the text reads as an address of that family. inet_pton stops at a zero byte, the text must not hold one.
template <typename Address>
bool reads(int family, const std::string& text, Address& address) {
    return text.find('\0') == std::string::npos && inet_pton(family, text.c_str(), &address) == 1;
}

bool isZone(const std::string& zone) {
    return !zone.empty() && zone.size() < IFNAMSIZ && zone != "." && zone != ".." &&
           std::all_of(zone.begin(), zone.end(), [](char c) { return c > ' ' && c <= '~' && c != '/' && c != '%'; });
}

// What the system's resolver takes for a number of an address, whole or in part: "1", "0x7f000001", "0x".
bool isNumber(const std::string& label) {
    if (std::all_of(label.begin(), label.end(), isDigit)) return true;
    return label.size() >= 2 && label[0] == '0' && (label[1] == 'x' || label[1] == 'X') &&
           std::all_of(label.begin() + 2, label.end(), [](unsigned char c) { return std::isxdigit(c) != 0; });
}

// The IPv4 address of "::ffff:192.0.2.7".
bool isMapped(const in6_addr& v6, in_addr& v4) {
    if (!IN6_IS_ADDR_V4MAPPED(&v6)) return false;
    std::memcpy(&v4, &v6.s6_addr[sizeof v6 - sizeof v4], sizeof v4);
    return true;
}

bool isSomebodys(const in_addr& v4) {
    return v4.s_addr != htonl(INADDR_ANY) && v4.s_addr != htonl(INADDR_BROADCAST);
}

// Splits off an interface name, "" when there is none.
std::string splitZone(std::string& text) {
    const std::size_t sign = text.find('%');
    if (sign == std::string::npos) return "";
    std::string zone = text.substr(sign);
    text.resize(sign);
    return zone;
}

}  // namespace

bool isIpv4Address(const std::string& text) {
    in_addr address{};
    return reads(AF_INET, text, address);
}

bool isIpv6Address(const std::string& text) {
    std::string numbers = text;
    const std::string zone = splitZone(numbers);
    in6_addr address{};
    if (!reads(AF_INET6, numbers, address)) return false;
    if (zone.empty()) return true;
    return (IN6_IS_ADDR_LINKLOCAL(&address) || IN6_IS_ADDR_MC_LINKLOCAL(&address)) && isZone(zone.substr(1));
}

bool isHostName(const std::string& text) {
    std::string name = text;
    if (!name.empty() && name.back() == '.') name.pop_back();  // an absolute name
    if (name.empty() || name.size() > LONGEST_HOST_NAME) return false;
    for (;;) {
        const std::size_t dot = name.find('.');
        const std::string label = name.substr(0, dot);
        if (!isLabel(label)) return false;
        if (dot == std::string::npos) return !isNumber(label);
        name.erase(0, dot + 1);
    }
}

bool isAddress(const std::string& text) {
    in_addr v4{};
    if (reads(AF_INET, text, v4)) return isSomebodys(v4);
    in6_addr v6{};
    if (reads(AF_INET6, text, v6)) return isMapped(v6, v4) ? isSomebodys(v4) : !IN6_IS_ADDR_UNSPECIFIED(&v6);
    return isIpv6Address(text) || isHostName(text);
}

std::string canonicalAddress(const std::string& text) {
    std::string numbers = text;
    const std::string zone = splitZone(numbers);
    in6_addr v6{};
    in_addr v4{};
    std::array<char, INET6_ADDRSTRLEN> spelled{};
    if (reads(AF_INET6, text, v6) && isMapped(v6, v4) &&
        inet_ntop(AF_INET, &v4, spelled.data(), spelled.size()) != nullptr) {
        return spelled.data();
    }
    if (reads(AF_INET6, numbers, v6) && inet_ntop(AF_INET6, &v6, spelled.data(), spelled.size()) != nullptr) {
        return spelled.data() + zone;
    }
    std::string name = text;  // an IPv4 address has one spelling only
    std::transform(name.begin(), name.end(), name.begin(),
                   [](char c) { return static_cast<char>(std::tolower(static_cast<unsigned char>(c))); });
    if (!name.empty() && name.back() == '.') name.pop_back();
    return name;
}

std::string addressAndPort(const std::string& address, unsigned int port) {
    const bool isIpv6 = address.find(':') != std::string::npos;
    return (isIpv6 ? "[" + address + "]" : address) + ":" + std::to_string(port);
}

bool isPort(unsigned int port) {
    return port >= 1 && port <= HIGHEST_PORT;
}

bool isVersion(unsigned int version) {
    return version >= 1 && version <= SNMPV3;
}

bool isTrapType(unsigned int type) {
    return type == 1 || type == 3 || type == 4;
}

bool isUserText(const std::string& user) {
    return !user.empty() && user.size() <= LONGEST_USER_NAME &&
           std::all_of(user.begin(), user.end(), [](char c) { return c >= ' ' && c <= '~'; });
}

}  // namespace destination_check

}  // namespace vrx
