// What a running agent tells of itself as metrics: a Prometheus collector reads it.
//
// Threads: any; nothing is kept.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "host/agent/operator/status_model.h"

namespace vrx {

// Text exposition format, version 0.0.4. Samples of one metric stand together, whatever sections they are from. Numbers
// are written as in the JSON.
std::string prometheusText(const std::vector<StatusSection>& sections);

// What stands between the quotes of a label: escaped, in UTF-8, whatever the text is.
std::string labelValue(std::string_view text);

}  // namespace vrx
