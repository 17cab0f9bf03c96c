// Cells of a record by tag: numbers and texts read, set and appended.
//
//     const unsigned int serial = tlv::uint32Of(record, alarm_tag::SERIAL);
//     tlv::appendText(request, alarm_tag::CLEARED_BY, "SNMP_AGENT");
//
// Values are copied both ways; a record owns the cells that are appended. Threads: as the record's, whose readers take
// turns too. Inline, because host and module read thousands of cells for one answer and each links its own copy.
#pragma once

#include <string>

#include "vrxpub/vrx_little_endian.h"
#include "vrxpub/vrx_tlv_record.h"

namespace tlv {

// The number in the first cell with that tag, of any numerical type and width (CTLVCell::ValueCast). Throw
// CVRX_Exception for a tag that is absent and for a cell that is not numerical.
inline unsigned int uint32Of(const CTLVRecordV3& record, unsigned short tag) {
    const CTLVCell& cell = record[tag];
    cell.checkNumerical();
    return CTLVCell::ValueCast<unsigned int>()(&cell);
}

inline unsigned long long uint64Of(const CTLVRecordV3& record, unsigned short tag) {
    const CTLVCell& cell = record[tag];
    cell.checkNumerical();
    return CTLVCell::ValueCast<unsigned long long>()(&cell);
}

// The text in the first cell with that tag, without its zero byte. Throws CVRX_Exception for a tag that is absent and
// for a cell that is no string.
inline std::string textOf(const CTLVRecordV3& record, unsigned short tag) {
    const CTLVCell& cell = record[tag];
    cell.checkString();
    return cell.toString();
}

// Make a cell of that tag and value: 4 or 8 bytes, little-endian. Text: CTLVCell::set.
inline void setUint32(CTLVCell& cell, unsigned short tag, unsigned int number) {
    unsigned char bytes[4];
    putLe32(bytes, number);
    cell.set_i(CTLVCell::TLV_TYPE_UINT, tag, bytes, sizeof bytes);
}

inline void setUint64(CTLVCell& cell, unsigned short tag, unsigned long long number) {
    unsigned char bytes[8];
    putLe64(bytes, number);
    cell.set_i(CTLVCell::TLV_TYPE_UINT, tag, bytes, sizeof bytes);
}

inline void setInt32(CTLVCell& cell, unsigned short tag, int number) {
    unsigned char bytes[4];
    putLe32(bytes, static_cast<unsigned int>(number));
    cell.set_i(CTLVCell::TLV_TYPE_INT, tag, bytes, sizeof bytes);
}

// Add a cell at the end of a record. On std::bad_alloc the record is as before.
inline void appendUint32(CTLVRecordV3& record, unsigned short tag, unsigned int number) {
    record.appendNew([&](CTLVCell& cell) { setUint32(cell, tag, number); });
}

inline void appendUint64(CTLVRecordV3& record, unsigned short tag, unsigned long long number) {
    record.appendNew([&](CTLVCell& cell) { setUint64(cell, tag, number); });
}

// What follows a zero byte of the text is left out.
inline void appendText(CTLVRecordV3& record, unsigned short tag, const std::string& text) {
    record.appendNew([&](CTLVCell& cell) { cell.set(tag, text.c_str()); });
}

}  // namespace tlv
