#include "host/base/utf8.h"

namespace vrx {

std::size_t utf8CharacterLength(std::string_view text) {
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
bool isControlCharacter(std::string_view character) {
    const auto first = static_cast<unsigned char>(character[0]);
    if (character.size() == 1) return first < 0x20 || first == 0x7F;
    return first == 0xC2 && static_cast<unsigned char>(character[1]) < 0xA0;
}

}  // namespace vrx
