#include "tools/export/plain_text.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "host/base/utf8.h"

namespace vrx {

std::string oneLine(std::string_view text) {
    std::string line;
    line.reserve(text.size());
    for (const char c : text) {
        const bool isBlank = c == ' ' || c == '\n' || c == '\t';
        if (!isBlank)
            line += c;
        else if (!line.empty() && line.back() != ' ')
            line += ' ';
    }
    if (!line.empty() && line.back() == ' ') line.pop_back();
    return line;
}

std::string asciiText(std::string_view text) {
    std::string ascii;
    while (!text.empty()) {
        const std::size_t octets = std::max<std::size_t>(utf8CharacterLength(text), 1);
        ascii += octets == 1 && static_cast<unsigned char>(text[0]) < 0x80 ? text[0] : '?';
        text.remove_prefix(octets);
    }
    return ascii;
}

std::string shortened(std::string_view text, std::size_t octets) {
    constexpr std::string_view ELLIPSIS = "...";
    if (text.size() <= octets) return std::string(text);
    std::size_t kept = octets - ELLIPSIS.size();
    while (kept > 0 && (static_cast<unsigned char>(text[kept]) & 0xC0U) == 0x80U) --kept;
    return std::string(text.substr(0, kept)).append(ELLIPSIS);
}

std::string replacedAll(std::string text, std::string_view from, std::string_view to) {
    const bool shrinks = to.size() < from.size();
    for (std::size_t at = text.find(from); at != std::string::npos;) {
        text.replace(at, from.size(), to);
        // What was put in can begin another one, or end one that begins before it.
        at = text.find(from, shrinks ? at - std::min(at, from.size() - 1) : at + to.size());
    }
    return text;
}

std::string markupText(std::string_view text) {
    std::string markup;
    markup.reserve(text.size());
    for (const char c : text) {
        switch (c) {
            case '&':
                markup += "&amp;";
                break;
            case '<':
                markup += "&lt;";
                break;
            case '>':
                markup += "&gt;";
                break;
            case '"':
                markup += "&quot;";
                break;
            case '\'':
                markup += "&#39;";
                break;
            default:
                markup += c;
        }
    }
    // The two characters that XML has no place for.
    return replacedAll(replacedAll(std::move(markup), "\xEF\xBF\xBE", "\xEF\xBF\xBD"), "\xEF\xBF\xBF", "\xEF\xBF\xBD");
}

// Besides controls YAML readers refuse U+FEFF, U+FFFE and U+FFFF, and take U+2028 and U+2029 for the end of a line.
std::string yamlText(std::string_view text) {
    static constexpr std::pair<std::string_view, std::string_view> ESCAPES[] = {
        {"\"", "\\\""},
        {"\\", "\\\\"},
        {"\n", "\\n"},
        {"\t", "\\t"},
        {"\xE2\x80\xA8", "\\u2028"},
        {"\xE2\x80\xA9", "\\u2029"},
        {"\xEF\xBB\xBF", "\\uFEFF"},
        {"\xEF\xBF\xBE", "\\uFFFE"},
        {"\xEF\xBF\xBF", "\\uFFFF"},
    };
    std::string quoted = "\"";
    while (!text.empty()) {
        const std::string_view character = text.substr(0, std::max<std::size_t>(utf8CharacterLength(text), 1));
        const auto* const escape = std::find_if(std::begin(ESCAPES), std::end(ESCAPES),
                                                [&](const auto& entry) { return entry.first == character; });
        quoted += escape == std::end(ESCAPES) ? character : escape->second;
        text.remove_prefix(character.size());
    }
    return quoted + '"';
}

}  // namespace vrx
