#include "host/definitions/template_placeholders.h"

#include <algorithm>
#include <cstdlib>

#include "alarm/alarm_placeholder.h"
#include "platform/vrx_utility.h"

namespace vrx {

std::vector<TemplatePlaceholder> placeholdersOf(const std::string& text) {
    std::vector<TemplatePlaceholder> found;
    for (std::size_t at = text.find(PLACEHOLDER_MARK); at != std::string::npos;
         at = text.find(PLACEHOLDER_MARK, at + PLACEHOLDER_MARK.size())) {
        TemplatePlaceholder placeholder;
        const std::string digits = text.substr(at + PLACEHOLDER_MARK.size(), PLACEHOLDER_INDEX_LENGTH);
        placeholder.cutOff = digits.empty();
        if (digits.size() == PLACEHOLDER_INDEX_LENGTH &&
            std::all_of(digits.begin(), digits.end(), [](char c) { return c >= '0' && c <= '9'; }))
            placeholder.index = static_cast<unsigned int>(std::strtoul(digits.c_str(), nullptr, 10));
        const std::size_t open = text.find('{', at);
        if (open != std::string::npos && open <= at + PLACEHOLDER_MAP_DISTANCE) {
            placeholder.hasMap = true;
            const std::size_t close = text.find('}', open);
            placeholder.unclosed = close == std::string::npos;
            if (!placeholder.unclosed)
                SplitToStr(text.substr(open + 1, close - open - 1), MAP_ENTRY_SEPARATOR, placeholder.entries);
        }
        found.push_back(placeholder);
    }
    return found;
}

}  // namespace vrx
