#include "tools/trap_stream.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

namespace vrx {

namespace {

using nlohmann::json;
using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::system_clock;
using testing::ElementsAre;

class TrapStreamTest : public testing::Test {
protected:
    void SetUp() override {
        std::string name = (std::filesystem::temp_directory_path() / "stream-XXXXXX").string();
        ASSERT_NE(::mkdtemp(name.data()), nullptr);
        m_folder = name;
        m_options.path = m_folder + "/log.db";
        m_options.format = TrapStreamFormat::Json;
    }
    void TearDown() override { std::filesystem::remove_all(m_folder); }

    // Entries with ascending serial numbers; those with an even one are ends.
    void write(std::size_t count, std::uint64_t kept = 1000) {
        std::vector<LoggedNotification> entries(count);
        for (LoggedNotification& entry : entries) {
            entry.serial = ++m_serial;
            entry.raised = m_serial % 2 == 1;
            entry.time = system_clock::time_point(seconds(1'700'000'000) + milliseconds(m_serial));
            entry.destinations = {"1"};
        }
        NotificationLogFile(m_options.path).append(entries, kept);
    }
    void deleteLog() {
        for (const char* end : {"", "-wal", "-shm"}) std::filesystem::remove(m_options.path + end);
    }

    static std::vector<json> documents(const std::string& lines) {
        std::vector<json> all;
        std::istringstream in(lines);
        for (std::string line; std::getline(in, line);) all.push_back(json::parse(line));
        return all;
    }
    // "5" for the notification of number 5, "gap 3 after 0" and "new log after 7".
    static std::vector<std::string> told(const std::string& lines) {
        std::vector<std::string> all;
        for (const json& line : documents(lines)) {
            EXPECT_EQ(line["schema"], "vrx-traps/1");
            if (line["type"] == "notification") {
                all.push_back(line["number"].dump());
            } else if (line["type"] == "gap") {
                all.push_back("gap " + line["gone"].dump() + " after " + line["after"].dump());
                EXPECT_EQ(line["next"].get<int>(), line["after"].get<int>() + line["gone"].get<int>() + 1);
            } else {
                EXPECT_EQ(line["type"], "new-log");
                all.push_back("new log after " + line["after"].dump());
            }
        }
        return all;
    }

    std::string m_folder;
    TrapStreamOptions m_options;
    std::uint32_t m_serial = 0;
};

}  // namespace

TEST_F(TrapStreamTest, TellsWhatComesFromNowOn) {
    write(2);
    TrapStream stream(m_options);
    EXPECT_EQ(stream.next(), "");
    write(2);
    EXPECT_THAT(told(stream.next()), ElementsAre("3", "4"));
    EXPECT_EQ(stream.next(), "");
    write(1);
    EXPECT_THAT(told(stream.next()), ElementsAre("5"));
}

TEST_F(TrapStreamTest, BeginsAfterTheNumberThatTheReaderHasKept) {
    write(5);
    m_options.after = 3;
    EXPECT_THAT(told(TrapStream(m_options).next()), ElementsAre("4", "5"));
    m_options.after = 5;
    EXPECT_EQ(TrapStream(m_options).next(), "");
    m_options.after = 0;
    EXPECT_THAT(told(TrapStream(m_options).next()), ElementsAre("1", "2", "3", "4", "5"));
}

TEST_F(TrapStreamTest, WaitsForALogAndTellsAllOfIt) {
    TrapStream stream(m_options);
    EXPECT_EQ(stream.next(), "");
    write(1);
    EXPECT_THAT(told(stream.next()), ElementsAre("1"));
}

TEST_F(TrapStreamTest, ALogThatIsBeingMadeIsWaitedFor) {
    std::ofstream(m_options.path).flush();
    TrapStream stream(m_options);
    EXPECT_EQ(stream.next(), "");
    write(1);
    EXPECT_THAT(told(stream.next()), ElementsAre("1"));
}

TEST_F(TrapStreamTest, TellsHowManyEntriesAreGone) {
    write(10, 3);
    m_options.after = 2;
    TrapStream stream(m_options);
    EXPECT_THAT(told(stream.next()), ElementsAre("gap 5 after 2", "8", "9", "10"));
    write(9, 3);
    EXPECT_THAT(told(stream.next()), ElementsAre("gap 6 after 10", "17", "18", "19"));
    EXPECT_EQ(stream.next(), "");
}

TEST_F(TrapStreamTest, AFilterLeavesNoGaps) {
    write(6);
    m_options.after = 0;
    m_options.filter.raised = true;
    TrapStream stream(m_options);
    EXPECT_THAT(told(stream.next()), ElementsAre("1", "3", "5"));
    write(2);
    EXPECT_THAT(told(stream.next()), ElementsAre("7"));
}

TEST_F(TrapStreamTest, BeginsWithTheLastOnes) {
    write(6);
    m_options.filter.last = 2;
    TrapStream stream(m_options);
    EXPECT_THAT(told(stream.next()), ElementsAre("5", "6"));
    write(1);
    EXPECT_THAT(told(stream.next()), ElementsAre("7"));
}

TEST_F(TrapStreamTest, BeginsAtATime) {
    write(4);
    m_options.filter.since = system_clock::time_point(seconds(1'700'000'000) + milliseconds(3));
    EXPECT_THAT(told(TrapStream(m_options).next()), ElementsAre("3", "4"));
}

TEST_F(TrapStreamTest, ALongLogComesInPiecesWithoutLossOrRepetition) {
    write(1203, 2000);
    m_options.after = 0;
    TrapStream stream(m_options);
    std::uint64_t last = 0;
    for (std::string lines = stream.next(); !lines.empty(); lines = stream.next()) {
        for (const json& line : documents(lines)) EXPECT_EQ(line["number"], ++last);
    }
    EXPECT_EQ(last, 1203U);
}

TEST_F(TrapStreamTest, AnotherLogIsTakenFromItsBeginningWhenTheOldOneIsRead) {
    write(3);
    m_options.after = 1;
    TrapStream stream(m_options);
    EXPECT_THAT(told(stream.next()), ElementsAre("2", "3"));
    write(1);
    deleteLog();
    EXPECT_THAT(told(stream.next()), ElementsAre("4"));  // the file that was open still has it
    write(2);
    EXPECT_THAT(told(stream.next()), ElementsAre("new log after 4", "1", "2"));
}

TEST_F(TrapStreamTest, ALogThatNeverCameSoFarIsAnotherOne) {
    write(2);
    m_options.after = 4711;
    EXPECT_THAT(told(TrapStream(m_options).next()), ElementsAre("new log after 4711", "1", "2"));
}

TEST_F(TrapStreamTest, AFileThatIsNoLogIsAnErrorAndTriedAgain) {
    std::ofstream(m_options.path) << "no database, but longer than the header that SQLite looks for: "
                                  << std::string(100, 'x');
    m_options.after = 0;
    TrapStream stream(m_options);
    EXPECT_THROW(stream.next(), SqliteError);
    deleteLog();
    write(1);
    EXPECT_THAT(told(stream.next()), ElementsAre("1"));
}

TEST_F(TrapStreamTest, CloudEventsHaveTheirAttributes) {
    write(3, 2);
    m_options.after = 0;
    m_options.format = TrapStreamFormat::CloudEvents;
    m_options.source = "urn:array:7";
    const std::vector<json> events = documents(TrapStream(m_options).next());
    ASSERT_EQ(events.size(), 3U);
    for (const json& event : events) {
        EXPECT_EQ(event["specversion"], "1.0");
        EXPECT_EQ(event["source"], "urn:array:7");
        EXPECT_EQ(event["datacontenttype"], "application/json");
        EXPECT_EQ(event["data"]["schema"], "vrx-traps/1");
    }
    EXPECT_EQ(events[0]["type"], "vrx.notification.gap");
    EXPECT_EQ(events[0]["id"], "gap-0-2");
    EXPECT_EQ(events[1]["type"], "vrx.notification.clear");
    EXPECT_EQ(events[1]["time"], "2023-11-14T22:13:20.002Z");
    EXPECT_EQ(events[1]["subject"], "2");
    EXPECT_EQ(events[1]["data"]["number"], 2);
    EXPECT_EQ(events[2]["type"], "vrx.notification.raise");
    EXPECT_NE(events[1]["id"], events[2]["id"]);
}

TEST_F(TrapStreamTest, APersonSeesTheRowsOfTheTable) {
    write(3, 1);
    m_options.after = 1;
    m_options.format = TrapStreamFormat::Table;
    const std::string lines = TrapStream(m_options).next();
    EXPECT_EQ(lines.substr(0, lines.find('\n')), "(1 entries before number 3 are no longer in the log)");
    EXPECT_EQ(lines.substr(lines.find('\n') + 1, 8), "       3");
}

}  // namespace vrx
