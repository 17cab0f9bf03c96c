#include "host/agent/objects/cell_value.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "host/snmp/limits.h"
#include "vrxpub/vrx_little_endian.h"

namespace vrx {

static_assert(NO_VALUE == ASN_NULL);

namespace {

struct Number {
    std::uint64_t bits;
    bool negative;
};

std::optional<Number> numberOfText(const std::string& text) {
    char* end = nullptr;
    errno = 0;
    const bool negative = !text.empty() && text.front() == '-';
    const std::uint64_t bits = negative ? static_cast<std::uint64_t>(std::strtoll(text.c_str(), &end, 10))
                                        : std::strtoull(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || errno != 0) return std::nullopt;
    return Number{bits, negative};
}

// Little-endian, at most 8 bytes, an INT with its sign carried on.
std::optional<Number> numberOfCell(const CTLVCell& cell) {
    if (cell.type() == CTLVCell::TLV_TYPE_STRING) return numberOfText(cell.toString());
    const bool isSigned = cell.type() == CTLVCell::TLV_TYPE_INT;
    const std::size_t length = cell.length();
    if ((!isSigned && cell.type() != CTLVCell::TLV_TYPE_UINT) || length == 0 || length > sizeof(std::uint64_t)) {
        return std::nullopt;
    }
    std::uint64_t bits = 0;
    for (std::size_t i = length; i-- > 0;) bits = (bits << 8) | cell.data()[i];
    const bool negative = isSigned && (cell.data()[length - 1] & 0x80) != 0;
    if (negative && length < sizeof bits) bits |= ~std::uint64_t{0} << (8 * length);
    return Number{bits, negative};
}

bool isInteger32(const Number& number) {
    return number.negative ? static_cast<std::int64_t>(number.bits) >= std::numeric_limits<std::int32_t>::min()
                           : number.bits <= static_cast<std::uint64_t>(std::numeric_limits<std::int32_t>::max());
}

std::string_view bytesOfCell(const CTLVCell& cell) {
    if (cell.length() == 0) return {};
    return {reinterpret_cast<const char*>(cell.data()), cell.length()};
}

std::string octetsOfCell(const CTLVCell& cell) {
    if (cell.type() == CTLVCell::TLV_TYPE_UINT || cell.type() == CTLVCell::TLV_TYPE_INT) return cell.toString();
    return std::string(textOfCell(cell).value_or(bytesOfCell(cell)));
}

}  // namespace

std::optional<std::string_view> textOfCell(const CTLVCell& cell) {
    if (cell.type() != CTLVCell::TLV_TYPE_STRING && cell.type() != CTLVCell::TLV_TYPE_OCTETS) return std::nullopt;
    std::string_view bytes = bytesOfCell(cell);
    if (cell.type() == CTLVCell::TLV_TYPE_STRING && !bytes.empty() && bytes.back() == 0) bytes.remove_suffix(1);
    return bytes;
}

std::optional<SnmpValue> valueOfCell(const CTLVCell& cell, const MibSyntax& syntax) {
    if (cell.type() == CTLVCell::TLV_TYPE_NONE) return std::nullopt;
    SnmpValue value;
    value.type = syntax.type;
    if (syntax.type == ASN_OCTET_STR) {
        value.octets = octetsOfCell(cell);
        return value;
    }
    if (syntax.type == ASN_IPADDRESS) {
        value.octets = octetsOfCell(cell);
        return value.octets.size() == 4 ? std::optional<SnmpValue>(value) : std::nullopt;
    }
    if (syntax.type == ASN_OBJECT_ID) {
        try {
            value.octets = octetsOfOid(parseOid(octetsOfCell(cell)));
        } catch (const std::invalid_argument&) {
            return std::nullopt;
        }
        return value;
    }

    const std::optional<Number> number = numberOfCell(cell);
    if (!number) return std::nullopt;
    value.number = number->bits;
    if (syntax.type == ASN_INTEGER) {
        return isInteger32(*number) ? std::optional<SnmpValue>(value) : std::nullopt;
    }
    if (number->negative) return std::nullopt;
    if (syntax.type == ASN_COUNTER64) return value;
    if (syntax.type == ASN_GAUGE) value.number = std::min(value.number, MAX_UNSIGNED32);
    if (value.number > MAX_UNSIGNED32) return std::nullopt;
    return value;
}

int checkVarbind(const netsnmp_variable_list& varbind, const MibSyntax& syntax) {
    if (varbind.type != syntax.type) return SNMP_ERR_WRONGTYPE;
    switch (syntax.type) {
        case ASN_OCTET_STR:
            if (!syntax.allows(static_cast<long long>(varbind.val_len))) return SNMP_ERR_WRONGLENGTH;
            // Handlers take text, which ends at its first zero byte: what stands after one would be lost.
            return varbind.val_len > 0 && std::memchr(varbind.val.string, 0, varbind.val_len) != nullptr
                       ? SNMP_ERR_WRONGVALUE
                       : SNMP_ERR_NOERROR;
        case ASN_INTEGER:
            return syntax.allows(*varbind.val.integer) ? SNMP_ERR_NOERROR : SNMP_ERR_WRONGVALUE;
        case ASN_GAUGE:
        case ASN_COUNTER:
        case ASN_TIMETICKS: {
            const auto number = static_cast<std::uint32_t>(*varbind.val.integer);
            return syntax.allows(number) ? SNMP_ERR_NOERROR : SNMP_ERR_WRONGVALUE;
        }
        default:
            return SNMP_ERR_WRONGTYPE;  // no handler takes such a cell
    }
}

std::unique_ptr<CTLVCell> cellOfVarbind(const netsnmp_variable_list& varbind, unsigned short tag) {
    auto cell = std::make_unique<CTLVCell>();
    if (varbind.type == ASN_OCTET_STR) {
        const std::string text(reinterpret_cast<const char*>(varbind.val.string), varbind.val_len);
        cell->set(tag, text.c_str());
    } else {
        unsigned char bytes[4];
        putLe32(bytes, static_cast<std::uint32_t>(*varbind.val.integer));
        const auto type = varbind.type == ASN_INTEGER ? CTLVCell::TLV_TYPE_INT : CTLVCell::TLV_TYPE_UINT;
        cell->set_i(type, tag, bytes, sizeof bytes);
    }
    return cell;
}

std::unique_ptr<CTLVCell> copyCell(const CTLVCell& cell) {
    auto copy = std::make_unique<CTLVCell>();
    copy->set_i(cell.type(), cell.tag(), cell.data(), cell.length());
    return copy;
}

}  // namespace vrx
