// Calls of the management backend, as the commands make them.
#pragma once

#include <stdexcept>
#include <string>

#include "vrxpub/vrx_message_package.h"

namespace vrx {

// A call that the backend refused or did not answer.
class BackendCallError : public std::runtime_error {
public:
    explicit BackendCallError(int code);
};

// Sends the request; its answer's records are appended to `answer`. Throws BackendCallError.
void callBackend(CR8KPackageV3& request, CR8KPackageV3& answer);

}  // namespace vrx
