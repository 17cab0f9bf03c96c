// What a module's MIB file says about its objects: the shape of each table and scalar, by OID.
//
//     const MibModel model = MibModel::load("/opt/vrx/mibs/VRX-TAMREL-MIB.xml");
//     const MibObject* table = model.find(parseOid("1.3.6.1.4.1.99871.2.91.9.1"));
//
// The file is what `smidump -f xml` writes. Types that it imports are known here by name (the SMI's own and the usual
// textual conventions); a column of any other imported type is an error.
//
// Threads: constant after load().
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/snmp/oid_vector.h"

namespace vrx {

// A MIB file that is missing, is no smidump XML, or describes an object in a way that the agent cannot serve.
class MibError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct MibRange {
    long long min;
    long long max;
};

struct MibSyntax {
    unsigned char type = 0;              // of the value in a varbind: ASN_INTEGER, ASN_GAUGE, ASN_OCTET_STR, ...
    std::string name;                    // "RowStatus", "Unsigned32"; the base type's for a type without a name
    std::vector<MibRange> ranges;        // of a number's value or a text's length; empty: any
    std::map<long, std::string> labels;  // of an enumeration; empty: any number

    bool allows(long long number) const;  // a value or, of an octet string, a length
};

enum class MibAccess { NotAccessible, NotifyOnly, ReadOnly, ReadWrite };

struct MibColumn {
    std::string name;
    oid number = 0;  // last sub-identifier of the column's OID; 0 for a scalar
    MibSyntax syntax;
    MibAccess access = MibAccess::NotAccessible;

    bool readable() const { return access == MibAccess::ReadOnly || access == MibAccess::ReadWrite; }
    bool writable() const { return access == MibAccess::ReadWrite; }
};

// A table with one index column of an unsigned type, or a scalar, which counts as one column under number 0.
struct MibObject {
    std::string name;
    OidVector root;
    bool table = false;
    bool creatable = false;          // managers may create rows
    std::vector<MibColumn> columns;  // in the order of their numbers, those that cannot be read included
    MibRange index{0, 0};            // of the row numbers that the index column allows

    const MibColumn* column(oid number) const;  // null when there is none
    const MibColumn* rowStatus() const;         // null when there is none

    // A name below the root for people: "vrxTrapDestPort.7", "vrxClearAlarm.0"; numbers where it means no column.
    std::string nameOf(const oid* name, std::size_t length) const;

    // Names below the root: table .1.COLUMN.ROW, scalar .0
    static constexpr oid ENTRY = 1;
    static constexpr std::size_t INSTANCE_LENGTH = 3;
};

class MibModel {
public:
    // Throws MibError.
    static MibModel load(const std::string& path);

    const MibObject* find(const OidVector& root) const;
    std::size_t size() const { return m_objects.size(); }

private:
    std::map<OidVector, MibObject> m_objects;
};

}  // namespace vrx
