#include "host/agent/traps/heartbeat_traps.h"

#include <time.h>

#include <algorithm>
#include <sstream>

#include "host/base/whole_file.h"
#include "host/notification_log/heartbeat_notification.h"
#include "host/snmp/net_snmp.h"

namespace vrx {

namespace {

using namespace heartbeat_notification;
using std::chrono::seconds;
using std::chrono::steady_clock;
using std::chrono::system_clock;

constexpr std::size_t LONGEST_FILE = 64 * 1024 * 1024;  // 65535 destinations with names of 255 characters

SnmpValue number(unsigned char type, std::uint64_t value) {
    SnmpValue result;
    result.type = type;
    result.number = value;
    return result;
}

SnmpValue text(std::string octets) {
    SnmpValue result;
    result.type = ASN_OCTET_STR;
    result.octets = std::move(octets);
    return result;
}

long long unixTime(system_clock::time_point time) {
    return std::chrono::duration_cast<seconds>(time.time_since_epoch()).count();
}

// DateAndTime of RFC 2579, in UTC; eight zero octets for no time.
std::string dateAndTime(const std::optional<system_clock::time_point>& time) {
    constexpr std::size_t WITHOUT_ZONE = 8;
    if (!time) return std::string(WITHOUT_ZONE, '\0');
    const std::time_t whole = system_clock::to_time_t(*time);
    std::tm parts{};
    ::gmtime_r(&whole, &parts);
    const int year = parts.tm_year + 1900;
    std::string octets;
    for (const int part : {year / 256, year % 256, parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min,
                           parts.tm_sec, 0, static_cast<int>('+'), 0, 0}) {
        octets += static_cast<char>(part);
    }
    return octets;
}

}  // namespace

void HeartbeatTraps::start(const std::string& path, const TrapEngine& engine) {
    m_path = path;
    m_engine = engine;
    m_kept.clear();
    try {
        load(engine.boots);
    } catch (const WholeFileError&) {
        m_kept.clear();
    }
}

// The file: the engine boots of the run that wrote it and the time in seconds since 1970, then a line for each
// destination.
void HeartbeatTraps::load(std::uint32_t boots) {
    const std::optional<std::string> content = readWholeFile(m_path, LONGEST_FILE);
    if (!content) return;
    std::istringstream lines(*content);
    std::uint32_t writtenIn = 0;
    long long writtenAt = 0;
    if (!(lines >> writtenIn >> writtenAt) || writtenIn + 1 != boots) return;
    const long long away = std::max(0LL, unixTime(system_clock::now()) - writtenAt);
    HeartbeatSeries one;
    long long age = 0;
    long long last = 0;
    while (lines >> one.destination >> one.name >> one.address >> one.port >> one.number >> one.traps >> age >> last) {
        one.begun = steady_clock::now() - seconds(age + away);
        one.lastTrap.reset();
        if (last != 0) one.lastTrap = system_clock::time_point(seconds(last));
        m_kept[one.destination] = one;
    }
}

HeartbeatSeries HeartbeatTraps::seriesOf(unsigned long destination, const std::string& address, unsigned int port) {
    HeartbeatSeries series;
    const auto kept = m_kept.find(destination);
    if (kept != m_kept.end()) {
        series = kept->second;
        m_kept.erase(kept);
        if (series.address == address && series.port == port) return series;
        series = {};
    }
    series.name = std::to_string(m_engine.boots) + "." + std::to_string(++m_made);
    series.destination = destination;
    series.address = address;
    series.port = port;
    series.begun = steady_clock::now();
    return series;
}

Notification HeartbeatTraps::next(HeartbeatSeries& series, seconds until) const {
    const auto age = std::chrono::duration_cast<seconds>(steady_clock::now() - series.begun).count();
    const SnmpValue values[] = {
        text(m_engine.id),
        number(ASN_UNSIGNED, series.destination),
        number(ASN_UNSIGNED, m_engine.boots),
        text(series.name),
        number(ASN_COUNTER, ++series.number),
        number(ASN_COUNTER, series.traps),
        number(ASN_GAUGE, static_cast<std::uint32_t>(age)),
        number(ASN_GAUGE, static_cast<std::uint32_t>(until.count())),
        text(dateAndTime(series.lastTrap)),
    };
    static_assert(std::size(values) == BINDINGS);
    Notification heartbeat;
    heartbeat.oid = NOTIFICATION;
    for (const SnmpValue& value : values) {
        OidVector name = OBJECTS;
        name.push_back(heartbeat.bindings.size() + 1);
        name.push_back(0);
        heartbeat.bindings.push_back({std::move(name), value});
    }
    return heartbeat;
}

void HeartbeatTraps::store(const TrapEngine& engine) const {
    std::ostringstream lines;
    lines << engine.boots << " " << unixTime(system_clock::now()) << "\n";
    for (const auto& [destination, one] : m_kept) {
        const auto age = std::chrono::duration_cast<seconds>(steady_clock::now() - one.begun).count();
        lines << destination << " " << one.name << " " << one.address << " " << one.port << " " << one.number << " "
              << one.traps << " " << age << " " << (one.lastTrap ? unixTime(*one.lastTrap) : 0) << "\n";
    }
    replaceWholeFile(m_path, lines.str());
}

}  // namespace vrx
