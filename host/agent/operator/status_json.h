// What a running agent tells of itself as JSON: vrxctl status reads it.
//
// Threads: any; nothing is kept.
#pragma once

#include <string>
#include <vector>

#include "host/agent/operator/status_model.h"

namespace vrx {

// One object: each section by its name. Bytes that are no UTF-8 are replaced.
std::string statusAsJson(const std::vector<StatusSection>& sections);

// One value.
std::string jsonOf(const StatusValue& value);

}  // namespace vrx
