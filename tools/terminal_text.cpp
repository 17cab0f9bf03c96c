#include "tools/terminal_text.h"

#include <fmt/format.h>

#include <algorithm>

namespace vrx {

namespace {

// The octets of the character that the text begins with; 0 where it begins with none.
std::size_t characterAt(std::string_view text) {
    struct Lead {
        unsigned char first, last;           // of the first octet
        unsigned char secondFrom, secondTo;  // of the second one: no other way to write a character, no surrogate
        std::size_t octets;
    };
    static constexpr Lead LEADS[] = {{0xC2, 0xDF, 0x80, 0xBF, 2}, {0xE0, 0xE0, 0xA0, 0xBF, 3},
                                     {0xE1, 0xEC, 0x80, 0xBF, 3}, {0xED, 0xED, 0x80, 0x9F, 3},
                                     {0xEE, 0xEF, 0x80, 0xBF, 3}, {0xF0, 0xF0, 0x90, 0xBF, 4},
                                     {0xF1, 0xF3, 0x80, 0xBF, 4}, {0xF4, 0xF4, 0x80, 0x8F, 4}};
    const auto octet = [&](std::size_t at) { return static_cast<unsigned char>(text[at]); };
    if (octet(0) < 0x80) return 1;
    for (const Lead& lead : LEADS) {
        if (octet(0) < lead.first || octet(0) > lead.last) continue;
        if (text.size() < lead.octets || octet(1) < lead.secondFrom || octet(1) > lead.secondTo) return 0;
        for (std::size_t at = 2; at < lead.octets; ++at) {
            if ((octet(at) & 0xC0U) != 0x80U) return 0;
        }
        return lead.octets;
    }
    return 0;
}

// C0, DEL and C1, of which UTF-8 has two octets.
bool isControl(std::string_view character) {
    const auto first = static_cast<unsigned char>(character[0]);
    if (character.size() == 1) return first < 0x20 || first == 0x7F;
    return first == 0xC2 && static_cast<unsigned char>(character[1]) < 0xA0;
}

std::string shown(std::string_view text, std::string_view plain) {
    std::string shown;
    while (!text.empty()) {
        const std::size_t octets = characterAt(text);
        const std::string_view character = text.substr(0, std::max<std::size_t>(octets, 1));
        if (octets > 0 && (!isControl(character) || plain.find(character) != std::string_view::npos)) {
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
