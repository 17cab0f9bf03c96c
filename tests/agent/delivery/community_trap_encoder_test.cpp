// The library's encoder is the reference.
#include "host/agent/delivery/community_trap_encoder.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "host/agent/delivery/notification_pdu.h"

namespace vrx {

namespace {

constexpr const char* COMMUNITY = "a community of some length";
constexpr std::size_t ROOM = 65507;

// What the library makes of a PDU.
std::string built(netsnmp_pdu& pdu, long version, std::string community) {
    netsnmp_session session;
    snmp_sess_init(&session);
    session.version = version;
    session.community = reinterpret_cast<u_char*>(community.data());
    session.community_len = community.size();
    pdu.version = version;
    std::size_t size = ROOM;
    auto* packet = static_cast<u_char*>(std::malloc(size));
    std::size_t written = 0;
    EXPECT_EQ(snmp_build(&packet, &size, &written, &session, &pdu), 0);
    const bool fromTheEnd = netsnmp_ds_get_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_REVERSE_ENCODE) != 0;
    const std::string bytes =
        fromTheEnd ? std::string(packet + size - written, packet + size) : std::string(packet, packet + size);
    std::free(packet);
    return bytes;
}

std::string textOf(const BerWriter& out) {
    return {reinterpret_cast<const char*>(out.data()), out.size()};
}

SnmpValue number(unsigned char type, std::uint64_t bits) {
    SnmpValue value;
    value.type = type;
    value.number = bits;
    return value;
}

SnmpValue octets(unsigned char type, const std::string& bytes) {
    SnmpValue value;
    value.type = type;
    value.octets = bytes;
    return value;
}

SnmpValue objectId(const OidVector& name) {
    return octets(ASN_OBJECT_ID, {reinterpret_cast<const char*>(name.data()), name.size() * sizeof(oid)});
}

Notification trapWith(const std::vector<SnmpValue>& values,
                      const OidVector& name = parseOid("1.3.6.1.4.1.99871.2.91.10.2.1.0.1")) {
    Notification trap;
    trap.oid = name;
    for (const SnmpValue& value : values) {
        OidVector itsName = parseOid("1.3.6.1.4.1.99871.2.91.10.3.1.1");
        itsName.insert(itsName.end(), {trap.bindings.size() * 100, 0});
        trap.bindings.push_back({itsName, value});
    }
    return trap;
}

std::vector<SnmpValue> valuesOfEveryKind() {
    std::vector<SnmpValue> values;
    for (const std::int64_t n : {0L, 1L, -1L, 127L, 128L, -128L, -129L, 32768L, 2147483647L, -2147483648L}) {
        values.push_back(number(ASN_INTEGER, static_cast<std::uint64_t>(n)));
    }
    for (const u_char type : {u_char{ASN_GAUGE}, u_char{ASN_COUNTER}, u_char{ASN_TIMETICKS}}) {
        for (const std::uint64_t n : {0UL, 127UL, 128UL, 65536UL, 2147483648UL, 4294967295UL}) {
            values.push_back(number(type, n));
        }
    }
    for (const std::size_t length : {0U, 1U, 127U, 128U, 255U, 256U, 5000U}) {
        values.push_back(octets(ASN_OCTET_STR, std::string(length, 'x')));
    }
    values.push_back(octets(ASN_OCTET_STR, std::string("\0\xFF\x80", 3)));
    values.push_back(octets(ASN_IPADDRESS, std::string("\x7F\0\0\x01", 4)));
    values.push_back(objectId(parseOid("1.3.6.1.4.1.99871.0.4294967295")));
    values.push_back(objectId(parseOid("2.39")));
    values.push_back(SnmpValue());
    return values;
}

// Both encodings of one trap.
void expectSame(const Notification& trap) {
    for (const unsigned long upTime : {0UL, 1234UL, 4294967295UL}) {
        std::vector<unsigned char> buffer(ROOM);
        const PduPointer pdu = makeTrapPdu(trap, upTime);
        ASSERT_NE(pdu, nullptr);
        BerWriter out(buffer);
        ASSERT_TRUE(writeTrap(out, trap, COMMUNITY, upTime, pdu->reqid));
        EXPECT_EQ(textOf(out), built(*pdu, SNMP_VERSION_2c, COMMUNITY));

        unsigned int leftOut = 0;
        unsigned int leftOutOfPdu = 0;
        const std::uint32_t address = htonl(0xC0A80107);
        const PduPointer pduV1 = makeTrapPduV1(trap, upTime, address, leftOutOfPdu);
        ASSERT_NE(pduV1, nullptr);
        BerWriter outV1(buffer);
        ASSERT_TRUE(writeTrapV1(outV1, trap, COMMUNITY, upTime, address, leftOut));
        EXPECT_EQ(textOf(outV1), built(*pduV1, SNMP_VERSION_1, COMMUNITY));
        EXPECT_EQ(leftOut, leftOutOfPdu);
    }
}

void expectLeftToTheLibrary(const Notification& trap) {
    std::vector<unsigned char> buffer(ROOM);
    BerWriter out(buffer);
    EXPECT_FALSE(writeTrap(out, trap, COMMUNITY, 1, 1));
    unsigned int leftOut = 0;
    BerWriter outV1(buffer);
    EXPECT_FALSE(writeTrapV1(outV1, trap, COMMUNITY, 1, 0, leftOut));
}

}  // namespace

TEST(TrapMessage, IsWhatTheLibraryMakesOfEveryKindOfValue) {
    expectSame(trapWith(valuesOfEveryKind()));
    for (const SnmpValue& value : valuesOfEveryKind()) expectSame(trapWith({value}));
}

TEST(TrapMessage, CountsWhatSnmpV1LeavesOutAsTheLibraryDoes) {
    std::vector<SnmpValue> values;
    for (const std::uint64_t n : {std::uint64_t{0}, std::uint64_t{4295032833}, ~std::uint64_t{0}}) {
        values.push_back(number(ASN_COUNTER64, n));
        values.push_back(octets(ASN_OCTET_STR, "between"));
    }
    expectSame(trapWith(values));
    unsigned int leftOut = 0;
    std::vector<unsigned char> buffer(ROOM);
    BerWriter out(buffer);
    EXPECT_TRUE(writeTrapV1(out, trapWith(values), COMMUNITY, 1, 0, leftOut));
    EXPECT_EQ(leftOut, 3U);
}

TEST(TrapMessage, IsWhatTheLibraryMakesOfTrapsWithoutBindingsAndOfStandardTraps) {
    for (const char* name : {"1.3.6.1.6.3.1.1.5.1", "1.3.6.1.6.3.1.1.5.6", "1.3.6.1.6.3.1.1.5.7",
                             "1.3.6.1.4.1.9.4294967295", "1.3.5", "2.39.1.0.7"}) {
        expectSame(trapWith({}, parseOid(name)));
    }
}

TEST(TrapMessage, TakesCommunitiesOfAnyLength) {
    for (const std::size_t length : {1U, 127U, 128U, 200U}) {
        const std::string community(length, 'c');
        const Notification trap = trapWith({octets(ASN_OCTET_STR, "text")});
        const PduPointer pdu = makeTrapPdu(trap, 7);
        std::vector<unsigned char> buffer(ROOM);
        BerWriter out(buffer);
        ASSERT_TRUE(writeTrap(out, trap, community, 7, pdu->reqid));
        EXPECT_EQ(textOf(out), built(*pdu, SNMP_VERSION_2c, community));
    }
}

TEST(TrapMessage, LeavesUnusualValuesToTheLibrary) {
    for (const SnmpValue& value :
         {number(ASN_INTEGER, 2147483648U), number(ASN_INTEGER, static_cast<std::uint64_t>(-2147483649L)),
          number(ASN_GAUGE, 4294967296U), number(ASN_OPAQUE, 1), objectId({}), objectId({1}), objectId({3, 1}),
          objectId({1, 40}), objectId({1, 3, 4294967296U})}) {
        expectLeftToTheLibrary(trapWith({octets(ASN_OCTET_STR, "good"), value}));
    }
}

TEST(TrapMessage, LeavesUnusualNamesToTheLibrary) {
    for (const OidVector& name : {OidVector{}, OidVector{1}, OidVector{3, 1, 2}, OidVector{1, 40, 2}}) {
        Notification trap = trapWith({octets(ASN_OCTET_STR, "good")});
        trap.bindings.front().name = name;
        expectLeftToTheLibrary(trap);
    }
    expectLeftToTheLibrary(trapWith({}, {3, 1, 2}));
}

// What was kept of the trap that it is a copy of is not of this one.
TEST(TrapMessage, OfACopyHasTheCopysBindings) {
    const Notification trap = trapWith({octets(ASN_OCTET_STR, "text"), number(ASN_COUNTER64, 1)});
    expectSame(trap);
    Notification copy = trap;
    copy.bindings.front().value.octets = "another";
    expectSame(copy);
    copy = trap;
    copy.bindings.pop_back();
    expectSame(copy);
    Notification moved = std::move(copy);
    moved.bindings.pop_back();
    expectSame(moved);
    expectSame(trap);
}

TEST(TrapMessage, HasTheSameBindingsForEveryDestination) {
    const Notification trap = trapWith(valuesOfEveryKind());
    EXPECT_EQ(trap.encoded.octets(), "");
    std::vector<unsigned char> small(100);
    BerWriter none(small);
    ASSERT_TRUE(writeTrap(none, trap, COMMUNITY, 1, 1));
    EXPECT_TRUE(none.overflowed());
    EXPECT_EQ(trap.encoded.octets(), "");  // not all of them were written
    for (int destination = 0; destination < 2; ++destination) {
        expectSame(trap);
        EXPECT_NE(trap.encoded.octets(), "");
    }
    BerWriter again(small);
    ASSERT_TRUE(writeTrap(again, trap, COMMUNITY, 1, 1));
    EXPECT_EQ(again.size(), none.size());
}

TEST(TrapMessage, OfSnmpV3IsNeverLongerThanItsPduAndWhatIsAroundIt) {
    constexpr std::size_t NAMES = 40;
    std::vector<unsigned char> buffer(ROOM);
    for (std::size_t length = 0; length < 66'000; length = length < 300 ? length + 1 : length * 2 - 30) {
        const Notification trap = trapWith({octets(ASN_OCTET_STR, std::string(length, 'x'))});
        BerWriter pdu(buffer);
        ASSERT_TRUE(writeTrapPdu(pdu, trap, 0, 0));
        EXPECT_GE(pdu.size() + mostAroundPduV3(NAMES), longestMessageV3(trap, NAMES).value_or(ROOM * 2)) << length;
    }
}

TEST(TrapMessage, ThatDoesNotFitIsCountedAllTheSame) {
    const Notification trap = trapWith({octets(ASN_OCTET_STR, "text"), number(ASN_COUNTER64, 1)});
    std::vector<unsigned char> enough(ROOM);
    BerWriter whole(enough);
    ASSERT_TRUE(writeTrap(whole, trap, COMMUNITY, 1, 1));
    for (std::size_t room = 0; room < whole.size(); ++room) {
        std::vector<unsigned char> buffer(room);
        BerWriter out(buffer);
        EXPECT_TRUE(writeTrap(out, trap, COMMUNITY, 1, 1));
        EXPECT_TRUE(out.overflowed()) << room;
        EXPECT_EQ(out.size(), whole.size()) << room;
    }
}

}  // namespace vrx
