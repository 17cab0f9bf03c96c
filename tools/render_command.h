// vrxctl render: the texts of an alarm with parameters, and how they came about.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "tools/command.h"

namespace vrx {

// Writes the alarm's texts as a trap would show them; with `explain` each step before them: the parameter list, the
// enumeration descriptions, the placeholder pairs, the templates. `parameters` is the raw text of a notification (see
// joinParameters). Returns the renderer's result: 0, or why there are no texts.
[[nodiscard]] int renderAlarm(std::ostream& out, std::uint64_t alarmId, const std::string& parameters, bool explain);

struct RenderCommand : Command {
    void define(OptionParser& command) override;
    int run() override;

    std::uint64_t alarmId = 0;
    std::vector<std::string> parameters;
    bool explain = false;
    bool raw = false;
};

}  // namespace vrx
