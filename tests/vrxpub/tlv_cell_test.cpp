#include "vrxpub/vrx_tlv_cell.h"

#include <gmock/gmock.h>

#include <type_traits>

#include "module/vrx_exception.h"
#include "wire_bytes.h"

using ::testing::ElementsAre;

namespace {

unsigned int cast32(const CTLVCell& cell) {
    return CTLVCell::ValueCast<unsigned int>()(&cell);
}
unsigned long long cast64(const CTLVCell& cell) {
    return CTLVCell::ValueCast<unsigned long long>()(&cell);
}

template <typename Call>
std::string messageOf(Call call) {
    try {
        call();
    } catch (const CVRX_Exception& e) {
        return e.what();
    }
    return "nothing thrown";
}

struct CastCase {
    const char* name;
    unsigned short type;
    Bytes value;
    unsigned int as32;
    unsigned long long as64;

    friend void PrintTo(const CastCase& test, std::ostream* os) { *os << test.name; }
};

class CellCast : public ::testing::TestWithParam<CastCase> {};

}  // namespace

TEST_P(CellCast, GivesTheNumber) {
    const auto& c = GetParam();
    const auto cell = makeCell(static_cast<CTLVCell::ETLVType>(c.type), 1, c.value);
    EXPECT_EQ(cast32(*cell), c.as32);
    EXPECT_EQ(cast64(*cell), c.as64);
}

INSTANTIATE_TEST_SUITE_P(
    TlvCell, CellCast,
    ::testing::Values(
        CastCase{"UnsignedEmptyIsZero", 3, {}, 0, 0}, CastCase{"SignedEmptyIsZero", 4, {}, 0, 0},
        CastCase{"UnsignedOneByte", 3, {0xFF}, 255, 255},
        CastCase{"SignedOneByteIsNotSignExtended", 4, {0xFF}, 255, 255},
        CastCase{"UnsignedTwoBytes", 3, {0xFE, 0xFF}, 65534, 65534},
        CastCase{"SignedTwoBytesAreSignExtended", 4, {0xFE, 0xFF}, 0xFFFFFFFE, 0xFFFFFFFFFFFFFFFE},
        CastCase{"SignedTwoBytesPositive", 4, {0xFE, 0x7F}, 0x7FFE, 0x7FFE},
        CastCase{"StringTwoBytesAreNotSignExtended", 2, {0xFE, 0xFF}, 65534, 65534},
        CastCase{"TypeFiveTwoBytesAreNotSignExtended", 5, {0xFE, 0xFF}, 65534, 65534},
        CastCase{"UnsignedThreeBytes", 3, {0x01, 0x02, 0x83}, 0x830201, 0x830201},
        CastCase{"SignedThreeBytesAreNotSignExtended", 4, {0x01, 0x02, 0x83}, 0x830201, 0x830201},
        CastCase{"UnsignedFourBytes", 3, {0x78, 0x56, 0x34, 0x12}, 0x12345678, 0x12345678},
        CastCase{"SignedFourBytesAreNotSignExtended", 4, {0xFF, 0xFF, 0xFF, 0xFF}, 0xFFFFFFFF, 4294967295ULL},
        CastCase{"FiveBytes", 3, {1, 2, 3, 4, 5}, 0x04030201, 0x0504030201},
        CastCase{"SignedSixBytesAreNotSignExtended", 4, {1, 2, 3, 4, 5, 0xFF}, 0x04030201, 0xFF0504030201},
        CastCase{"SevenBytes", 3, {1, 2, 3, 4, 5, 6, 0xFF}, 0x04030201, 0xFF060504030201},
        CastCase{"EightBytes", 3, {1, 2, 3, 4, 5, 6, 7, 0x88}, 0x04030201, 0x8807060504030201},
        CastCase{"SignedEightBytes", 4, Bytes(8, 0xFF), 0xFFFFFFFF, ~0ULL},
        CastCase{"NineBytesIgnoreTheNinth", 3, {1, 2, 3, 4, 5, 6, 7, 8, 9}, 0x04030201, 0x0807060504030201},
        CastCase{"LongValueIgnoresTheRest", 1, Bytes(300, 0x11), 0x11111111, 0x1111111111111111}),
    [](const auto& test) { return test.param.name; });

TEST(TlvCell, NewCellIsPrepared) {
    const CTLVCell cell;
    EXPECT_EQ(cell.tag(), 4094);
    EXPECT_EQ(cell.type(), CTLVCell::TLV_TYPE_NONE);
    EXPECT_EQ(cell.length(), 0);
    EXPECT_EQ(cell.data(), nullptr);
    EXPECT_EQ(cell.word(), 0xFFE0);
    EXPECT_EQ(cell.size(), 4U);
}

TEST(TlvCell, TypesHaveTheirNumbersOnTheWire) {
    EXPECT_EQ(CTLVCell::TLV_TYPE_NONE, 0);
    EXPECT_EQ(CTLVCell::TLV_TYPE_OCTETS, 1);
    EXPECT_EQ(CTLVCell::TLV_TYPE_STRING, 2);
    EXPECT_EQ(CTLVCell::TLV_TYPE_UINT, 3);
    EXPECT_EQ(CTLVCell::TLV_TYPE_INT, 4);
}

TEST(TlvCell, IsNotCopyable) {
    EXPECT_FALSE(std::is_copy_constructible_v<CTLVCell>);
    EXPECT_FALSE(std::is_copy_assignable_v<CTLVCell>);
}

TEST(TlvCell, TextIsStoredWithItsFinalZero) {
    CTLVCell cell;
    cell.set(9, "ab");
    EXPECT_EQ(cell.type(), CTLVCell::TLV_TYPE_STRING);
    EXPECT_EQ(cell.tag(), 9);
    EXPECT_EQ(cell.length(), 3);
    EXPECT_THAT(bytesOf(cell), ElementsAre(0x61, 0x62, 0x00));
    EXPECT_EQ(cell.size(), 7U);
}

TEST(TlvCell, EmptyTextIsOneZeroByte) {
    CTLVCell cell;
    cell.set(9, "");
    EXPECT_EQ(cell.length(), 1);
    EXPECT_THAT(bytesOf(cell), ElementsAre(0x00));
    EXPECT_EQ(cell.toString(), "");
}

TEST(TlvCell, NullTextHasNoValue) {
    CTLVCell cell;
    cell.set(9, "before");
    cell.set(9, nullptr);
    EXPECT_EQ(cell.type(), CTLVCell::TLV_TYPE_STRING);
    EXPECT_EQ(cell.tag(), 9);
    EXPECT_EQ(cell.length(), 0);
    EXPECT_EQ(cell.data(), nullptr);
}

TEST(TlvCell, WordHoldsTypeInTheLowFourBitsAndTagAbove) {
    CTLVCell cell;
    cell.setCell(0xFFF3, "\x01\x02", 2);
    EXPECT_EQ(cell.tag(), 4095);
    EXPECT_EQ(cell.type(), CTLVCell::TLV_TYPE_UINT);
    EXPECT_EQ(cell.word(), 0xFFF3);
    EXPECT_THAT(bytesOf(cell), ElementsAre(1, 2));
    cell.setCell(0x005F, nullptr, 0);
    EXPECT_EQ(cell.tag(), 5);
    EXPECT_EQ(cell.type(), 15);
}

TEST(TlvCell, TagKeepsItsLowTwelveBits) {
    CTLVCell cell;
    cell.set_i(CTLVCell::TLV_TYPE_UINT, 4096 + 7, "x", 1);
    EXPECT_EQ(cell.tag(), 7);
    EXPECT_EQ(cell.type(), CTLVCell::TLV_TYPE_UINT);
}

TEST(TlvCell, SetTagKeepsTypeAndValue) {
    CTLVCell cell;
    cell.set(9, "ab");
    cell.setTag(4095);
    EXPECT_EQ(cell.tag(), 4095);
    EXPECT_EQ(cell.type(), CTLVCell::TLV_TYPE_STRING);
    EXPECT_THAT(bytesOf(cell), ElementsAre(0x61, 0x62, 0x00));
}

TEST(TlvCell, NullDataGivesNoValueWhateverTheLength) {
    CTLVCell cell;
    cell.set_i(CTLVCell::TLV_TYPE_OCTETS, 1, nullptr, 20);
    EXPECT_EQ(cell.length(), 0);
    EXPECT_EQ(cell.data(), nullptr);
}

// Lengths on both sides of what a cell keeps inside itself.
TEST(TlvCell, ReplacesValuesOfEveryLengthByEveryOther) {
    const std::size_t lengths[] = {0, 1, 8, 15, 16, 17, 40, 65535};
    for (const std::size_t from : lengths) {
        for (const std::size_t to : lengths) {
            CTLVCell cell;
            cell.set_i(CTLVCell::TLV_TYPE_OCTETS, 1, Bytes(from, 0xAA).data(), from);
            const Bytes value(to, 0xBB);
            cell.set_i(CTLVCell::TLV_TYPE_OCTETS, 2, value.data(), to);
            EXPECT_EQ(bytesOf(cell), value) << from << " to " << to;
        }
    }
}

TEST(TlvCell, TakesPartOfItsOwnValue) {
    const std::string text = "0123456789012345678901234567890123456789";
    for (const std::size_t whole : {10U, 16U, 17U, 40U}) {
        for (std::size_t offset = 0; offset < whole; ++offset) {
            CTLVCell cell;
            cell.set_i(CTLVCell::TLV_TYPE_OCTETS, 1, text.data(), whole);
            cell.set_i(CTLVCell::TLV_TYPE_OCTETS, 1, cell.data() + offset, whole - offset);
            EXPECT_EQ(cell.toString(), text.substr(offset, whole - offset)) << whole << " from " << offset;
        }
    }
}

TEST(TlvCell, LongestValueIsKeptWhole) {
    const Bytes value(65535, 0x41);
    CTLVCell cell;
    cell.set_i(CTLVCell::TLV_TYPE_STRING, 1, value.data(), value.size());
    EXPECT_EQ(bytesOf(cell), value);
}

TEST(TlvCell, TooLongOctetsKeepTheirFirst65535Bytes) {
    Bytes value(65536, 0x41);
    value[65534] = 0x42;
    CTLVCell cell;
    cell.set_i(CTLVCell::TLV_TYPE_OCTETS, 1, value.data(), value.size());
    value.pop_back();
    EXPECT_EQ(bytesOf(cell), value);
}

TEST(TlvCell, TooLongTextKeepsItsFinalZero) {
    CTLVCell cell;
    cell.set(1, std::string(70000, 'x').c_str());
    EXPECT_EQ(cell.length(), 65535);
    EXPECT_EQ(cell.data()[65534], 0);
    EXPECT_EQ(cell.toString(), std::string(65534, 'x'));
}

TEST(TlvCell, CheckNumericalRefusesTextWithItsTag) {
    CTLVCell cell;
    cell.set(37, "ab");
    EXPECT_EQ(messageOf([&] { cell.checkNumerical(); }),
              "CVRX_Exception: CTLVCell isn't numerical type! tag equal to 37");
}

TEST(TlvCell, CheckNumericalTakesTypesAboveTwo) {
    for (unsigned int type = 0; type < 16; ++type) {
        const auto cell = makeCell(static_cast<CTLVCell::ETLVType>(type), 4095, {1});
        const std::string message = messageOf([&] { cell->checkNumerical(); });
        if (type > 2) {
            EXPECT_EQ(message, "nothing thrown") << type;
        } else {
            EXPECT_EQ(message, "CVRX_Exception: CTLVCell isn't numerical type! tag equal to 4095") << type;
        }
    }
}

TEST(TlvCell, CheckStringTakesTypeTwoOnly) {
    for (unsigned int type = 0; type < 16; ++type) {
        const auto cell = makeCell(static_cast<CTLVCell::ETLVType>(type), 0, {1});
        const std::string message = messageOf([&] { cell->checkString(); });
        if (type == 2) {
            EXPECT_EQ(message, "nothing thrown") << type;
        } else {
            EXPECT_EQ(message, "CVRX_Exception: CTLVCell isn't string type! tag equal to 0") << type;
        }
    }
}

TEST(TlvCellText, EndsAtTheFirstZeroByte) {
    EXPECT_EQ(makeCell(CTLVCell::TLV_TYPE_STRING, 1, {'a', 0, 'b', 0})->toString(), "a");
    EXPECT_EQ(makeCell(CTLVCell::TLV_TYPE_OCTETS, 1, {'a', 0, 'b', 0})->toString(), "a");
}

TEST(TlvCellText, WithoutFinalZeroEndsWithTheValue) {
    EXPECT_EQ(makeCell(CTLVCell::TLV_TYPE_STRING, 1, {'a', 'b'})->toString(), "ab");
    EXPECT_EQ(makeCell(CTLVCell::TLV_TYPE_STRING, 1, Bytes(16, 'a'))->toString(), std::string(16, 'a'));
    EXPECT_EQ(makeCell(CTLVCell::TLV_TYPE_STRING, 1, Bytes(17, 'a'))->toString(), std::string(17, 'a'));
}

TEST(TlvCellText, OfNoValueIsEmptyOrZero) {
    EXPECT_EQ(makeCell(CTLVCell::TLV_TYPE_NONE, 1, {})->toString(), "");
    EXPECT_EQ(makeCell(CTLVCell::TLV_TYPE_OCTETS, 1, {})->toString(), "");
    EXPECT_EQ(makeCell(CTLVCell::TLV_TYPE_STRING, 1, {})->toString(), "");
    EXPECT_EQ(makeCell(CTLVCell::TLV_TYPE_UINT, 1, {})->toString(), "0");
    EXPECT_EQ(makeCell(CTLVCell::TLV_TYPE_INT, 1, {})->toString(), "0");
}

TEST(TlvCellText, OfUnsignedIsDecimal) {
    EXPECT_EQ(makeCell(CTLVCell::TLV_TYPE_UINT, 1, {0xFF})->toString(), "255");
    EXPECT_EQ(makeCell(CTLVCell::TLV_TYPE_UINT, 1, Bytes(4, 0xFF))->toString(), "4294967295");
    EXPECT_EQ(makeCell(CTLVCell::TLV_TYPE_UINT, 1, Bytes(8, 0xFF))->toString(), "18446744073709551615");
    EXPECT_EQ(makeCell(CTLVCell::TLV_TYPE_UINT, 1, Bytes(9, 0xFF))->toString(), "18446744073709551615");
    EXPECT_EQ(makeCell(static_cast<CTLVCell::ETLVType>(9), 1, {0xFE, 0xFF})->toString(), "65534");
}

TEST(TlvCellText, OfSignedCountsTheSignOfItsOwnWidth) {
    for (std::size_t width = 1; width <= 8; ++width) {
        EXPECT_EQ(makeCell(CTLVCell::TLV_TYPE_INT, 1, Bytes(width, 0xFF))->toString(), "-1") << width;
        Bytes positive(width, 0);
        positive[0] = 5;
        EXPECT_EQ(makeCell(CTLVCell::TLV_TYPE_INT, 1, positive)->toString(), "5") << width;
    }
    EXPECT_EQ(makeCell(CTLVCell::TLV_TYPE_INT, 1, {0, 0, 0, 0, 0, 0, 0, 0x80})->toString(), "-9223372036854775808");
    EXPECT_EQ(makeCell(CTLVCell::TLV_TYPE_INT, 1, {0xFE, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x00})->toString(),
              "-2");
}
