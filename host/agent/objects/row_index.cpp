#include "host/agent/objects/row_index.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <string>

#include "host/agent/objects/table_rules.h"

namespace vrx {

namespace {

std::optional<unsigned long long> numberOf(const std::string& text) {
    if (text.empty() || text.find_first_not_of("0123456789") != std::string::npos) return std::nullopt;
    errno = 0;
    const unsigned long long number = std::strtoull(text.c_str(), nullptr, 10);
    return errno == 0 ? std::optional<unsigned long long>(number) : std::nullopt;
}

}  // namespace

std::optional<std::uint32_t> rowNumber(const MibObject& object, const CTLVRecordV3& record, std::size_t position) {
    std::optional<unsigned long long> number = record.identifier();
    if (record.identifier() == CTLVRecordV3::NO_IDENTIFIER) {
        const unsigned short column = tableTraits(object.root).numberColumn;
        number = column == 0 ? position + 1 : record.has(column) ? numberOf(record[column].toString()) : std::nullopt;
    }
    const auto min = static_cast<unsigned long long>(std::max(object.index.min, 0LL));
    if (!number || (object.table && (*number < min || *number > static_cast<unsigned long long>(object.index.max)))) {
        return std::nullopt;
    }
    return static_cast<std::uint32_t>(*number);
}

}  // namespace vrx
