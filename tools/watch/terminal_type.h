// Apart from terminal.cpp: <term.h> has macros for words such as "columns".
#pragma once

namespace vrx {

// Whether ncurses knows the type of this terminal (TERM), and how to move its cursor.
[[nodiscard]] bool isScreenTerminal();

}  // namespace vrx
