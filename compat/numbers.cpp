// The number types: 32-bit integers, TimeTicks and Counter64.
#include <array>
#include <cstdio>

#include "snmp_pp/ctr64.h"
#include "snmp_pp/integer.h"
#include "snmp_pp/timetick.h"

namespace Snmp_pp {

namespace {

// Whether the value is one of the five 32-bit types, and its bits.
bool bitsOf32(const SnmpSyntax& value, std::uint32_t& bits) {
    if (const auto* number = dynamic_cast<const SnmpUInt32*>(&value)) {
        bits = static_cast<std::uint32_t>(SmiUINT32(*number));
        return number->valid();
    }
    if (const auto* number = dynamic_cast<const SnmpInt32*>(&value)) {
        bits = static_cast<std::uint32_t>(SmiINT32(*number));
        return number->valid();
    }
    return false;
}

}  // namespace

SnmpUInt32& SnmpUInt32::operator=(SmiUINT32 value) {
    m_value = static_cast<std::uint32_t>(value);
    m_valid = true;
    m_text.drop();
    return *this;
}

SnmpSyntax& SnmpUInt32::operator=(const SnmpSyntax& other) {
    std::uint32_t bits = 0;
    m_valid = bitsOf32(other, bits);
    m_value = bits;
    m_text.drop();
    return *this;
}

const char* SnmpUInt32::get_printable() const {
    return m_text.text([this] { return m_valid ? printed() : std::string(); });
}

std::string SnmpUInt32::printed() const {
    return std::to_string(m_value);
}

std::string TimeTicks::printed() const {
    const SmiUINT32 hundredths = *this;
    const SmiUINT32 seconds = hundredths / 100;
    const SmiUINT32 days = seconds / 86400;
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%lu:%02lu:%02lu.%02lu", seconds / 3600 % 24, seconds / 60 % 60,
                  seconds % 60, hundredths % 100);
    if (days == 0) {
        return text.data();
    }
    // No comma after a single day: SNMP++ prints it so.
    return std::to_string(days) + (days == 1 ? " day " : " days, ") + text.data();
}

SnmpInt32& SnmpInt32::operator=(SmiINT32 value) {
    m_value = static_cast<std::int32_t>(value);
    m_valid = true;
    m_text.drop();
    return *this;
}

SnmpSyntax& SnmpInt32::operator=(const SnmpSyntax& other) {
    std::uint32_t bits = 0;
    m_valid = bitsOf32(other, bits);
    m_value = static_cast<std::int32_t>(bits);
    m_text.drop();
    return *this;
}

const char* SnmpInt32::get_printable() const {
    return m_text.text([this] { return m_valid ? std::to_string(m_value) : std::string(); });
}

Counter64::Counter64(unsigned long high, unsigned long low)
    : m_value(pp_uint64(high & 0xFFFFFFFFU) << 32U | (low & 0xFFFFFFFFU)) {}

Counter64& Counter64::operator=(pp_uint64 value) {
    m_value = value;
    m_text.drop();
    return *this;
}

SnmpSyntax& Counter64::operator=(const SnmpSyntax& other) {
    if (const auto* counter = dynamic_cast<const Counter64*>(&other)) {
        *this = *counter;
    } else {
        std::uint32_t bits = 0;
        *this = pp_uint64(bitsOf32(other, bits) ? bits : 0);
    }
    return *this;
}

void Counter64::set_high(unsigned long high) {
    *this = Counter64(high, low());
}

void Counter64::set_low(unsigned long low) {
    *this = Counter64(high(), low);
}

const char* Counter64::get_printable() const {
    return m_text.text([this] { return std::to_string(m_value); });
}

}  // namespace Snmp_pp
