// The placeholders of an alarm's template, for whoever explains it and does not render it.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace vrx {

struct TemplatePlaceholder {
    std::optional<unsigned int> index;  // none: no digit after the mark
    bool cutOff = false;                // nothing at all after the mark
    bool hasMap = false;
    bool unclosed = false;             // its map has no "}"
    std::vector<std::string> entries;  // of its map, as written
};

// In the order of the text.
[[nodiscard]] std::vector<TemplatePlaceholder> placeholdersOf(const std::string& text);

}  // namespace vrx
