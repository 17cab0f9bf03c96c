// The words of the configuration that name receivers of informs:
//
//     informsink HOST [COMMUNITY [PORT]]
//     trapsess -Ci [ARGUMENTS OF SNMPCMD] HOST[:PORT]
//
// and those that say what the lines after them get: vrxInformTraps, vrxInformQueue, vrxInformRetry, vrxInformBackoff.
// The first two take the place of the library's own, which would open sessions and ask receivers while everything
// waits, and whose parser ends the process on some lines. A trapsess without -Ci is a fault.
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

// What is read goes into `words`, which outlives every reading; they are empty before each. After init_agent(), whose
// words they replace.
void registerInformDirectives(InformDirectives& words);

}  // namespace vrx
