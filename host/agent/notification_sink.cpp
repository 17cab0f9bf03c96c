#include "host/agent/notification_sink.h"

#include <algorithm>
#include <cctype>

namespace {

constexpr std::size_t KEY_DIGITS = 10;

}  // namespace

std::string trapDestinationKey(const std::string& index) {
    const bool isNumber = !index.empty() && index.size() < KEY_DIGITS &&
                          std::all_of(index.begin(), index.end(), [](unsigned char c) { return std::isdigit(c) != 0; });
    return isNumber ? std::string(KEY_DIGITS - index.size(), '0') + index : index;
}
