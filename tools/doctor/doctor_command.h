// vrxctl doctor: everything that an operator would look at when it does not work, in one go. It works when all is
// broken: no agent, no backend, no configuration, no permission.
#pragma once

#include <string>

#include "tools/command.h"

namespace vrx {

struct DoctorCommand : Command {
    void define(OptionParser& command) override;

    // 0, 1 or 2: clean, warnings, faults.
    int run() override;

    OptionParser* line = nullptr;
    bool json = false;
    unsigned int testTrapTo = 0;  // number of a destination; 0: none is sent
};

}  // namespace vrx
