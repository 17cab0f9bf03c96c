// Oidx and Vbx: Oid and Vb with the operations that an agent needs. Neither adds data.
//
//     Agentpp::Oidx column("1.3.6.1.4.1.99871.2.91.9.1.1.3");
//     if (Agentpp::Oidx("1.3.6.1.4.1.99871.2").is_root_of(column)) { ... column.last() ... }
//
// Operations of Oidx return new objects and leave the receiver as it is, unless they say otherwise. Assigning or
// appending a text gives an Oid&, so use the Oidx itself afterwards, in a statement of its own.
#ifndef COMPAT_AGENT_PP_SNMP_PP_EXT_H
#define COMPAT_AGENT_PP_SNMP_PP_EXT_H

#include "snmp_pp/snmp_pp.h"

#define AGENTPP_NAMESPACE
#define AGENTPP_VERSION 4
#define AGENTPP_RELEASE 5
#define AGENTPP_PATCHLEVEL 0
#define AGENTPP_VERSION_STRING "4.5.0"

namespace Agentpp {

class Oidx : public Snmp_pp::Oid {
public:
    Oidx() = default;
    Oidx(const char* text) : Snmp_pp::Oid(text) {}
    Oidx(const Snmp_pp::SmiUINT32* raw, int count) : Snmp_pp::Oid(raw, count) {}
    Oidx(const Snmp_pp::Oid& other) : Snmp_pp::Oid(other) {}
    Oidx(const Oidx&) = default;
    ~Oidx() override = default;

    using Snmp_pp::Oid::operator=;
    Oidx& operator=(const Oidx&) = default;
    Oidx& operator=(Snmp_pp::SmiUINT32 subIdentifier);  // becomes this one sub-identifier

    using Snmp_pp::Oid::operator+=;
    Oidx& operator+=(const Snmp_pp::IpAddress& address);  // appends its bytes

    Oidx cut_left(Snmp_pp::SmiUINT32 count) const;   // without the first ones
    Oidx cut_right(Snmp_pp::SmiUINT32 count) const;  // without the last ones

    // 0 when empty.
    Snmp_pp::SmiUINT32 last() const;

    // Whether this is a proper prefix of the other; and the other way round.
    bool is_root_of(const Snmp_pp::Oid& other) const;
    bool in_subtree_of(const Snmp_pp::Oid& other) const;

    // One byte per sub-identifier, its low 8 bits. cutLength drops the first one when it counts the others.
    Snmp_pp::OctetStr as_string(bool cutLength = false) const;

    // One sub-identifier per byte, after their count unless withLength is false.
    static Oidx from_string(const Snmp_pp::OctetStr& text, bool withLength = true);

    // The next OID in order: one level deeper while there are fewer than 128 sub-identifiers, then the next peer.
    Oidx successor() const;

    // The last sub-identifier plus one. REQUIRES: not empty.
    Oidx next_peer() const;

    // The OID before this one in order, as long as 128 sub-identifiers can tell.
    Oidx predecessor() const;

    // Zeroes, in this object, each sub-identifier whose bit of the mask is 0; bits count from the top of the first
    // byte.
    Oidx& mask(const Snmp_pp::OctetStr& bits);

    // Compares without the sub-identifier at `ignored` (from 0): 0 equal, 1 the other one lies below, -1 neither.
    int compare(const Oidx& other, unsigned int ignored) const;

    Snmp_pp::SnmpSyntax* clone() const override { return new Oidx(*this); }
};

class Vbx : public Snmp_pp::Vb {
public:
    Vbx() = default;
    Vbx(const Snmp_pp::Vb& other) : Snmp_pp::Vb(other) {}
    Vbx(const Snmp_pp::Oid& name) : Snmp_pp::Vb(name) {}
    Vbx(const Snmp_pp::Oid& name, const Snmp_pp::SnmpSyntax& value) : Snmp_pp::Vb(name) { set_value(value); }

    // By value: keep the result in a variable before taking a text from it.
    Oidx get_oid() const { return Oidx(Snmp_pp::Vb::get_oid()); }
    void get_oid(Oidx& oid) const { oid = Snmp_pp::Vb::get_oid(); }

    // The value only; the OID stays.
    void clear() { set_null(); }

    // Same text of the values, whatever the OIDs and types are.
    bool operator==(const Vbx& other) const;

    // Same syntax and same text of all `count` values, whatever the OIDs are.
    static bool equal(const Vbx* left, const Vbx* right, int count);
};

}  // namespace Agentpp

#endif
