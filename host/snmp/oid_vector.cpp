#include "host/snmp/oid_vector.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <stdexcept>

namespace vrx {

namespace {

constexpr unsigned long long MAX_SUB_IDENTIFIER = std::numeric_limits<unsigned int>::max();  // RFC 2578, 3.5

}  // namespace

OidVector parseOid(const std::string& text) {
    const std::invalid_argument wrong("\"" + text + "\" is no object identifier");
    OidVector name;
    const char* at = text.c_str();
    if (*at == '.') ++at;
    while (true) {
        if (std::isdigit(static_cast<unsigned char>(*at)) == 0) throw wrong;
        char* end = nullptr;
        errno = 0;
        const unsigned long long number = std::strtoull(at, &end, 10);
        if (errno != 0 || number > MAX_SUB_IDENTIFIER || name.size() == MAX_OID_LEN) throw wrong;
        name.push_back(number);
        if (*end == '\0' && end == text.c_str() + text.size()) return name;
        if (*end != '.') throw wrong;
        at = end + 1;
    }
}

std::string oidText(const oid* name, std::size_t length) {
    std::string text;
    for (std::size_t i = 0; i < length; ++i) {
        if (i > 0) text += '.';
        text += std::to_string(name[i]);
    }
    return text;
}

std::string octetsOfOid(const OidVector& name) {
    return {reinterpret_cast<const char*>(name.data()), name.size() * sizeof(oid)};
}

OidVector oidOfOctets(const std::string& octets) {
    OidVector name(octets.size() / sizeof(oid));
    if (!name.empty()) std::memcpy(name.data(), octets.data(), name.size() * sizeof(oid));
    return name;
}

int compareOid(const oid* a, std::size_t aLength, const oid* b, std::size_t bLength) {
    const std::size_t common = std::min(aLength, bLength);
    for (std::size_t i = 0; i < common; ++i) {
        if (a[i] != b[i]) return a[i] < b[i] ? -1 : 1;
    }
    if (aLength == bLength) return 0;
    return aLength < bLength ? -1 : 1;
}

bool isBelow(const oid* name, std::size_t length, const OidVector& root) {
    return length >= root.size() && std::equal(root.begin(), root.end(), name);
}

}  // namespace vrx
