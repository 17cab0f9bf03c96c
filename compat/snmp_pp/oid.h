// Oid: an object identifier, built from dotted text, from an array or by joining.
//
//     Snmp_pp::Oid trap("1.3.6.1.4.1.99871.2");
//     trap += ".91.10";
//     log(trap.get_printable());
//
// Text: dots separate and are otherwise skipped, "$ab$" stands for one sub-identifier per byte, numbers keep their low
// 32 bits, and any other character makes the whole Oid empty. Nothing limits the length. No operation throws anything
// but std::bad_alloc. Threads: see SnmpSyntax.
#ifndef COMPAT_SNMP_PP_OID_H
#define COMPAT_SNMP_PP_OID_H

#include <vector>

#include "snmp_pp/compat_print_cache.h"
#include "snmp_pp/smival.h"

namespace Snmp_pp {

class Oid : public SnmpSyntax {
public:
    Oid() = default;

    // dotted false: each character becomes one sub-identifier. A null text gives an empty Oid.
    Oid(const char* text, bool dotted = true);

    // A null array or a count below 1 gives an empty Oid.
    Oid(const SmiUINT32* raw, int count);

    Oid(const Oid& other);
    ~Oid() override = default;

    Oid& operator=(const char* text);
    Oid& operator=(const Oid& other);
    SnmpSyntax& operator=(const SnmpSyntax& other) override;  // anything but an Oid leaves this one empty

    Oid& operator+=(const char* text);  // a text that does not parse empties the whole Oid
    Oid& operator+=(SmiUINT32 subIdentifier);
    Oid& operator+=(const Oid& other);
    friend Oid operator+(const Oid& left, const Oid& right);

    bool operator==(const Oid& other) const;
    bool operator!=(const Oid& other) const;
    bool operator<(const Oid& other) const;
    bool operator<=(const Oid& other) const;
    bool operator>(const Oid& other) const;
    bool operator>=(const Oid& other) const;

    // -1, 0 or 1 for the first `count` sub-identifiers, or for all; the shorter one is less.
    int nCompare(SmiUINT32 count, const Oid& other) const;
    int nCompare(const Oid& other) const;

    // 0 from len() on.
    SmiUINT32 operator[](SmiUINT32 position) const { return position < m_ids.size() ? m_ids[position] : 0; }

    // REQUIRES: position below len(). Write values of 32 bits only.
    SmiUINT32& operator[](SmiUINT32 position);

    SmiUINT32 len() const { return m_ids.size(); }

    // Whether a buffer is held: false for an empty Oid, but true for one parsed from dots only. Ask len() instead.
    bool valid() const override { return !m_ids.empty() || m_emptyBuffer; }

    void clear() override;

    // Drops `count` sub-identifiers from the right; does nothing when there are not so many.
    void trim(SmiUINT32 count = 1);

    void set_data(const SmiUINT32* raw, unsigned int count);

    // The live data, until the next change.
    SmiOID* oidval();

    const char* get_printable() const override;

    // The last `count` sub-identifiers, or `count` of them from a start that counts from 1; "" when out of range. Both
    // share one text, which the next of these calls replaces.
    const char* get_printable(SmiUINT32 count) const;
    const char* get_printable(SmiUINT32 start, SmiUINT32 count) const;

    SmiUINT32 get_syntax() const override { return sNMP_SYNTAX_OID; }
    SnmpSyntax* clone() const override { return new Oid(*this); }

private:
    std::vector<SmiUINT32> m_ids;
    bool m_emptyBuffer = false;  // made from dots only
    SmiOID m_view = {0, nullptr};
    CompatPrintCache m_text;
    mutable std::string m_partText;
};

}  // namespace Snmp_pp

#endif
