#include "host/agent/engine/message_numbers.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace vrx {

namespace {

using Octets = std::vector<unsigned char>;

Octets element(unsigned char tag, const std::vector<Octets>& parts) {
    Octets content;
    for (const Octets& part : parts) content.insert(content.end(), part.begin(), part.end());
    Octets result = {tag, 0x82, static_cast<unsigned char>(content.size() >> 8U),
                     static_cast<unsigned char>(content.size() & 0xFFU)};
    result.insert(result.end(), content.begin(), content.end());
    return result;
}

const Octets NAME = {0x06, 0x02, 0x2B, 0x06};
const Octets ONE = {0x02, 0x01, 0x01};
const Octets TEXT = {0x04, 0x01, 'x'};
const Octets TOO_LARGE = {0x02, 0x05, 0x01, 0x00, 0x00, 0x00, 0x02};

Octets pdu(const Octets& value, const Octets& id = ONE, const Octets& status = ONE, const Octets& index = ONE) {
    const Octets first = element(0x30, {NAME, ONE});
    return element(0xA3, {id, status, index, element(0x30, {first, element(0x30, {NAME, value})})});
}

Octets message(const Octets& body, const Octets& version = ONE) {
    return element(0x30, {version, TEXT, body});
}

bool fits(const Octets& octets) {
    // Of its own, so that a sanitizer sees each octet read after it.
    const std::vector<unsigned char> exact(octets);
    return messageNumbersFit(exact.data(), exact.size());
}

bool valueFits(const Octets& value) {
    const Octets whole = element(0x30, {TEXT, TEXT, pdu(value)});
    const bool scoped = scopedPduNumbersFit(whole.data(), whole.size());
    EXPECT_EQ(fits(message(pdu(value))), scoped);
    return scoped;
}

}  // namespace

TEST(MessageNumbersTest, Integers) {
    EXPECT_TRUE(valueFits({0x02, 0x01, 0x80}));
    EXPECT_TRUE(valueFits({0x02, 0x04, 0x7F, 0xFF, 0xFF, 0xFF}));
    EXPECT_TRUE(valueFits({0x02, 0x04, 0x80, 0x00, 0x00, 0x00}));
    EXPECT_TRUE(valueFits({0x02, 0x06, 0x00, 0x00, 0x7F, 0xFF, 0xFF, 0xFF}));
    EXPECT_TRUE(valueFits({0x02, 0x06, 0xFF, 0xFF, 0x80, 0x00, 0x00, 0x00}));
    EXPECT_FALSE(valueFits({0x02, 0x05, 0x00, 0x80, 0x00, 0x00, 0x00}));
    EXPECT_FALSE(valueFits({0x02, 0x05, 0xFF, 0x7F, 0xFF, 0xFF, 0xFF}));
    EXPECT_FALSE(valueFits(TOO_LARGE));
    EXPECT_FALSE(valueFits({0x02, 0x08, 0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x06}));
}

TEST(MessageNumbersTest, UnsignedNumbers) {
    for (const unsigned char tag : Octets{0x41, 0x42, 0x43, 0x47}) {
        EXPECT_TRUE(valueFits({tag, 0x01, 0x7F}));
        EXPECT_TRUE(valueFits({tag, 0x05, 0x00, 0xFF, 0xFF, 0xFF, 0xFF}));
        EXPECT_TRUE(valueFits({tag, 0x04, 0xFF, 0xFF, 0xFF, 0xFF}));
        EXPECT_TRUE(valueFits({tag, 0x06, 0x00, 0x00, 0xFF, 0xFF, 0xFF, 0xFF}));
        EXPECT_FALSE(valueFits({tag, 0x01, 0xFF}));
        EXPECT_FALSE(valueFits({tag, 0x05, 0x01, 0x00, 0x00, 0x00, 0x02}));
        EXPECT_FALSE(valueFits({tag, 0x05, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}));
        EXPECT_FALSE(valueFits({tag, 0x09, 0x00, 0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0xA2}));
    }
}

TEST(MessageNumbersTest, OtherTypesAreOfAnySize) {
    EXPECT_TRUE(valueFits({0x04, 0x05, 0x01, 0x00, 0x00, 0x00, 0x02}));
    EXPECT_TRUE(valueFits({0x46, 0x08, 0x7F, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}));
    EXPECT_TRUE(valueFits({0x05, 0x00}));
    EXPECT_TRUE(valueFits({0x02, 0x00}));
}

TEST(MessageNumbersTest, TheFieldsOfAPdu) {
    EXPECT_TRUE(fits(message(pdu(ONE))));
    EXPECT_FALSE(fits(message(pdu(ONE, TOO_LARGE))));
    EXPECT_FALSE(fits(message(pdu(ONE, ONE, TOO_LARGE))));
    EXPECT_FALSE(fits(message(pdu(ONE, ONE, ONE, TOO_LARGE))));
    EXPECT_FALSE(fits(message(pdu(ONE), TOO_LARGE)));
}

TEST(MessageNumbersTest, AroundAScopedPdu) {
    const Octets version = {0x02, 0x01, 0x03};
    const auto of = [&](const Octets& number, const Octets& model, const Octets& boots, const Octets& seconds) {
        const Octets header = element(0x30, {number, ONE, TEXT, model});
        const Octets security = element(0x04, {element(0x30, {TEXT, boots, seconds, TEXT, TEXT, TEXT})});
        return element(0x30, {version, header, security, element(0x30, {TEXT, TEXT, pdu(TOO_LARGE)})});
    };
    EXPECT_TRUE(fits(of(ONE, ONE, ONE, ONE)));  // the scoped PDU is looked at after the security
    EXPECT_FALSE(fits(of(TOO_LARGE, ONE, ONE, ONE)));
    EXPECT_FALSE(fits(of(ONE, TOO_LARGE, ONE, ONE)));
    EXPECT_FALSE(fits(of(ONE, ONE, TOO_LARGE, ONE)));
    EXPECT_FALSE(fits(of(ONE, ONE, ONE, TOO_LARGE)));
}

TEST(MessageNumbersTest, WhatIsAfterTheMessageIsNoneOfIt) {
    Octets whole = message(pdu(ONE));
    whole.insert(whole.end(), TOO_LARGE.begin(), TOO_LARGE.end());
    EXPECT_TRUE(fits(whole));
}

TEST(MessageNumbersTest, CutAnywhereNothingIsReadAfterTheEnd) {
    const Octets whole = message(pdu(TOO_LARGE));
    for (std::size_t size = 0; size < whole.size(); ++size) {
        EXPECT_TRUE(fits(Octets(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)))) << size;
    }
    for (const Octets& odd : {Octets{0x30, 0x80}, Octets{0x30, 0x84, 0xFF, 0xFF, 0xFF, 0xFF},
                              Octets{0x30, 0x89, 1, 0, 0, 0, 0, 0, 0, 0, 0}, Octets{0x30, 0xFE}}) {
        EXPECT_TRUE(fits(odd));
    }
}

}  // namespace vrx
