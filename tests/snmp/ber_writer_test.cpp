// Net-SNMP's encoder is the reference.
#include "host/snmp/ber_writer.h"

#include <gtest/gtest.h>

#include <functional>
#include <limits>
#include <string>

namespace vrx {

namespace {

std::string written(const std::function<void(BerWriter&)>& write, std::size_t room = 1000) {
    std::vector<unsigned char> buffer(room);
    BerWriter out(buffer);
    write(out);
    EXPECT_FALSE(out.overflowed());
    return {reinterpret_cast<const char*>(out.data()), out.size()};
}

// What one of the library's asn_build functions makes of a value.
std::string built(const std::function<u_char*(u_char*, std::size_t*)>& build) {
    std::vector<u_char> buffer(1000);
    std::size_t left = buffer.size();
    const u_char* const end = build(buffer.data(), &left);
    EXPECT_NE(end, nullptr);
    return {reinterpret_cast<const char*>(buffer.data()), static_cast<std::size_t>(end - buffer.data())};
}

TEST(BerWriter, WritesIntegersAsTheLibraryDoes) {
    for (const long value : {0L, 1L, 127L, 128L, 255L, 256L, 32767L, 32768L, 8388607L, 8388608L, 2147483647L, -1L,
                             -128L, -129L, -32768L, -32769L, -8388609L, -2147483648L}) {
        EXPECT_EQ(written([&](BerWriter& out) { out.integer(ASN_INTEGER, value); }),
                  built([&](u_char* at, std::size_t* left) {
                      return asn_build_int(at, left, ASN_INTEGER, &value, sizeof value);
                  }))
            << value;
    }
}

TEST(BerWriter, WritesUnsignedNumbersAsTheLibraryDoes) {
    for (const u_char type : {u_char{ASN_GAUGE}, u_char{ASN_COUNTER}, u_char{ASN_TIMETICKS}}) {
        for (const unsigned long value :
             {0UL, 1UL, 127UL, 128UL, 255UL, 256UL, 65535UL, 65536UL, 8388608UL, 2147483648UL, 4294967295UL}) {
            EXPECT_EQ(written([&](BerWriter& out) { out.unsignedInteger(type, value); }),
                      built([&](u_char* at, std::size_t* left) {
                          return asn_build_unsigned_int(at, left, type, &value, sizeof value);
                      }))
                << value;
        }
    }
}

TEST(BerWriter, WritesNumbersOf64BitsAsTheLibraryDoes) {
    constexpr std::uint64_t most = std::numeric_limits<std::uint64_t>::max();
    for (const std::uint64_t value : {std::uint64_t{0}, std::uint64_t{127}, std::uint64_t{128},
                                      std::uint64_t{4295032833}, most / 2, most / 2 + 1, most}) {
        const counter64 halves{static_cast<u_long>(value >> 32), static_cast<u_long>(value & 0xFFFFFFFF)};
        EXPECT_EQ(written([&](BerWriter& out) { out.unsignedInteger(ASN_COUNTER64, value); }),
                  built([&](u_char* at, std::size_t* left) {
                      return asn_build_unsigned_int64(at, left, ASN_COUNTER64, &halves, sizeof halves);
                  }))
            << value;
    }
}

TEST(BerWriter, WritesTextsOfAnyLengthWithTheShortestHeader) {
    EXPECT_EQ(written([](BerWriter& out) { out.octets(ASN_OCTET_STR, ""); }), std::string("\x04\x00", 2));
    EXPECT_EQ(written([](BerWriter& out) { out.octets(ASN_OCTET_STR, "ab"); }), std::string("\x04\x02"
                                                                                            "ab"));
    const std::string last(127, 'x');
    EXPECT_EQ(written([&](BerWriter& out) { out.octets(ASN_OCTET_STR, last); }), "\x04\x7F" + last);
    const std::string first(128, 'x');
    EXPECT_EQ(written([&](BerWriter& out) { out.octets(ASN_OCTET_STR, first); }), "\x04\x81\x80" + first);
    const std::string longer(256, 'x');
    EXPECT_EQ(written([&](BerWriter& out) { out.octets(ASN_OCTET_STR, longer); }),
              std::string("\x04\x82\x01\x00", 4) + longer);
}

TEST(BerWriter, WritesNamesAsTheLibraryDoes) {
    for (OidVector name : {OidVector{1, 3}, OidVector{1, 3, 6, 1, 4, 1, 99871, 2, 91, 10, 1, 1, 1, 4},
                           OidVector{1, 3, 0, 127, 128, 16383, 16384, 2097151, 2097152, 4294967295}}) {
        EXPECT_EQ(written([&](BerWriter& out) { out.octets(ASN_OBJECT_ID, berContentOf(name)); }),
                  built([&](u_char* at, std::size_t* left) {
                      return asn_build_objid(at, left, ASN_OBJECT_ID, name.data(), name.size());
                  }));
    }
    // The last sub-identifier apart.
    const OidVector whole = {1, 3, 6, 1, 200000};
    EXPECT_EQ(written([](BerWriter& out) {
                  out.subIdentifier(200000);
                  out.bytes(berContentOf({1, 3, 6, 1}));
              }),
              berContentOf(whole));
}

TEST(BerWriter, WritesTheSameNameWhateverTheRoom) {
    const OidVector name = {1, 3, 6, 1, 4, 1, 99871, 2, 4294967295, 0, 127, 128};
    const std::string whole = written([&](BerWriter& out) { out.name(name.data(), name.size()); });
    EXPECT_EQ(whole, written([&](BerWriter& out) { out.octets(ASN_OBJECT_ID, berContentOf(name)); }));
    for (std::size_t room = whole.size(); room < whole.size() + 150; ++room) {
        EXPECT_EQ(written([&](BerWriter& out) { out.name(name.data(), name.size()); }, room), whole) << room;
    }
}

TEST(BerWriter, PutsAHeaderAroundWhatIsThere) {
    const std::string nested = written([](BerWriter& out) {
        out.integer(ASN_INTEGER, 2);
        const std::size_t end = out.size();
        out.integer(ASN_INTEGER, 1);
        out.header(ASN_SEQUENCE | ASN_CONSTRUCTOR, end);
    });
    EXPECT_EQ(nested, std::string("\x30\x03\x02\x01\x01\x02\x01\x02"));
}

TEST(BerWriter, TellsThatTheBufferIsTooSmallWhereverItEnds) {
    const auto write = [](BerWriter& out) {
        out.integer(ASN_INTEGER, 70000);
        out.octets(ASN_OCTET_STR, "text");
        out.octets(ASN_OBJECT_ID, berContentOf({1, 3, 6, 1}));
        out.header(ASN_SEQUENCE | ASN_CONSTRUCTOR, 0);
    };
    const std::size_t needed = written(write).size();
    for (std::size_t room = 0; room < needed; ++room) {
        std::vector<unsigned char> buffer(room);
        BerWriter out(buffer);
        write(out);
        EXPECT_TRUE(out.overflowed()) << room;
    }
    EXPECT_EQ(written(write, needed).size(), needed);
}

}  // namespace

}  // namespace vrx
