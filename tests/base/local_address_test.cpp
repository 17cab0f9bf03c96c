#include "host/base/local_address.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

namespace vrx {

namespace {

const std::string ROOT = "/opt/product";

std::string faultOf(const std::string& text) {
    try {
        parseLocalAddress(text, ROOT);
    } catch (const std::invalid_argument& fault) {
        return fault.what();
    }
    return "accepted";
}

}  // namespace

TEST(LocalAddress, RelativeUnixPathStandsBelowTheRoot) {
    const LocalAddress address = parseLocalAddress("unix:state/backend.sock", ROOT);
    EXPECT_EQ(address.kind, LocalAddress::Kind::Unix);
    EXPECT_EQ(address.path, "/opt/product/state/backend.sock");
    EXPECT_EQ(address.text(), "unix:/opt/product/state/backend.sock");
}

TEST(LocalAddress, AbsoluteUnixPathStaysAsItIs) {
    EXPECT_EQ(parseLocalAddress("unix:/run/b.sock", ROOT).path, "/run/b.sock");
}

TEST(LocalAddress, AFaultSaysWhatTheAddressIsOf) {
    try {
        parseLocalAddress("tcp:192.0.2.1:9161", ROOT, "vrxMetrics");
        FAIL() << "accepted";
    } catch (const std::invalid_argument& fault) {
        EXPECT_STREQ(fault.what(), "vrxMetrics: \"192.0.2.1\" is not a numeric loopback address");
    }
}

TEST(LocalAddress, UnixWithoutPathIsRefused) {
    EXPECT_EQ(faultOf("unix:"), "backend address: \"unix:\" needs a path");
}

TEST(LocalAddress, UnixPathOf107BytesIsAcceptedAndOf108Refused) {
    const std::string longest = "/" + std::string(106, 'a');
    EXPECT_EQ(parseLocalAddress("unix:" + longest, ROOT).path, longest);
    EXPECT_EQ(faultOf("unix:" + longest + "a"),
              "backend address: socket path \"" + longest + "a\" is longer than 107 bytes");
}

TEST(LocalAddress, TcpHostAndPort) {
    const LocalAddress address = parseLocalAddress("tcp:127.0.0.1:7001", ROOT);
    EXPECT_EQ(address.kind, LocalAddress::Kind::Tcp);
    EXPECT_EQ(address.host, "127.0.0.1");
    EXPECT_EQ(address.port, 7001);
    EXPECT_EQ(address.text(), "tcp:127.0.0.1:7001");
}

TEST(LocalAddress, TcpLocalhostIsTheLoopbackAddress) {
    EXPECT_EQ(parseLocalAddress("tcp:localhost:7001", ROOT).text(), "tcp:127.0.0.1:7001");
}

TEST(LocalAddress, TcpOverIPv6StandsInBrackets) {
    const LocalAddress address = parseLocalAddress("tcp:[::1]:65535", ROOT);
    EXPECT_EQ(address.host, "::1");
    EXPECT_EQ(address.port, 65535);
    EXPECT_EQ(address.text(), "tcp:[::1]:65535");
}

TEST(LocalAddress, AddressesBeyondLoopbackAreRefused) {
    EXPECT_EQ(faultOf("tcp:192.0.2.1:7001"), "backend address: \"192.0.2.1\" is not a numeric loopback address");
    EXPECT_EQ(faultOf("tcp:0.0.0.0:7001"), "backend address: \"0.0.0.0\" is not a numeric loopback address");
    EXPECT_EQ(faultOf("tcp:[::]:7001"), "backend address: \"::\" is not a numeric loopback address");
}

TEST(LocalAddress, HostNamesAreRefused) {
    EXPECT_EQ(faultOf("tcp:backend.example:7001"),
              "backend address: \"backend.example\" is not a numeric loopback address");
}

TEST(LocalAddress, PortsOutsideOf1To65535AreRefused) {
    for (const std::string port : {"0", "65536", "-1", "", "70x", " 70", "99999999999"})
        EXPECT_EQ(faultOf("tcp:127.0.0.1:" + port),
                  "backend address: port \"" + port + "\" is not a number from 1 to 65535");
}

TEST(LocalAddress, TcpWithoutPortIsRefused) {
    EXPECT_EQ(faultOf("tcp:7001"), "backend address: \"tcp:\" needs HOST:PORT");
}

TEST(LocalAddress, OtherKindsAreRefused) {
    EXPECT_EQ(faultOf("udp:127.0.0.1:1"),
              "backend address: \"udp:127.0.0.1:1\" begins with neither \"unix:\" nor \"tcp:\"");
    EXPECT_EQ(faultOf(""), "backend address: \"\" begins with neither \"unix:\" nor \"tcp:\"");
}

}  // namespace vrx
