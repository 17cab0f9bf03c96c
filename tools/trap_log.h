// The log of Net-SNMP's snmptrapd, as far as counting needs it: who sent which notification when, and the heartbeats of
// our agents (host/notification_log/heartbeat_notification.h).
//
//     TrapLogReader reader([&](LoggedTrap trap) { ... });
//     if (!reader.read(std::cin)) ...;  // the next file may follow
//
// Understood is the text that snmptrapd writes by default, with names or numbers of objects, with or without types:
//
//     2026-11-22 09:14:03 host [UDP: [192.0.2.10]:48151->[192.0.2.1]:162]:
//     iso.3.6.1.2.1.1.3.0 = Timeticks: (123456) 0:20:34.56 TAB iso.3.6.1.6.3.1.1.4.1.0 = OID: iso.3.6... TAB ...
//
//     2026-11-22 09:14:03 host [192.0.2.10] (via UDP: [192.0.2.10]:48151->[192.0.2.1]:162) TRAP, SNMP v1, community ...
//     TAB iso.3.6... Enterprise Specific Trap (1) Uptime: 0:20:34.56
//     TAB ... = ... TAB ...
//
// Texts may have lines and tabs of their own: a notification ends where the next one begins. Everything else is
// skipped, whatever it is.
#pragma once

#include <cstdint>
#include <ctime>
#include <functional>
#include <istream>
#include <optional>
#include <string>
#include <string_view>

namespace vrx {

struct LoggedHeartbeat {
    std::string engine;
    std::uint32_t destination = 0;
    std::uint32_t boots = 0;
    std::string series;
    std::uint32_t number = 0;
    std::uint32_t traps = 0;
    std::uint32_t age = 0;
};

struct LoggedTrap {
    std::string address;  // of the sender
    std::string port;
    std::time_t time = 0;  // of the receiver's clock
    std::uint32_t upTime = 0;
    std::uint64_t content = 0;  // the same for the same notification
    std::optional<LoggedHeartbeat> heartbeat;
};

class TrapLogReader {
public:
    explicit TrapLogReader(std::function<void(LoggedTrap)> found) : m_found(std::move(found)) {}

    // To its end. False when the stream fails before.
    bool read(std::istream& in);

    // The earliest time in what was read; nothing where there is none.
    std::optional<std::time_t> begin() const { return m_begin; }

private:
    void take(const std::string& line);
    void finish();

    const std::function<void(LoggedTrap)> m_found;
    std::optional<std::time_t> m_begin;
    std::optional<LoggedTrap> m_trap;  // its body follows
    std::string m_body;
};

// Hundredths of a second, as snmptrapd writes them: "(123456) 0:20:34.56", "0:20:34.56", "12 days, 0:20:34.56",
// "12:0:20:34.56" or "123456".
std::optional<std::uint32_t> ticksOf(std::string_view text);

}  // namespace vrx
