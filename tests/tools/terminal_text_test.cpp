#include "tools/terminal_text.h"

#include <gtest/gtest.h>

namespace vrx {

TEST(TerminalText, KeepsCharactersOfEveryLength) {
    const std::string text = "az ~\xC2\xA0\xDF\xBF\xE0\xA0\x80\xED\x9F\xBF\xEF\xBF\xBF\xF0\x90\x80\x80\xF4\x8F\xBF\xBF";
    EXPECT_EQ(terminalText(text), text);
    EXPECT_EQ(terminalText(""), "");
}

TEST(TerminalText, ShowsEveryControlCharacter) {
    for (unsigned int code = 0; code < 0x20; ++code) {
        const std::string shown = terminalText(std::string(1, static_cast<char>(code)));
        char expected[8];
        std::snprintf(expected, sizeof expected, "\\x%02X", code);
        EXPECT_EQ(shown, expected);
    }
    EXPECT_EQ(terminalText("a\x7F"
                           "b"),
              "a\\x7Fb");
    for (unsigned int code = 0x80; code < 0xA0; ++code) {
        char expected[16];
        std::snprintf(expected, sizeof expected, "\\xC2\\x%02X", code);
        EXPECT_EQ(terminalText(std::string("\xC2") + static_cast<char>(code)), expected);
    }
}

TEST(TerminalText, ShowsWhatWouldTurnTheRestOfTheLineAround) {
    EXPECT_EQ(terminalText("a\u202Eb\u2066c\u2028"), "a\\xE2\\x80\\xAEb\\xE2\\x81\\xA6c\\xE2\\x80\\xA8");
    const std::string harmless = "\u2027\u202F\u2065\u206A";
    EXPECT_EQ(terminalText(harmless), harmless);
}

TEST(TerminalText, ShowsWhatIsNoUtf8) {
    EXPECT_EQ(terminalText("\x9B"
                           "31m"),
              "\\x9B31m");
    EXPECT_EQ(terminalText("\xC1\x9B"), "\\xC1\\x9B");           // longer ways to write U+005B
    EXPECT_EQ(terminalText("\xE0\x82\x9B"), "\\xE0\\x82\\x9B");  // and U+009B
    EXPECT_EQ(terminalText("\xF0\x80\x82\x9B"), "\\xF0\\x80\\x82\\x9B");
    EXPECT_EQ(terminalText("\xED\xA0\x80"), "\\xED\\xA0\\x80");  // half of a pair
    EXPECT_EQ(terminalText("\xF4\x90\x80\x80"), "\\xF4\\x90\\x80\\x80");
    EXPECT_EQ(terminalText("\xE2\x82"), "\\xE2\\x82");  // cut off
    EXPECT_EQ(terminalText("\xE2\x82z"), "\\xE2\\x82z");
    EXPECT_EQ(terminalText("\xFF"), "\\xFF");
}

TEST(TerminalLines, KeepsLineEndsAndTabsAlone) {
    EXPECT_EQ(terminalLines("a\n\tb\r\x1b"), "a\n\tb\\x0D\\x1B");
}

}  // namespace vrx
