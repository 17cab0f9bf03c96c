#include "tools/trap_commands.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <nlohmann/json.hpp>
#include <sstream>
#include <stdexcept>

#include "host/base/product_root.h"
#include "host/notification_log/notification_codec.h"
#include "tools/agent_call.h"

namespace vrx {

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::system_clock;
using testing::HasSubstr;

SnmpValue value(unsigned char type, std::uint64_t number, std::string octets = "") {
    SnmpValue value;
    value.type = type;
    value.number = number;
    value.octets = std::move(octets);
    return value;
}

SnmpValue oidValue(const OidVector& name) {
    return value(ASN_OBJECT_ID, 0, {reinterpret_cast<const char*>(name.data()), name.size() * sizeof(oid)});
}

OidVector commonName(oid number) {
    return parseOid("1.3.6.1.4.1.99871.2.91.10.3.1.1." + std::to_string(number) + ".0");
}

// A root of its own with three entries, in a zone of its own.
class TrapCommands : public testing::Test {
protected:
    void SetUp() override {
        ::setenv("TZ", "UTC-1", 1);
        ::tzset();
        std::string name = (std::filesystem::temp_directory_path() / "traps-XXXXXX").string();
        ASSERT_NE(::mkdtemp(name.data()), nullptr);
        m_root = name;
        setProductRoot(m_root);
        std::filesystem::create_directory(m_root + "/state");
    }
    void TearDown() override {
        std::filesystem::remove_all(m_root);
        ::unsetenv("TZ");
        ::tzset();
    }
    std::string path() const { return m_root + "/state/notification_log.db"; }

    void write(std::vector<LoggedNotification> entries) const { NotificationLogFile(path()).append(entries, 100); }

    void writeThree() const {
        LoggedNotification first;
        first.time = system_clock::time_point(seconds(1'700'000'000) + milliseconds(7));
        first.sequence = 11;
        first.alarmId = 4295229443;
        first.serial = 5;
        first.level = 5;
        first.trapOid = "1.3.6.1.4.1.99871.2.91.10.2.1.0.1";
        first.trap = bytesOf({{1, 3, 6, 1, 9},
                              {{commonName(4), value(ASN_OCTET_STR, 0, "Power loss")},
                               {commonName(10), value(ASN_OCTET_STR, 0, "No power\nat all")}}});
        first.destinations = {"1", "3"};
        LoggedNotification second = first;
        second.time += seconds(60);
        second.raised = false;
        second.trapOid = "1.3.6.1.4.1.99871.2.91.10.2.1.1.0.403";
        second.level.reset();
        second.because = SentBecause::Held;
        second.destinations = {"3"};
        second.trap = bytesOf({{1, 3, 6, 1, 9}, {{commonName(4), value(ASN_OCTET_STR, 0, "Power loss")}}});
        LoggedNotification third = first;
        third.time += seconds(120);
        third.because = SentBecause::Asked;
        third.again = 1;
        third.trapOid = "1.3.6.1.9";
        third.destinations = {"1"};
        write({first, second, third});
    }

    template <typename Print>
    static std::string printed(const Print& print) {
        std::ostringstream out;
        print(out);
        return out.str();
    }
    static std::string listed(const NotificationLogFilter& filter = {}) {
        return printed([&](std::ostream& out) { printTraps(out, filter); });
    }

    std::string m_root;
};

const char* const HEAD =
    "  NUMBER  TIME                                 ALARM ID  KIND   LEVEL     TRAP    DESTINATIONS  TEXT\n";

}  // namespace

TEST_F(TrapCommands, TheTableHasALineForEachTrapNewestLast) {
    writeThree();
    EXPECT_EQ(
        listed(),
        std::string(HEAD) +
            "       1  2023-11-14 23:13:20.007            4295229443  raise  major     common  1,3           No power "
            "at all\n"
            "       2  2023-11-14 23:14:20.007            4295229443  clear  -         own     3             Power "
            "loss "
            "(held while the alarm flapped)\n"
            "       3  2023-11-14 23:15:20.007            4295229443  raise  major     other   1             No power "
            "at all (entry 1 again)\n");
}

TEST_F(TrapCommands, FiltersChoose) {
    writeThree();
    NotificationLogFilter filter;
    filter.raised = false;
    EXPECT_EQ(listed(filter),
              std::string(HEAD) +
                  "       2  2023-11-14 23:14:20.007            4295229443  clear  -         own     3             "
                  "Power loss (held while the alarm flapped)\n");
    filter.destination = "1";
    EXPECT_EQ(listed(filter), "no such traps\n");
}

TEST_F(TrapCommands, JsonHasAllBindings) {
    writeThree();
    const auto list = nlohmann::json::parse(printed([](std::ostream& out) { printTrapsAsJson(out, {}); }));
    ASSERT_EQ(list.size(), 3U);
    EXPECT_EQ(list[0], nlohmann::json::parse(R"({
        "number": 1, "time": "2023-11-14T22:13:20.007Z", "event": 11, "alarmId": 4295229443, "serial": 5,
        "kind": "raise", "level": 5, "levelName": "major", "trapOid": "1.3.6.1.4.1.99871.2.91.10.2.1.0.1", "trap": "common", "destinations": ["1", "3"], "held": false, "again": null,
        "text": "No power at all", "bindings": [
            {"name": "1.3.6.1.4.1.99871.2.91.10.3.1.1.4.0", "type": "STRING", "value": "Power loss"},
            {"name": "1.3.6.1.4.1.99871.2.91.10.3.1.1.10.0", "type": "STRING", "value": "No power\nat all"}]})"));
    EXPECT_EQ(list[1]["level"], nullptr);
    EXPECT_EQ(list[1]["levelName"], nullptr);
    EXPECT_EQ(list[1]["trap"], "own");
    EXPECT_EQ(list[2]["trap"], "other");
    EXPECT_EQ(list[1]["held"], true);
    EXPECT_EQ(list[2]["again"], 1);
    EXPECT_EQ(nlohmann::json::parse(printed([](std::ostream& out) { printTrapAsJson(out, 2); })), list[1]);
}

TEST_F(TrapCommands, AnEmptyLogIsAnEmptyList) {
    write({});
    EXPECT_EQ(listed(), "no such traps\n");
    EXPECT_EQ(printed([](std::ostream& out) { printTrapsAsJson(out, {}); }), "[\n]\n");
}

TEST_F(TrapCommands, ShowHasEveryTypeOfValue) {
    LoggedNotification entry;
    entry.time = system_clock::time_point(seconds(1'700'000'000));
    entry.sequence = 1;
    entry.alarmId = 7;
    entry.serial = 2;
    entry.trapOid = "1.3.6";
    entry.destinations = {"1"};
    entry.trap = bytesOf({{1, 3, 6},
                          {{{1, 3, 1}, value(ASN_NULL, 0)},
                           {{1, 3, 2}, value(ASN_INTEGER, static_cast<std::uint64_t>(-5))},
                           {{1, 3, 3}, value(ASN_GAUGE, 4294967295)},
                           {{1, 3, 4}, value(ASN_COUNTER, 1)},
                           {{1, 3, 5}, value(ASN_TIMETICKS, 2)},
                           {{1, 3, 6}, value(ASN_COUNTER64, 0xffffffffffffffff)},
                           {{1, 3, 7}, value(ASN_IPADDRESS, 0, "\x7f\x01\x02\xff")},
                           {{1, 3, 8}, oidValue({1, 3, 6, 4294967295})},
                           {{1, 3, 9}, value(ASN_OCTET_STR, 0, "grün")},
                           {{1, 3, 10}, value(ASN_OCTET_STR, 0, "\x07\xe9")},
                           {{1, 3, 11}, value(ASN_OCTET_STR, 0, "\x1b[31mred")},
                           {{1, 3, 12},
                            value(ASN_OCTET_STR, 0,
                                  "\xC2\x9B"
                                  "31mred")},
                           {{1, 3, 13}, value(ASN_OCTET_STR, 0, "one\r\n\ttwo")}}});
    write({entry});
    EXPECT_EQ(printed([](std::ostream& out) { printTrap(out, 1); }),
              "number        1\n"
              "time          2023-11-14 23:13:20.000\n"
              "alarm ID      7\n"
              "serial        2\n"
              "kind          raise\n"
              "level         -\n"
              "event         1\n"
              "trap          1.3.6 (other)\n"
              "destinations  1\n"
              "bindings\n"
              "  1.3.1 = NULL: \n"
              "  1.3.2 = INTEGER: -5\n"
              "  1.3.3 = Gauge32: 4294967295\n"
              "  1.3.4 = Counter32: 1\n"
              "  1.3.5 = TimeTicks: 2\n"
              "  1.3.6 = Counter64: 18446744073709551615\n"
              "  1.3.7 = IpAddress: 127.1.2.255\n"
              "  1.3.8 = OID: 1.3.6.4294967295\n"
              "  1.3.9 = STRING: grün\n"
              "  1.3.10 = STRING: 0x07e9\n"
              "  1.3.11 = STRING: 0x1b5b33316d726564\n"
              "  1.3.12 = STRING: 0xc29b33316d726564\n"
              "  1.3.13 = STRING: one\\x0D\n\ttwo\n");
}

TEST_F(TrapCommands, TheTableLetsNoControlCharacterOfATextThrough) {
    LoggedNotification entry;
    entry.destinations = {"1"};
    entry.trap = bytesOf({{1, 3, 6},
                          {{commonName(10), value(ASN_OCTET_STR, 0,
                                                  "a\x1b[2Jb\r\nc\xC2\x9B"
                                                  "31md")}}});
    write({entry});
    EXPECT_THAT(listed(), HasSubstr("  a\\x1B[2Jb  c\\xC2\\x9B31md\n"));
}

TEST_F(TrapCommands, AnEntryThatIsNotThereIsAnError) {
    writeThree();
    std::ostringstream out;
    try {
        printTrap(out, 4);
        FAIL();
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "the notification log has no entry 4");
    }
}

TEST_F(TrapCommands, AnEntryWhoseTrapIsDamagedIsListedAndToldOf) {
    LoggedNotification entry;
    entry.trap = "garbage";
    entry.destinations = {"1"};
    write({entry});
    EXPECT_THAT(listed(), HasSubstr("(cannot be read)"));
    std::ostringstream out;
    EXPECT_THROW(printTrap(out, 1), std::runtime_error);
}

TEST_F(TrapCommands, WithoutALogThePathIsTold) {
    try {
        listed();
        FAIL();
    } catch (const std::runtime_error& error) {
        EXPECT_THAT(error.what(), HasSubstr(path()));
    }
}

TEST_F(TrapCommands, SendingAgainNeedsTheAgent) {
    writeThree();
    std::ostringstream out;
    EXPECT_THROW(resendTrap(out, 1, ""), AgentAwayError);
}

TEST_F(TrapCommands, MomentsAreReadAsPeopleWriteThem) {
    const system_clock::time_point now(seconds(1'700'000'000));
    const auto secondsOf = [now](const char* text) {
        return std::chrono::duration_cast<seconds>(momentOf(text, now).time_since_epoch()).count();
    };
    EXPECT_EQ(secondsOf("2023-11-14"), 1'699'916'400);  // midnight here
    EXPECT_EQ(secondsOf("2023-11-14 23:13"), 1'699'999'980);
    EXPECT_EQ(secondsOf("2023-11-14T23:13"), 1'699'999'980);
    EXPECT_EQ(secondsOf("2023-11-14 23:13:20"), 1'700'000'000);
    EXPECT_EQ(secondsOf("2023-11-14T23:13:20"), 1'700'000'000);
    EXPECT_EQ(secondsOf("2023-11-14T22:13:20Z"), 1'700'000'000);
    EXPECT_EQ(secondsOf("@1700000001"), 1'700'000'001);
    EXPECT_EQ(secondsOf("90s"), 1'699'999'910);
    EXPECT_EQ(secondsOf("15m"), 1'699'999'100);
    EXPECT_EQ(secondsOf("2h"), 1'699'992'800);
    EXPECT_EQ(secondsOf("3d"), 1'699'740'800);
}

TEST_F(TrapCommands, WhatIsNoMomentIsRefusedWithItsText) {
    for (const char* text : {"", "soon", "@", "@x", "m", "-5m", "5x", "2023-11-14 ", "2023-13-14", "2023-11-14 25:00",
                             "2023-11-14Q10:00", "999999999999999999999d", "99999999d", "@99999999999999"}) {
        try {
            momentOf(text, system_clock::now());
            ADD_FAILURE() << text;
        } catch (const std::invalid_argument& error) {
            EXPECT_THAT(error.what(), HasSubstr("\"" + std::string(text) + "\" is no time"));
        }
    }
}

}  // namespace vrx
