// The configuration directives that name receivers of informs:
//
//     informsink HOST [COMMUNITY [PORT]]
//     trapsess -Ci [ARGUMENTS OF SNMPCMD] HOST[:PORT]
//
// and those that set what the lines after them get: vrxInformTraps, vrxInformQueue, vrxInformWindow,
// vrxInformRetry, vrxInformBackoff. The first two replace the library's own, which would open sessions and discover
// engine IDs while everything waits, and whose parser exits the process on some lines. A trapsess without -Ci is a
// fault.
//
// Threads: agent thread only.
#pragma once

#include <vector>

#include "host/agent/informs/inform_destination.h"

namespace vrx {

struct InformDirectives {
    std::vector<InformDestination> destinations;
    InformPolicy policy;  // of the lines still to come
};

// What is read goes into `words`, which outlives every reading and is cleared before each. After init_agent(), whose
// directives these replace.
void registerInformDirectives(InformDirectives& words);

}  // namespace vrx
