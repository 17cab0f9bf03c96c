#include "tools/trap_commands.h"

#include <fmt/format.h>
#include <sysexits.h>
#include <time.h>

#include <algorithm>
#include <charconv>
#include <iostream>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <utility>

#include "host/base/product_root.h"
#include "host/command_line/option_parser.h"
#include "host/notification_log/notification_codec.h"
#include "host/notification_log/notification_texts.h"
#include "host/snmp/hexadecimal.h"
#include "tools/agent_call.h"
#include "tools/syslog_line.h"
#include "tools/terminal_text.h"
#include "tools/trap_feed.h"
#include "tools/trap_stream.h"
#include "tools/trap_texts.h"

namespace vrx {

namespace {

using nlohmann::json;
using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::system_clock;

std::string logPath() {
    return productPath("state/notification_log.db");
}

NotificationLogReader openLog() {
    return NotificationLogReader(logPath());
}

LoggedNotification entryOf(std::uint64_t number) {
    const std::optional<LoggedNotification> entry = openLog().find(number);
    if (!entry) throw std::runtime_error("the notification log has no entry " + std::to_string(number));
    return *entry;
}

struct Unit {
    char letter;
    long length;  // in seconds
};
constexpr Unit UNITS[] = {{'s', 1}, {'m', 60}, {'h', 3600}, {'d', 86400}};

std::optional<long> numberOf(std::string_view text) {
    long number = 0;
    const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    constexpr long MOST = 100'000'000'000;  // the year 5138, in seconds
    if (text.empty() || error != std::errc() || stop != text.data() + text.size() || number < 0 || number > MOST) {
        return std::nullopt;
    }
    return number;
}

}  // namespace

system_clock::time_point momentOf(const std::string& text, system_clock::time_point now) {
    const std::invalid_argument wrong("\"" + text +
                                      "\" is no time: 2026-11-21, \"2026-11-21 09:14:03\", 2026-11-21T09:14:03Z, "
                                      "@SECONDS since 1970, or how long ago: 90s, 15m, 2h, 3d");
    if (text.empty()) throw wrong;
    if (text.front() == '@') {
        const std::optional<long> count = numberOf(std::string_view(text).substr(1));
        if (!count) throw wrong;
        return system_clock::time_point(seconds(*count));
    }
    for (const Unit& unit : UNITS) {
        if (text.back() != unit.letter) continue;
        const std::optional<long> count = numberOf(std::string_view(text).substr(0, text.size() - 1));
        constexpr long MOST_DAYS = 100'000;
        if (!count || *count * unit.length > MOST_DAYS * 86400) throw wrong;
        return now - seconds(*count * unit.length);
    }
    const bool utc = text.back() == 'Z';
    const std::string local = utc ? text.substr(0, text.size() - 1) : text;
    for (const char* format :
         {"%Y-%m-%d", "%Y-%m-%d %H:%M", "%Y-%m-%dT%H:%M", "%Y-%m-%d %H:%M:%S", "%Y-%m-%dT%H:%M:%S"}) {
        std::tm parts{};
        const char* end = ::strptime(local.c_str(), format, &parts);
        if (end == nullptr || end != local.c_str() + local.size()) continue;
        parts.tm_isdst = -1;
        const std::time_t time = utc ? ::timegm(&parts) : ::mktime(&parts);
        return system_clock::from_time_t(time);
    }
    throw wrong;
}

void printTraps(std::ostream& out, const NotificationLogFilter& filter) {
    bool any = false;
    openLog().list(filter, [&](const LoggedNotification& entry) {
        if (!any) out << trapTableHead();
        any = true;
        out << trapTableRow(entry);
    });
    if (!any) out << "no such traps\n";
}

// One entry a line: the log may be long.
void printTrapsAsJson(std::ostream& out, const NotificationLogFilter& filter) {
    out << "[";
    const char* separator = "\n";
    openLog().list(filter, [&](const LoggedNotification& entry) {
        out << separator;
        out << dumped(jsonOf(entry));
        separator = ",\n";
    });
    out << "\n]\n";
}

void printTrap(std::ostream& out, std::uint64_t number) {
    const LoggedNotification entry = entryOf(number);
    constexpr const char* ROW = "{:<13} {}\n";
    out << fmt::format(ROW, "number", entry.number) << fmt::format(ROW, "time", trapTexts(entry).time)
        << fmt::format(ROW, "alarm ID", entry.alarmId) << fmt::format(ROW, "serial", entry.serial)
        << fmt::format(ROW, "kind", kindText(entry)) << fmt::format(ROW, "level", levelText(entry).value_or("-"))
        << fmt::format(ROW, "event", entry.sequence)
        << fmt::format(ROW, "trap", fmt::format("{} ({})", entry.trapOid, trapText(entry)))
        << fmt::format(ROW, "destinations", joined(entry.destinations));
    if (const std::string because = becauseText(entry); !because.empty()) out << fmt::format(ROW, "sent", because);
    const std::optional<Notification> trap = trapFrom(entry.trap);
    if (!trap) throw std::runtime_error("the trap of entry " + std::to_string(number) + " cannot be read");
    out << "bindings\n";
    for (const NotificationBinding& binding : trap->bindings) {
        out << fmt::format("  {} = {}: {}\n", oidText(binding.name), typeText(binding.value.type),
                           terminalLines(valueText(binding.value)));
    }
}

void printTrapAsJson(std::ostream& out, std::uint64_t number) {
    out << dumped(jsonOf(entryOf(number)), 2) << "\n";
}

void resendTrap(std::ostream& out, std::uint64_t number, const std::string& to) {
    json request = {{"number", number}};
    if (!to.empty()) request["to"] = to;
    const json answer = json::parse(callAgent("POST", "/traps/resend", request.dump()), nullptr, false);
    if (!answer.is_object()) throw AgentCallError("the agent's answer is no JSON");
    out << "sent again to " << joined(answer.at("destinations").get<std::vector<std::string>>()) << "\n";
    const auto missing = answer.at("missing").get<std::vector<std::string>>();
    if (!missing.empty()) out << "no longer there: " << joined(missing) << "\n";
}

void TrapsCommand::define(OptionParser& command) {
    command.setCommands(0, 1);
    command.add("--last", filter.last, "the newest of those selected, at most so many");
    command.add("--since", since, "from this time on: 2026-11-21, \"2026-11-21 09:14\", or 15m, 2h, 3d ago");
    command.add("--until", until, "up to this time");
    command.add("--alarm", filter.alarmId, "with this identifier in the definition file");
    command.add("--serial", filter.serial, "of the alarm with this serial number");
    command.add("--kind", kind, "raise or clear").oneOf({"raise", "clear"});
    command.add("--destination", filter.destination, "sent to this destination");
    command.addFlag("--json", json, "as JSON");
    command.addFlag("--follow", follow, "go on with each one as it is sent, for ever; as JSON, one a line");
    command.add("--after", after, "follow from the entry after this number on (default: from now on)");
    command.add("--cloudevents", source, "follow as CloudEvents 1.0 in JSON, with this as the source")
        .valueName("SOURCE");
    command.add("--syslog", syslogHost, "follow as syslog messages (RFC 5424), with this as their host name")
        .valueName("HOST");
    command.add("--feed", feed,
                "give the lines to this command of the shell, piece by piece, and again until it ends with 0");
    command.add("--cursor", cursor, "of --feed: the file for the last number that the command has taken");
    show = &command.addCommand("show", "show one with all its variable bindings");
    show->add("NUMBER", number, "its number in the list").required();
    show->addFlag("--json", json, "as JSON");
    resend = &command.addCommand("resend", "make the agent send one again");
    resend->add("NUMBER", number, "its number in the list").required();
    resend->add("--to", to, "to this destination (default: those of the first time)");
}

int TrapsCommand::run() {
    if (resend->given()) {
        resendTrap(std::cout, number, to);
    } else if (show->given()) {
        json ? printTrapAsJson(std::cout, number) : printTrap(std::cout, number);
    } else {
        const auto now = system_clock::now();
        if (!since.empty()) filter.since = momentOf(since, now);
        if (!until.empty()) filter.until = momentOf(until, now);
        if (!kind.empty()) filter.raised = kind == "raise";
        if (follow || after || source || syslogHost || !feed.empty() || !cursor.empty()) return runFollow();
        json ? printTrapsAsJson(std::cout, filter) : printTraps(std::cout, filter);
    }
    return EX_OK;
}

int TrapsCommand::runFollow() {
    if (!follow) throw std::invalid_argument("--after, --cloudevents, --syslog, --feed and --cursor are for --follow");
    if (filter.until) throw std::invalid_argument("--follow has no end: no --until");
    if (after && filter.last) throw std::invalid_argument("either --after or --last");
    if (json + source.has_value() + syslogHost.has_value() > 1) {
        throw std::invalid_argument("one of --json, --cloudevents and --syslog");
    }
    TrapStreamOptions options;
    options.path = logPath();
    options.filter = filter;
    options.after = after;
    if (json) options.format = TrapStreamFormat::Json;
    if (source) {
        options.format = TrapStreamFormat::CloudEvents;
        options.source = *source;
    }
    if (syslogHost) {
        if (!isSyslogHost(*syslogHost)) throw std::invalid_argument("\"" + *syslogHost + "\" is no host name");
        options.format = TrapStreamFormat::Syslog;
        options.source = *syslogHost;
    }
    if (feed.empty() && cursor.empty()) {
        followTraps(std::cout, options);
        return EX_OK;
    }
    if (feed.empty() || cursor.empty()) throw std::invalid_argument("--feed and --cursor belong together");
    if (options.format == TrapStreamFormat::Table) {
        throw std::invalid_argument("--feed needs --json, --cloudevents or --syslog");
    }
    if (filter.last) throw std::invalid_argument("--feed begins after the number in --cursor: no --last");
    feedTraps(std::move(options), {feed, cursor});
}

}  // namespace vrx
