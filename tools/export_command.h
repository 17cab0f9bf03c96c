// vrxctl export: what receivers of notifications and people on call need, from the definition files. The formats are in
// tools/export/.
#pragma once

#include <string>

#include "tools/command.h"

namespace vrx {

struct ExportCommand : Command {
    void define(OptionParser& command) override;
    int run() override;

    std::string format;
    std::string definitions;
    std::string enumerations;
    std::string output;
};

}  // namespace vrx
