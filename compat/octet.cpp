#include "snmp_pp/octet.h"

#include <algorithm>
#include <cctype>
#include <cstring>

#include "snmp_pp/address.h"

namespace Snmp_pp {

namespace {

constexpr std::size_t DUMP_LINE_BYTES = 16;

bool isPrintable(unsigned char byte) {
    return (byte >= ' ' && byte <= '~') || std::isprint(byte) != 0;  // the former in every locale: most bytes
}

char hexDigit(unsigned int value) {
    return "0123456789ABCDEF"[value & 0xFU];
}

// Two spaces, the bytes in hex padded to a full line, three spaces, the bytes as text, line feed; 16 bytes per line.
std::string dumped(const std::vector<unsigned char>& bytes) {
    std::string text;
    for (std::size_t line = 0; line < bytes.size(); line += DUMP_LINE_BYTES) {
        const std::size_t end = std::min(bytes.size(), line + DUMP_LINE_BYTES);
        text += "  ";
        for (std::size_t i = line; i < end; ++i) {
            text += hexDigit(bytes[i] >> 4U);
            text += hexDigit(bytes[i]);
            text += ' ';
        }
        text.append(3 * (line + DUMP_LINE_BYTES - end) + 3, ' ');
        for (std::size_t i = line; i < end; ++i) {
            text += isPrintable(bytes[i]) ? static_cast<char>(bytes[i]) : '.';
        }
        text += '\n';
    }
    return text;
}

unsigned int hexValue(unsigned char digit) {
    if (digit >= '0' && digit <= '9') {
        return digit - static_cast<unsigned int>('0');
    }
    return static_cast<unsigned int>(std::toupper(digit)) - 'A' + 10U;
}

}  // namespace

OctetStr::OctetStr(const char* text) {
    *this = text;
}

OctetStr::OctetStr(const unsigned char* bytes, unsigned long length) {
    set_data(bytes, length);
}

OctetStr::OctetStr(const OctetStr& other) : SnmpSyntax(other), m_bytes(other.m_bytes) {}

OctetStr& OctetStr::operator=(const char* text) {
    set_data(reinterpret_cast<const unsigned char*>(text), text == nullptr ? 0 : std::strlen(text));
    return *this;
}

OctetStr& OctetStr::operator=(const OctetStr& other) {
    if (this != &other && other.m_valid) {
        set_data(other.data(), other.len());
    }
    return *this;
}

SnmpSyntax& OctetStr::operator=(const SnmpSyntax& other) {
    if (const auto* octets = dynamic_cast<const OctetStr*>(&other)) {
        *this = *octets;
    } else if (const auto* address = dynamic_cast<const IpAddress*>(&other); address != nullptr && address->valid()) {
        const unsigned char bytes[] = {(*address)[0], (*address)[1], (*address)[2], (*address)[3]};
        set_data(bytes, sizeof(bytes));
    } else {
        set_data(nullptr, 0);
        m_valid = false;
    }
    return *this;
}

OctetStr& OctetStr::operator+=(const char* text) {
    return *this += OctetStr(text);
}

OctetStr& OctetStr::operator+=(const OctetStr& other) {
    const std::vector<unsigned char> added = other.m_bytes;  // a copy, because the other one may be this one
    m_bytes.insert(m_bytes.end(), added.begin(), added.end());
    m_text.drop();
    return *this;
}

OctetStr& OctetStr::operator+=(unsigned char byte) {
    m_bytes.push_back(byte);
    m_text.drop();
    return *this;
}

int OctetStr::nCompare(unsigned long count, const OctetStr& other) const {
    const auto leftEnd = m_bytes.begin() + static_cast<std::ptrdiff_t>(std::min<std::size_t>(count, m_bytes.size()));
    const auto rightEnd =
        other.m_bytes.begin() + static_cast<std::ptrdiff_t>(std::min<std::size_t>(count, other.m_bytes.size()));
    if (std::lexicographical_compare(m_bytes.begin(), leftEnd, other.m_bytes.begin(), rightEnd)) {
        return -1;
    }
    return std::lexicographical_compare(other.m_bytes.begin(), rightEnd, m_bytes.begin(), leftEnd) ? 1 : 0;
}

unsigned char& OctetStr::operator[](int index) {
    m_text.drop();
    return m_bytes[static_cast<std::size_t>(index)];
}

void OctetStr::set_data(const unsigned char* bytes, unsigned long length) {
    std::vector<unsigned char> fresh;
    if (bytes != nullptr) {
        fresh.assign(bytes, bytes + length);
    }
    m_bytes.swap(fresh);
    m_valid = true;
    m_text.drop();
}

void OctetStr::set_len(unsigned long length) {
    m_bytes.resize(length);
    m_text.drop();
}

void OctetStr::clear() {
    m_bytes.clear();
    m_bytes.reserve(1);
    m_valid = true;
    m_text.drop();
}

const char* OctetStr::get_printable() const {
    return m_text.text([this] {
        const bool plain = std::all_of(m_bytes.begin(), m_bytes.end(), [](unsigned char byte) {
            return isPrintable(byte) || byte == '\r' || byte == '\n';
        });
        return plain ? std::string(m_bytes.begin(), m_bytes.end()) : dumped(m_bytes);
    });
}

const char* OctetStr::get_printable_hex() const {
    m_otherText = dumped(m_bytes);
    return m_otherText.c_str();
}

const char* OctetStr::get_printable_clear() const {
    m_otherText.assign(m_bytes.begin(), m_bytes.end());
    std::replace_if(
        m_otherText.begin(), m_otherText.end(), [](char c) { return !isPrintable(static_cast<unsigned char>(c)); },
        '.');
    return m_otherText.c_str();
}

OctetStr OctetStr::from_hex_string(const OctetStr& digits) {
    std::vector<unsigned char> kept;
    std::copy_if(digits.m_bytes.begin(), digits.m_bytes.end(), std::back_inserter(kept),
                 [](unsigned char c) { return std::isxdigit(c) != 0; });
    if (kept.size() % 2 != 0) {
        kept.insert(kept.begin(), '0');
    }
    OctetStr bytes;
    for (std::size_t i = 0; i < kept.size(); i += 2) {
        bytes += static_cast<unsigned char>(hexValue(kept[i]) << 4U | hexValue(kept[i + 1]));
    }
    return bytes;
}

}  // namespace Snmp_pp
