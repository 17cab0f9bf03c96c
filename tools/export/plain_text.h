// Texts of the catalogue in a form that several formats can take.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace vrx {

// Without line feeds and tabs; a blank between words, none before and after them.
[[nodiscard]] std::string oneLine(std::string_view text);

// A "?" for each character that is not of ASCII. REQUIRES: UTF-8.
[[nodiscard]] std::string asciiText(std::string_view text);

// At most `octets` of it, whole characters; one that is shortened ends in "...". REQUIRES: UTF-8, more than 3 octets.
[[nodiscard]] std::string shortened(std::string_view text, std::size_t octets);

// Every occurrence, also those that a replacement makes, as long as it is shorter than what it replaces.
[[nodiscard]] std::string replacedAll(std::string text, std::string_view from, std::string_view to);

// In double quotes, as a YAML reader gives it back. REQUIRES: UTF-8.
[[nodiscard]] std::string yamlText(std::string_view text);

// As a reader of XML or HTML gives it back, as an element's text or in a quoted attribute. REQUIRES: UTF-8.
[[nodiscard]] std::string markupText(std::string_view text);

}  // namespace vrx
