#include <gtest/gtest.h>

#include <algorithm>
#include <clocale>
#include <memory>
#include <string>
#include <vector>

#include "tools/watch/alarm_choice.h"
#include "tools/watch/change_lines.h"
#include "tools/watch/recent_requests.h"
#include "tools/watch/screen.h"
#include "tools/watch/text_columns.h"

namespace vrx {

namespace {

const StatusJson WATCHED_STATUS = StatusJson::parse(
    R"({"agent":{"version":"1.2","pid":7,"uptime_seconds":93784,"last_reload_taken":true},)"
    R"("backend":{"connected":true,"since_seconds":1600.5},)"
    R"("alarms":{"active":3,"by_level":{"critical":1,"major":0,"minor":2,"warning":0},"last_change_seconds":7.5},)"
    R"("destinations":[{"number":"1","address":"192.0.2.1","port":162,"version":2,"state":"ready","reason":"",)"
    R"("sent":17,"filtered":3,"waiting":1,"dropped":{"queue full":2,"bad OID":0}}],)"
    R"("informs":[{"destination":"192.0.2.7:162","version":3,"state":"does not answer","acknowledged":5,"waiting":9,)"
    R"("resent":4,"dropped":{"too old":1},"last_failure":"timed out"}]})");

ListedAlarm alarm(std::uint32_t serial, const std::string& name, std::uint32_t level, std::uint64_t raisedAt) {
    ListedAlarm made;
    made.serial = serial;
    made.alarmId = 42;
    made.level = level;
    made.raisedAt = raisedAt;
    made.name = name;
    made.location = "Slot " + std::to_string(serial);
    return made;
}

// Backend levels: 6 is critical, 5 major, 4 minor, 1 warning.
const std::vector<ListedAlarm> ALARMS = {alarm(1, "Disk", 6, 100), alarm(2, "Fan", 1, 300), alarm(3, "Disk", 5, 200)};

std::shared_ptr<Watched> watched(const StatusJson& status = WATCHED_STATUS,
                                 const std::vector<ListedAlarm>& alarms = ALARMS) {
    auto made = std::make_shared<Watched>();
    made->at = std::chrono::system_clock::from_time_t(1000);
    made->statusAt = made->at;
    made->status = status;
    made->alarms = std::make_shared<std::vector<ListedAlarm>>(alarms);
    made->notifications = {{"2026-11-22 09:14:03.123", "raise", "major", "own", "1,2", "The disk has failed."}};
    return made;
}

std::vector<std::string> textsOf(const std::vector<ScreenLine>& lines) {
    std::vector<std::string> texts;
    for (const ScreenLine& line : lines) {
        std::string& text = texts.emplace_back();
        for (const ScreenLine::Piece& piece : line.pieces) text += piece.text;
    }
    return texts;
}

bool has(const std::vector<std::string>& lines, const std::string& text) {
    return std::any_of(lines.begin(), lines.end(),
                       [&](const std::string& line) { return line.find(text) != std::string::npos; });
}

std::vector<std::uint32_t> serialsOf(const std::vector<const ListedAlarm*>& alarms) {
    std::vector<std::uint32_t> serials;
    for (const ListedAlarm* one : alarms) serials.push_back(one->serial);
    return serials;
}

// Without their times.
std::vector<std::string> next(ChangeLines& changes, std::shared_ptr<const Watched> found) {
    std::vector<std::string> lines = changes.next(std::move(found));
    for (std::string& line : lines) line.erase(0, std::string("2026-11-22 09:14:03 ").size());
    return lines;
}

class WatchTest : public testing::Test {
protected:
    WatchTest() { EXPECT_NE(std::setlocale(LC_CTYPE, "C.UTF-8"), nullptr); }
    ~WatchTest() override { std::setlocale(LC_CTYPE, "C"); }
};

}  // namespace

TEST_F(WatchTest, TextsTakeTheColumnsOfTheirCharacters) {
    EXPECT_EQ(columnsOf("a\u00E9\u7AEFe\u0301"), 5);
    EXPECT_EQ(fitted("ab", 4), "ab  ");
    EXPECT_EQ(fitted("abcde", 4), "abc>");
    EXPECT_EQ(fitted("\u7AEF\u7AEF\u7AEF", 5), "\u7AEF\u7AEF>");
    EXPECT_EQ(fitted("\u7AEF\u7AEF\u7AEF", 4), "\u7AEF >");
    EXPECT_EQ(fitted("\u7AEF", 1), ">");
    EXPECT_EQ(fitted("\u7AEF", 0), "");
    EXPECT_EQ(wideText("a\u7AEF\U0001F600"), L"a\u7AEF\U0001F600");
    for (const wchar_t character : std::wstring(L"a\u007F\u0080\u07FF\u0800\uFFFD\U00010000\U0010FFFF")) {
        EXPECT_EQ(wideText(utf8Of(static_cast<std::wint_t>(character))), std::wstring(1, character));
    }
}

TEST_F(WatchTest, TextsWrapAtBlanks) {
    EXPECT_EQ(wrapped("", 5), std::vector<std::string>({""}));
    EXPECT_EQ(wrapped("one two  three", 7), std::vector<std::string>({"one two", "three"}));
    EXPECT_EQ(wrapped("abcdefgh ij", 3), std::vector<std::string>({"abc", "def", "gh", "ij"}));
    EXPECT_EQ(wrapped("\u7AEF\u7AEF", 1), std::vector<std::string>({"\u7AEF", "\u7AEF"}));
    EXPECT_EQ(wrapped(" a", 1), std::vector<std::string>({" ", "a"}));
}

TEST_F(WatchTest, WhatTheTerminalCannotShowIsEscaped) {
    EXPECT_EQ(screenText("a\nb\t\x1B[2J\xFF\u7AEF\u202E"), "a b \\x1B[2J\\xFF\u7AEF\\xE2\\x80\\xAE");
    EXPECT_EQ(screenText("\uFFFF"), "\\xEF\\xBF\\xBF");
    std::setlocale(LC_CTYPE, "C");
    EXPECT_EQ(screenText("a\u00E9"), "a\\xC3\\xA9");
}

TEST_F(WatchTest, AlarmsAreChosenAndSorted) {
    EXPECT_EQ(serialsOf(chosen(ALARMS, {}, AlarmOrder::Newest)), std::vector<std::uint32_t>({2, 3, 1}));
    EXPECT_EQ(serialsOf(chosen(ALARMS, {}, AlarmOrder::Level)), std::vector<std::uint32_t>({1, 3, 2}));
    EXPECT_EQ(serialsOf(chosen(ALARMS, {}, AlarmOrder::Name)), std::vector<std::uint32_t>({3, 1, 2}));
    EXPECT_EQ(serialsOf(chosen(ALARMS, {FaultLevel::Major, ""}, AlarmOrder::Newest)),
              std::vector<std::uint32_t>({3, 1}));
    EXPECT_EQ(serialsOf(chosen(ALARMS, {FaultLevel::Warning, "SLOT 2"}, AlarmOrder::Newest)),
              std::vector<std::uint32_t>({2}));
    EXPECT_EQ(serialsOf(chosen(ALARMS, {FaultLevel::Critical, "fan"}, AlarmOrder::Newest)),
              std::vector<std::uint32_t>());
}

TEST_F(WatchTest, EveryLineIsAsWideAsTheScreenWhateverItsSize) {
    auto found = watched();
    found->troubles = {"inform destination 192.0.2.7:162 does not answer", "the backend is away"};
    for (const bool away : {false, true}) {
        if (away) found->agentAwaySince = found->at;
        Screen screen({}, AlarmOrder::Newest);
        screen.show(std::make_shared<Watched>(*found));
        for (const Key key : {Key::NextList, Key::End, Key::NextList, Key::Enter, Key::PageDown, Key::End, Key::Escape,
                              Key::NextList, Key::Enter}) {
            ASSERT_TRUE(screen.press({key, ""}));
            for (std::size_t rows = 1; rows < 40; ++rows) {
                for (const std::size_t columns : {1U, 2U, 3U, 17U, 40U, 80U, 133U}) {
                    const auto lines = textsOf(screen.lines(rows, columns));
                    ASSERT_TRUE(lines.size() == rows || rows < 3) << rows << "x" << columns << ": " << lines.size();
                    ASSERT_LE(lines.size(), rows);
                    for (const std::string& line : lines) ASSERT_EQ(columnsOf(line), columns) << line;
                }
            }
        }
    }
}

TEST_F(WatchTest, ShowsWhatBecameOfTrapsAndInforms) {
    Screen screen({}, AlarmOrder::Newest);
    screen.show(watched());
    const auto lines = textsOf(screen.lines(24, 120));
    EXPECT_TRUE(
        has(lines, "1 192.0.2.1 162 v2       ready, 17 sent, 1 waiting, 2 (queue full 2) dropped, 3 filtered  "));
    EXPECT_TRUE(has(lines,
                    "inform 192.0.2.7:162 v3  does not answer, 5 acknowledged, 9 waiting, 1 (too old 1) dropped, "
                    "4 repeated; timed out"));
    EXPECT_TRUE(has(lines, " 09:14:03 raise major    own    to 1,2 The disk has failed."));
}

TEST_F(WatchTest, WhatIsSelectedStaysSelectedWhenAlarmsCome) {
    Screen screen({}, AlarmOrder::Newest);
    screen.show(watched());
    ASSERT_TRUE(has(textsOf(screen.lines(24, 80)), "warning  Fan: Slot 2"));
    const auto selected = [&screen] {
        for (const std::string& line : textsOf(screen.lines(24, 80))) {
            if (line.front() == '>') return line.substr(line.find("Slot"), 6);
        }
        return std::string();
    };
    EXPECT_EQ(selected(), "Slot 2");
    std::vector<ListedAlarm> more = ALARMS;
    more.push_back(alarm(4, "Disk", 6, 400));
    screen.show(watched(WATCHED_STATUS, more));
    EXPECT_EQ(selected(), "Slot 4");  // the newest one again
    ASSERT_TRUE(screen.press({Key::Down, ""}));
    EXPECT_EQ(selected(), "Slot 2");
    more.push_back(alarm(5, "Disk", 6, 500));
    screen.show(watched(WATCHED_STATUS, more));
    EXPECT_EQ(selected(), "Slot 2");
    screen.show(watched(WATCHED_STATUS, {ALARMS[0]}));
    EXPECT_EQ(selected(), "Slot 1");
    screen.show(watched(WATCHED_STATUS, {}));
    EXPECT_EQ(selected(), "");
    ASSERT_TRUE(screen.press({Key::Enter, ""}));
    ASSERT_TRUE(screen.press({Key::End, ""}));
    EXPECT_TRUE(has(textsOf(screen.lines(24, 80)), "ALARMS none"));
}

TEST_F(WatchTest, TheTextToSearchForIsTypedCharacterByCharacter) {
    Screen screen({}, AlarmOrder::Newest);
    screen.show(watched());
    for (const char* character : {"/", "q", "\u7AEF", "x"}) ASSERT_TRUE(screen.press({Key::Character, character}));
    EXPECT_EQ(textsOf(screen.lines(24, 10)).back(), "/q\u7AEFx_    ");
    EXPECT_EQ(textsOf(screen.lines(24, 4)).back(), "\u7AEFx_");
    EXPECT_EQ(textsOf(screen.lines(24, 3)).back(), "x_ ");
    for (int i = 0; i < 9; ++i) ASSERT_TRUE(screen.press({Key::Backspace, ""}));
    EXPECT_EQ(textsOf(screen.lines(24, 10)).back(), "/_        ");
    for (const char* character : {"F", "A"}) ASSERT_TRUE(screen.press({Key::Character, character}));
    ASSERT_TRUE(screen.press({Key::Enter, ""}));
    EXPECT_TRUE(has(textsOf(screen.lines(24, 80)), "ALARMS 1-1 of 1, newest first, with \"FA\" (3 in all)"));
    EXPECT_FALSE(screen.press({Key::Character, "q"}));
}

TEST_F(WatchTest, ChangesAreLines) {
    ChangeLines changes({});
    EXPECT_EQ(next(changes, watched()),
              std::vector<std::string>({"agent: vrx-agentd 1.2, up 1 d 2 h; backend connected, 3 (critical 1, minor 2) "
                                        "alarms active"}));
    EXPECT_EQ(next(changes, watched()), std::vector<std::string>());

    auto found = watched(WATCHED_STATUS, {ALARMS[0], alarm(4, "a\x1B[2J", 6, 9)});
    found->status["destinations"][0]["dropped"]["bad OID"] = 3;
    found->troubles = {"the backend is away"};
    EXPECT_EQ(next(changes, found),
              std::vector<std::string>({"trouble: the backend is away", "raised 4 critical a\\x1B[2J: Slot 4",
                                        "cleared 2 warning Fan: Slot 2", "cleared 3 major Disk: Slot 3",
                                        "dropped 3 (bad OID 3) traps to trap destination 1"}));

    auto away = std::make_shared<Watched>(*found);
    away->agentAwaySince = away->at;
    away->agentFault = "gone";
    EXPECT_EQ(next(changes, away), std::vector<std::string>({"agent away: gone"}));
    EXPECT_EQ(next(changes, away), std::vector<std::string>());
    found = std::make_shared<Watched>(*found);
    found->at += std::chrono::seconds(5);
    found->troubles.clear();
    EXPECT_EQ(next(changes, found),
              std::vector<std::string>({"agent back after 5 s", "trouble over: the backend is away"}));

    // Counters of another process begin at 0, also where they are higher by now.
    found = std::make_shared<Watched>(*found);
    found->status["agent"]["pid"] = 8;
    found->status["destinations"][0]["dropped"]["queue full"] = 7;
    EXPECT_EQ(next(changes, found).at(1), "dropped 10 (queue full 7, bad OID 3) traps to trap destination 1");
}

TEST_F(WatchTest, NobodyCountsAsRaisedWhatWasThereAtTheStart) {
    auto away = std::make_shared<Watched>();
    away->agentAwaySince = away->at;
    away->agentFault = "none";
    ChangeLines changes({});
    EXPECT_EQ(next(changes, away), std::vector<std::string>({"agent away: none"}));
    EXPECT_EQ(next(changes, watched()).size(), 1);
}

TEST_F(WatchTest, LatencyIsThatOfTheLastMinute) {
    const auto status = [](int pid, int below, int all) {
        return StatusJson{
            {"agent", {{"pid", pid}}},
            {"requests",
             {{{"kind", "GET"},
               {"latency",
                {{"count", all},
                 {"buckets", {{{"seconds", 0.000256}, {"count", below}}, {{"seconds", 2.0}, {"count", all}}}}}}}}}};
    };
    const RecentRequests::Time start = std::chrono::system_clock::from_time_t(1000);
    RecentRequests requests;
    EXPECT_EQ(requests.text(), "last minute: none");
    requests.add(start, status(1, 5, 500));
    EXPECT_EQ(requests.text(), "last minute: none");
    requests.add(start + std::chrono::seconds(1), status(1, 105, 600));
    EXPECT_EQ(requests.text(), "last minute: GET 100, 99 % within 0.26 ms");
    requests.add(start + std::chrono::seconds(50), status(1, 105, 602));
    EXPECT_EQ(requests.text(), "last minute: GET 102, 99 % within 2 s");
    requests.add(start + std::chrono::seconds(110), status(1, 106, 603));
    EXPECT_EQ(requests.text(), "last minute: GET 1, 99 % within 0.26 ms");
    requests.add(start + std::chrono::seconds(111), status(2, 0, 0));
    EXPECT_EQ(requests.text(), "last minute: none");
}

}  // namespace vrx
