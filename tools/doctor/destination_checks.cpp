// Each receiver of traps and informs: can be reached, has what its version needs, gets what may be sent.
#include <fmt/format.h>

#include <algorithm>
#include <set>
#include <string>

#include "alarm/snmp_alarm_iniparser.h"
#include "host/destinations/trap_destination_checks.h"
#include "host/snmp/limits.h"
#include "tools/definition_files.h"
#include "tools/doctor/checks.h"
#include "tools/doctor/facts.h"
#include "tools/doctor/report.h"

namespace vrx {

namespace {

// "Version", "i 2": what a manager types.
std::string setColumn(const std::string& row, const char* column, const char* value) {
    return fmt::format("snmpset -v3 ... HOST VRX-TAMREL-MIB::vrxTrapDest{}.{} {}", column, row, value);
}

std::string subjectOf(const std::string& number, const tTrapDestInfo& row) {
    return fmt::format("trap destination {}, {}", number, destination_check::addressAndPort(row.address, row.port));
}

// False when nothing can be sent there.
bool checkPath(const std::string& subject, const std::string& address, const Facts& facts,
               const std::string& newAddress, Report& report) {
    const auto found = facts.paths.find(address);
    if (found == facts.paths.end()) return true;
    const PathFacts& path = found->second;
    if (!path.nameFault.empty()) {
        report.fault(subject, "The name has no address: " + path.nameFault + ".",
                     "Its traps wait for a minute at most, and are dropped.",
                     "getent hosts " + address + "\n" + newAddress);
    } else if (!path.routeFault.empty()) {
        report.fault(subject, "No route leads there: " + path.routeFault + ".", "Its traps cannot be sent.",
                     "ip route get " + address + "\n" + newAddress);
    } else {
        return true;
    }
    return false;
}

void checkRow(const std::string& subject, const tTrapDestInfo& row, const Facts& facts, Report& report) {
    constexpr unsigned int SNMPV1 = 1;
    constexpr unsigned int OWN_TRAPS_ONLY = 4;
    checkPath(subject, row.address, facts, setColumn(row.index, "Address", "s ADDRESS"), report);
    if (row.version == SNMPV1 && row.trapType == OWN_TRAPS_ONLY) {
        report.fault(
            subject, "It gets nothing: SNMPv1 carries the common trap only, and its trap type is 4.",
            "Its receiver never learns of an alarm.",
            setColumn(row.index, "Version", "i 2") + "\n" + setColumn(row.index, "TrapType", "i 1") + "   # or this");
    } else if (row.version == SNMPV1) {
        report.warning(subject, "SNMPv1 has no Counter64: binding 12, the alarm's identifier, is left out.",
                       "Its receiver cannot tell alarms apart by their identifiers, and bindings 13 to 15 move up.",
                       setColumn(row.index, "Version", "i 2"));
    }
    if (row.version == SNMPV3 && facts.users && !facts.hasKeys(row.user, true)) {
        report.fault(subject, "The agent has no keys of its user, " + row.user + ".", "It gets nothing until it has.",
                     facts.vrxctl("user add " + row.user));
    }
    if (row.version != SNMPV3 && row.user == destination_check::NO_USER && facts.directives &&
        facts.directivesOf({"trapcommunity"}).empty()) {
        report.fault(subject, "It has no community, and no line trapcommunity gives it one.", "It gets nothing.",
                     setColumn(row.index, "User", "s COMMUNITY") + "\nvi " + directivesPath() +
                         "   # or: trapcommunity COMMUNITY, then " + facts.vrxctl("reload"));
    }
}

// The longest texts that an alarm can have: with 16 parameters of 64 octets each.
struct LongestTrap {
    unsigned long long alarmId = 0;
    std::size_t octets = 0;
};

LongestTrap longestTrap() {
    constexpr std::size_t OTHERS = 700;  // docs/traps.md: what is no text, with the headers of SNMPv3
    constexpr std::size_t PARAMETERS = 16;
    constexpr std::size_t PARAMETER = 64;
    std::string parameters(PARAMETER, 'x');
    for (std::size_t i = 1; i < PARAMETERS; ++i) parameters += "," + std::string(PARAMETER, 'x');
    CAlarmConfigParser& definitions = *CAlarmConfigParser::instance();
    LongestTrap longest;
    for (const auto& [id, item] : definitions.alarmItems()) {
        std::string location;
        std::string detail;
        std::string name;
        std::string suggestion;
        unsigned int level = 0;
        definitions.getAlarmInfo(id, parameters, location, detail, level, name, suggestion);
        const std::size_t octets = OTHERS + location.size() + detail.size() + name.size() + suggestion.size();
        if (octets > longest.octets) longest = {id, octets};
    }
    return longest;
}

}  // namespace

void checkDestinations(const Facts& facts, Report& report) {
    if (!facts.destinations) {
        report.notChecked("trap destinations", facts.destinationsFault);
        return;
    }
    if (facts.destinations->empty() && facts.directivesOf({"informsink", "trapsess"}).empty())
        report.notChecked("trap destinations", "there is none: nobody is told of an alarm (first-hour.md, step 4)");
    for (const auto& [number, row] : *facts.destinations)
        checkRow(subjectOf(std::to_string(number), row), row, facts, report);
}

void checkInformReceivers(const Facts& facts, Report& report) {
    bool community = false;  // a line trapcommunity counts for what comes after it
    for (const Directive& line : facts.directivesOf({"informsink", "trapsess", "trapcommunity"})) {
        community = community || line.word == "trapcommunity";
        const std::string address = receiverOf(line);
        if (address.empty()) continue;
        const std::string place = fmt::format("{}:{}", directivesPath(), line.line);
        if (report.names(place)) continue;
        const std::string edit = "vi " + directivesPath() + "\n" + facts.vrxctl("reload");
        checkPath(place + ", " + address, address, facts, edit, report);
        if (line.word == "informsink" && line.arguments.size() < 2 && !community) {
            report.fault(place + ", " + address, "It has no community, and no line trapcommunity stands before it.",
                         "It gets nothing.", edit);
        }
    }
}

void judgeMessageSize(const std::string& destination, bool isIpv6, std::size_t mtu, std::size_t longest,
                      std::size_t limit, Report& report) {
    constexpr std::size_t HEADERS_IPV4 = 28;  // of IP and UDP
    constexpr std::size_t HEADERS_IPV6 = 48;
    const std::size_t headers = isIpv6 ? HEADERS_IPV6 : HEADERS_IPV4;
    if (mtu <= headers || std::min(longest, limit) <= mtu - headers) return;
    report.warning(destination,
                   fmt::format("The longest trap of the definitions takes about {} octets; the path takes {}.",
                               std::min(longest, limit), mtu - headers),
                   "It travels in fragments, which some firewalls and tunnels drop: it is lost without a trace.",
                   fmt::format("vi {}   # vrxNotificationSize {}", directivesPath(), mtu - headers));
}

void checkMessageSizes(const Facts& facts, Report& report) {
    if (facts.paths.empty()) return;
    if (configuredDefinitionFiles().definitions.empty() || report.names(configuredDefinitionFiles().definitions)) {
        report.notChecked("message size", "the definitions cannot be used");
        return;
    }
    const LongestTrap longest = longestTrap();
    std::size_t limit = LONGEST_MESSAGE;
    for (const Directive& line : facts.directivesOf({"vrxnotificationsize"})) {
        if (!line.arguments.empty()) limit = std::strtoul(line.arguments[0].c_str(), nullptr, 10);
    }
    for (const auto& [number, row] : facts.destinations.value_or(TrapDestinationRows())) {
        const auto path = facts.paths.find(row.address);
        if (path != facts.paths.end() && path->second.mtu != 0) {
            judgeMessageSize(subjectOf(std::to_string(number), row), path->second.isIpv6, path->second.mtu,
                             longest.octets, limit, report);
        }
    }
}

}  // namespace vrx
