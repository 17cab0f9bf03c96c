#include "host/notification_log/notification_codec.h"

#include <cstdint>
#include <limits>

#include "host/snmp/limits.h"

namespace vrx {

namespace {

constexpr char ENTRY_VERSION = 1;
constexpr std::uint64_t SHORTEST_NAME = 2;
constexpr std::size_t ADDRESS_BYTES = 4;

constexpr unsigned int GROUP_BITS = 7;
constexpr unsigned int MORE = 0x80;

void putNumber(std::string& bytes, std::uint64_t number) {
    for (; number >= MORE; number >>= GROUP_BITS) bytes += static_cast<char>((number & (MORE - 1)) | MORE);
    bytes += static_cast<char>(number);
}

void putOctets(std::string& bytes, const std::string& octets) {
    putNumber(bytes, octets.size());
    bytes += octets;
}

void putName(std::string& bytes, const oid* name, std::size_t length) {
    putNumber(bytes, length);
    for (std::size_t i = 0; i < length; ++i) putNumber(bytes, name[i]);
}

// Small numbers of either sign become small numbers.
std::uint64_t zigzag(std::uint64_t bits) {
    const bool negative = static_cast<std::int64_t>(bits) < 0;
    return negative ? ~(bits << 1U) : bits << 1U;
}

std::uint64_t unzigzag(std::uint64_t number) {
    return (number & 1U) != 0 ? ~(number >> 1U) : number >> 1U;
}

bool isInteger32(std::uint64_t bits) {
    const auto number = static_cast<std::int64_t>(bits);
    return number >= std::numeric_limits<std::int32_t>::min() && number <= std::numeric_limits<std::int32_t>::max();
}

void putValue(std::string& bytes, const SnmpValue& value) {
    switch (value.type) {
        case ASN_INTEGER:
            return putNumber(bytes, zigzag(value.number));
        case ASN_COUNTER:
        case ASN_GAUGE:
        case ASN_TIMETICKS:
        case ASN_COUNTER64:
            return putNumber(bytes, value.number);
        case ASN_OCTET_STR:
        case ASN_IPADDRESS:
            return putOctets(bytes, value.octets);
        case ASN_OBJECT_ID: {
            const OidVector name = oidOfOctets(value.octets);
            return putName(bytes, name.data(), name.size());
        }
        default:
            return;
    }
}

// Takes pieces off the front; false where there is no such piece.
class Reader {
public:
    explicit Reader(std::string_view bytes) : m_bytes(bytes) {}

    std::size_t left() const { return m_bytes.size(); }

    bool takeByte(unsigned char& byte) {
        if (m_bytes.empty()) return false;
        byte = static_cast<unsigned char>(m_bytes.front());
        m_bytes.remove_prefix(1);
        return true;
    }

    bool takeNumber(std::uint64_t& number, std::uint64_t most = std::numeric_limits<std::uint64_t>::max()) {
        number = 0;
        unsigned char byte = 0;
        for (unsigned int shift = 0;; shift += GROUP_BITS) {
            constexpr unsigned int BITS = 64;
            if (shift >= BITS || !takeByte(byte)) return false;
            const std::uint64_t group = byte & (MORE - 1);
            if ((group << shift) >> shift != group) return false;
            number |= group << shift;
            if ((byte & MORE) == 0) return number <= most;
        }
    }

    bool takeOctets(std::string& octets) {
        std::uint64_t count = 0;
        if (!takeNumber(count) || count > left()) return false;
        octets = m_bytes.substr(0, count);
        m_bytes.remove_prefix(count);
        return true;
    }

    bool takeName(OidVector& name) {
        std::uint64_t count = 0;
        if (!takeNumber(count, LONGEST_OID) || count > left()) return false;
        name.resize(count);
        for (oid& id : name) {
            std::uint64_t number = 0;
            if (!takeNumber(number, MAX_UNSIGNED32)) return false;
            id = number;
        }
        return true;
    }

    bool takeValue(SnmpValue& value) {
        if (!takeByte(value.type)) return false;
        switch (value.type) {
            case ASN_NULL:
                return true;
            case ASN_INTEGER:
                if (!takeNumber(value.number)) return false;
                value.number = unzigzag(value.number);
                return isInteger32(value.number);
            case ASN_COUNTER:
            case ASN_GAUGE:
            case ASN_TIMETICKS:
                return takeNumber(value.number, MAX_UNSIGNED32);
            case ASN_COUNTER64:
                return takeNumber(value.number);
            case ASN_OCTET_STR:
                return takeOctets(value.octets);
            case ASN_IPADDRESS:
                return takeOctets(value.octets) && value.octets.size() == ADDRESS_BYTES;
            case ASN_OBJECT_ID: {
                OidVector name;
                if (!takeName(name) || name.size() < SHORTEST_NAME) return false;
                value.octets = octetsOfOid(name);
                return true;
            }
            default:
                return false;
        }
    }

private:
    std::string_view m_bytes;
};

}  // namespace

std::string bytesOf(const Notification& trap) {
    std::string bytes(1, ENTRY_VERSION);
    putName(bytes, trap.oid.data(), trap.oid.size());
    putNumber(bytes, trap.bindings.size());
    for (const NotificationBinding& binding : trap.bindings) {
        putName(bytes, binding.name.data(), binding.name.size());
        bytes += static_cast<char>(binding.value.type);
        putValue(bytes, binding.value);
    }
    return bytes;
}

std::optional<Notification> trapFrom(std::string_view bytes) {
    Reader reader(bytes);
    unsigned char version = 0;
    Notification trap;
    std::uint64_t count = 0;
    const bool begins = reader.takeByte(version) && version == ENTRY_VERSION && reader.takeName(trap.oid) &&
                        trap.oid.size() != 1 && reader.takeNumber(count);
    constexpr std::size_t SMALLEST_BINDING = 4;
    if (!begins || count > reader.left() / SMALLEST_BINDING) return std::nullopt;
    trap.bindings.resize(count);
    for (NotificationBinding& binding : trap.bindings) {
        if (!reader.takeName(binding.name) || binding.name.size() < SHORTEST_NAME) return std::nullopt;
        if (!reader.takeValue(binding.value)) return std::nullopt;
    }
    if (reader.left() > 0) return std::nullopt;
    return trap;
}

}  // namespace vrx
