// Files of state/.
#pragma once

#include "host/log_lines/log_row.h"

namespace vrx::lines {

LOG_LINE(ENGINE_STATE_NOT_WRITTEN, "agent", Error, "{} cannot be written: {}",
         "the disk is full or broken; the old content stays", "free space, check the disk");
LOG_LINE(ENGINE_STATE_WRITTEN, "agent", Info, "{} can be written again", "the fault has ended", "nothing");

LOG_LINE(ENGINE_STATE_LOST, "agent", Error, "the engine's state cannot be written: {}", "the same, at shutdown",
         "the same");

LOG_LINE(DESTINATIONS_NOT_WRITTEN, "destinations", Error, "{} cannot be written: {}",
         "the disk is full or broken: the SET that changes the destinations fails, the old content stays",
         "free space, check the disk");
LOG_LINE(DESTINATIONS_WRITTEN, "destinations", Info, "{} can be written again", "the fault has ended", "nothing");

}  // namespace vrx::lines
