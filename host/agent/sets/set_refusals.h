// A log line for each SET that is refused: an error status alone tells nobody what to do. It names the object.
//
// Threads: agent thread only.
#pragma once

#include "host/agent/sets/set_request.h"
#include "host/base/log_rate_limiter.h"

namespace vrx {

class SetRefusals {
public:
    // `pdu` is the request, null when its manager has hung up.
    void note(const netsnmp_pdu* pdu, const SetResult& result, const ObjectFinder& objectOf);

private:
    LogRateLimiter m_lineLimit{60, std::chrono::seconds(60)};  // of those who may not write
};

}  // namespace vrx
