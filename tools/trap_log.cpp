#include "tools/trap_log.h"

#include <time.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <functional>
#include <limits>

#include "host/notification_log/heartbeat_notification.h"

namespace vrx {

namespace {

using namespace heartbeat_notification;

// More than snmptrapd makes of the longest message: what follows is not looked at.
constexpr std::size_t LONGEST_RECORD = 1024 * 1024;

// Names of the bindings, for receivers that know the MIB module; in the order of their numbers.
constexpr std::array<std::string_view, BINDINGS> NAMES = {"EngineId", "Destination", "Boots", "Series",  "Number",
                                                          "Traps",    "Age",         "Next",  "LastTrap"};

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

template <typename Number>
std::optional<Number> numberOf(std::string_view text) {
    Number number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (text.empty() || error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return number;
}

bool startsWith(std::string_view text, std::string_view start) {
    return text.substr(0, start.size()) == start;
}

bool endsWith(std::string_view text, std::string_view end) {
    return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

// A line's "2026-11-22 09:14:03", local time.
std::optional<std::time_t> timeOf(std::string_view line) {
    constexpr std::string_view PATTERN = "dddd-dd-dd dd:dd:dd";
    if (line.size() <= PATTERN.size()) return std::nullopt;
    for (std::size_t i = 0; i < PATTERN.size(); ++i) {
        if (PATTERN[i] == 'd' ? !isDigit(line[i]) : line[i] != PATTERN[i] && !(PATTERN[i] == ' ' && line[i] == 'T')) {
            return std::nullopt;
        }
    }
    const auto part = [line](std::size_t at, std::size_t length) {
        return numberOf<int>(line.substr(at, length)).value_or(0);
    };
    std::tm parts{};
    parts.tm_year = part(0, 4) - 1900;
    parts.tm_mon = part(5, 2) - 1;
    parts.tm_mday = part(8, 2);
    parts.tm_hour = part(11, 2);
    parts.tm_min = part(14, 2);
    parts.tm_sec = part(17, 2);
    parts.tm_isdst = -1;
    return std::mktime(&parts);
}

// The sender of "... UDP: [192.0.2.10]:48151->[192.0.2.1]:162...", and where this ends in the line.
struct Sender {
    std::string_view address;
    std::string_view port;
    std::size_t end = 0;
};
std::optional<Sender> senderOf(std::string_view line) {
    const std::size_t arrow = line.find("->[");
    if (arrow == std::string_view::npos) return std::nullopt;
    std::size_t port = arrow;
    while (port > 0 && isDigit(line[port - 1])) --port;
    if (port == arrow || port < 2 || line.substr(port - 2, 2) != "]:") return std::nullopt;
    const std::size_t close = port - 2;
    const std::size_t open = line.rfind('[', close);
    if (open == std::string_view::npos) return std::nullopt;
    std::size_t end = line.find("]:", arrow);
    if (end == std::string_view::npos) return std::nullopt;
    for (end += 2; end < line.size() && isDigit(line[end]);) ++end;
    return Sender{line.substr(open + 1, close - open - 1), line.substr(port, arrow - port), end};
}

// The value of "NAME = TYPE: VALUE", "NAME = VALUE" or "NAME VALUE", without quotation marks and blanks around it.
std::string_view valueOf(std::string_view field, std::size_t name) {
    std::string_view value = field.substr(name);
    const auto trim = [&value] {
        while (!value.empty() && (value.front() == ' ' || value.front() == '\n')) value.remove_prefix(1);
        while (!value.empty() && (value.back() == ' ' || value.back() == '\n' || value.back() == '\r')) {
            value.remove_suffix(1);
        }
    };
    trim();
    if (startsWith(value, "=")) value.remove_prefix(1);
    trim();
    for (const std::string_view type : {"STRING: ", "Gauge32: ", "Counter32: ", "Timeticks: ", "OID: "}) {
        if (!startsWith(value, type)) continue;
        value.remove_prefix(type.size());
        break;
    }
    trim();
    if (value.size() >= 2 && value.front() == '"' && value.back() == '"') value = value.substr(1, value.size() - 2);
    return value;
}

// Which of a heartbeat's bindings a field is; 0: none. Numbers, names, or names of a MIB module that does not have it
// yet.
unsigned int bindingOf(std::string_view name) {
    constexpr std::string_view INSTANCE = ".0";
    if (!endsWith(name, INSTANCE)) return 0;
    name.remove_suffix(INSTANCE.size());
    for (const std::string_view group : {".99871.3.1.1.4.", "vrxAgentObjects.4.", "vrxAgentHeartbeats."}) {
        const std::size_t at = name.rfind(group);
        if (at == std::string_view::npos) continue;
        const std::optional<unsigned int> number = numberOf<unsigned int>(name.substr(at + group.size()));
        if (number) return *number <= BINDINGS ? *number : 0;
    }
    constexpr std::string_view PREFIX = "vrxAgentHeartbeat";
    const std::size_t at = name.rfind(PREFIX);
    if (at == std::string_view::npos) return 0;
    const auto* const found = std::find(NAMES.begin(), NAMES.end(), name.substr(at + PREFIX.size()));
    return found == NAMES.end() ? 0 : static_cast<unsigned int>(found - NAMES.begin()) + 1;
}

// Whether a trap's name or, of SNMPv1, the line with enterprise and specific trap, is the heartbeat's.
bool isHeartbeat(std::string_view text) {
    for (const std::string_view name :
         {".99871.3.1.0.1", "vrxAgentMIB.0.1", "vrxAgentNotifications.1", "vrxAgentHeartbeat"}) {
        if (endsWith(text, name)) return true;
    }
    return false;
}
bool isHeartbeatV1(std::string_view line) {
    const std::size_t blank = line.find(' ');
    if (blank == std::string_view::npos) return false;
    const std::string_view enterprise = line.substr(0, blank);
    if (!endsWith(enterprise, ".99871.3.1") && !endsWith(enterprise, "vrxAgentMIB")) return false;
    return line.find(" Trap (1) ") != std::string_view::npos ||
           line.find("vrxAgentHeartbeat) ") != std::string_view::npos;
}

// The next of the fields that tabs separate, without what separates it.
std::string_view nextField(std::string_view& rest) {
    const std::size_t tab = rest.find('\t');
    const std::string_view field = rest.substr(0, tab);
    rest = tab == std::string_view::npos ? std::string_view() : rest.substr(tab + 1);
    return field;
}

std::size_t lengthOfName(std::string_view field) {
    return std::min(field.find(' '), field.size());
}

// Nothing unless all that counting needs is there.
std::optional<LoggedHeartbeat> heartbeatOf(std::string_view fields) {
    LoggedHeartbeat heartbeat;
    std::array<std::uint32_t*, BINDINGS + 1> numbers{};
    numbers[DESTINATION] = &heartbeat.destination;
    numbers[BOOTS] = &heartbeat.boots;
    numbers[NUMBER] = &heartbeat.number;
    numbers[TRAPS] = &heartbeat.traps;
    numbers[AGE] = &heartbeat.age;
    unsigned int there = 0;
    while (!fields.empty()) {
        std::string_view field = nextField(fields);
        while (!field.empty() && (field.front() == '\n' || field.front() == ' ')) field.remove_prefix(1);
        const std::size_t name = lengthOfName(field);
        const unsigned int binding = bindingOf(field.substr(0, name));
        const std::string_view value = valueOf(field, name);
        if (binding == ENGINE || binding == SERIES) {
            (binding == ENGINE ? heartbeat.engine : heartbeat.series) = value;
            ++there;
        } else if (numbers[binding] != nullptr) {
            const std::optional<std::uint32_t> number = numberOf<std::uint32_t>(value);
            if (!number) return std::nullopt;
            *numbers[binding] = *number;
            ++there;
        }
    }
    constexpr unsigned int NEEDED = AGE;  // the first so many
    if (there != NEEDED || heartbeat.number == 0) return std::nullopt;
    return heartbeat;
}

}  // namespace

std::optional<std::uint32_t> ticksOf(std::string_view text) {
    if (startsWith(text, "(")) {
        const std::size_t end = text.find(')');
        return end == std::string_view::npos ? std::nullopt : numberOf<std::uint32_t>(text.substr(1, end - 1));
    }
    std::uint64_t ticks = 0;
    const std::size_t comma = text.find(", ");
    if (comma != std::string_view::npos) {  // "12 days, "
        const std::optional<std::uint32_t> days = numberOf<std::uint32_t>(text.substr(0, text.find(' ')));
        if (!days) return std::nullopt;
        ticks = *days;
        text.remove_prefix(comma + 2);
    }
    if (text.find(':') == std::string_view::npos) return numberOf<std::uint32_t>(text);
    // Days where they are in front, hours, minutes, seconds, hundredths.
    const auto parts = std::count(text.begin(), text.end(), ':') + 2;
    constexpr unsigned int FACTORS[] = {24, 60, 60, 100};
    constexpr int PARTS = static_cast<int>(std::size(FACTORS)) + 1;
    for (auto part = PARTS - parts; part < PARTS; ++part) {
        const std::size_t end = part == PARTS - 1 ? text.size() : text.find(part == PARTS - 2 ? '.' : ':');
        if (part < 0 || end == std::string_view::npos) return std::nullopt;
        const std::optional<std::uint32_t> number = numberOf<std::uint32_t>(text.substr(0, end));
        if (!number) return std::nullopt;
        ticks = part == 0 ? *number : ticks * FACTORS[part - 1] + *number;
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    constexpr std::uint64_t MOST = std::numeric_limits<std::uint32_t>::max();
    return ticks <= MOST ? std::optional<std::uint32_t>(ticks) : std::nullopt;
}

bool TrapLogReader::read(std::istream& in) {
    std::string line;
    std::streambuf& bytes = *in.rdbuf();
    constexpr int END = std::char_traits<char>::eof();
    try {
        for (int byte = bytes.sbumpc(); byte != END; byte = bytes.sbumpc()) {
            if (byte == '\n') {
                take(line);
                line.clear();
            } else if (line.size() < LONGEST_RECORD) {
                line += static_cast<char>(byte);
            }
        }
    } catch (const std::ios_base::failure&) {  // of a folder, for instance
        return false;
    }
    if (!line.empty()) take(line);
    finish();
    return true;
}

void TrapLogReader::take(const std::string& line) {
    const std::optional<std::time_t> time = timeOf(line);
    const bool ofReceiver = line.find("NET-SNMP version ") < 32;
    const std::optional<Sender> sender = time ? senderOf(line) : std::nullopt;
    if (time && (sender || ofReceiver) && (!m_begin || *time < *m_begin)) m_begin = time;
    if (!sender && !ofReceiver) {
        if (m_trap && m_body.size() < LONGEST_RECORD) m_body += line + "\n";
        return;
    }
    finish();
    if (!sender) return;
    m_trap.emplace();
    m_trap->address = sender->address;
    m_trap->port = sender->port;
    m_trap->time = *time;
    const std::size_t tab = line.find('\t', sender->end);  // of a format that has all in one line
    if (tab != std::string::npos) m_body = line.substr(tab + 1) + "\n";
}

void TrapLogReader::finish() {
    if (!m_trap) return;
    LoggedTrap trap = std::move(*m_trap);
    m_trap.reset();
    std::string body;
    body.swap(m_body);
    while (!body.empty() && (body.back() == '\n' || body.back() == '\t' || body.back() == ' ')) body.pop_back();
    std::string_view rest = body;
    const bool isV1 = startsWith(rest, "\t");
    std::optional<std::uint32_t> upTime;
    bool heartbeat = false;
    if (isV1) {
        rest.remove_prefix(1);
        const std::string_view line = rest.substr(0, rest.find('\n'));
        rest.remove_prefix(std::min(line.size() + 1, rest.size()));
        constexpr std::string_view UP_TIME = " Uptime: ";
        const std::size_t at = line.rfind(UP_TIME);
        if (at != std::string_view::npos) upTime = ticksOf(line.substr(at + UP_TIME.size()));
        heartbeat = isHeartbeatV1(line);
    } else {
        const std::string_view first = nextField(rest);
        upTime = ticksOf(valueOf(first, lengthOfName(first)));
        const std::string_view second = nextField(rest);
        heartbeat = isHeartbeat(valueOf(second, lengthOfName(second)));
    }
    if (!upTime) return;
    trap.upTime = *upTime;
    trap.content = std::hash<std::string>{}(body);
    if (heartbeat) {
        trap.heartbeat = heartbeatOf(rest);
        if (!trap.heartbeat) return;  // cut off: no trap either
    }
    m_found(std::move(trap));
}

}  // namespace vrx
