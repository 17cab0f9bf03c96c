#include "tools/terminal_text.h"

#include <fmt/format.h>

#include <algorithm>

#include "host/base/utf8.h"

namespace vrx {

namespace {

std::string shown(std::string_view text, std::string_view plain) {
    std::string shown;
    while (!text.empty()) {
        const std::size_t octets = utf8CharacterLength(text);
        const std::string_view character = text.substr(0, std::max<std::size_t>(octets, 1));
        if (octets > 0 && (!isControlCharacter(character) || plain.find(character) != std::string_view::npos)) {
            shown += character;
        } else {
            for (const char octet : character) shown += fmt::format("\\x{:02X}", static_cast<unsigned char>(octet));
        }
        text.remove_prefix(character.size());
    }
    return shown;
}

}  // namespace

std::string terminalText(std::string_view text) {
    return shown(text, "");
}

std::string terminalLines(std::string_view text) {
    return shown(text, "\n\t");
}

}  // namespace vrx
