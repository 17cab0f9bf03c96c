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

#include <memory>
#include <optional>
#include <string_view>

#include "host/agent/objects/mib_model.h"
#include "host/snmp/snmp_value.h"
#include "vrxpub/vrx_tlv_cell.h"

namespace vrx {

// The bytes of a STRING (without its terminating zero) or OCTETS cell where they lie; nothing for other cells.
std::optional<std::string_view> textOfCell(const CTLVCell& cell);

// The value of a cell in a column; nothing when the cell holds none that the syntax could show.
std::optional<SnmpValue> valueOfCell(const CTLVCell& cell, const MibSyntax& syntax);

// SNMP_ERR_NOERROR, or why the varbind's value cannot be one of that syntax: wrongType, wrongLength, wrongValue.
[[nodiscard]] int checkVarbind(const netsnmp_variable_list& varbind, const MibSyntax& syntax);

// The varbind's value as a cell for a handler: text as STRING, INTEGER as INT, other numbers as UINT.
// REQUIRES: checkVarbind() found no fault.
std::unique_ptr<CTLVCell> cellOfVarbind(const netsnmp_variable_list& varbind, unsigned short tag);

// A copy of a cell.
std::unique_ptr<CTLVCell> copyCell(const CTLVCell& cell);

}  // namespace vrx
