#include "tools/backend_call.h"

#include "host/transport/backend_result.h"
#include "platform/snmp_configuration.h"

namespace vrx {

BackendCallError::BackendCallError(int code) : std::runtime_error(std::string("backend: ") + backendResultText(code)) {}

void callBackend(CR8KPackageV3& request, CR8KPackageV3& answer) {
    const int result = CSNMP_Configuration::instance()->configure(request, answer, false);
    if (result != BACKEND_OK) throw BackendCallError(result);
}

}  // namespace vrx
