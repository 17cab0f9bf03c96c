#include "host/agent/objects/cell_value.h"

#include <gtest/gtest.h>

#include "host/agent/objects/row_index.h"
#include "host/agent/objects/table_rules.h"
#include "tests/agent/mib_samples.h"

namespace vrx {

namespace {

MibSyntax syntax(unsigned char type) {
    MibSyntax result;
    result.type = type;
    return result;
}

std::string octets(const CTLVCell& cell) {
    const auto value = valueOfCell(cell, syntax(ASN_OCTET_STR));
    return value ? value->octets : "no value";
}

std::string number(const CTLVCell& cell, unsigned char type) {
    const auto value = valueOfCell(cell, syntax(type));
    if (!value) return "no value";
    return type == ASN_INTEGER ? std::to_string(static_cast<long long>(value->number)) : std::to_string(value->number);
}

std::unique_ptr<CTLVCell> octetsCell(const std::string& bytes) {
    auto cell = std::make_unique<CTLVCell>();
    cell->set_i(CTLVCell::TLV_TYPE_OCTETS, 1, bytes.data(), bytes.size());
    return cell;
}

// A varbind that frees its value.
struct Varbind {
    Varbind(unsigned char type, const void* data, std::size_t size) {
        snmp_set_var_typed_value(&list, type, data, size);
    }
    Varbind(const Varbind&) = delete;
    Varbind& operator=(const Varbind&) = delete;
    ~Varbind() { snmp_free_var_internals(&list); }
    netsnmp_variable_list list{};
};

Varbind text(const std::string& bytes) {
    return {ASN_OCTET_STR, bytes.data(), bytes.size()};
}

Varbind integer(unsigned char type, long value) {
    return {type, &value, sizeof value};
}

}  // namespace

TEST(ValueOfCell, AStringLosesItsTerminatingZero) {
    EXPECT_EQ(octets(*textCell(1, "Array")), "Array");
    EXPECT_EQ(octets(*textCell(1, "")), "");
    EXPECT_EQ(octets(*textCell(1, nullptr)), "") << "a cell of length 0";
}

TEST(ValueOfCell, OctetsStayWhole) {
    const std::string bytes("\0\x07\xEA\0", 4);
    EXPECT_EQ(octets(*octetsCell(bytes)), bytes);
    EXPECT_EQ(octets(*octetsCell("")), "");
}

TEST(ValueOfCell, ANumberInATextColumnIsSpelled) {
    EXPECT_EQ(octets(*numberCell(1, 42)), "42");
    EXPECT_EQ(octets(*numberCell(1, 0xFFFFFFFF, CTLVCell::TLV_TYPE_INT, 4)), "-1");
}

TEST(ValueOfCell, NumbersOfEveryLengthAreLittleEndian) {
    EXPECT_EQ(number(*numberCell(1, 0x7F, CTLVCell::TLV_TYPE_UINT, 1), ASN_GAUGE), "127");
    EXPECT_EQ(number(*numberCell(1, 0x0102, CTLVCell::TLV_TYPE_UINT, 2), ASN_GAUGE), "258");
    EXPECT_EQ(number(*numberCell(1, 0xFFFFFFFF, CTLVCell::TLV_TYPE_UINT, 4), ASN_GAUGE), "4294967295");
    EXPECT_EQ(number(*numberCell(1, ~0ULL), ASN_COUNTER64), "18446744073709551615");
}

TEST(ValueOfCell, AnIntKeepsItsSign) {
    EXPECT_EQ(number(*numberCell(1, 0xFF, CTLVCell::TLV_TYPE_INT, 1), ASN_INTEGER), "-1");
    EXPECT_EQ(number(*numberCell(1, 0x80000000, CTLVCell::TLV_TYPE_INT, 4), ASN_INTEGER), "-2147483648");
    EXPECT_EQ(number(*numberCell(1, 0x80000000, CTLVCell::TLV_TYPE_UINT, 4), ASN_INTEGER), "no value");
    EXPECT_EQ(number(*numberCell(1, 0x7FFFFFFF, CTLVCell::TLV_TYPE_UINT, 4), ASN_INTEGER), "2147483647");
}

TEST(ValueOfCell, AGaugeStaysAtItsMaximum) {
    EXPECT_EQ(number(*numberCell(1, 1ULL << 40), ASN_GAUGE), "4294967295");
}

TEST(ValueOfCell, OtherNumbersThatDoNotFitGiveNoValue) {
    EXPECT_EQ(number(*numberCell(1, 1ULL << 40), ASN_INTEGER), "no value");
    EXPECT_EQ(number(*numberCell(1, 1ULL << 40), ASN_TIMETICKS), "no value");
    EXPECT_EQ(number(*numberCell(1, 0xFF, CTLVCell::TLV_TYPE_INT, 1), ASN_GAUGE), "no value");
}

TEST(ValueOfCell, ATextInANumericColumnIsRead) {
    EXPECT_EQ(number(*textCell(1, "17"), ASN_GAUGE), "17");
    EXPECT_EQ(number(*textCell(1, "-17"), ASN_INTEGER), "-17");
    EXPECT_EQ(number(*textCell(1, "17a"), ASN_GAUGE), "no value");
    EXPECT_EQ(number(*textCell(1, ""), ASN_GAUGE), "no value");
    EXPECT_EQ(number(*textCell(1, "99999999999999999999"), ASN_COUNTER64), "no value");
}

TEST(ValueOfCell, AnEmptyNumberAndAPreparedCellGiveNoValue) {
    EXPECT_EQ(number(*numberCell(1, 0, CTLVCell::TLV_TYPE_UINT, 0), ASN_GAUGE), "no value");
    EXPECT_EQ(octets(CTLVCell()), "no value");
}

TEST(CheckVarbind, ComparesTypeLengthAndValue) {
    const MibModel model = loadMib(sampleMib());
    const MibObject& table = *model.find(SAMPLE_TABLE);
    const MibSyntax& name = table.column(1)->syntax;   // 1 to 8 octets
    const MibSyntax& size = table.column(2)->syntax;   // 1..10 | 20..30
    const MibSyntax& level = table.column(5)->syntax;  // 1, 3
    EXPECT_EQ(checkVarbind(text("abc").list, name), SNMP_ERR_NOERROR);
    EXPECT_EQ(checkVarbind(text("").list, name), SNMP_ERR_WRONGLENGTH);
    EXPECT_EQ(checkVarbind(text("123456789").list, name), SNMP_ERR_WRONGLENGTH);
    EXPECT_EQ(checkVarbind(text(std::string("a\0b", 3)).list, name), SNMP_ERR_WRONGVALUE);
    EXPECT_EQ(checkVarbind(integer(ASN_INTEGER, 1).list, name), SNMP_ERR_WRONGTYPE);
    EXPECT_EQ(checkVarbind(integer(ASN_GAUGE, 10).list, size), SNMP_ERR_NOERROR);
    EXPECT_EQ(checkVarbind(integer(ASN_GAUGE, 11).list, size), SNMP_ERR_WRONGVALUE);
    EXPECT_EQ(checkVarbind(integer(ASN_INTEGER, 10).list, size), SNMP_ERR_WRONGTYPE);
    EXPECT_EQ(checkVarbind(integer(ASN_INTEGER, 3).list, level), SNMP_ERR_NOERROR);
    EXPECT_EQ(checkVarbind(integer(ASN_INTEGER, 2).list, level), SNMP_ERR_WRONGVALUE);
}

TEST(CellOfVarbind, TextBecomesAStringCellWithItsZero) {
    const auto cell = cellOfVarbind(text("10.0.0.1").list, 6);
    EXPECT_EQ(cell->tag(), 6);
    EXPECT_EQ(cell->type(), CTLVCell::TLV_TYPE_STRING);
    EXPECT_EQ(cell->length(), 9);
    EXPECT_EQ(cell->toString(), "10.0.0.1");
}

TEST(CellOfVarbind, NumbersBecomeCellsOfFourBytes) {
    const auto unsignedCell = cellOfVarbind(integer(ASN_GAUGE, 4294967295).list, 2);
    EXPECT_EQ(unsignedCell->type(), CTLVCell::TLV_TYPE_UINT);
    EXPECT_EQ(unsignedCell->length(), 4);
    EXPECT_EQ(unsignedCell->toString(), "4294967295");
    const auto signedCell = cellOfVarbind(integer(ASN_INTEGER, -2).list, 2);
    EXPECT_EQ(signedCell->type(), CTLVCell::TLV_TYPE_INT);
    EXPECT_EQ(signedCell->toString(), "-2");
}

TEST(RowNumber, IsTheRecordsIdentifier) {
    const MibModel model = loadMib(sampleMib());
    EXPECT_EQ(rowNumber(*model.find(SAMPLE_TABLE), *makeRow(17), 0), 17U);
}

TEST(RowNumber, IsThePositionOfARecordWithoutIdentifier) {
    const MibModel model = loadMib(sampleMib());
    EXPECT_EQ(rowNumber(*model.find(SAMPLE_TABLE), *makeRow(CTLVRecordV3::NO_IDENTIFIER), 0), 1U);
    EXPECT_EQ(rowNumber(*model.find(SAMPLE_TABLE), *makeRow(CTLVRecordV3::NO_IDENTIFIER), 4), 5U);
}

TEST(RowNumber, OutsideTheIndexColumnsRangeIsNone) {
    const MibModel model = loadMib(sampleMib());
    EXPECT_EQ(rowNumber(*model.find(SAMPLE_TABLE), *makeRow(0), 0), std::nullopt);
    EXPECT_EQ(rowNumber(*model.find(SAMPLE_TABLE), *makeRow(65536), 0), std::nullopt);
}

TEST(RowNumber, IsSpelledInTheColumnThatTheTableIsRegisteredWith) {
    MibObject destinations;
    destinations.table = true;
    destinations.root = parseOid("1.3.6.1.4.1.99999.4.1");
    destinations.index = {1, 65535};
    TableTraits traits;
    traits.numberColumn = 4;
    registerTable(destinations.root, traits);
    const auto rowWith = [](const char* index) { return makeRow(CTLVRecordV3::NO_IDENTIFIER, textCell(4, index)); };
    EXPECT_EQ(rowNumber(destinations, *rowWith("12"), 0), 12U);
    EXPECT_EQ(rowNumber(destinations, *rowWith(""), 0), std::nullopt);
    EXPECT_EQ(rowNumber(destinations, *rowWith("1x"), 0), std::nullopt);
    EXPECT_EQ(rowNumber(destinations, *rowWith("-1"), 0), std::nullopt);
    EXPECT_EQ(rowNumber(destinations, *makeRow(CTLVRecordV3::NO_IDENTIFIER), 0), std::nullopt);
}

}  // namespace vrx
