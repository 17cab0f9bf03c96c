// The screen of vrxctl watch: what its lines say for a size, and what keys do to it. terminal.h draws it.
//
//     Screen screen(choice, AlarmOrder::Newest);
//     screen.show(watcher.look());
//     terminal.draw(screen.lines(terminal.rows(), terminal.columns()));
#pragma once

#include <array>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tools/watch/alarm_choice.h"
#include "tools/watch/recent_requests.h"
#include "tools/watch/watcher.h"

namespace vrx {

enum class Key { Up, Down, PageUp, PageDown, Home, End, NextList, Enter, Escape, Backspace, Character };

struct KeyPress {
    Key key;
    std::string character;  // in UTF-8
};

// Words say what there is; styles only help the eye.
enum class Style { Plain, Title, Critical, Major, Minor, Warning, Trouble, Selected };

struct ScreenLine {
    struct Piece {
        Style style;
        std::string text;  // screenText()
    };
    std::vector<Piece> pieces;
};

class Screen {
public:
    Screen(AlarmChoice choice, AlarmOrder order) : m_choice(std::move(choice)), m_order(order) {}

    void show(std::shared_ptr<const Watched> watched);

    // False: it is to end.
    [[nodiscard]] bool press(const KeyPress& press);

    // As many lines, each as wide as the screen. Scrolls to what is selected.
    std::vector<ScreenLine> lines(std::size_t rows, std::size_t columns);

private:
    // One of the three lists: alarms, destinations, notifications.
    struct List {
        std::string title;
        std::string note;
        std::size_t size;
        std::function<ScreenLine(std::size_t index, std::size_t columns)> row;
        std::function<std::vector<std::string>(std::size_t index)> details;
    };
    static constexpr std::size_t LISTS = 3;

    void chooseAlarms();
    void readDestinations();
    void pressInPrompt(const KeyPress& press);
    void pressCharacter(char character);
    void move(Key key);
    std::array<List, LISTS> lists() const;
    std::vector<ScreenLine> header(std::size_t columns) const;
    void addList(std::vector<ScreenLine>& lines, std::size_t list, std::size_t rows, std::size_t columns);
    void addDetails(std::vector<ScreenLine>& lines, std::size_t rows, std::size_t columns);
    std::string alarmsNote() const;
    ScreenLine footer(std::size_t columns) const;

    struct Destination {
        std::string name;
        std::string text;
    };

    AlarmChoice m_choice;
    AlarmOrder m_order;
    std::shared_ptr<const Watched> m_watched = std::make_shared<Watched>();
    RecentRequests m_requests;
    std::vector<const ListedAlarm*> m_alarms;  // those chosen, of m_watched
    std::vector<Destination> m_destinations;
    std::size_t m_nameColumns = 0;  // of the longest destination's

    std::size_t m_list = 0;  // that keys move in
    std::array<std::size_t, LISTS> m_selected{};
    std::array<std::size_t, LISTS> m_top{};             // first row on the screen
    std::size_t m_page = 1;                             // rows of the list that keys move in, or of the details
    std::optional<std::vector<std::string>> m_details;  // in the place of the lists
    std::size_t m_detailsLines = 0;                     // on a screen of this width
    std::size_t m_detailsTop = 0;
    std::optional<std::string> m_prompt;  // the text to search for, while it is typed
};

}  // namespace vrx
