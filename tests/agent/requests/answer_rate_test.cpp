#include "host/agent/requests/answer_rate.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>

namespace vrx {

using std::chrono::seconds;

namespace {

constexpr std::size_t RATE = 1'000;
constexpr std::size_t AHEAD = RATE * 10;

// A request from that address over the domain's transport.
struct Request {
    explicit Request(const char* address, const oid* domain = netsnmpUDPDomain, std::size_t length = 7) {
        pdu.version = SNMP_VERSION_2c;
        pdu.tDomain = domain;
        pdu.tDomainLen = length;
        if (::inet_pton(AF_INET, address, &pair.remote_addr.sin.sin_addr) == 1) {
            pdu.transport_data = &pair;
            pdu.transport_data_length = sizeof pair;
        } else {
            ::inet_pton(AF_INET6, address, &six.sin6_addr);
            pdu.transport_data = &six;
            pdu.transport_data_length = sizeof six;
        }
    }

    netsnmp_pdu pdu{};
    netsnmp_indexed_addr_pair pair{};
    sockaddr_in6 six{};
};

std::string peerOf(const char* address) {
    return AnswerRate::peerOf(Request(address).pdu);
}

class AnswerRateTest : public testing::Test {
protected:
    AnswerRate rate{RATE};
    AnswerRate::TimePoint start = std::chrono::steady_clock::now();
};

}  // namespace

TEST_F(AnswerRateTest, APeerMayBeAheadBySomeSeconds) {
    rate.note("peer", AHEAD - 1, start);
    EXPECT_TRUE(rate.allows("peer", start));
    rate.note("peer", 1, start);
    EXPECT_FALSE(rate.allows("peer", start));
    EXPECT_TRUE(rate.allows("other", start));
}

TEST_F(AnswerRateTest, TimeGivesItBack) {
    rate.note("peer", AHEAD + 2 * RATE, start);
    EXPECT_FALSE(rate.allows("peer", start + seconds(2)));
    EXPECT_TRUE(rate.allows("peer", start + seconds(3)));
    rate.note("peer", AHEAD, start + seconds(100));  // what was not used is not kept
    EXPECT_FALSE(rate.allows("peer", start + seconds(100)));
}

TEST_F(AnswerRateTest, WithoutARateThereIsNoBound) {
    AnswerRate none(0);
    none.note("peer", AHEAD * 1'000, start);
    EXPECT_TRUE(none.allows("peer", start));
    rate.note("peer", AHEAD, start);
    rate.setRate(2 * RATE);
    EXPECT_TRUE(rate.allows("peer", start));
}

TEST_F(AnswerRateTest, ThoseThatAreAheadMostAreRememberedLongest) {
    rate.note("much", AHEAD, start);
    for (std::size_t i = 0; i < 2 * AnswerRate::PEERS; ++i) rate.note("peer " + std::to_string(i), 1, start);
    EXPECT_FALSE(rate.allows("much", start));
}

TEST_F(AnswerRateTest, APeerIsAnAddressWhateverItsPort) {
    Request one("192.0.2.1");
    one.pair.remote_addr.sin.sin_port = 1;
    EXPECT_EQ(AnswerRate::peerOf(one.pdu), peerOf("192.0.2.1"));
    EXPECT_NE(peerOf("192.0.2.1"), peerOf("192.0.2.2"));
    EXPECT_EQ(peerOf("2001:db8::1"), peerOf("2001:db8::2"));
    EXPECT_NE(peerOf("2001:db8::1"), peerOf("2001:db8:0:1::1"));
    EXPECT_EQ(peerOf("::ffff:192.0.2.1"), peerOf("192.0.2.1"));
    EXPECT_EQ(AnswerRate::textOf(peerOf("192.0.2.1")), "192.0.2.1");
    EXPECT_EQ(AnswerRate::textOf(peerOf("2001:db8::1")), "2001:db8::/64");
}

TEST_F(AnswerRateTest, WhoIsAuthenticatedOrConnectedIsNone) {
    Request request("192.0.2.1");
    request.pdu.version = SNMP_VERSION_3;
    request.pdu.securityLevel = SNMP_SEC_LEVEL_NOAUTH;
    EXPECT_NE(AnswerRate::peerOf(request.pdu), "");
    request.pdu.securityLevel = SNMP_SEC_LEVEL_AUTHNOPRIV;
    EXPECT_EQ(AnswerRate::peerOf(request.pdu), "");

    const oid tcp[] = {1, 3, 6, 1, 2, 1, 100, 1, 5};
    EXPECT_EQ(AnswerRate::peerOf(Request("192.0.2.1", tcp, 9).pdu), "");
    rate.note("", AHEAD, start);
    EXPECT_TRUE(rate.allows("", start));
}

}  // namespace vrx
