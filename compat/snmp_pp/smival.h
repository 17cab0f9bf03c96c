// SnmpSyntax: what every SNMP value can do. A value knows its syntax and its text, can be copied without knowing its
// class, and takes over another value's content as far as its own class can hold it.
//
// Threads: values are not locked. get_printable() of a const value writes a cache the first time, so threads that share
// one value print it once before they share it, or print copies.
#ifndef COMPAT_SNMP_PP_SMIVAL_H
#define COMPAT_SNMP_PP_SMIVAL_H

#include "snmp_pp/smi.h"

namespace Snmp_pp {

class SnmpSyntax {
public:
    SnmpSyntax() = default;
    SnmpSyntax(const SnmpSyntax&) = default;
    virtual ~SnmpSyntax() = default;

    // The value as text, never null; the text lives in the object, until the object changes or dies.
    virtual const char* get_printable() const = 0;

    // One of sNMP_SYNTAX_*.
    virtual SmiUINT32 get_syntax() const = 0;

    // A new value of the same class; the caller deletes it.
    virtual SnmpSyntax* clone() const = 0;

    virtual bool valid() const = 0;
    virtual void clear() = 0;

    // Takes over the other value's content; each class says what it accepts and what it is after a refusal.
    virtual SnmpSyntax& operator=(const SnmpSyntax& other) = 0;
};

// The base holds nothing; this is what the copy assignments of the derived classes end in.
inline SnmpSyntax& SnmpSyntax::operator=(const SnmpSyntax&) {
    return *this;
}

}  // namespace Snmp_pp

#endif
