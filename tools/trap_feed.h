// vrxctl traps --follow --feed: the notification log as it grows, given to a command, and a file that has the last
// number which the command has taken.
//
//     COMMAND < up to 500 lines      ends with 0: the far end has them all. Else it gets the same lines again.
//
// Threads: one. Errors: std::exception where it cannot begin.
#pragma once

#include <string>

#include "tools/trap_stream.h"

namespace vrx {

struct TrapFeedOptions {
    std::string command;  // of the shell
    std::string cursor;   // the file; without one it begins where the stream's options say, else with the oldest entry
};

// For ever. What keeps it from going on is a line on stderr, and tried again.
[[noreturn]] void feedTraps(TrapStreamOptions options, const TrapFeedOptions& feed);

}  // namespace vrx
