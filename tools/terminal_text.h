// Texts of others on a terminal. An alarm's texts have what came with it; an escape sequence in them would move the
// cursor, rename the window or have the terminal type.
#pragma once

#include <string>
#include <string_view>

namespace vrx {

// Each octet as "\x1B".
std::string escapedOctets(std::string_view text);

// The text with its control characters (C0, DEL, C1), those that change the direction of a line and bytes that are no
// UTF-8 escaped: one line, which says what it is.
std::string terminalText(std::string_view text);

// The same with line ends and tabs as they are.
std::string terminalLines(std::string_view text);

}  // namespace vrx
