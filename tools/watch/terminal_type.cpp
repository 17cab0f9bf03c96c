#include "tools/watch/terminal_type.h"

#include <curses.h>
#include <term.h>
#include <unistd.h>

namespace vrx {

bool isScreenTerminal() {
    int found = 0;
    if (::setupterm(nullptr, STDOUT_FILENO, &found) != OK) return false;
    const bool moves = cursor_address != nullptr;
    ::del_curterm(cur_term);
    return moves;
}

}  // namespace vrx
