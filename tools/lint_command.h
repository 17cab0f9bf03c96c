// vrxctl lint: the rules are in host/definitions/.
#pragma once

#include <string>

#include "tools/command.h"

namespace vrx {

struct LintCommand : Command {
    void define(OptionParser& command) override;
    int run() override;

    std::string definitions;
    std::string enumerations;
    bool strict = false;
};

}  // namespace vrx
