#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <ctime>

#include "platform/snmp_util.h"

namespace {

class TimeConversion : public testing::Test {
protected:
    ~TimeConversion() override { setZone("UTC"); }

    static void setZone(const char* zone) {
        setenv("TZ", zone, 1);
        tzset();
    }

    static std::string octets(long seconds) {
        Snmp_pp::OctetStr out;
        CSnmpUtil::convertTime2DateTime(out, seconds);
        return {out.data(), out.data() + out.len()};
    }

    static std::string text(long seconds) {
        Snmp_pp::OctetStr out;
        CSnmpUtil::convertTime2DateTimeStr(out, seconds);
        return {out.data(), out.data() + out.len()};
    }

    static std::string bytes(std::initializer_list<int> numbers) {
        std::string made;
        for (const int number : numbers) made += static_cast<char>(number);
        return made;
    }
};

constexpr long NOON = 1700000000;  // 2023-11-14 22:13:20 UTC

TEST_F(TimeConversion, OctetsShowUniversalTime) {
    setZone("UTC");
    EXPECT_EQ(octets(NOON), bytes({0x07, 0xE7, 11, 14, 22, 13, 20, 0, '+', 0, 0}));
}

TEST_F(TimeConversion, OctetsShowLocalTimeEastOfGreenwich) {
    setZone("XST-5:30");
    EXPECT_EQ(octets(NOON), bytes({0x07, 0xE7, 11, 15, 3, 43, 20, 0, '+', 5, 30}));
}

TEST_F(TimeConversion, OctetsShowLocalTimeWestOfGreenwich) {
    setZone("XST3:30");
    EXPECT_EQ(octets(NOON), bytes({0x07, 0xE7, 11, 14, 18, 43, 20, 0, '-', 3, 30}));
}

TEST_F(TimeConversion, OffsetFollowsDaylightSavingTime) {
    setZone("CET-1CEST,M3.5.0,M10.5.0/3");
    EXPECT_EQ(text(1690000000), "2023-07-22,06:26:40.0,+02:00");
    EXPECT_EQ(text(NOON), "2023-11-14,23:13:20.0,+01:00");
}

TEST_F(TimeConversion, TextShowsUniversalTime) {
    setZone("UTC");
    EXPECT_EQ(text(NOON), "2023-11-14,22:13:20.0,+00:00");
}

TEST_F(TimeConversion, TextShowsTheZonesOffset) {
    setZone("XST3:30");
    EXPECT_EQ(text(NOON), "2023-11-14,18:43:20.0,-03:30");
}

TEST_F(TimeConversion, ZeroIsTheEpoch) {
    setZone("UTC");
    EXPECT_EQ(octets(0), bytes({0x07, 0xB2, 1, 1, 0, 0, 0, 0, '+', 0, 0}));
    EXPECT_EQ(text(0), "1970-01-01,00:00:00.0,+00:00");
}

TEST_F(TimeConversion, NegativeTimesStandBeforeTheEpoch) {
    setZone("UTC");
    EXPECT_EQ(text(-1), "1969-12-31,23:59:59.0,+00:00");
    EXPECT_EQ(octets(-1), bytes({0x07, 0xB1, 12, 31, 23, 59, 59, 0, '+', 0, 0}));
}

TEST_F(TimeConversion, LastYearOfADateAndTimeIsShown) {
    setZone("UTC");
    EXPECT_EQ(text(2005949145599), "65535-12-31,23:59:59.0,+00:00");
    EXPECT_EQ(octets(2005949145599).substr(0, 2), "\xFF\xFF");
}

TEST_F(TimeConversion, TimesThatHaveNoDateAndTimeBecomeTheEpoch) {
    setZone("UTC");
    for (const long seconds : {LONG_MAX, LONG_MIN, 2005949145600L, -62167219201L}) {
        EXPECT_EQ(text(seconds), "1970-01-01,00:00:00.0,+00:00") << seconds;
        EXPECT_EQ(octets(seconds).size(), 11U) << seconds;
    }
}

}  // namespace
