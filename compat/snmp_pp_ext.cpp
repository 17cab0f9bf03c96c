#include "agent_pp/snmp_pp_ext.h"

#include <algorithm>
#include <cstring>

namespace Agentpp {

using Snmp_pp::OctetStr;
using Snmp_pp::SmiUINT32;

namespace {

constexpr SmiUINT32 LONGEST_OID = 128;
constexpr SmiUINT32 LARGEST_SUB_IDENTIFIER = 0xFFFFFFFFUL;

}  // namespace

Oidx& Oidx::operator=(SmiUINT32 subIdentifier) {
    clear();
    *this += subIdentifier;
    return *this;
}

Oidx& Oidx::operator+=(const Snmp_pp::IpAddress& address) {
    for (int i = 0; i < 4; ++i) {
        *this += SmiUINT32(address[i]);
    }
    return *this;
}

Oidx Oidx::cut_left(SmiUINT32 count) const {
    Oidx rest;
    for (SmiUINT32 i = count; i < len(); ++i) {
        rest += (*this)[i];
    }
    return rest;
}

Oidx Oidx::cut_right(SmiUINT32 count) const {
    Oidx rest(*this);
    rest.trim(std::min(count, len()));
    return rest;
}

SmiUINT32 Oidx::last() const {
    return len() == 0 ? 0 : (*this)[len() - 1];
}

bool Oidx::is_root_of(const Oid& other) const {
    return len() < other.len() && nCompare(len(), other) == 0;
}

bool Oidx::in_subtree_of(const Oid& other) const {
    return Oidx(other).is_root_of(*this);
}

OctetStr Oidx::as_string(bool cutLength) const {
    const SmiUINT32 first = cutLength && len() > 0 && (*this)[0] == len() - 1 ? 1 : 0;
    OctetStr text;
    for (SmiUINT32 i = first; i < len(); ++i) {
        text += static_cast<unsigned char>((*this)[i] & 0xFFU);
    }
    return text;
}

Oidx Oidx::from_string(const OctetStr& text, bool withLength) {
    Oidx oid;
    if (withLength) {
        oid += SmiUINT32(text.len());
    }
    std::for_each(text.data(), text.data() + text.len(), [&oid](unsigned char byte) { oid += SmiUINT32(byte); });
    return oid;
}

Oidx Oidx::successor() const {
    if (len() >= LONGEST_OID) {
        return next_peer();
    }
    Oidx next(*this);
    next += SmiUINT32(0);
    return next;
}

Oidx Oidx::next_peer() const {
    Oidx next = cut_right(1);
    next += last() + 1;
    return next;
}

Oidx Oidx::predecessor() const {
    if (len() == 0) {
        return *this;
    }
    Oidx before = cut_right(1);
    if (last() > 0) {
        before += last() - 1;
        while (before.len() < LONGEST_OID) {
            before += LARGEST_SUB_IDENTIFIER;
        }
    }
    return before;
}

Oidx& Oidx::mask(const OctetStr& bits) {
    for (SmiUINT32 i = 0; i < len() && i / 8 < bits.len(); ++i) {
        if ((bits.data()[i / 8] & (0x80U >> (i % 8))) == 0) {
            (*this)[i] = 0;
        }
    }
    return *this;
}

int Oidx::compare(const Oidx& other, unsigned int ignored) const {
    if (other.len() < len()) {
        return -1;
    }
    for (SmiUINT32 i = 0; i < len(); ++i) {
        if (i != ignored && (*this)[i] != other[i]) {
            return -1;
        }
    }
    return other.len() == len() ? 0 : 1;
}

bool Vbx::operator==(const Vbx& other) const {
    return std::strcmp(get_printable_value(), other.get_printable_value()) == 0;
}

bool Vbx::equal(const Vbx* left, const Vbx* right, int count) {
    return std::equal(left, left + count, right,
                      [](const Vbx& a, const Vbx& b) { return a.get_syntax() == b.get_syntax() && a == b; });
}

}  // namespace Agentpp
