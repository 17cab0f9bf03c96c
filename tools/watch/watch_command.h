// vrxctl watch: agent, alarms and destinations as they change, on a screen or as lines.
#pragma once

#include <cstdint>
#include <string>

#include "tools/command.h"

namespace vrx {

struct WatchCommand : Command {
    void define(OptionParser& command) override;
    int run() override;

    std::uint32_t interval = 2;
    std::string level = "warning";
    std::string text;
    bool lines = false;
};

}  // namespace vrx
