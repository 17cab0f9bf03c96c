#include "host/agent/web/alarm_query.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <ctime>
#include <sstream>
#include <string_view>
#include <tuple>
#include <utility>

#include "host/agent/operator/control_server.h"
#include "host/agent/operator/status_json.h"
#include "host/agent/operator/status_model.h"
#include "host/agent/tamrel/alarm_table.h"
#include "host/agent/web/alarm_rows.h"

namespace vrx {

namespace {

constexpr std::size_t MOST_ALARMS = 1000;
constexpr std::size_t MOST_WORDS = 32;                       // each is looked for in all alarms
constexpr std::size_t MOST_BYTES = std::size_t{512} << 10U;  // of the alarms; the last one may go past it

constexpr std::pair<const char*, AlarmQuery::Key> KEYS[] = {{"raised", AlarmQuery::Key::Raised},
                                                            {"level", AlarmQuery::Key::Level},
                                                            {"title", AlarmQuery::Key::Title},
                                                            {"location", AlarmQuery::Key::Location}};

char lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

std::string lowered(std::string_view text) {
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(), lower);
    return result;
}

std::vector<std::string> split(const std::string& text, char separator) {
    std::vector<std::string> pieces;
    std::istringstream in(text);
    for (std::string piece; std::getline(in, piece, separator);) {
        if (!piece.empty()) pieces.push_back(piece);
    }
    return pieces;
}

FaultLevel levelOf(const std::string& name) {
    for (std::size_t i = 1; i <= FAULT_LEVELS; ++i) {
        if (name == textOf(static_cast<FaultLevel>(i))) return static_cast<FaultLevel>(i);
    }
    throw ControlFault("level is none of critical, major, minor and warning");
}

AlarmQuery::Key keyOf(const std::string& name) {
    for (const auto& [text, key] : KEYS) {
        if (name == text) return key;
    }
    throw ControlFault("sort is none of raised, level, title and location");
}

std::size_t limitOf(const std::string& text) {
    std::size_t limit = 0;
    const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), limit);
    if (error != std::errc() || stop != text.data() + text.size() || limit < 1 || limit > MOST_ALARMS) {
        throw ControlFault("limit is no number from 1 to " + std::to_string(MOST_ALARMS));
    }
    return limit;
}

StatusValue timeText(std::int64_t seconds) {
    constexpr std::int64_t LAST = 7'258'118'400;  // the year 2200: nanoseconds of the system's clock go on to 2262
    if (seconds <= 0 || seconds >= LAST) return nullptr;
    return statusOf(std::chrono::system_clock::from_time_t(seconds));
}

constexpr std::pair<const char*, alarm_table::Column> TEXTS[] = {{"title", alarm_table::TITLE},
                                                                 {"location", alarm_table::LOCATION},
                                                                 {"detail", alarm_table::DETAIL},
                                                                 {"advice", alarm_table::ADVICE}};

bool matches(const AlarmRows& alarms, std::size_t row, const AlarmQuery& query) {
    const bool anyLevel = std::none_of(query.ofLevel.begin(), query.ofLevel.end(), [](bool wanted) { return wanted; });
    if (!anyLevel && !query.ofLevel.at(static_cast<std::size_t>(alarms.level(row)) - 1)) return false;
    if (query.words.empty()) return true;
    std::string all = std::to_string(alarms.number(row, alarm_table::SERIAL)) + "\n" +
                      std::to_string(alarms.number(row, alarm_table::NUMBER)) + "\n" +
                      std::to_string(alarms.number(row, alarm_table::ALARM_ID)) + "\n" + textOf(alarms.level(row));
    for (const auto& [name, column] : TEXTS) all.append("\n").append(alarms.text(row, column));
    all = lowered(all);
    return std::all_of(query.words.begin(), query.words.end(),
                       [&](const std::string& word) { return all.find(word) != std::string::npos; });
}

struct Match {
    std::size_t row;
    std::int64_t raised;
    std::uint64_t serial;
    std::int64_t rank;  // grows with the level's weight
    std::string_view text;
};

std::vector<Match> matching(const AlarmRows& alarms, std::size_t rows, const AlarmQuery& query) {
    std::vector<Match> found;
    for (std::size_t row = 0; row < rows; ++row) {
        if (!matches(alarms, row, query)) continue;
        Match match{row, alarms.raised(row), alarms.number(row, alarm_table::SERIAL), 0, {}};
        if (query.sort == AlarmQuery::Key::Level) match.rank = -static_cast<std::int64_t>(alarms.level(row));
        if (query.sort == AlarmQuery::Key::Title) match.text = alarms.text(row, alarm_table::TITLE);
        if (query.sort == AlarmQuery::Key::Location) match.text = alarms.text(row, alarm_table::LOCATION);
        found.push_back(match);
    }
    // Of equals the newest first, whatever the order.
    const auto before = [&](const Match& a, const Match& b) {
        const int byText = a.text.compare(b.text);
        if (a.rank != b.rank) return query.ascending ? a.rank < b.rank : a.rank > b.rank;
        if (byText != 0) return query.ascending ? byText < 0 : byText > 0;
        const bool older = std::tie(a.raised, a.serial) < std::tie(b.raised, b.serial);
        const bool newer = std::tie(a.raised, a.serial) > std::tie(b.raised, b.serial);
        return query.sort == AlarmQuery::Key::Raised && query.ascending ? older : newer;
    };
    const auto shown = found.begin() + static_cast<std::ptrdiff_t>(std::min(query.limit, found.size()));
    std::partial_sort(found.begin(), shown, found.end(), before);
    return found;
}

StatusValue alarmJson(const AlarmRows& alarms, const Match& match) {
    StatusValue alarm = {{"serial", match.serial},
                         {"level", textOf(alarms.level(match.row))},
                         {"raised", timeText(match.raised)},
                         {"number", alarms.number(match.row, alarm_table::NUMBER)}};
    for (const auto& [name, column] : TEXTS) alarm[name] = std::string(alarms.text(match.row, column));
    return alarm;
}

}  // namespace

AlarmQuery alarmQueryOf(const std::map<std::string, std::string>& query) {
    AlarmQuery result;
    for (const auto& [name, value] : query) {
        if (name == "filter") {
            result.words = split(lowered(value), ' ');
            if (result.words.size() > MOST_WORDS) throw ControlFault("filter has too many words");
        } else if (name == "level") {
            for (const std::string& level : split(value, ',')) {
                result.ofLevel.at(static_cast<std::size_t>(levelOf(level)) - 1) = true;
            }
        } else if (name == "sort") {
            result.sort = keyOf(value);
        } else if (name == "order") {
            if (value != "asc" && value != "desc") throw ControlFault("order is neither asc nor desc");
            result.ascending = value == "asc";
        } else if (name == "limit") {
            result.limit = limitOf(value);
        } else {
            throw ControlFault("there is no such parameter");
        }
    }
    return result;
}

std::string alarmsAsJson(const AlarmReading& reading, const AlarmQuery& query) {
    const bool read = reading.rows != nullptr;
    std::vector<Match> found;
    std::string list;
    if (read) {
        const AlarmRows alarms(*reading.rows);
        found = matching(alarms, reading.rows->rows(), query);
        const std::size_t most = std::min(found.size(), query.limit);
        for (std::size_t i = 0; i < most && list.size() < MOST_BYTES; ++i) {
            list += (i == 0 ? "" : ",\n") + jsonOf(alarmJson(alarms, found[i]));
        }
    }
    std::string head = jsonOf({{"read", read ? statusOf(reading.time) : StatusValue()},
                               {"stale", reading.stale},
                               {"fault", reading.fault},
                               {"rows", read ? reading.rows->rows() : 0},
                               {"matching", found.size()}});
    head.pop_back();
    return head + ",\n\"alarms\":[" + list + "]}\n";
}

}  // namespace vrx
