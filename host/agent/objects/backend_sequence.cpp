#include "host/agent/objects/backend_sequence.h"

#include <exception>
#include <memory>

#include "host/transport/backend_protocol.h"
#include "platform/snmp_configuration.h"

namespace vrx {

std::optional<std::uint64_t> lastBackendEvent() {
    try {
        CR8KPackageV3 request;
        CR8KPackageV3 response;
        request.append(std::make_unique<CTLVRecordV3>(BackendCommands::fromDevice().getBackendStatus,
                                                      CTLVRecordV3::DEFAULT_BUCKETS));
        if (CSNMP_Configuration::instance()->configure(request, response, false) != 0) return std::nullopt;
        return uint64Of(*response[0], status_tag::LAST_SEQUENCE);
    } catch (const std::exception&) {  // no command of that name, or an answer without the number
        return std::nullopt;
    }
}

}  // namespace vrx
