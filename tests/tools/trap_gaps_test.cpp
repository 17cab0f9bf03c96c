#include "tools/trap_gaps.h"

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <time.h>

#include <random>
#include <sstream>

#include "tools/gaps_command.h"

namespace vrx {

namespace {

using Strings = std::vector<std::string>;

constexpr std::time_t EPOCH = 1'800'000'000;  // start of the agent by the receiver's clock

std::string clockText(std::time_t time) {
    std::tm parts{};
    ::localtime_r(&time, &parts);
    char text[32];
    return {text, std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts)};
}

// How snmptrapd writes: with its options, and with our MIB modules or without.
struct LineStyle {
    const char* name;
    bool v1;
    bool mibs;
    bool numeric;  // -On
    bool quick;    // -OQ: no types
    bool ticks;    // -Ot
    const char* prefix = "VRX-AGENT-MIB::";
};
const LineStyle STYLES[] = {
    {"v2c", false, false, false, false, false},
    {"v2c -On", false, false, true, false, false},
    {"v2c MIBs", false, true, false, false, false},
    {"v2c MIBs -OQ", false, true, false, true, false},
    {"v2c -On -OQ -Ot", false, false, true, true, true},
    {"v1", true, false, false, false, false},
    {"v1 MIBs", true, true, false, false, false},
    {"v1 -On -OQ", true, false, true, true, false},
    {"v2c -Os", false, true, false, false, false, ""},
    {"v2c -Of", false, true, false, false, false, ".iso.org.enterprises.vrxAgentObjects.vrxAgentHeartbeats."},
};
const LineStyle& V2C = STYLES[0];

// One agent's messages to one destination, as a receiver logs them.
struct Stream {
    std::string address = "192.0.2.10";
    std::string domain = "UDP";
    unsigned int port = 40001;
    std::string engine = "80001f88ab";
    unsigned int destination = 1;
    unsigned int boots = 5;
    std::string series = "5.1";
    unsigned int number = 0;
    std::uint32_t traps = 0;
    std::time_t epoch = EPOCH;  // of the run
    std::time_t begun = EPOCH;  // of the series
    LineStyle style = V2C;

    // At so many hundredths of a second after the start.
    std::string trap(std::uint64_t ticks, const std::string& text = "Disk Failed") {
        ++traps;
        return record(ticks,
                      style.mibs ? "VRX-TAMREL-MIB::vrxAlarmNotification" : dots("1.3.6.1.4.1.99871.2.91.10.2.1.0.1"),
                      {{dots("1.3.6.1.4.1.99871.2.91.10.3.1.1.4.0"), "STRING: ", "\"" + text + "\""},
                       {dots("1.3.6.1.4.1.99871.2.91.10.3.1.1.9.0"), "Gauge32: ", std::to_string(traps)}});
    }
    std::string beat(std::uint64_t ticks) {
        const std::time_t age = epoch + static_cast<std::time_t>(ticks / 100) - begun;
        const Strings values = {"\"" + engine + "\"",
                                std::to_string(destination),
                                std::to_string(boots),
                                "\"" + series + "\"",
                                std::to_string(++number),
                                std::to_string(traps),
                                std::to_string(age),
                                "300",
                                "\"xx\""};
        const Strings types = {"STRING: ",    "Gauge32: ", "Gauge32: ", "STRING: ",    "Counter32: ",
                               "Counter32: ", "Gauge32: ", "Gauge32: ", "Hex-STRING: "};
        const Strings names = {"EngineId", "Destination", "Boots", "Series",  "Number",
                               "Traps",    "Age",         "Next",  "LastTrap"};
        std::vector<Field> fields;
        for (std::size_t i = 0; i < values.size(); ++i) {
            fields.push_back({style.mibs ? style.prefix + std::string("vrxAgentHeartbeat") + names[i] + ".0"
                                         : dots("1.3.6.1.4.1.99871.3.1.1.4." + std::to_string(i + 1) + ".0"),
                              types[i], values[i]});
        }
        return record(ticks,
                      style.mibs ? style.prefix + std::string("vrxAgentHeartbeat") : dots("1.3.6.1.4.1.99871.3.1.0.1"),
                      fields);
    }

private:
    struct Field {
        std::string name;
        std::string type;
        std::string value;
    };

    std::string dots(const std::string& oid) const { return style.numeric ? "." + oid : "iso" + oid.substr(1); }
    std::string upTime(std::uint64_t ticks) const {
        const std::uint32_t shown = static_cast<std::uint32_t>(ticks);
        if (style.ticks) return std::to_string(shown);
        const unsigned int whole = shown / 100;
        const unsigned int days = whole / 86400;
        const std::string before = style.quick ? fmt::format("{}:", days)
                                   : days > 0  ? fmt::format("{} days, ", days)
                                               : "";
        const std::string text =
            fmt::format("{}{}:{:02}:{:02}.{:02}", before, whole / 3600 % 24, whole / 60 % 60, whole % 60, shown % 100);
        if (style.quick || style.v1) return text;
        return "(" + std::to_string(shown) + ") " + text;
    }
    std::string record(std::uint64_t ticks, const std::string& oid, std::vector<Field> fields) const {
        const std::string way = domain + ": [" + address + "]:" + std::to_string(port) + "->[192.0.2.1]:162";
        std::string text = clockText(epoch + static_cast<std::time_t>(ticks / 100)) + " ";
        if (style.v1) {
            const std::size_t dot = oid.rfind('.');
            const bool isHeartbeat =
                oid.find("99871.3.1") != std::string::npos || oid.find("Heartbeat") != std::string::npos;
            std::string enterprise = style.mibs ? "VRX-AGENT-MIB::vrxAgentMIB" : oid.substr(0, dot - 2);
            if (style.mibs && !isHeartbeat) enterprise = "VRX-TAMREL-MIB::vrxAlarm";
            text += address + " [" + address + "] (via " + way + ") TRAP, SNMP v1, community public\n\t" + enterprise +
                    " Enterprise Specific Trap (1) Uptime: " + upTime(ticks) + "\n\t";
        } else {
            text += "host [" + way + "]:\n";
            fields.insert(fields.begin(), {{"DISMAN-EVENT-MIB::sysUpTimeInstance", "Timeticks: ", upTime(ticks)},
                                           {"SNMPv2-MIB::snmpTrapOID.0", "OID: ", oid}});
        }
        for (std::size_t i = 0; i < fields.size(); ++i) {
            text +=
                (i > 0 ? "\t" : "") + fields[i].name + " = " + (style.quick ? "" : fields[i].type) + fields[i].value;
        }
        return text + "\n";
    }
};

GapReport reportOf(const std::string& log, TrapGaps::By by = TrapGaps::By::Port) {
    TrapGaps gaps(by);
    TrapLogReader reader([&gaps](const LoggedTrap& trap) { gaps.add(trap); });
    std::istringstream in(log);
    EXPECT_TRUE(reader.read(in));
    return gaps.report(reader.begin());
}

// "missing/sent" of each gap.
Strings gapsOf(const std::string& log, TrapGaps::By by = TrapGaps::By::Port) {
    Strings texts;
    for (const TrapGap& gap : reportOf(log, by).gaps) {
        texts.push_back(std::to_string(gap.missing) + "/" + std::to_string(gap.sent));
    }
    return texts;
}

std::string joined(const Strings& records) {
    std::string log = "NET-SNMP version 5.9.3\n";
    for (const std::string& one : records) log += one;
    return log;
}

// Heartbeats every 10 s, and 4 traps in each interval.
Strings minute(Stream& stream, std::uint64_t from = 0) {
    Strings records;
    for (std::uint64_t i = 0; i < 6; ++i) {
        const std::uint64_t ticks = from + i * 1000;
        records.push_back(stream.beat(ticks));
        for (std::uint64_t trap = 0; trap < 4; ++trap) records.push_back(stream.trap(ticks + trap * 200));
    }
    records.push_back(stream.beat(from + 6000));
    return records;
}

bool isBeat(std::size_t record) {
    return record % 5 == 0;
}

}  // namespace

TEST(TrapGaps, EveryStyleOfTheLogIsUnderstood) {
    for (const LineStyle& style : STYLES) {
        SCOPED_TRACE(style.name);
        Stream stream;
        stream.style = style;
        Strings records = minute(stream, 400'000'000);  // 46 days
        const GapReport whole = reportOf(joined(records));
        EXPECT_EQ(whole.heartbeats, 7U);
        EXPECT_EQ(whole.sent, 24U);
        EXPECT_EQ(whole.missing, 0U);
        records.erase(records.begin() + 7, records.begin() + 9);
        const GapReport report = reportOf(joined(records));
        ASSERT_EQ(report.gaps.size(), 1U);
        EXPECT_EQ(report.gaps[0].missing, 2U);
        EXPECT_EQ(report.gaps[0].sent, 4U);
        EXPECT_EQ(report.gaps[0].from, EPOCH + 4'000'010);
        EXPECT_EQ(report.gaps[0].to, EPOCH + 4'000'020);
        EXPECT_EQ(report.gaps[0].address, "192.0.2.10");
        EXPECT_EQ(report.gaps[0].engine, "80001f88ab");
        EXPECT_EQ(report.gaps[0].destination, 1U);
    }
}

TEST(TrapGaps, IPv6AndAFormatOfOneLineAreUnderstood) {
    Stream stream;
    stream.address = "fe80::1%eth0";
    stream.domain = "UDP/IPv6";
    Strings records = minute(stream);
    records.erase(records.begin() + 7);
    const GapReport report = reportOf(joined(records));
    ASSERT_EQ(report.gaps.size(), 1U);
    EXPECT_EQ(report.gaps[0].address, "fe80::1%eth0");
    for (std::string& record : records) {  // -F '%4y-%02.2m-%02.2lT%02.2h:%02.2j:%02.2k %b\t%v\n'
        record.replace(record.find("]:\n"), 3, "\t");
        record.replace(record.find(" host ["), 7, " ");
        record[10] = 'T';
    }
    EXPECT_EQ(gapsOf(joined(records)), Strings{"1/4"});
}

TEST(TrapGaps, ALostHeartbeatMakesAnIntervalLonger) {
    Stream stream;
    Strings records = minute(stream);
    records.erase(records.begin() + 10, records.begin() + 13);  // a heartbeat and the two traps after it
    EXPECT_EQ(gapsOf(joined(records)), Strings{"2/8"});
}

TEST(TrapGaps, WithoutTheFirstHeartbeatTheLogsBeginDecides) {
    Stream stream;
    const Strings records = minute(stream);
    const Strings rest(records.begin() + 2, records.end());  // the first heartbeat and a trap are lost
    const std::string early = clockText(EPOCH - 100) + " host [UDP: [192.0.2.99]:1->[192.0.2.1]:162]:\nx = 1\ty = 2\n";
    EXPECT_EQ(gapsOf(early + joined(rest)), Strings{"1/4"});
    EXPECT_EQ(gapsOf(joined(rest)), Strings{});  // it was rotated, perhaps
    Stream old;
    old.begun = EPOCH - 1000;  // before all that is in the log
    old.traps = 700;
    old.number = 70;
    EXPECT_EQ(gapsOf(early + joined(minute(old))), Strings{});
}

TEST(TrapGaps, TheOrderOfArrivalDoesNotMatter) {
    std::mt19937 random(4711);
    for (int i = 0; i < 200; ++i) {
        Stream stream;
        Strings records = minute(stream);
        std::shuffle(records.begin(), records.end(), random);
        EXPECT_EQ(gapsOf(joined(records)), Strings{});
    }
}

TEST(TrapGaps, WhatCameTwiceCountsOnce) {
    Stream stream;
    Strings records = minute(stream);
    Strings doubled;
    for (const std::string& one : records) doubled.insert(doubled.end(), {one, one});
    EXPECT_EQ(gapsOf(joined(doubled)), Strings{});
    doubled.erase(doubled.begin() + 12, doubled.begin() + 14);  // both of a trap
    EXPECT_EQ(gapsOf(joined(doubled)), Strings{"1/4"});
}

TEST(TrapGaps, ARunThatEndedInOrderGoesOn) {
    Stream stream;
    Strings records = minute(stream);
    stream.boots = 6;
    stream.port = 40002;
    stream.epoch = EPOCH + 90;
    const Strings second = minute(stream);
    records.insert(records.end(), second.begin(), second.end());
    EXPECT_EQ(gapsOf(joined(records)), Strings{});
    // The last trap and heartbeat of the first run, and the first heartbeat and trap of the second.
    Strings lossy = records;
    lossy.erase(lossy.begin() + 29, lossy.begin() + 33);
    EXPECT_EQ(gapsOf(joined(lossy)), Strings{"2/8"});
}

TEST(TrapGaps, ACrashBeginsASeriesAndClaimsNothing) {
    Stream stream;
    Strings records = minute(stream);
    records.pop_back();
    Stream next;
    next.boots = 6;
    next.series = "6.1";
    next.epoch = next.begun = EPOCH + 60;
    const Strings second = minute(next);
    records.insert(records.end(), second.begin() + 1, second.end());  // the same port, and its first heartbeat lost
    EXPECT_EQ(gapsOf(joined(records)), Strings{});
    records.erase(records.begin() + 32);
    EXPECT_EQ(gapsOf(joined(records)), Strings{"1/4"});
}

TEST(TrapGaps, AgentsAndDestinationsInOneLogAreToldApart) {
    Stream streams[4];
    streams[1].port = 40002;  // of the same agent
    streams[1].destination = 2;
    streams[2].port = 40003;  // another one, behind the same address
    streams[2].engine = "80001f88cd";
    streams[3].address = "192.0.2.11";
    streams[3].engine = "80001f88ef";
    Strings records;
    for (Stream& stream : streams) {
        Strings its = minute(stream);
        if (&stream == &streams[1]) its.erase(its.begin() + 1);
        if (&stream == &streams[3]) its.erase(its.begin() + 11, its.begin() + 14);
        records.insert(records.end(), its.begin(), its.end());
    }
    const GapReport report = reportOf(joined(records));
    ASSERT_EQ(report.gaps.size(), 2U);
    EXPECT_EQ(report.gaps[0].destination, 2U);
    EXPECT_EQ(report.gaps[0].missing, 1U);
    EXPECT_EQ(report.gaps[1].address, "192.0.2.11");
    EXPECT_EQ(report.gaps[1].missing, 3U);
    EXPECT_EQ(report.sent, 96U);
}

TEST(TrapGaps, APortThatChangesOnTheWayNeedsTheAddress) {
    Stream stream;
    Strings records = minute(stream);
    for (std::size_t i = 0; i < records.size(); ++i) {
        if (isBeat(i)) continue;
        records[i].replace(records[i].find("]:40001"), 7, "]:50001");
    }
    const std::string log = joined(records);
    EXPECT_EQ(reportOf(log).missing, 24U);
    EXPECT_EQ(reportOf(log).unassigned, 24U);
    EXPECT_EQ(gapsOf(log, TrapGaps::By::Address), Strings{});
    Stream other;
    other.destination = 2;
    other.port = 40002;
    EXPECT_EQ(reportOf(log + joined(minute(other)), TrapGaps::By::Address).shared, std::set<std::string>{"192.0.2.10"});
}

// As one that passes them on makes it look.
TEST(TrapGaps, DestinationsThatShareAPortAreNotCompared) {
    Stream streams[2];
    streams[1].destination = 2;
    std::string log;
    for (std::uint64_t i = 0; i < 2; ++i) {
        for (Stream& stream : streams) log += stream.beat(1000 + i) + stream.trap(2000 + i);
    }
    const GapReport report = reportOf(log);
    EXPECT_EQ(report.shared, std::set<std::string>{"192.0.2.10 port 40001"});
    EXPECT_EQ(report.missing, 0U);
    // One after the other: the port was used again.
    Stream first;
    Stream second;
    second.destination = 2;
    second.boots = 6;
    second.epoch = second.begun = EPOCH + 60;
    EXPECT_EQ(gapsOf(joined(minute(first)) + joined(minute(second))), Strings{});
}

TEST(TrapGaps, CountersAndUpTimeWrap) {
    Stream stream;
    stream.traps = 4'294'967'290U;
    Strings records = minute(stream, 4'294'967'296 - 3000);  // of sysUpTime, in the middle
    EXPECT_EQ(gapsOf(joined(records)), Strings{});
    records.erase(records.begin() + 21);
    records.erase(records.begin() + 6);
    EXPECT_EQ(gapsOf(joined(records)), (Strings{"1/4", "1/4"}));
}

TEST(TrapGaps, ExactlyWhatWasLostIsMissing) {
    std::mt19937 random(20261122);
    for (int i = 0; i < 500; ++i) {
        Stream stream;
        const Strings records = minute(stream);
        Strings arrived;
        std::uint64_t lost = 0;
        const auto share = random() % 100;
        for (std::size_t at = 0; at < records.size(); ++at) {
            const bool isEnd = at == 0 || at + 1 == records.size();
            if (isEnd || random() % 100 >= share) {
                arrived.push_back(records[at]);
            } else if (!isBeat(at)) {
                ++lost;
            }
        }
        const GapReport report = reportOf(joined(arrived));
        EXPECT_EQ(report.missing, lost);
        EXPECT_EQ(report.sent, 24U);
    }
}

// What the log of a receiver may hold besides.

TEST(TrapLog, TextsWithLinesTabsAndHeartbeatsOfTheirOwnAreTexts) {
    Stream stream;
    Strings records = {stream.beat(100)};
    Stream forged;
    forged.traps = 99;
    const std::string beat = forged.beat(150);
    records.push_back(stream.trap(200, "a\nb\tc\n\nd = \"e\""));
    records.push_back(stream.trap(201, "x\t" + beat.substr(beat.find('\n') + 1)));
    records.push_back(stream.beat(300));
    const GapReport report = reportOf(joined(records));
    EXPECT_EQ(report.heartbeats, 2U);
    EXPECT_EQ(report.sent, 2U);
    EXPECT_EQ(report.missing, 0U);
}

TEST(TrapLog, LinesOfTheReceiverItselfAreNoPartOfATrap) {
    Stream stream;
    Strings records = minute(stream);
    const std::string again = records[12];
    records[12] += "\n" + clockText(EPOCH + 50) +
                   " NET-SNMP version 5.9.3 Stopped.\nStopping snmptrapd\n\nNET-SNMP version 5.9.3\n";
    records.push_back(again);  // the same trap once more
    records.erase(records.begin() + 13);
    EXPECT_EQ(gapsOf(joined(records)), Strings{"1/4"});
}

TEST(TrapLog, OneThatIsCutOffAnywhereIsRead) {
    Stream stream;
    const Strings records = minute(stream);
    std::string log;
    for (std::size_t i = 0; i <= 10; ++i) log += records[i];
    for (std::size_t cut = 0; cut < log.size(); ++cut) {
        const GapReport tail = reportOf(log.substr(cut));
        EXPECT_EQ(tail.missing, 0U) << cut;
        // A heartbeat that is not there whole is none. Cut within the digits of its numbers, it is: the log's writer
        // was not done, or the next part has the rest.
        (void)reportOf(log.substr(0, cut));
    }
}

TEST(TrapLog, RubbishIsRead) {
    std::mt19937 random(7);
    Stream stream;
    const std::string log = joined(minute(stream));
    for (int i = 0; i < 300; ++i) {
        std::string bytes(3000, '\0');
        for (char& byte : bytes) byte = static_cast<char>(random());
        EXPECT_EQ(reportOf(bytes).heartbeats, 0U);
        std::string damaged = log;
        for (int n = 0; n < 20; ++n) damaged[random() % damaged.size()] = static_cast<char>(random());
        (void)reportOf(damaged);
    }
    const std::string longLine(3'000'000, 'x');
    EXPECT_EQ(reportOf(longLine + "\n" + log + longLine + "\n").missing, 0U);
    const std::string header = clockText(EPOCH) + " host [UDP: [192.0.2.10]:1->[192.0.2.1]:162]:\n";
    EXPECT_EQ(reportOf(header + longLine + "\n" + header).heartbeats, 0U);
}

TEST(TrapLog, TimesThatAreNoneAreNoTimes) {
    EXPECT_EQ(ticksOf("(123456) 0:20:34.56"), 123456U);
    EXPECT_EQ(ticksOf("0:20:34.56"), 123456U);
    EXPECT_EQ(ticksOf("0:0:20:34.56"), 123456U);
    EXPECT_EQ(ticksOf("1 day, 0:00:00.01"), 8640001U);
    EXPECT_EQ(ticksOf("497 days, 2:27:52.95"), 4294967295U);
    EXPECT_EQ(ticksOf("497 days, 2:27:52.96"), std::nullopt);
    EXPECT_EQ(ticksOf("4294967295"), 4294967295U);
    for (const char* text : {"", "(", "()", "(x)", "(123", "1:2:3:4:5:6.7", "1:2", "0:20:34", ":::.", "days, 1:2:3.4",
                             "-1", "99999999999999999999:1:1.1", "(4294967296)", "x"}) {
        EXPECT_EQ(ticksOf(text), std::nullopt) << text;
    }
}

TEST(TrapGaps, TheyAreShownByLineAndAsJson) {
    Stream stream;
    Strings records = minute(stream);
    records.erase(records.begin() + 7, records.begin() + 9);
    const GapReport report = reportOf(joined(records));
    std::ostringstream out;
    printGaps(out, report);
    EXPECT_EQ(out.str(), "FROM                 TO                   AGENT       DESTINATION  MISSING  OF\n" +
                             clockText(EPOCH + 10) + "  " + clockText(EPOCH + 20) +
                             "  192.0.2.10            1        2  4\n2 of 24 traps are missing\n");
    std::ostringstream json;
    printGapsAsJson(json, report);
    for (const char* part : {"\"missing\": 2", "\"sent\": 24", "\"engine\": \"80001f88ab\"", "\"heartbeats\": 7",
                             "\"from\": \"2027-01-15T08:00:10Z\""}) {
        EXPECT_NE(json.str().find(part), std::string::npos) << json.str();
    }
    std::ostringstream none;
    printGaps(none, reportOf(joined(minute(stream))));
    EXPECT_EQ(none.str(), "none of 24 traps is missing\n");
}

}  // namespace vrx
