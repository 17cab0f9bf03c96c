// Heartbeat traps: how many traps were sent to a destination so far, for receivers that count what arrives.
//
//     HeartbeatTraps heartbeats;
//     heartbeats.start(root + "/state/heartbeats", engine);
//     HeartbeatSeries series = heartbeats.seriesOf(1, "192.0.2.1", 162);
//     series.count();                                      // a trap got out
//     channel.send(heartbeats.next(series, seconds(300)), ...);
//     heartbeats.keep(series);  heartbeats.store(engine);  // at the end
//
// A series goes on after an orderly end of the agent: its counts are on disk, with the engine boots of the run that
// wrote them. Only the next run takes them up.
//
// Threads: one at a time.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "host/agent/traps/trap_channel.h"
#include "host/notification_log/notification.h"

namespace vrx {

// What was sent to one destination at one address.
struct HeartbeatSeries {
    std::string name;
    unsigned long destination = 0;  // its number in the table
    std::string address;
    unsigned int port = 0;
    std::uint32_t number = 0;                     // of the last heartbeat
    std::uint32_t traps = 0;                      // as Counter32
    std::chrono::steady_clock::time_point begun;  // in an earlier run of the agent, perhaps
    std::optional<std::chrono::system_clock::time_point> lastTrap;

    void count() {
        ++traps;
        lastTrap = std::chrono::system_clock::now();
    }
    bool goesTo(const TrapRoute& route) const { return address == route.address && port == route.port; }
};

class HeartbeatTraps {
public:
    // Takes up what the last run stored, unless that did not end in order. A file that cannot be read is none:
    // receivers see new series.
    void start(const std::string& path, const TrapEngine& engine);

    // A new one, or the one that the last run kept.
    HeartbeatSeries seriesOf(unsigned long destination, const std::string& address, unsigned int port);

    // The next heartbeat of the series; `until` the one after it, 0: there is none.
    Notification next(HeartbeatSeries& series, std::chrono::seconds until) const;

    // For the next run.
    void keep(const HeartbeatSeries& series) { m_kept[series.destination] = series; }

    // Forgets what is kept.
    void clear() { m_kept.clear(); }

    // On disk when it returns. Throws std::system_error.
    void store(const TrapEngine& engine) const;

private:
    void load(std::uint32_t boots);

    std::string m_path;
    TrapEngine m_engine;                              // at the start
    unsigned int m_made = 0;                          // series
    std::map<unsigned long, HeartbeatSeries> m_kept;  // by destination
};

}  // namespace vrx
