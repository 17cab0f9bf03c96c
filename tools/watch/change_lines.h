// What has changed between two looks, a line each: what vrxctl watch prints where nobody looks at a screen.
//
//     2026-11-22 09:14:03 raised 12 critical Disk Failed: Enclosure CTE0, slot 7.
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tools/watch/alarm_choice.h"
#include "tools/watch/watcher.h"

namespace vrx {

class ChangeLines {
public:
    explicit ChangeLines(AlarmChoice choice) : m_choice(std::move(choice)) {}

    // Without line ends. The first time: how things are.
    std::vector<std::string> next(std::shared_ptr<const Watched> watched);

private:
    void addAgent(const Watched& now);
    void addTroubles(const Watched& now);
    void addAlarms(const Watched& now);
    void addDropped(const Watched& now);

    const AlarmChoice m_choice;
    std::shared_ptr<const Watched> m_last = std::make_shared<Watched>();
    std::vector<std::string> m_lines;
};

}  // namespace vrx
