#include "host/agent/delivery/notification_fitting.h"

#include <gtest/gtest.h>

#include <random>

#include "host/notification_log/notification_subject.h"

namespace vrx {

namespace {

NotificationBinding binding(const std::string& name, unsigned char type, std::uint64_t number,
                            const std::string& octets = "") {
    NotificationBinding one;
    one.name = parseOid(name);
    one.value.type = type;
    one.value.number = number;
    one.value.octets = octets;
    return one;
}

Notification withTexts(const std::vector<std::string>& texts) {
    Notification trap;
    trap.oid = {1, 3, 6, 1, 9};
    for (const std::string& text : texts) trap.bindings.push_back(binding("1.3.6.1.9.1", ASN_OCTET_STR, 0, text));
    return trap;
}

std::vector<std::string> textsOf(const Notification& trap) {
    std::vector<std::string> texts;
    for (const NotificationBinding& one : trap.bindings) texts.push_back(one.value.octets);
    return texts;
}

std::string x(std::size_t count) {
    return std::string(count, 'x');
}

std::size_t octetsOf(const Notification& trap) {
    std::size_t octets = 0;
    for (const NotificationBinding& one : trap.bindings) octets += one.value.octets.size();
    return octets;
}

}  // namespace

TEST(FittedNotification, ThatFitsIsTheTrapItself) {
    const Notification trap = withTexts({x(100)});
    const FittedNotification fitted(trap, 200, 200);
    EXPECT_EQ(&fitted.trap(), &trap);
    EXPECT_EQ(fitted.size(), 200U);
    EXPECT_EQ(fitted.cut(), 0U);
}

TEST(FittedNotification, LosesFromItsLongestTexts) {
    const Notification trap = withTexts({x(100), x(300), x(50), x(310)});
    const FittedNotification one(trap, 1000, 999);
    EXPECT_EQ(textsOf(one.trap()), (std::vector<std::string>{x(100), x(300), x(50), x(306) + "..."}));
    EXPECT_EQ(one.size(), 999U);
    EXPECT_EQ(one.cut(), 1U);
    const FittedNotification two(trap, 1000, 790);
    EXPECT_EQ(textsOf(two.trap()), (std::vector<std::string>{x(100), x(197) + "...", x(50), x(197) + "..."}));
    EXPECT_EQ(two.size(), 790U);
    EXPECT_EQ(two.cut(), 2U);
}

TEST(FittedNotification, KeepsShortTextsWholeWhateverIsWanted) {
    const Notification trap = withTexts({x(LONGEST_WHOLE_TEXT), x(LONGEST_WHOLE_TEXT + 1), x(60000), "", x(11)});
    const FittedNotification fitted(trap, 61000, 0);
    EXPECT_EQ(textsOf(fitted.trap()), (std::vector<std::string>{x(32), x(29) + "...", x(29) + "...", "", x(11)}));
    EXPECT_EQ(fitted.size(), 61000U - 1 - (60000 - 32));
    EXPECT_EQ(fitted.cut(), 2U);
}

TEST(FittedNotification, CutsTextsOnlyAndOnlyOctetStrings) {
    Notification trap = withTexts({});
    trap.bindings.push_back(binding("1.3.6.1.9.1", ASN_COUNTER64, 7));
    trap.bindings.push_back(binding("1.3.6.1.9.1", ASN_OBJECT_ID, 0, std::string(20 * sizeof(oid), '\1')));
    const FittedNotification fitted(trap, 2000, 1000);
    EXPECT_EQ(textsOf(fitted.trap()), textsOf(trap));
    EXPECT_EQ(fitted.size(), 2000U);
}

TEST(FittedNotification, CutsBetweenTwoCharacters) {
    for (const std::string character : {"\xC3\xBC", "\xE2\x82\xAC", "\xF0\x9F\x98\x80"}) {
        std::string text;
        while (text.size() < 200) text += character;
        for (std::size_t wanted = 40; wanted < 60; ++wanted) {
            const Notification trap = withTexts({text});
            const FittedNotification fitted(trap, text.size(), wanted);
            const std::string cut = fitted.trap().bindings.front().value.octets;
            ASSERT_LE(cut.size(), wanted);
            EXPECT_GT(cut.size() + character.size(), wanted);
            EXPECT_EQ(cut.substr(cut.size() - CUT_MARK.size()), CUT_MARK);
            EXPECT_EQ((cut.size() - CUT_MARK.size()) % character.size(), 0U);
        }
    }
}

TEST(FittedNotification, TakesOctetsThatAreNoCharacters) {
    const Notification trap = withTexts({std::string(1000, '\x80')});
    const FittedNotification fitted(trap, 1000, 500);
    EXPECT_LE(fitted.size(), 500U);
    EXPECT_GE(fitted.size(), 496U);
}

TEST(FittedNotification, IsNeverLongerThanWantedUnlessAllTextsAreShort) {
    std::mt19937 random(7);  // NOLINT(cert-msc32-c,cert-msc51-cpp): the same each time
    for (int i = 0; i < 2000; ++i) {
        std::vector<std::string> texts;
        for (std::size_t n = random() % 16; n > 0; --n) texts.push_back(x(random() % (random() % 2 == 0 ? 60 : 3000)));
        const Notification trap = withTexts(texts);
        const std::size_t size = octetsOf(trap) + random() % 500;
        const std::size_t wanted = random() % (size + 2);
        const FittedNotification fitted(trap, size, wanted);
        EXPECT_EQ(size - fitted.size(), octetsOf(trap) - octetsOf(fitted.trap()));
        if (fitted.size() <= wanted) continue;
        for (const std::string& text : textsOf(fitted.trap())) EXPECT_LE(text.size(), LONGEST_WHOLE_TEXT);
    }
}

TEST(TrapSubject, IsTheAlarmOfBothKindsOfTraps) {
    for (const std::string base : {"1.3.6.1.4.1.99871.2.91.10.3.1.1", "1.3.6.1.4.1.99871.2.251.20.1.3"}) {
        Notification trap;
        trap.oid = {1, 3, 6, 1, 9};
        trap.bindings = {binding(base + ".9.0", ASN_GAUGE, 7), binding(base + ".12.0", ASN_COUNTER64, 4295229443)};
        EXPECT_EQ(subjectOf(trap), "alarm 4295229443, serial number 7");
        trap.bindings.pop_back();
        EXPECT_EQ(subjectOf(trap), "trap 1.3.6.1.9");
    }
}

}  // namespace vrx
