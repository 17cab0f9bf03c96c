#include "host/notification_log/notification_codec.h"

#include <gtest/gtest.h>

#include <limits>
#include <random>
#include <string>

namespace vrx {

namespace {

using namespace std::string_literals;

SnmpValue numberValue(unsigned char type, std::uint64_t number) {
    SnmpValue value;
    value.type = type;
    value.number = number;
    return value;
}

SnmpValue octetsValue(unsigned char type, std::string octets) {
    SnmpValue value;
    value.type = type;
    value.octets = std::move(octets);
    return value;
}

SnmpValue oidValue(const OidVector& name) {
    return octetsValue(ASN_OBJECT_ID, {reinterpret_cast<const char*>(name.data()), name.size() * sizeof(oid)});
}

std::uint64_t bitsOf(int number) {
    return static_cast<std::uint64_t>(static_cast<std::int64_t>(number));
}

void expectSame(const Notification& trap, const Notification& expected) {
    EXPECT_EQ(trap.oid, expected.oid);
    ASSERT_EQ(trap.bindings.size(), expected.bindings.size());
    for (std::size_t i = 0; i < trap.bindings.size(); ++i) {
        EXPECT_EQ(trap.bindings[i].name, expected.bindings[i].name) << i;
        EXPECT_EQ(trap.bindings[i].value.type, expected.bindings[i].value.type) << i;
        EXPECT_EQ(trap.bindings[i].value.number, expected.bindings[i].value.number) << i;
        EXPECT_EQ(trap.bindings[i].value.octets, expected.bindings[i].value.octets) << i;
    }
}

Notification trapWith(const SnmpValue& value) {
    return {{1, 3, 6, 1}, {{{1, 3, 7}, value}}};
}

void expectRoundTrip(const Notification& trap) {
    const std::optional<Notification> back = trapFrom(bytesOf(trap));
    ASSERT_TRUE(back);
    expectSame(*back, trap);
}

Notification everyType() {
    const oid largest = std::numeric_limits<std::uint32_t>::max();
    return {{1, 3, 6, 1, 4, 1, 99871, largest},
            {{{1, 3, 1}, SnmpValue()},
             {{1, 3, 2}, numberValue(ASN_INTEGER, bitsOf(-5))},
             {{1, 3, 3}, numberValue(ASN_COUNTER, 7)},
             {{1, 3, 4}, numberValue(ASN_GAUGE, 300)},
             {{1, 3, 5}, numberValue(ASN_TIMETICKS, largest)},
             {{1, 3, 6}, numberValue(ASN_COUNTER64, std::numeric_limits<std::uint64_t>::max())},
             {{1, 3, 7}, octetsValue(ASN_OCTET_STR, "a\0b\xff"s)},
             {{1, 3, 8}, octetsValue(ASN_IPADDRESS, "\x7f\0\0\1"s)},
             {{1, 3, 9}, oidValue({1, 3, 6, largest})}}};
}

}  // namespace

TEST(TrapBytes, EveryTypeOfValueComesBack) {
    expectRoundTrip(everyType());
}

TEST(TrapBytes, ExtremesOfNumbersComeBack) {
    for (const int number : {std::numeric_limits<int>::min(), -1, 0, 1, 63, 64, std::numeric_limits<int>::max()}) {
        expectRoundTrip(trapWith(numberValue(ASN_INTEGER, bitsOf(number))));
    }
    for (const std::uint64_t number : {0ULL, 127ULL, 128ULL, 0xffffffffULL}) {
        expectRoundTrip(trapWith(numberValue(ASN_GAUGE, number)));
    }
    for (const std::uint64_t number : {0ULL, 1ULL << 63U, ~0ULL}) {
        expectRoundTrip(trapWith(numberValue(ASN_COUNTER64, number)));
    }
}

TEST(TrapBytes, EmptyAndLongOctetsComeBack) {
    expectRoundTrip(trapWith(octetsValue(ASN_OCTET_STR, "")));
    expectRoundTrip(trapWith(octetsValue(ASN_OCTET_STR, std::string(70000, 'x'))));
}

TEST(TrapBytes, ATrapWithoutNameOrBindingsComesBack) {
    expectRoundTrip({});
    expectRoundTrip({{1, 3}, {}});
}

TEST(TrapBytes, ANameOfTheGreatestLengthComesBack) {
    expectRoundTrip({OidVector(128, 1), {{OidVector(128, 4294967295), SnmpValue()}}});
}

TEST(TrapBytes, TheBytesAreTheSameOnEveryMachine) {
    const Notification trap{{1, 3, 300}, {{{1, 3}, numberValue(ASN_INTEGER, bitsOf(-2))}, {{1, 4}, oidValue({1, 5})}}};
    EXPECT_EQ(bytesOf(trap), "\x01\x03\x01\x03\xac\x02\x02\x02\x01\x03\x02\x03\x02\x01\x04\x06\x02\x01\x05"s);
}

TEST(TrapBytes, EveryShorterTextIsRefused) {
    const std::string bytes = bytesOf(everyType());
    for (std::size_t length = 0; length < bytes.size(); ++length) {
        // A copy of that very length: an address sanitizer sees a byte too many.
        const std::vector<char> piece(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(length));
        EXPECT_FALSE(trapFrom(std::string_view(piece.data(), piece.size()))) << length;
    }
}

TEST(TrapBytes, BytesAfterTheTrapAreRefused) {
    EXPECT_FALSE(trapFrom(bytesOf(everyType()) + "\0"s));
}

TEST(TrapBytes, AnotherVersionIsRefused) {
    std::string bytes = bytesOf(everyType());
    bytes[0] = 2;
    EXPECT_FALSE(trapFrom(bytes));
}

TEST(TrapBytes, AnUnknownTypeIsRefused) {
    EXPECT_FALSE(trapFrom("\x01\x02\x01\x03\x01\x02\x01\x03\x63"s));
}

TEST(TrapBytes, CountsBeyondTheBytesAreRefused) {
    const std::string huge = "\xff\xff\xff\xff\xff\xff\xff\xff\xff\x01"s;
    EXPECT_FALSE(trapFrom("\x01"s + huge));                                        // sub-identifiers
    EXPECT_FALSE(trapFrom("\x01\x02\x01\x03"s + huge));                            // bindings
    EXPECT_FALSE(trapFrom("\x01\x02\x01\x03\x01\x02\x01\x03\x04"s + huge));        // octets
    EXPECT_FALSE(trapFrom("\x01\x02\x01\x03\x01\x02\x01\x03\x06"s + huge));        // an object identifier
    EXPECT_FALSE(trapFrom("\x01\x02\x01\x03\x01\x02\x01\x03\x04\x05"s + "abcd"));  // one octet too few
}

TEST(TrapBytes, NumbersOfMoreThan64BitsAreRefused) {
    EXPECT_TRUE(trapFrom("\x01\x02\x01\x03\x01\x02\x01\x03\x46\xff\xff\xff\xff\xff\xff\xff\xff\xff\x01"s));
    EXPECT_FALSE(trapFrom("\x01\x02\x01\x03\x01\x02\x01\x03\x46\xff\xff\xff\xff\xff\xff\xff\xff\xff\x02"s));
    EXPECT_FALSE(trapFrom("\x01\x02\x01\x03\x01\x02\x01\x03\x46\x80\x80\x80\x80\x80\x80\x80\x80\x80\x80\x00"s));
}

TEST(TrapBytes, NumbersThatDoNotFitTheirTypeAreRefused) {
    EXPECT_FALSE(trapFrom(bytesOf(trapWith(numberValue(ASN_INTEGER, 1ULL << 31U)))));
    EXPECT_FALSE(trapFrom(bytesOf(trapWith(numberValue(ASN_COUNTER, 1ULL << 32U)))));
    EXPECT_FALSE(trapFrom(bytesOf(trapWith(numberValue(ASN_GAUGE, 1ULL << 32U)))));
    EXPECT_FALSE(trapFrom(bytesOf(trapWith(numberValue(ASN_TIMETICKS, 1ULL << 32U)))));
    EXPECT_FALSE(trapFrom(bytesOf({{1, 3, 1ULL << 32U}, {}})));
}

TEST(TrapBytes, AddressesHaveFourBytes) {
    EXPECT_FALSE(trapFrom(bytesOf(trapWith(octetsValue(ASN_IPADDRESS, "abc")))));
    EXPECT_FALSE(trapFrom(bytesOf(trapWith(octetsValue(ASN_IPADDRESS, "abcde")))));
}

TEST(TrapBytes, NamesThatNoMessageCarriesAreRefused) {
    EXPECT_FALSE(trapFrom(bytesOf({{1}, {}})));
    EXPECT_FALSE(trapFrom(bytesOf({OidVector(129, 1), {}})));
    EXPECT_FALSE(trapFrom(bytesOf({{1, 3}, {{{}, SnmpValue()}}})));
    EXPECT_FALSE(trapFrom(bytesOf({{1, 3}, {{{1}, SnmpValue()}}})));
    EXPECT_FALSE(trapFrom(bytesOf(trapWith(oidValue({1})))));
    EXPECT_FALSE(trapFrom(bytesOf(trapWith(oidValue({})))));
}

// Whatever is read is a trap that is written and read as itself again.
TEST(TrapBytes, AlteredBytesAreRefusedOrAnotherWholeTrap) {
    const std::string bytes = bytesOf(everyType());
    std::mt19937 random(1);
    int taken = 0;
    for (int round = 0; round < 20000; ++round) {
        std::string altered = bytes;
        for (int changes = 1 + static_cast<int>(random() % 3); changes > 0; --changes) {
            altered[random() % altered.size()] = static_cast<char>(random());
        }
        const std::vector<char> copy(altered.begin(), altered.end());
        if (const std::optional<Notification> trap = trapFrom({copy.data(), copy.size()})) {
            ++taken;
            expectRoundTrip(*trap);
        }
    }
    EXPECT_GT(taken, 0);
}

}  // namespace vrx
