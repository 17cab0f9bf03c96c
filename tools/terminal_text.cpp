#include "tools/terminal_text.h"

#include <fmt/format.h>

#include <algorithm>

#include "host/base/utf8.h"

namespace vrx {

namespace {

// Line and paragraph separator, and what embeds or isolates text of another direction: it would last to the end of the
// line, beyond the text itself.
bool isLineControl(std::string_view character) {
    return (character >= "\u2028" && character <= "\u202E") || (character >= "\u2066" && character <= "\u2069");
}

std::string shown(std::string_view text, std::string_view plain) {
    std::string shown;
    while (!text.empty()) {
        const std::size_t octets = utf8CharacterLength(text);
        const std::string_view character = text.substr(0, std::max<std::size_t>(octets, 1));
        const bool safe = octets > 0 && !isControlCharacter(character) && !isLineControl(character);
        if (safe || plain.find(character) != std::string_view::npos) {
            shown += character;
        } else {
            shown += escapedOctets(character);
        }
        text.remove_prefix(character.size());
    }
    return shown;
}

}  // namespace

std::string escapedOctets(std::string_view text) {
    std::string escaped;
    for (const char octet : text) escaped += fmt::format("\\x{:02X}", static_cast<unsigned char>(octet));
    return escaped;
}

std::string terminalText(std::string_view text) {
    return shown(text, "");
}

std::string terminalLines(std::string_view text) {
    return shown(text, "\n\t");
}

}  // namespace vrx
