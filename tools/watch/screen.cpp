#include "tools/watch/screen.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include "host/base/utf8.h"
#include "tools/time_text.h"
#include "tools/watch/text_columns.h"

namespace vrx {

namespace {

enum : std::size_t { ALARMS, DESTINATIONS, NOTIFICATIONS };

constexpr std::size_t WIDE = 60;        // columns, from which on rows are shown in full
constexpr std::size_t LEAST_LISTS = 8;  // lines, from which on all lists are shown
constexpr std::size_t SHARE = 5;        // one part in so many is for each list that keys do not move in

const std::vector<std::string> HELP = {
    "q              quit",
    "Tab            to the next list",
    "Up Down        select (PgUp, PgDn, Home, End, too)",
    "Enter          all texts of what is selected; Enter or Esc: back",
    "/              show alarms with a text in them",
    "l              show critical alarms, or those and major ones, and so on",
    "s              sort alarms: newest first, by level, by name",
    "Esc            show all alarms",
    "",
    "> at the end of a line: it goes on, Enter shows all of it",
};

std::string dateText(Watched::Time time) {
    return localTime(std::chrono::system_clock::to_time_t(time));
}

std::string clockText(Watched::Time time) {
    const std::string date = dateText(time);
    return date.substr(date.find(' ') + 1);
}

std::string raisedText(const ListedAlarm& alarm) {
    return localTime(static_cast<std::time_t>(alarm.raisedAt));
}

Style styleOf(FaultLevel level) {
    switch (level) {
        case FaultLevel::Critical:
            return Style::Critical;
        case FaultLevel::Major:
            return Style::Major;
        case FaultLevel::Minor:
            return Style::Minor;
        default:
            return Style::Warning;
    }
}

Style styleOf(const std::string& level) {
    for (const FaultLevel one : {FaultLevel::Critical, FaultLevel::Major, FaultLevel::Minor, FaultLevel::Warning}) {
        if (level == textOf(one)) return styleOf(one);
    }
    return Style::Plain;
}

ScreenLine plainLine(const std::string& text, std::size_t columns, Style style = Style::Plain) {
    return {{{style, fitted(screenText(text), columns)}}};
}

// Cut, or filled up, to the width of the screen.
ScreenLine fittedLine(const ScreenLine& line, std::size_t columns) {
    ScreenLine whole;
    for (const ScreenLine::Piece& piece : line.pieces) {
        const bool last = &piece == &line.pieces.back();
        const std::size_t wanted = columnsOf(piece.text);
        const std::size_t width = last ? columns : std::min(wanted, columns);
        whole.pieces.push_back({piece.style, fitted(piece.text, width)});
        columns -= width;
    }
    return whole;
}

std::string textOfLine(const ScreenLine& line) {
    std::string text;
    for (const ScreenLine::Piece& piece : line.pieces) text += piece.text;
    return text;
}

// "80 sent, 0 waiting, 3 (queue full 2, unresolved 1) dropped"; counts that are rarely anything but 0 only then.
struct Count {
    const char* field;
    const char* text;
    bool always;
};
constexpr Count OF_TRAPS[] = {
    {"sent", "sent", true},  {"waiting", "waiting", true},        {"dropped", "dropped", true},
    {"held", "held", false}, {"suppressed", "suppressed", false}, {"filtered", "filtered", false}};
constexpr Count OF_INFORMS[] = {{"acknowledged", "acknowledged", true},
                                {"waiting", "waiting", true},
                                {"dropped", "dropped", true},
                                {"resent", "repeated", false},
                                {"filtered", "filtered", false}};

template <std::size_t COUNT>
std::string countsOf(const StatusJson& row, const Count (&counts)[COUNT]) {
    std::string text;
    for (const Count& count : counts) {
        const std::string value = statusText(row.value(count.field, StatusJson()));
        if (count.always || (value != "0" && value != "-")) text += ", " + value + " " + count.text;
    }
    return text;
}

std::string fieldText(const StatusJson& row, const char* field) {
    return statusText(row.value(field, StatusJson()));
}

// "; REASON", unless there is none.
std::string reasonText(const StatusJson& row, const char* field) {
    const std::string reason = fieldText(row, field);
    return reason == "-" ? "" : "; " + reason;
}

}  // namespace

void Screen::show(std::shared_ptr<const Watched> watched) {
    const bool sameAlarms = watched->alarms == m_watched->alarms;
    const bool isNewStatus = watched->statusAt && watched->statusAt != m_watched->statusAt;
    const auto former = std::exchange(m_watched, std::move(watched));  // m_alarms are its alarms
    if (isNewStatus) m_requests.add(*m_watched->statusAt, m_watched->status);
    readDestinations();
    if (!sameAlarms) chooseAlarms();
}

// Whoever looks at the newest ones sees the next one come; what else is selected stays selected.
void Screen::chooseAlarms() {
    std::size_t& selected = m_selected[ALARMS];
    const std::size_t distance = selected - std::min(selected, m_top[ALARMS]);
    const std::uint32_t serial = selected > 0 && selected < m_alarms.size() ? m_alarms[selected]->serial : 0;
    m_alarms = chosen(*m_watched->alarms, m_choice, m_order);
    if (serial == 0) return;
    const auto found = std::find_if(m_alarms.begin(), m_alarms.end(),
                                    [serial](const ListedAlarm* alarm) { return alarm->serial == serial; });
    if (found == m_alarms.end()) return;
    selected = static_cast<std::size_t>(found - m_alarms.begin());
    m_top[ALARMS] = selected - std::min(selected, distance);
}

void Screen::readDestinations() {
    m_destinations.clear();
    const auto rowsOf = [this](const char* list) { return m_watched->status.value(list, StatusJson::array()); };
    for (const StatusJson& row : rowsOf("destinations")) {
        m_destinations.push_back({fmt::format("{} {} {} v{}", fieldText(row, "number"), fieldText(row, "address"),
                                              fieldText(row, "port"), fieldText(row, "version")),
                                  fieldText(row, "state") + countsOf(row, OF_TRAPS) + reasonText(row, "reason")});
    }
    for (const StatusJson& row : rowsOf("informs")) {
        m_destinations.push_back(
            {fmt::format("inform {} v{}", fieldText(row, "destination"), fieldText(row, "version")),
             fieldText(row, "state") + countsOf(row, OF_INFORMS) + reasonText(row, "last_failure")});
    }
    m_nameColumns = 0;
    for (Destination& one : m_destinations) {
        one.name = screenText(one.name);
        one.text = screenText(one.text);
        m_nameColumns = std::max(m_nameColumns, columnsOf(one.name));
    }
}

bool Screen::press(const KeyPress& press) {
    if (m_prompt) {
        pressInPrompt(press);
        return true;
    }
    switch (press.key) {
        case Key::NextList:
            m_list = (m_list + 1) % LISTS;
            break;
        case Key::Enter: {
            const List list = lists()[m_list];
            if (m_details) {
                m_details.reset();
            } else if (m_selected[m_list] < list.size) {
                m_details = list.details(m_selected[m_list]);
                m_detailsTop = 0;
            }
            break;
        }
        case Key::Escape:
            if (!m_details) m_choice = AlarmChoice();
            m_details.reset();
            chooseAlarms();
            break;
        case Key::Backspace:
            break;
        case Key::Character:
            if (press.character == "q") return false;
            if (press.character.size() == 1) pressCharacter(press.character.front());
            break;
        default:
            move(press.key);
    }
    return true;
}

void Screen::pressInPrompt(const KeyPress& press) {
    if (press.key == Key::Character) {
        *m_prompt += press.character;
    } else if (press.key == Key::Backspace) {
        while (!m_prompt->empty() && (static_cast<unsigned char>(m_prompt->back()) & 0xC0U) == 0x80U) {
            m_prompt->pop_back();
        }
        if (!m_prompt->empty()) m_prompt->pop_back();
    } else if (press.key == Key::Enter) {
        m_choice.text = *m_prompt;
        m_prompt.reset();
        m_selected[ALARMS] = 0;
        chooseAlarms();
    } else if (press.key == Key::Escape) {
        m_prompt.reset();
    }
}

void Screen::pressCharacter(char character) {
    if (character == '?' || character == 'h') {
        m_details = HELP;
        m_detailsTop = 0;
        return;
    }
    if (m_details) return;
    if (character == '/') {
        m_list = ALARMS;
        m_prompt.emplace();
    } else if (character == 'l') {
        m_choice.least = m_choice.least == FaultLevel::Warning
                             ? FaultLevel::Critical
                             : static_cast<FaultLevel>(static_cast<unsigned char>(m_choice.least) + 1);
        chooseAlarms();
    } else if (character == 's') {
        m_order = static_cast<AlarmOrder>((static_cast<std::size_t>(m_order) + 1) % ALARM_ORDERS);
        m_selected[ALARMS] = 0;
        chooseAlarms();
    }
}

void Screen::move(Key key) {
    std::size_t& at = m_details ? m_detailsTop : m_selected[m_list];
    const std::size_t end = m_details ? m_detailsLines : lists()[m_list].size;
    const auto back = [&at](std::size_t count) { at -= std::min(at, count); };
    if (key == Key::Up) back(1);
    if (key == Key::PageUp) back(m_page);
    if (key == Key::Home) at = 0;
    if (key == Key::Down) ++at;
    if (key == Key::PageDown) at += m_page;
    if (key == Key::End) at = end;
    if (at >= end) at = end - std::min<std::size_t>(end, 1);
}

std::string Screen::alarmsNote() const {
    if (m_watched->alarms->empty()) return "";
    std::string note = textOf(m_order);
    if (m_choice.least == FaultLevel::Critical) note += ", critical only";
    if (m_choice.least != FaultLevel::Critical && m_choice.least != FaultLevel::Warning) {
        note += fmt::format(", {} and above", textOf(m_choice.least));
    }
    if (!m_choice.text.empty()) note += fmt::format(", with \"{}\"", m_choice.text);
    if (m_alarms.size() < m_watched->alarms->size()) note += fmt::format(" ({} in all)", m_watched->alarms->size());
    return note;
}

std::array<Screen::List, Screen::LISTS> Screen::lists() const {
    const auto alarmRow = [this](std::size_t index, std::size_t columns) -> ScreenLine {
        const ListedAlarm& alarm = *m_alarms[index];
        const FaultLevel level = faultLevelOf(alarm.level);
        const std::string raised = raisedText(alarm);
        // Without year and seconds where there is not much room.
        const std::string time =
            columns < WIDE ? raised.substr(raised.find('-') + 1, std::strlen("11-22 09:14")) : raised;
        return {{{Style::Plain, time + " "},
                 {styleOf(level), fmt::format("{:<8} ", textOf(level))},
                 {Style::Plain, screenText(titleOf(alarm))}}};
    };
    const auto alarmDetails = [this](std::size_t index) -> std::vector<std::string> {
        const ListedAlarm& alarm = *m_alarms[index];
        return {fmt::format("alarm {}, serial number {}", alarm.alarmId, alarm.serial),
                fmt::format("{}, raised {}", textOf(faultLevelOf(alarm.level)), raisedText(alarm)),
                "",
                "name      " + (alarm.name.empty() ? "(not defined)" : alarm.name),
                "location  " + alarm.location,
                "detail    " + alarm.detail,
                "advice    " + alarm.advice};
    };
    const auto destinationRow = [this](std::size_t index, std::size_t columns) -> ScreenLine {
        const Destination& one = m_destinations[index];
        const std::size_t nameColumns = std::min(m_nameColumns, columns * 2 / 5);
        return {{{Style::Plain, fitted(one.name, nameColumns) + "  "}, {Style::Plain, one.text}}};
    };
    const auto destinationDetails = [this](std::size_t index) -> std::vector<std::string> {
        return {m_destinations[index].name, "", m_destinations[index].text};
    };
    const auto notificationRow = [this](std::size_t index, std::size_t columns) -> ScreenLine {
        const TrapTexts& trap = m_watched->notifications[index];
        const std::string time = trap.time.substr(trap.time.find(' ') + 1, std::strlen("09:14:03"));
        const std::string where = fmt::format("{:<6} to {} ", trap.trap, screenText(trap.destinations));
        return {{{Style::Plain, fmt::format("{} {} ", time, trap.kind)},
                 {styleOf(trap.level), fmt::format("{:<8} ", trap.level)},
                 {Style::Plain, (columns < WIDE ? "" : where) + screenText(trap.text)}}};
    };
    const auto notificationDetails = [this](std::size_t index) -> std::vector<std::string> {
        const TrapTexts& trap = m_watched->notifications[index];
        return {fmt::format("{} {} {}, {} trap", trap.time, trap.kind, trap.level, trap.trap),
                "sent to   " + trap.destinations, "", trap.text};
    };
    return {{{"ALARMS", alarmsNote(), m_alarms.size(), alarmRow, alarmDetails},
             {"DESTINATIONS", "", m_destinations.size(), destinationRow, destinationDetails},
             {"NOTIFICATIONS", m_watched->notifications.empty() ? "" : "newest first", m_watched->notifications.size(),
              notificationRow, notificationDetails}}};
}

std::vector<ScreenLine> Screen::header(std::size_t columns) const {
    const Watched& now = *m_watched;
    std::vector<ScreenLine> lines;
    const auto addWrapped = [&](const std::string& text, Style style) {
        for (const std::string& line : wrapped(screenText(text), columns))
            lines.push_back(plainLine(line, columns, style));
    };
    const auto field = [&now](const char* path) { return statusText(statusField(now.status, path)); };
    const auto age = [&now](const char* path) { return durationText(statusField(now.status, path)); };

    if (now.agentAwaySince) {
        addWrapped(fmt::format("vrx-agentd away since {}: {}", dateText(*now.agentAwaySince), now.agentFault),
                   Style::Trouble);
        if (now.statusAt) addWrapped("what follows is of " + dateText(*now.statusAt), Style::Plain);
    } else if (!now.statusAt) {
        addWrapped("asking the agent", Style::Plain);
    } else {
        const std::string who =
            screenText(fmt::format("vrx-agentd {}, up {}", field("/agent/version"), age("/agent/uptime_seconds")));
        const std::string clock = clockText(now.at);
        const bool room = columns > columnsOf(who) + clock.size();
        lines.push_back(plainLine(room ? fitted(who, columns - clock.size()) + clock : who, columns, Style::Title));
        if (now.troubles.empty()) addWrapped("all is well", Style::Plain);
    }
    if (!now.statusAt) return lines;

    if (!now.troubles.empty()) {
        addWrapped(fmt::format("trouble: {}", fmt::join(now.troubles, "; ")), Style::Trouble);
    }
    const bool connected = statusField(now.status, "/backend/connected") == true;
    addWrapped(fmt::format("backend   {} for {}", connected ? "connected" : "away", age("/backend/since_seconds")),
               connected ? Style::Plain : Style::Trouble);
    ScreenLine alarms{{{Style::Plain, fmt::format("alarms    {} active", field("/alarms/active"))}}};
    const StatusJson levels = statusField(now.status, "/alarms/by_level");
    for (const auto& [level, count] : levels.items()) {
        alarms.pieces.push_back({Style::Plain, alarms.pieces.size() == 1 ? ": " : ", "});
        alarms.pieces.push_back(
            {count == 0 ? Style::Plain : styleOf(level), screenText(level + " " + statusText(count))});
    }
    const std::string changed = age("/alarms/last_change_seconds");
    if (changed != "-") alarms.pieces.push_back({Style::Plain, "; changed " + changed + " ago"});
    if (columnsOf(textOfLine(alarms)) > columns) {
        addWrapped(textOfLine(alarms), Style::Plain);
    } else {
        lines.push_back(fittedLine(alarms, columns));
    }
    addWrapped("requests  " + m_requests.text(), Style::Plain);
    return lines;
}

ScreenLine Screen::footer(std::size_t columns) const {
    if (m_prompt) {
        // What is typed last stays in sight.
        std::string text = "/" + screenText(*m_prompt) + "_";
        while (columnsOf(text) > std::max<std::size_t>(columns, 1)) text.erase(0, utf8CharacterLength(text));
        return plainLine(text, columns);
    }
    return plainLine(m_details ? "Esc back  Up Down scroll  q quit"
                               : "q quit  Tab list  Enter texts  / search  l level  s sort  ? help",
                     columns);
}

void Screen::addList(std::vector<ScreenLine>& lines, std::size_t number, std::size_t rows, std::size_t columns) {
    const List list = lists()[number];
    const bool movesIn = number == m_list;
    std::size_t& selected = m_selected[number];
    std::size_t& top = m_top[number];
    if (selected >= list.size) selected = list.size - std::min<std::size_t>(list.size, 1);
    if (movesIn) m_page = std::max<std::size_t>(rows, 1);
    if (selected < top) top = selected;
    if (rows > 0 && selected >= top + rows) top = selected - rows + 1;
    top = std::min(top, list.size - std::min(list.size, rows));  // no empty lines while there are rows above
    const std::size_t end = std::min(list.size, top + rows);

    std::string title = list.title + (list.size == 0 ? " none" : fmt::format(" {}-{} of {}", top + 1, end, list.size));
    if (end == top && list.size > 0) title = fmt::format("{} {}", list.title, list.size);
    lines.push_back(plainLine(title + (list.note.empty() ? "" : ", " + list.note), columns, Style::Title));
    for (std::size_t i = top; i < end; ++i) {
        const bool isSelected = movesIn && i == selected;
        ScreenLine row = list.row(i, columns);
        row.pieces.insert(row.pieces.begin(), {Style::Plain, isSelected ? ">" : " "});
        row = fittedLine(row, columns);
        if (isSelected) row = {{{Style::Selected, textOfLine(row)}}};
        lines.push_back(std::move(row));
    }
    for (std::size_t i = end - top; i < rows; ++i) lines.push_back(plainLine("", columns));
}

void Screen::addDetails(std::vector<ScreenLine>& lines, std::size_t rows, std::size_t columns) {
    std::vector<std::string> text;
    for (const std::string& line : *m_details) {
        for (std::string& part : wrapped(screenText(line), columns)) text.push_back(std::move(part));
    }
    m_page = std::max<std::size_t>(rows, 1);
    m_detailsLines = text.size();
    m_detailsTop = std::min(m_detailsTop, text.size() - std::min(text.size(), rows));
    for (std::size_t i = m_detailsTop; i < m_detailsTop + rows; ++i) {
        lines.push_back(plainLine(i < text.size() ? text[i] : "", columns, i == 0 ? Style::Title : Style::Plain));
    }
}

std::vector<ScreenLine> Screen::lines(std::size_t rows, std::size_t columns) {
    std::vector<ScreenLine> lines = header(columns);
    lines.resize(std::min(lines.size(), rows / 2));  // alarms have the other half, also with many troubles
    const std::size_t room = rows - std::min(rows, lines.size() + 1);  // the last line is the footer
    if (m_details) {
        addDetails(lines, room, columns);
    } else if (room < LEAST_LISTS) {
        addList(lines, m_list, room - std::min<std::size_t>(room, 1), columns);
    } else {
        const auto all = lists();
        std::array<std::size_t, LISTS> rowsOf{};
        std::size_t left = room - LISTS;  // their titles
        for (std::size_t i = 0; i < LISTS; ++i) {
            if (i == m_list) continue;
            rowsOf.at(i) = std::min(all.at(i).size, room / SHARE);
            left -= rowsOf.at(i);
        }
        rowsOf.at(m_list) = left;
        for (std::size_t i = 0; i < LISTS; ++i) addList(lines, i, rowsOf.at(i), columns);
    }
    lines.push_back(footer(columns));
    lines.resize(std::min(lines.size(), rows));
    return lines;
}

}  // namespace vrx
