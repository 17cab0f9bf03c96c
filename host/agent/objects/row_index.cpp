#include "host/agent/objects/row_index.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <string>

namespace vrx {

namespace {

struct NumberColumn {
    const char* root;
    unsigned short column;
};

constexpr NumberColumn NUMBER_COLUMNS[] = {
    {"1.3.6.1.4.1.99871.2.91.10.4.1", 4},  // trap destinations: the index as text
};

std::optional<unsigned long long> numberOf(const std::string& text) {
    if (text.empty() || text.find_first_not_of("0123456789") != std::string::npos) return std::nullopt;
    errno = 0;
    const unsigned long long number = std::strtoull(text.c_str(), nullptr, 10);
    return errno == 0 ? std::optional<unsigned long long>(number) : std::nullopt;
}

}  // namespace

unsigned short numberColumn(const OidVector& root) {
    const std::string text = oidText(root);
    const auto* const found = std::find_if(std::begin(NUMBER_COLUMNS), std::end(NUMBER_COLUMNS),
                                           [&](const NumberColumn& row) { return text == row.root; });
    return found == std::end(NUMBER_COLUMNS) ? static_cast<unsigned short>(0) : found->column;
}

std::optional<std::uint32_t> rowNumber(const MibObject& object, const CTLVRecordV3& record, std::size_t position) {
    std::optional<unsigned long long> number = record.identifier();
    if (record.identifier() == CTLVRecordV3::NO_IDENTIFIER) {
        const unsigned short column = object.table ? numberColumn(object.root) : static_cast<unsigned short>(0);
        number = column == 0 ? position + 1 : record.has(column) ? numberOf(record[column].toString()) : std::nullopt;
    }
    const auto min = static_cast<unsigned long long>(std::max(object.index.min, 0LL));
    if (!number || (object.table && (*number < min || *number > static_cast<unsigned long long>(object.index.max)))) {
        return std::nullopt;
    }
    return static_cast<std::uint32_t>(*number);
}

}  // namespace vrx
