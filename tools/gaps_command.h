// vrxctl gaps: what a receiver of traps has missed, from its log.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "tools/command.h"
#include "tools/trap_gaps.h"

namespace vrx {

void printGaps(std::ostream& out, const GapReport& report);
void printGapsAsJson(std::ostream& out, const GapReport& report);

struct GapsCommand : Command {
    void define(OptionParser& command) override;
    int run() override;

    std::vector<std::string> logs;
    bool byAddress = false;
    bool json = false;
};

}  // namespace vrx
