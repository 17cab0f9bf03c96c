// The receivers of informs in the agent's status: docs/status.md has the fields.
//
// Threads: any.
#pragma once

#include "host/agent/informs/inform_status.h"
#include "host/agent/operator/status_model.h"

namespace vrx {

StatusSection informsStatus(const InformStatus& informs);        // "informs"
StatusSection formerInformsStatus(const InformStatus& informs);  // "former_informs"

}  // namespace vrx
