#include "tools/watch/text_columns.h"

#include <wchar.h>

#include <algorithm>

#include "host/base/utf8.h"
#include "tools/terminal_text.h"

namespace vrx {

namespace {

struct Character {
    std::string_view octets;
    wchar_t code;
    int columns;  // -1: none of the locale's character set
};

// REQUIRES: `text` is UTF-8 and not empty.
Character firstOf(std::string_view text) {
    const std::string_view octets = text.substr(0, std::max<std::size_t>(utf8CharacterLength(text), 1));
    constexpr unsigned int LEAD_BITS[] = {0, 0x7F, 0x1F, 0x0F, 0x07};  // by the count of octets
    auto code = static_cast<unsigned char>(octets[0]) & LEAD_BITS[octets.size()];
    for (const char octet : octets.substr(1)) code = code << 6U | (static_cast<unsigned char>(octet) & 0x3FU);
    const auto wide = static_cast<wchar_t>(code);
    return {octets, wide, ::wcwidth(wide)};
}

template <typename Each>
void forEachCharacter(std::string_view text, const Each& each) {
    while (!text.empty()) {
        const Character character = firstOf(text);
        each(character);
        text.remove_prefix(character.octets.size());
    }
}

// The longest beginning of at most so many columns.
std::string_view beginningOf(std::string_view text, std::size_t columns) {
    std::size_t octets = 0;
    while (octets < text.size()) {
        const Character character = firstOf(text.substr(octets));
        const auto width = static_cast<std::size_t>(std::max(character.columns, 0));
        if (width > columns) break;
        columns -= width;
        octets += character.octets.size();
    }
    return text.substr(0, octets);
}

}  // namespace

std::string screenText(std::string_view text) {
    std::string line(text);
    std::replace_if(
        line.begin(), line.end(), [](char c) { return c == '\n' || c == '\r' || c == '\t'; }, ' ');
    std::string shown;
    forEachCharacter(terminalText(line), [&shown](const Character& character) {
        if (character.columns < 0) {
            shown += escapedOctets(character.octets);
        } else {
            shown += character.octets;
        }
    });
    return shown;
}

std::size_t columnsOf(std::string_view text) {
    std::size_t columns = 0;
    forEachCharacter(text, [&columns](const Character& character) {
        columns += static_cast<std::size_t>(std::max(character.columns, 0));
    });
    return columns;
}

std::string fitted(std::string_view text, std::size_t columns) {
    if (columns == 0) return {};
    std::string_view beginning = beginningOf(text, columns);
    const bool cut = beginning.size() < text.size();
    if (cut) beginning = beginningOf(text, columns - 1);
    std::string line(beginning);
    line.append(columns - (cut ? 1 : 0) - columnsOf(beginning), ' ');
    return cut ? line + ">" : line;
}

std::vector<std::string> wrapped(std::string_view text, std::size_t columns) {
    std::vector<std::string> lines;
    do {
        std::string_view line = beginningOf(text, columns);
        if (line.empty()) line = text.substr(0, text.empty() ? 0 : firstOf(text).octets.size());  // wider than all
        const std::size_t blank = line.size() < text.size() ? text.rfind(' ', line.size()) : std::string_view::npos;
        if (blank != std::string_view::npos && blank > 0) line = text.substr(0, blank);
        lines.emplace_back(line);
        text.remove_prefix(line.size());
        text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
    } while (!text.empty());
    return lines;
}

std::wstring wideText(std::string_view text) {
    std::wstring wide;
    forEachCharacter(text, [&wide](const Character& character) { wide += character.code; });
    return wide;
}

std::string utf8Of(std::wint_t character) {
    unsigned int code = character;
    if (code < 0x80) return {static_cast<char>(code)};
    std::string octets;
    unsigned int room = 0x3F;   // for bits of the character in the first octet
    unsigned int lead = 0x180;  // its other bits: as many 1 as there are octets
    while (code > room || octets.empty()) {
        octets.insert(octets.begin(), static_cast<char>(0x80U | (code & 0x3FU)));
        code >>= 6U;
        room >>= 1U;
        lead = (lead >> 1U) | 0x80U;
    }
    octets.insert(octets.begin(), static_cast<char>(lead | code));
    return octets;
}

}  // namespace vrx
