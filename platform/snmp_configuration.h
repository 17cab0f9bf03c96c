// Transport to the management backend.
#pragma once

#include "vrxpub/vrx_message_package.h"

class CSNMP_Configuration {
public:
    // The one transport of the process; never null.
    static CSNMP_Configuration* instance();

    // Sends `request` and fills `response` (records are appended to it) with the backend's answer. Returns 0 or the
    // code of the failure: the backend's own, or the transport's when the backend did not answer in time. Blocks for
    // the transport's deadline at most; callable from any thread. `retry` is kept for hosts that know two kinds of
    // calls; modules pass false.
    int configure(CR8KPackageV3& request, CR8KPackageV3& response, bool retry);
};
