// What the handlers have in common: command codes, and rows of cells as tables.
//
//     constexpr tColumn<tAlarmRow> ALARM_COLUMNS[] = {
//         {1, [](CTLVCell& cell, unsigned short tag, const tAlarmRow& row) { cell.set(tag, row.title.c_str()); }},
//     };
//     appendColumns(*out, ALARM_COLUMNS, row);
#pragma once

#include <cstddef>
#include <memory>

#include "vrxpub/record_access.h"

// A namespace of its own: these names are short, and the host exports its own symbols to what it loads.
namespace handlers {

// The code of a backend command: a key of the section "COMMAND", read from the device configuration now. 0 when the
// key is missing or its text is no number.
long long commandCode(const char* command);

// A new record without identifier.
std::unique_ptr<CTLVRecordV3> makeRow();

// One cell of a record: how its value comes from `Source`.
template <typename Source>
struct tColumn {
    unsigned short tag;
    void (*fill)(CTLVCell& cell, unsigned short tag, const Source& source);
};

// Appends one cell for each column, in the order of the table. When a column throws, the cells before it stay.
template <typename Source, std::size_t N>
void appendColumns(CTLVRecordV3& record, const tColumn<Source> (&columns)[N], const Source& source) {
    for (const tColumn<Source>& column : columns) {
        record.appendNew([&](CTLVCell& cell) { column.fill(cell, column.tag, source); });
    }
}

}  // namespace handlers
