// How the rows of a handler's answer get their numbers, the last sub-identifiers of their names.
//
// A record's identifier is its row's number. Records whose identifier is all ones have none: their number is spelled
// in a column of theirs, for tables that are registered with one (table_rules.h), or is their position, from 1.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "host/agent/objects/mib_model.h"
#include "vrxpub/vrx_tlv_record.h"

namespace vrx {

// The number of the record at `position` (from 0) of the object's answer; nothing when it has none that the table's
// index column allows.
std::optional<std::uint32_t> rowNumber(const MibObject& object, const CTLVRecordV3& record, std::size_t position);

}  // namespace vrx
