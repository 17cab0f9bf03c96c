#include "snmp_pp/vb.h"

#include <algorithm>
#include <limits>

namespace Snmp_pp {

namespace {

std::unique_ptr<SnmpSyntax> cloned(const SnmpSyntax* value) {
    return std::unique_ptr<SnmpSyntax>(value == nullptr ? nullptr : value->clone());
}

}  // namespace

Vb::Vb(const Vb& other) : m_oid(other.m_oid), m_value(cloned(other.m_value.get())), m_exception(other.m_exception) {}

Vb& Vb::operator=(const Vb& other) {
    if (this != &other) {
        auto value = cloned(other.m_value.get());
        m_oid = other.m_oid;
        m_value = std::move(value);
        m_exception = other.m_exception;
    }
    return *this;
}

bool Vb::valid() const {
    return m_oid.len() > 0 && (m_value == nullptr || m_value->valid());
}

void Vb::clear() {
    m_oid.clear();
    set_null();
}

void Vb::replaceValue(std::unique_ptr<SnmpSyntax> value) {
    m_value = std::move(value);
    m_exception = 0;
}

void Vb::set_value(const SnmpSyntax& value) {
    replaceValue(cloned(&value));
}
void Vb::set_value(int value) {
    replaceValue(std::make_unique<SnmpInt32>(value));
}
void Vb::set_value(unsigned int value) {
    replaceValue(std::make_unique<SnmpUInt32>(value));
}
void Vb::set_value(long value) {
    replaceValue(std::make_unique<SnmpInt32>(value));
}
void Vb::set_value(unsigned long value) {
    replaceValue(std::make_unique<SnmpUInt32>(value));
}
void Vb::set_value(const char* text) {
    replaceValue(std::make_unique<OctetStr>(text));
}

void Vb::set_value(const unsigned char* bytes, unsigned int length) {
    replaceValue(std::make_unique<OctetStr>(bytes, length));
}

void Vb::set_null() {
    replaceValue(nullptr);
}

void Vb::set_exception_status(SmiUINT32 status) {
    set_null();
    m_exception = status;
}

SmiUINT32 Vb::get_syntax() const {
    if (m_exception != 0) {
        return m_exception;
    }
    return m_value == nullptr ? sNMP_SYNTAX_NULL : m_value->get_syntax();
}

const char* Vb::get_printable_value() const {
    return m_value == nullptr ? "" : m_value->get_printable();
}

SnmpSyntax* Vb::clone_value() const {
    return cloned(m_value.get()).release();
}

int Vb::get_value(int& value) const {
    long wide = 0;
    const int result = get_value(wide);
    if (result == SNMP_CLASS_SUCCESS) {
        value = static_cast<int>(wide);
    }
    return result;
}

int Vb::get_value(long& value) const {
    const auto* number = dynamic_cast<const SnmpInt32*>(m_value.get());
    if (number == nullptr) {
        return SNMP_CLASS_INVALID;
    }
    value = *number;
    return SNMP_CLASS_SUCCESS;
}

int Vb::get_value(unsigned int& value) const {
    unsigned long wide = 0;
    const int result = get_value(wide);
    if (result == SNMP_CLASS_SUCCESS) {
        value = static_cast<unsigned int>(wide);
    }
    return result;
}

int Vb::get_value(unsigned long& value) const {
    const auto* number = dynamic_cast<const SnmpUInt32*>(m_value.get());
    if (number == nullptr) {
        return SNMP_CLASS_INVALID;
    }
    value = *number;
    return SNMP_CLASS_SUCCESS;
}

int Vb::get_value(pp_uint64& value) const {
    const auto* counter = dynamic_cast<const Counter64*>(m_value.get());
    if (counter == nullptr) {
        return SNMP_CLASS_INVALID;
    }
    value = *counter;
    return SNMP_CLASS_SUCCESS;
}

int Vb::get_value(SnmpSyntax& value) const {
    if (m_value == nullptr) {
        return SNMP_CLASS_INVALID;
    }
    value = *m_value;
    return value.valid() ? SNMP_CLASS_SUCCESS : SNMP_CLASS_INVALID;
}

int Vb::get_value(char* text) const {
    const auto* octets = dynamic_cast<const OctetStr*>(m_value.get());
    if (octets == nullptr) {
        text[0] = '\0';
        return SNMP_CLASS_INVALID;
    }
    std::copy_n(octets->data(), octets->len(), text);
    text[octets->len()] = '\0';
    return SNMP_CLASS_SUCCESS;
}

int Vb::get_value(unsigned char* bytes, unsigned long& length) const {
    return get_value(bytes, length, std::numeric_limits<unsigned long>::max());
}

int Vb::get_value(unsigned char* bytes, unsigned long& length, unsigned long capacity, bool addNul) const {
    if (m_value == nullptr) {
        return SNMP_CLASS_INVALID;
    }
    const auto* octets = dynamic_cast<const OctetStr*>(m_value.get());
    if (octets == nullptr) {
        length = 0;
        if (capacity > 0) {
            bytes[0] = 0;
        }
        return SNMP_CLASS_INVALID;
    }
    length = std::min(octets->len(), capacity);
    std::copy_n(octets->data(), length, bytes);
    if (addNul && capacity > 0) {
        bytes[std::min(length, capacity - 1)] = 0;
    }
    return SNMP_CLASS_SUCCESS;
}

}  // namespace Snmp_pp
