// Vb: a variable binding, an Oid and a value of any type.
//
//     Snmp_pp::Vb binding(Snmp_pp::Oid("1.3.6.1.2.1.1.5.0"));
//     binding.set_value("array-7");
//     log(binding.get_printable_value());
//
// It owns clones of what it is given. No virtual functions: release an array of a derived class through that class.
// Wrap numbers in the SNMP type that is meant, because plain ones take the type that their C++ type suggests. No
// operation throws anything but std::bad_alloc. Threads: see SnmpSyntax.
#ifndef COMPAT_SNMP_PP_VB_H
#define COMPAT_SNMP_PP_VB_H

#include <memory>

#include "snmp_pp/address.h"
#include "snmp_pp/counter.h"
#include "snmp_pp/ctr64.h"
#include "snmp_pp/gauge.h"
#include "snmp_pp/integer.h"
#include "snmp_pp/octet.h"
#include "snmp_pp/oid.h"
#include "snmp_pp/smival.h"
#include "snmp_pp/snmperrs.h"
#include "snmp_pp/timetick.h"

namespace Snmp_pp {

class Vb {
public:
    Vb() = default;
    Vb(const Oid& name) : m_oid(name) {}
    Vb(const Vb& other);
    ~Vb() = default;
    Vb& operator=(const Vb& other);

    // An OID that is not empty, and a value that is valid or none at all.
    bool valid() const;

    // Neither OID nor value.
    void clear();

    void set_oid(const Oid& oid) { m_oid = oid; }
    const Oid& get_oid() const { return m_oid; }
    void get_oid(Oid& oid) const { oid = m_oid; }
    const char* get_printable_oid() const { return m_oid.get_printable(); }

    void set_value(const SnmpSyntax& value);
    void set_value(int value);
    void set_value(unsigned int value);
    void set_value(long value);
    void set_value(unsigned long value);
    void set_value(const char* text);  // null gives an empty OCTET STRING
    void set_value(const unsigned char* bytes, unsigned int length);
    void set_null();

    // One of sNMP_SYNTAX_NOSUCHOBJECT, _NOSUCHINSTANCE, _ENDOFMIBVIEW; the value goes.
    void set_exception_status(SmiUINT32 status);

    // The exception, else the value's syntax, else sNMP_SYNTAX_NULL.
    SmiUINT32 get_syntax() const;

    // Never null; the text lives until the value is replaced or the Vb is assigned to or destroyed.
    const char* get_printable_value() const;

    // A copy of the value, null when there is none; the caller deletes it.
    SnmpSyntax* clone_value() const;

    // All return SNMP_CLASS_SUCCESS, or SNMP_CLASS_INVALID when the value is none or of another kind. Plain numbers are
    // unchanged by a failure.
    int get_value(int& value) const;            // INTEGER only
    int get_value(long& value) const;           // INTEGER only
    int get_value(unsigned int& value) const;   // Unsigned32, Gauge32, Counter32, TimeTicks
    int get_value(unsigned long& value) const;  // the same
    int get_value(pp_uint64& value) const;      // Counter64 only
    int get_value(SnmpSyntax& value) const;     // what the target takes over; a refusal leaves it invalid or empty

    // OCTET STRING with a zero byte after it. REQUIRES: room for both. "" after a failure.
    int get_value(char* text) const;

    // OCTET STRING and its length. REQUIRES: room for it. One zero byte and length 0 when the value is of another kind.
    int get_value(unsigned char* bytes, unsigned long& length) const;

    // The same, cut at `capacity`. addNul puts a zero byte after it, over the last byte when the buffer is full.
    int get_value(unsigned char* bytes, unsigned long& length, unsigned long capacity, bool addNul = false) const;

private:
    void replaceValue(std::unique_ptr<SnmpSyntax> value);

    Oid m_oid;
    std::unique_ptr<SnmpSyntax> m_value;
    SmiUINT32 m_exception = 0;  // 0 = none
};

}  // namespace Snmp_pp

#endif
