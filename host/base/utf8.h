// The characters of a text from outside, which may be no UTF-8.
#pragma once

#include <cstddef>
#include <string_view>

namespace vrx {

// The octets of the character that the text begins with; 0 where it begins with none. REQUIRES: the text is not empty.
[[nodiscard]] std::size_t utf8CharacterLength(std::string_view text);

// Whether a character is of C0 or C1, or DEL.
[[nodiscard]] bool isControlCharacter(std::string_view character);

}  // namespace vrx
