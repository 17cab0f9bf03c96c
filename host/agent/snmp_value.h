// Values on their way between a module's cells and SNMP's varbinds, by the syntax that the MIB gives a column.
//
//     cell              column                 varbind
//     STRING            OCTET STRING           its bytes without the terminating zero
//     OCTETS            OCTET STRING           its bytes
//     UINT, INT         INTEGER, Unsigned32,   the number; one that does not fit gives no value, except that a
//                       Gauge32, Counter64     Gauge32 stays at its maximum
//     STRING            number                 the decimal number that it spells
//     UINT, INT         OCTET STRING           its decimal text
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "host/agent/mib_model.h"
#include "vrxpub/vrx_tlv_cell.h"

// As Net-SNMP declares it; oid_vector.h tells why its header may be missing.
struct variable_list;
using netsnmp_variable_list = ::variable_list;

constexpr unsigned char NO_VALUE = 0x05;  // ASN_NULL

struct SnmpValue {
    unsigned char type = NO_VALUE;
    std::uint64_t number = 0;  // of numeric types; an INTEGER's bits
    std::string octets;        // of octet strings, object identifiers and addresses as their bytes
};

// The bytes of a STRING (without its terminating zero) or OCTETS cell where they lie; nothing for other cells.
std::optional<std::string_view> textOfCell(const CTLVCell& cell);

// The value of a cell in a column; nothing when the cell holds none that the syntax could show.
std::optional<SnmpValue> valueOfCell(const CTLVCell& cell, const MibSyntax& syntax);

// Writes type and value of a varbind; false when there is no memory.
bool setVarbind(netsnmp_variable_list* varbind, unsigned char type, std::uint64_t number, std::string_view octets);
inline bool setVarbind(netsnmp_variable_list* varbind, const SnmpValue& value) {
    return setVarbind(varbind, value.type, value.number, value.octets);
}

// SNMP_ERR_NOERROR, or why the varbind's value cannot be one of that syntax: wrongType, wrongLength, wrongValue.
int checkVarbind(const netsnmp_variable_list& varbind, const MibSyntax& syntax);

// The varbind's value as a cell for a handler: text as STRING, INTEGER as INT, other numbers as UINT.
// REQUIRES: checkVarbind() found no fault.
std::unique_ptr<CTLVCell> cellOfVarbind(const netsnmp_variable_list& varbind, unsigned short tag);

// A copy of a cell.
std::unique_ptr<CTLVCell> copyCell(const CTLVCell& cell);
