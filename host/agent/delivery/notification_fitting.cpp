#include "host/agent/delivery/notification_fitting.h"

#include <algorithm>
#include <string>

namespace vrx {

namespace {

bool isCuttable(const SnmpValue& value) {
    return value.type == ASN_OCTET_STR && value.octets.size() > LONGEST_WHOLE_TEXT;
}

// The length that all longer texts are cut to so that `excess` octets go, or as many as can.
std::size_t lengthWithout(const Notification& trap, std::size_t excess) {
    std::vector<std::size_t> lengths{LONGEST_WHOLE_TEXT};
    for (const NotificationBinding& binding : trap.bindings) {
        if (isCuttable(binding.value)) lengths.push_back(binding.value.octets.size());
    }
    std::sort(lengths.rbegin(), lengths.rend());
    std::size_t length = lengths.front();
    for (std::size_t longer = 1; longer < lengths.size(); ++longer) {  // so many are longer than the next one
        const std::size_t given = (length - lengths[longer]) * longer;
        if (given >= excess) return length - (excess + longer - 1) / longer;
        excess -= given;
        length = lengths[longer];
    }
    return length;
}

// At most so many octets, the mark included.
void cutTo(std::size_t length, std::string& text) {
    std::size_t end = length - CUT_MARK.size();
    const auto continues = [&](std::size_t at) { return (static_cast<unsigned char>(text[at]) & 0xC0U) == 0x80U; };
    constexpr std::size_t LONGEST_CHARACTER = 4;
    for (std::size_t back = 1; back < LONGEST_CHARACTER && continues(end); ++back) --end;
    text.resize(end);
    text += CUT_MARK;
}

}  // namespace

FittedNotification::FittedNotification(const Notification& trap, std::size_t size, std::size_t wanted)
    : m_whole(trap), m_size(size) {
    if (size <= wanted) return;
    const std::size_t length = lengthWithout(trap, size - wanted);
    m_shorter = trap;
    for (NotificationBinding& binding : m_shorter->bindings) {
        std::string& text = binding.value.octets;
        if (!isCuttable(binding.value) || text.size() <= length) continue;
        m_size -= text.size();
        cutTo(length, text);
        m_size += text.size();
        ++m_cut;
    }
}

std::string tooLongText(const FittedNotification& fitted) {
    return "its message has " + std::to_string(fitted.size()) + " octets, with all texts shortened";
}

}  // namespace vrx
