#include "vrxpub/vrx_message_package.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <locale>
#include <sstream>
#include <type_traits>

#include "ace_log_capture.h"
#include "module/vrx_exception.h"
#include "wire_bytes.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;

namespace {

constexpr unsigned int FAILURE = CR8KPackageV3::FAILURE;

const std::string INVALID_HEAD = "invalid MSG header!\n";
const std::string TOO_SHORT =
    "at File=FILE,Line=LINE,Function=CTLVPackageV3::verifyMsgHead: pBuf is null or uiBufSize equal zero!\n";
const std::string GET_RECORD =
    "at File=FILE,Line=LINE,Function=u_int CTLVPackageV3<MSG_S_HEAD>::getRecord(unsigned char*, unsigned int, "
    "CTLVRecordV3*&) [with MSG_S_HEAD = TLVMsgHeadV3; u_int = unsigned int]";

std::string failedAt(unsigned int size, unsigned long long pos) {
    return "at File=FILE,Line=LINE : it failed to parse record, buf size=" + std::to_string(size) +
           ", parsing pos=" + std::to_string(pos) + "\n";
}
std::string restTooShort(unsigned int size, unsigned long long pos) {
    return "at File=FILE,Line=LINE: MIN_RECORD_SIZE(10) > uiRemainLen, buf size=" + std::to_string(size) +
           ", parsing pos=" + std::to_string(pos) + "\n";
}

Bytes encoded(CR8KPackageV3& package) {
    unsigned char* out = nullptr;
    const unsigned int size = package.encode(out);
    const std::unique_ptr<unsigned char[]> owner(out);
    return Bytes(out, out + size);
}

unsigned int decode(CR8KPackageV3& package, const Bytes& bytes) {
    OddBuffer buffer(bytes);
    return package.decode(buffer.data(), buffer.size());
}

// A package that already holds a record, and its bytes.
void fill(CR8KPackageV3& package) {
    auto row = makeRecord(99);
    append(*row, makeCell(CTLVCell::TLV_TYPE_UINT, 1, {1, 0, 0, 0}));
    package.append(std::move(row));
}

// All nine fields, as an encoder would write them.
Bytes fieldsOf(const TLVMsgHeadV3& head) {
    return le32(head.uiMagic) + le32(head.uiVersion) + le32(head.uiHeadParam1) + le32(head.uiHeadParam2) +
           le16(head.usHeadParam1) + le16(head.usHeadParam2) + le16(head.usHeadParam3) + le16(head.usHeadParam4) +
           le32(head.uiDataLen);
}

// Values that no received header of these tests has.
void fillHead(CR8KPackageV3& package) {
    package.head().uiHeadParam1 = 7;
    package.head().uiHeadParam2 = 8;
    package.head().usHeadParam1 = 9;
    package.head().usHeadParam2 = 10;
    package.head().usHeadParam3 = 11;
    package.head().usHeadParam4 = 12;
    package.head().uiDataLen = 13;
}

Bytes withWord(Bytes bytes, std::size_t offset, unsigned int value) {
    const Bytes word = le32(value);
    for (std::size_t i = 0; i < word.size(); ++i) bytes[offset + i] = word[i];
    return bytes;
}

const Bytes AB_CELL = cell(5, 2, {'a', 'b', 0});

}  // namespace

TEST(MessagePackage, FailureIsNoSizeThatAPackageHas) {
    EXPECT_EQ(FAILURE, 4294967295U);
}

// --- encode ---

TEST(MessagePackage, EmptyPackageEncodesTo28Bytes) {
    CR8KPackageV3 package;
    EXPECT_THAT(encoded(package),
                ElementsAre(0x55, 0x55, 0x55, 0x55, 0x03, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0xFF, 0xFF, 0xFF,
                            0xFF, 0xFD, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x00, 0x00, 0x00, 0x00));
}

TEST(MessagePackage, OneTextCellEncodesExactly) {
    CR8KPackageV3 package;
    auto row = makeRecord(1);
    auto text = std::make_unique<CTLVCell>();
    text->set(5, "ab");
    append(*row, std::move(text));
    package.append(std::move(row));
    EXPECT_THAT(encoded(package),
                ElementsAre(0x55, 0x55, 0x55, 0x55, 0x03, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0xFF, 0xFF, 0xFF,
                            0xFF, 0xFD, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x11, 0x00, 0x00, 0x00, 0x01, 0x00,
                            0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x07, 0x00, 0x52, 0x00, 0x03, 0x00, 0x61, 0x62, 0x00));
    EXPECT_EQ(package.head().uiDataLen, 17U);
}

TEST(MessagePackage, HeaderFieldsAreWrittenInTheirOrder) {
    CR8KPackageV3 package;
    package.head().uiHeadParam1 = 0x11121314;
    package.head().uiHeadParam2 = 0x21222324;
    package.head().usHeadParam1 = 0x3132;
    package.head().usHeadParam2 = 0x4142;
    package.head().usHeadParam3 = 0x5152;
    package.head().usHeadParam4 = 0x6162;
    EXPECT_EQ(encoded(package), le32(0x55555555) + le32(3) + le32(0x11121314) + le32(0x21222324) + le16(0x3132) +
                                    le16(0x4142) + le16(0x5152) + le16(0x6162) + le32(0));
}

TEST(MessagePackage, EncodeIntoTooSmallBufferIsRefused) {
    const AceLogCapture log;
    CR8KPackageV3 package;
    OddBuffer buffer(27);
    EXPECT_EQ(package.encode(buffer.data(), buffer.size()), FAILURE);
    EXPECT_THAT(log.messages(), ElementsAre("buf size is less than data size! buf size=27, data size=28!\n"));
}

TEST(MessagePackage, EncodeIntoBufferOneByteTooSmallWritesNothing) {
    const AceLogCapture log;
    CR8KPackageV3 package;
    fill(package);
    OddBuffer buffer(Bytes(45, 0xEE));
    EXPECT_EQ(package.encode(buffer.data(), buffer.size()), FAILURE);
    EXPECT_THAT(log.messages(), ElementsAre("buf size is less than data size! buf size=45, data size=46!\n"));
    EXPECT_EQ(buffer.bytes(), Bytes(45, 0xEE));
    EXPECT_EQ(package.head().uiDataLen, 18U);  // the sum is stored before the buffer is looked at
}

TEST(MessagePackage, EncodeIntoExactBufferWritesTheSameBytes) {
    const AceLogCapture log;
    CR8KPackageV3 package;
    fill(package);
    const Bytes expected = encoded(package);
    OddBuffer buffer(46);
    EXPECT_EQ(package.encode(buffer.data(), buffer.size()), 46U);
    EXPECT_EQ(buffer.bytes(), expected);
    EXPECT_THAT(log.errors(), IsEmpty());
}

TEST(MessagePackage, EncodeIntoLargerBufferLeavesTheRest) {
    CR8KPackageV3 package;
    OddBuffer buffer(Bytes(30, 0xEE));
    EXPECT_EQ(package.encode(buffer.data(), buffer.size()), 28U);
    EXPECT_EQ(buffer.bytes(), head(0) + Bytes(2, 0xEE));
}

TEST(MessagePackage, EncodeIntoNullIsRefused) {
    const AceLogCapture log;
    CR8KPackageV3 package;
    fill(package);
    unsigned char* const none = nullptr;
    EXPECT_EQ(package.encode(none, 1000), FAILURE);
    EXPECT_THAT(log.messages(), ElementsAre("buf pointer is null!\n"));
    EXPECT_EQ(package.head().uiDataLen, 18U);
    EXPECT_EQ(package.encode(none, 0), FAILURE);  // and not because it is too small
    EXPECT_THAT(log.messages(), ElementsAre("buf pointer is null!\n", "buf pointer is null!\n"));
}

TEST(MessagePackage, RecordsFollowEachOtherInTheirOrderWithoutPadding) {
    CR8KPackageV3 package;
    for (const unsigned long long identifier : {0x0102030405060708ULL, 2ULL, ~0ULL}) {
        auto row = makeRecord(identifier);
        if (identifier == 2) append(*row, makeCell(CTLVCell::TLV_TYPE_OCTETS, 7, {1, 2, 3}));
        package.append(std::move(row));
    }
    EXPECT_EQ(encoded(package),
              head(37) + recordHead(0x0102030405060708, 0) + record(2, cell(7, 1, {1, 2, 3})) + recordHead(~0ULL, 0));
    EXPECT_EQ(package.head().uiDataLen, 37U);
}

TEST(MessagePackage, CellsAreWrittenInTheOrderOfTheirInsertion) {
    CR8KPackageV3 package;
    auto row = makeRecord(1);
    append(*row, makeCell(CTLVCell::TLV_TYPE_UINT, 12, {1, 0}));
    append(*row, makeCell(CTLVCell::TLV_TYPE_STRING, 8, {}));
    append(*row, makeCell(CTLVCell::TLV_TYPE_INT, 4095, {9}));
    package.append(std::move(row));
    EXPECT_EQ(encoded(package), packageOf(record(1, cell(12, 3, {1, 0}) + cell(8, 2, {}) + cell(4095, 4, {9}))));
}

TEST(MessagePackage, RecordOf65535BytesKeepsItsLength) {
    CR8KPackageV3 package;
    auto row = makeRecord(1);
    const Bytes value(65531, 0x5A);
    append(*row, makeCell(CTLVCell::TLV_TYPE_OCTETS, 1, value));
    package.append(std::move(row));
    const Bytes expected = head(65545) + recordHead(1, 65535) + cell(1, 1, value);
    EXPECT_EQ(encoded(package), expected);
    CR8KPackageV3 back;
    EXPECT_EQ(decode(back, expected), 65545U);
    EXPECT_EQ(bytesOf((*back[0])[1]), value);
}

TEST(MessagePackage, LongerRecordIsWrittenWithTheLow16BitsOfItsLengthAndAllCells) {
    CR8KPackageV3 package;
    auto row = makeRecord(1);
    const Bytes value(65534, 0x5A);  // 65538 bytes with the cell's header, 2 in 16 bits
    append(*row, makeCell(CTLVCell::TLV_TYPE_OCTETS, 1, value));
    append(*row, makeCell(CTLVCell::TLV_TYPE_UINT, 2, {7}));  // 65543, 7 in 16 bits
    package.append(std::move(row));
    EXPECT_EQ(encoded(package), head(65553) + recordHead(1, 7) + cell(1, 1, value) + cell(2, 3, {7}));
}

// --- decode, good packages ---

// As long as they are: what follows a value on the wire is not part of it.
TEST(MessagePackage, DecodedNumbersEndWithTheirValue) {
    CR8KPackageV3 package;
    auto row = makeRecord(1);
    const unsigned char wide[] = {1, 2, 3, 4, 5, 6, 7, 8};
    for (unsigned short length = 0; length <= 8; ++length) {
        append(*row, makeCell(CTLVCell::TLV_TYPE_UINT, length, Bytes(wide, wide + length)));
    }
    package.append(std::move(row));
    CR8KPackageV3 decoded;
    ASSERT_NE(decode(decoded, encoded(package)), FAILURE);
    const CTLVRecordV3& read = *decoded.records().front();
    unsigned long long number = 0;
    for (unsigned short length = 0; length <= 8; ++length) {
        if (length > 0) number |= static_cast<unsigned long long>(length) << (8 * (length - 1));
        EXPECT_EQ(CTLVCell::ValueCast<unsigned long long>()(&read[length]), number) << length;
    }
}

TEST(MessagePackage, DecodesOneTextCell) {
    const AceLogCapture log;
    CR8KPackageV3 package;
    EXPECT_EQ(decode(package, head(17) + recordHead(1, 7) + AB_CELL), 17U);
    ASSERT_EQ(package.records().size(), 1U);
    EXPECT_EQ(package[0]->identifier(), 1U);
    ASSERT_EQ(package[0]->count(), 1U);
    const CTLVCell& text = (*package[0])[5];
    EXPECT_EQ(text.word(), 0x0052);
    EXPECT_THAT(bytesOf(text), ElementsAre('a', 'b', 0));
    EXPECT_THAT(log.errors(), IsEmpty());
}

TEST(MessagePackage, HeaderOfAConstPackageIsTheSame) {
    CR8KPackageV3 package;
    package.head().uiHeadParam1 = 7;
    const CR8KPackageV3& seen = package;
    EXPECT_EQ(seen.head().uiHeadParam1, 7U);
    EXPECT_EQ(&seen.head(), &package.head());
}

TEST(MessagePackage, DecodesPackageWithoutRecords) {
    CR8KPackageV3 package;
    Bytes bytes = head(0);
    bytes[8] = 1;  // uiHeadParam1
    EXPECT_EQ(decode(package, bytes), 0U);
    EXPECT_THAT(package.records(), IsEmpty());
    EXPECT_EQ(package.head().uiHeadParam1, 1U);
}

TEST(MessagePackage, DecodeTakesOverTheHeaderButNotMagicAndVersion) {
    CR8KPackageV3 package;
    package.head().uiMagic = 1;
    package.head().uiVersion = 2;
    EXPECT_EQ(decode(package, le32(0x55555555) + le32(3) + le32(0x11121314) + le32(0x21222324) + le16(0x3132) +
                                  le16(0x4142) + le16(0x5152) + le16(0x6162) + le32(10) + recordHead(5, 0)),
              10U);
    EXPECT_EQ(package.head().uiMagic, 1U);
    EXPECT_EQ(package.head().uiVersion, 2U);
    EXPECT_EQ(package.head().uiHeadParam1, 0x11121314U);
    EXPECT_EQ(package.head().uiHeadParam2, 0x21222324U);
    EXPECT_EQ(package.head().usHeadParam1, 0x3132);
    EXPECT_EQ(package.head().usHeadParam2, 0x4142);
    EXPECT_EQ(package.head().usHeadParam3, 0x5152);
    EXPECT_EQ(package.head().usHeadParam4, 0x6162);
    EXPECT_EQ(package.head().uiDataLen, 10U);
}

TEST(MessagePackage, RecordLengthZeroIsARecordWithoutCells) {
    CR8KPackageV3 package;
    EXPECT_EQ(decode(package, packageOf(recordHead(0x0102030405060708, 0))), 10U);
    ASSERT_EQ(package.records().size(), 1U);
    EXPECT_EQ(package[0]->identifier(), 0x0102030405060708U);
    EXPECT_EQ(package[0]->count(), 0U);
}

TEST(MessagePackage, DecodeAppendsToWhatThePackageHolds) {
    CR8KPackageV3 package;
    fill(package);
    EXPECT_EQ(decode(package, packageOf(recordHead(1, 0) + record(2, AB_CELL))), 27U);
    ASSERT_EQ(package.records().size(), 3U);
    EXPECT_EQ(package[0]->identifier(), 99U);
    EXPECT_EQ(package[1]->identifier(), 1U);
    EXPECT_EQ(package[2]->identifier(), 2U);
}

TEST(MessagePackage, BytesAfterTheDataAreIgnored) {
    CR8KPackageV3 package;
    EXPECT_EQ(decode(package, packageOf(recordHead(1, 0)) + Bytes{1, 2, 3}), 10U);
    EXPECT_EQ(package.records().size(), 1U);
}

TEST(MessagePackage, TypesZeroToNineAreCarriedUnchanged) {
    Bytes cells;
    for (unsigned int type = 0; type <= 9; ++type) cells = cells + cell(100 + type, type, Bytes(type, 0x77));
    const Bytes bytes = packageOf(record(1, cells));
    CR8KPackageV3 package;
    EXPECT_EQ(decode(package, bytes), bytes.size() - 28);
    EXPECT_EQ(package[0]->count(), 10U);
    EXPECT_EQ(encoded(package), bytes);
}

TEST(MessagePackage, RepeatedTagsStayOnTheWire) {
    const Bytes bytes = packageOf(record(1, cell(5, 3, {1}) + cell(5, 3, {2})));
    CR8KPackageV3 package;
    EXPECT_EQ(decode(package, bytes), 20U);
    EXPECT_THAT(bytesOf((*package[0])[5]), ElementsAre(1));
    EXPECT_EQ(encoded(package), bytes);
}

TEST(MessagePackage, MoreCellsThanBucketsAreAllFound) {
    Bytes cells;
    for (unsigned int tag = 0; tag < 100; ++tag) cells = cells + cell(tag, 3, {static_cast<unsigned char>(tag)});
    CR8KPackageV3 package;
    EXPECT_EQ(decode(package, packageOf(record(1, cells))), 510U);
    for (unsigned short tag = 0; tag < 100; ++tag) EXPECT_EQ((*package[0])[tag].data()[0], tag);
}

// The largest record there is, all cells without values: 16383 of them and three bytes that are none.
TEST(MessagePackage, FullestRecordDecodes) {
    Bytes cells;
    for (unsigned int i = 0; i < 16382; ++i) cells = cells + cell(i % 4096, 1, {});
    cells = cells + cell(1, 1, {1, 2, 3});
    ASSERT_EQ(cells.size(), 65535U);
    const Bytes bytes = packageOf(record(1, cells));
    CR8KPackageV3 package;
    EXPECT_EQ(decode(package, bytes), 65545U);
    EXPECT_EQ(package[0]->count(), 16383U);
    EXPECT_EQ(encoded(package), bytes);
}

// --- decode, bad headers: the package stays as it was ---

namespace {

struct BadHeadCase {
    const char* name;
    Bytes bytes;
    std::vector<std::string> messages;

    friend void PrintTo(const BadHeadCase& test, std::ostream* os) { *os << test.name; }
};

class BadHead : public ::testing::TestWithParam<BadHeadCase> {};

}  // namespace

TEST_P(BadHead, IsRefusedAndKeepsThePackage) {
    const AceLogCapture log;
    CR8KPackageV3 package;
    fill(package);
    fillHead(package);
    const Bytes before = fieldsOf(package.head());
    EXPECT_EQ(decode(package, GetParam().bytes), FAILURE);
    EXPECT_EQ(log.messages(), GetParam().messages);
    ASSERT_EQ(package.records().size(), 1U);
    EXPECT_EQ(package[0]->identifier(), 99U);
    EXPECT_EQ(fieldsOf(package.head()), before);
}

INSTANTIATE_TEST_SUITE_P(
    MessagePackage, BadHead,
    ::testing::Values(BadHeadCase{"NoBytes", {}, {TOO_SHORT, INVALID_HEAD}},
                      BadHeadCase{"TwentySevenBytes", Bytes(27, 0x55), {TOO_SHORT, INVALID_HEAD}},
                      BadHeadCase{"OtherMagic", withWord(head(0), 0, 0x55555554), {INVALID_HEAD}},
                      BadHeadCase{"MagicInOneByteOther", withWord(head(0), 0, 0x54555555), {INVALID_HEAD}},
                      BadHeadCase{"VersionTwo", withWord(head(0), 4, 2), {INVALID_HEAD}},
                      BadHeadCase{"VersionFour", withWord(head(0), 4, 4), {INVALID_HEAD}},
                      BadHeadCase{"DataLengthOneBeyondTheBuffer", head(11) + recordHead(1, 0), {INVALID_HEAD}},
                      BadHeadCase{"DataLengthOfAnEmptyBuffer", head(1), {INVALID_HEAD}},
                      BadHeadCase{"DataLengthWhoseSumWraps", head(0xFFFFFFE4) + recordHead(1, 0), {INVALID_HEAD}},
                      BadHeadCase{"LargestDataLength", head(0xFFFFFFFF) + recordHead(1, 0), {INVALID_HEAD}}),
    [](const auto& test) { return test.param.name; });

TEST(MessagePackage, NullBufferIsRefused) {
    const AceLogCapture log;
    CR8KPackageV3 package;
    fill(package);
    fillHead(package);
    const Bytes before = fieldsOf(package.head());
    EXPECT_EQ(package.decode(nullptr, 100), FAILURE);
    EXPECT_THAT(log.messages(), ElementsAre(TOO_SHORT, INVALID_HEAD));
    EXPECT_EQ(package.records().size(), 1U);
    EXPECT_EQ(fieldsOf(package.head()), before);
}

TEST(MessagePackage, RefusalIsLoggedWithDatePriorityAndThread) {
    const AceLogCapture log;
    CR8KPackageV3 package;
    (void)decode(package, withWord(head(0), 4, 2));
    ASSERT_EQ(log.errors().size(), 1U);
    EXPECT_THAT(log.errors()[0],
                MatchesRegex("[0-9-]{10} [0-9:]{8}[.][0-9]{6} LM_ERROR [(][0-9]+[)] invalid MSG header!\n"));
}

// --- decode, bad records: the package loses all its records ---

namespace {

struct BadRecordCase {
    const char* name;
    Bytes records;
    std::vector<std::string> messages;

    friend void PrintTo(const BadRecordCase& test, std::ostream* os) { *os << test.name; }
};

class BadRecord : public ::testing::TestWithParam<BadRecordCase> {};

}  // namespace

TEST_P(BadRecord, IsRefusedAndEmptiesThePackage) {
    const AceLogCapture log;
    CR8KPackageV3 package;
    fill(package);
    fillHead(package);
    const Bytes before = fieldsOf(package.head());
    const Bytes bytes = packageOf(GetParam().records);
    EXPECT_EQ(decode(package, bytes), FAILURE);
    EXPECT_EQ(log.messages(), GetParam().messages);
    EXPECT_THAT(package.records(), IsEmpty());
    EXPECT_EQ(fieldsOf(package.head()), before);
}

INSTANTIATE_TEST_SUITE_P(
    MessagePackage, BadRecord,
    ::testing::Values(
        BadRecordCase{"OneByte", Bytes(1, 0), {restTooShort(29, 28)}},
        BadRecordCase{"FiveBytes", Bytes(5, 0), {restTooShort(33, 28)}},
        BadRecordCase{"NineBytes", Bytes(9, 0), {restTooShort(37, 28)}},
        BadRecordCase{"OneByteAfterARecord", recordHead(1, 0) + Bytes(1, 0), {restTooShort(39, 38)}},
        BadRecordCase{"NineBytesAfterARecord", record(1, AB_CELL) + Bytes(9, 0), {restTooShort(54, 45)}},
        BadRecordCase{"RecordLengthOneBeyondTheData",
                      recordHead(1, 8) + AB_CELL,
                      {GET_RECORD + " : record length is too long, (usRecordLen +  MIN_RECORD_SIZE) > uiBufSize "
                                    "->8+10 < 17\n",
                       failedAt(45, 28 + 18)}},
        BadRecordCase{"LargestRecordLength",
                      recordHead(1, 65535),
                      {GET_RECORD + " : record length is too long, (usRecordLen +  MIN_RECORD_SIZE) > uiBufSize "
                                    "->65535+10 < 10\n",
                       failedAt(38, 28 + 65545)}},
        BadRecordCase{"SecondRecordTooLong",
                      record(1, AB_CELL) + recordHead(2, 1),
                      {GET_RECORD + " : record length is too long, (usRecordLen +  MIN_RECORD_SIZE) > uiBufSize "
                                    "->1+10 < 10\n",
                       failedAt(55, 28 + 17 + 11)}},
        BadRecordCase{"RecordOfThreeBytesAtTheEnd",
                      recordHead(1, 3) + Bytes(3, 0),
                      {GET_RECORD + " : (MIN_TLV_SIZE > uiBufSize - pos) ->4 < uiBufSize - 10\n", failedAt(41, 28)}},
        BadRecordCase{"ThreeBytesAfterTheLastCell",
                      recordHead(1, 10) + AB_CELL + Bytes(3, 0),
                      {GET_RECORD + " : (MIN_TLV_SIZE > uiBufSize - pos) ->4 < uiBufSize - 17\n", failedAt(48, 28)}},
        BadRecordCase{"TypeTen",
                      record(1, cell(5, 10, {1})),
                      {GET_RECORD + " : data type unmated, received type is 10\n", failedAt(43, 28)}},
        BadRecordCase{"TypeFifteenAfterAGoodCell",
                      record(1, AB_CELL + cell(4095, 15, {})),
                      {GET_RECORD + " : data type unmated, received type is 15\n", failedAt(49, 28)}},
        BadRecordCase{"BadRecordAfterAGoodOne",
                      record(1, AB_CELL) + record(2, cell(5, 10, {})),
                      {GET_RECORD + " : data type unmated, received type is 10\n", failedAt(59, 45)}},
        BadRecordCase{"ValueOneByteBeyondItsRecord",
                      recordHead(1, 7) + le16(0x0052) + le16(4) + Bytes(3, 'a'),
                      {GET_RECORD + " : data length is too long, ((sDataLen + pos) > usRecordLen + "
                                    "MIN_RECORD_SIZE) ->4+14 > 7+10\n",
                       failedAt(45, 28)}},
        BadRecordCase{"LargestValueLength",
                      recordHead(1, 4) + le16(0x0052) + le16(65535),
                      {GET_RECORD + " : data length is too long, ((sDataLen + pos) > usRecordLen + "
                                    "MIN_RECORD_SIZE) ->65535+14 > 4+10\n",
                       failedAt(42, 28)}},
        // The cell's header is there, but beyond its record: the bytes of the next one are read as a header.
        BadRecordCase{"RecordOfTwoBytesBeforeAnother",
                      recordHead(1, 2) + le16(0x0052) + recordHead(0, 0),
                      {GET_RECORD + " : data length is too long, ((sDataLen + pos) > usRecordLen + "
                                    "MIN_RECORD_SIZE) ->0+14 > 2+10\n",
                       failedAt(50, 28)}},
        // In 16 bits the position would come round to the record's beginning and the parser would never end.
        BadRecordCase{"PositionThatWouldWrapIn16Bits",
                      recordHead(1, 65535) + cell(1, 1, Bytes(65518, 0)) + le16(0x0011) + le16(65535) + Bytes(9, 0),
                      {GET_RECORD + " : data length is too long, ((sDataLen + pos) > usRecordLen + "
                                    "MIN_RECORD_SIZE) ->65535+65536 > 65535+10\n",
                       failedAt(65573, 28)}}),
    [](const auto& test) { return test.param.name; });

TEST(MessagePackage, DecodedRecordCanBeChangedAndExtended) {
    OddBuffer buffer(packageOf(record(1, cell(1, 3, {7}) + cell(2, 1, Bytes(20, 8)))));
    CR8KPackageV3 package;
    ASSERT_EQ(package.decode(buffer.data(), buffer.size()), buffer.size() - TLVMsgHeadV3::SIZE);
    CTLVRecordV3& row = *package[0];
    append(row, makeCell(CTLVCell::TLV_TYPE_OCTETS, 3, Bytes(30, 9)));
    const Bytes grown(40, 6);
    row[1].set_i(CTLVCell::TLV_TYPE_OCTETS, 1, grown.data(), grown.size());
    row[2].set_i(CTLVCell::TLV_TYPE_OCTETS, 2, nullptr, 0);
    unsigned char* out = nullptr;
    const unsigned int size = package.encode(out);
    const std::unique_ptr<unsigned char[]> owner(out);
    EXPECT_EQ(Bytes(out, out + size),
              packageOf(record(1, cell(1, 1, grown) + cell(2, 1, {}) + cell(3, 1, Bytes(30, 9)))));
    row.clear();
    append(row, makeCell(CTLVCell::TLV_TYPE_UINT, 1, {5}));
    EXPECT_EQ(bytesOf(row[1]), Bytes{5});
    EXPECT_EQ(row.count(), 1U);
}

TEST(MessagePackage, DecodesAgainAfterAFailure) {
    const AceLogCapture log;
    CR8KPackageV3 package;
    EXPECT_EQ(decode(package, packageOf(record(1, cell(5, 10, {})))), FAILURE);
    EXPECT_EQ(decode(package, packageOf(record(2, cell(5, 9, {})))), 14U);
    ASSERT_EQ(package.records().size(), 1U);
    EXPECT_EQ(package[0]->identifier(), 2U);
}

// --- getRecord ---

namespace {

struct Parsed {
    unsigned int result;
    std::unique_ptr<CTLVRecordV3> record;
};

Parsed getRecord(const Bytes& bytes) {
    CR8KPackageV3 package;
    OddBuffer buffer(bytes);
    CTLVRecordV3 untouched(0, 32);
    CTLVRecordV3* out = &untouched;  // to be overwritten in every case
    const unsigned int result = package.getRecord(buffer.data(), buffer.size(), out);
    EXPECT_NE(out, &untouched);
    EXPECT_TRUE(package.records().empty());
    return {result, std::unique_ptr<CTLVRecordV3>(out)};
}

}  // namespace

TEST(GetRecord, ReturnsTheRecordAndItsSize) {
    const Parsed parsed = getRecord(record(0x1122, AB_CELL) + Bytes{1, 2, 3});
    EXPECT_EQ(parsed.result, 17U);
    ASSERT_NE(parsed.record, nullptr);
    EXPECT_EQ(parsed.record->identifier(), 0x1122U);
    EXPECT_EQ(parsed.record->length(), 7U);
    EXPECT_EQ((*parsed.record)[5].toString(), "ab");
}

TEST(GetRecord, TooLongReturnsTheClaimedSize) {
    const AceLogCapture log;
    const Parsed parsed = getRecord(recordHead(1, 1));
    EXPECT_EQ(parsed.result, 11U);
    EXPECT_EQ(parsed.record, nullptr);
}

TEST(GetRecord, BadCellReturnsZero) {
    const AceLogCapture log;
    for (const Bytes& bytes : {recordHead(1, 3) + Bytes(3, 0), record(1, AB_CELL + cell(5, 10, {})),
                               recordHead(1, 4) + le16(0x0052) + le16(1)}) {
        const Parsed parsed = getRecord(bytes);
        EXPECT_EQ(parsed.result, 0U);
        EXPECT_EQ(parsed.record, nullptr);
    }
    EXPECT_EQ(log.errors().size(), 3U);
}

TEST(GetRecord, FewerBytesThanARecordHeaderAreRefused) {
    const AceLogCapture log;
    const Parsed parsed = getRecord(Bytes(9, 0));
    EXPECT_EQ(parsed.result, 0U);
    EXPECT_EQ(parsed.record, nullptr);
    EXPECT_THAT(log.messages(), ElementsAre(GET_RECORD + ": MIN_RECORD_SIZE(10) > uiRemainLen\n"));
}

// --- the rest ---

TEST(MessagePackage, PositionBeyondTheLastRecordThrows) {
    CR8KPackageV3 package;
    for (std::size_t count = 0; count < 3; ++count) {
        try {
            (void)package[count];
            FAIL() << "nothing thrown";
        } catch (const CVRX_Exception& e) {
            EXPECT_EQ(std::string(e.what()), "CVRX_Exception: record don't exist, index is " + std::to_string(count));
        }
        package.append(makeRecord(count));
        EXPECT_EQ(package[count]->identifier(), count);
    }
}

TEST(MessagePackage, NullRecordIsRefused) {
    CR8KPackageV3 package;
    EXPECT_THROW(package.append(nullptr), CVRX_Exception);
    EXPECT_THAT(package.records(), IsEmpty());
}

TEST(MessagePackage, ClearKeepsTheHeader) {
    CR8KPackageV3 package;
    fill(package);
    fillHead(package);
    const Bytes before = fieldsOf(package.head());
    package.clear();
    EXPECT_THAT(package.records(), IsEmpty());
    EXPECT_EQ(fieldsOf(package.head()), before);
}

TEST(MessagePackage, IsNotCopyable) {
    EXPECT_FALSE(std::is_copy_constructible_v<CR8KPackageV3>);
    EXPECT_FALSE(std::is_copy_assignable_v<CR8KPackageV3>);
}

TEST(MessagePackage, DumpShowsHeaderAndRecords) {
    CR8KPackageV3 package;
    fill(package);
    package.append(makeRecord(5));
    std::ostringstream os;
    os << std::hex;  // a caller's flags change nothing
    package.dump(os);
    EXPECT_EQ(os.str(),
              "{\n"
              "head: magic 0x55555555 version 3 uiHeadParam1 0x00000000 uiHeadParam2 0xFFFFFFFF usHeadParam1 0xFFFD "
              "usHeadParam2 0xFFFF usHeadParam3 0xFFFF usHeadParam4 0xFFFF uiDataLen 0\n"
              "record 99: 1 cells, 8 bytes\n"
              "  tag 1 type 3 length 4: 1\n"
              "record 5: 0 cells, 0 bytes\n"
              "}\n");
}

namespace {

// Counts how often what was written is flushed, and keeps it.
class FlushCounter : public std::stringbuf {
public:
    int flushes = 0;

private:
    int sync() override {
        ++flushes;
        return 0;
    }
};

// A host's locale that writes 1234 as 1'2'3'4.
class GroupingDigits : public std::numpunct<char> {
    char do_thousands_sep() const override { return '\''; }
    std::string do_grouping() const override { return "\1"; }
};

class GroupingLocale {
public:
    GroupingLocale() : m_former(std::locale::global(std::locale(std::locale::classic(), new GroupingDigits))) {}
    ~GroupingLocale() { std::locale::global(m_former); }
    GroupingLocale(const GroupingLocale&) = delete;
    GroupingLocale& operator=(const GroupingLocale&) = delete;

private:
    std::locale m_former;
};

}  // namespace

TEST(MessagePackage, DumpFlushesAfterEachLine) {
    CR8KPackageV3 package;
    fill(package);
    FlushCounter lines;
    std::ostringstream os;
    static_cast<std::ostream&>(os).rdbuf(&lines);
    package.dump(os);
    const std::string text = lines.str();
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 5);  // "{", head, record, cell, "}"
    EXPECT_EQ(lines.flushes, 5);
}

// A stream takes over the global locale when it is made.
TEST(MessagePackage, NumbersAreNotGroupedInAHostsLocale) {
    const GroupingLocale locale;
    std::ostringstream grouped;
    grouped << 1234;
    ASSERT_EQ(grouped.str(), "1'2'3'4");

    const AceLogCapture log;
    CR8KPackageV3 package;
    const Bytes wrapping =
        recordHead(1, 65535) + cell(1, 1, Bytes(65518, 0)) + le16(0x0011) + le16(65535) + Bytes(9, 0);
    EXPECT_EQ(decode(package, packageOf(wrapping)), FAILURE);
    EXPECT_EQ(decode(package, packageOf(recordHead(1, 65535))), FAILURE);
    EXPECT_EQ(decode(package, packageOf(recordHead(1, 0) + Bytes(9, 0))), FAILURE);
    EXPECT_EQ(decode(package, packageOf(recordHead(1, 23) + cell(1, 1, Bytes(16, 0)) + Bytes(3, 0))), FAILURE);
    EXPECT_EQ(decode(package, packageOf(record(1, cell(5, 15, {})))), FAILURE);
    // A line number of more than one digit would be grouped, too, and not become LINE.
    EXPECT_THAT(log.messages(),
                ElementsAre(GET_RECORD + " : data length is too long, ((sDataLen + pos) > usRecordLen + "
                                         "MIN_RECORD_SIZE) ->65535+65536 > 65535+10\n",
                            failedAt(65573, 28),
                            GET_RECORD + " : record length is too long, (usRecordLen +  MIN_RECORD_SIZE) > uiBufSize "
                                         "->65535+10 < 10\n",
                            failedAt(38, 28 + 65545), restTooShort(47, 38),
                            GET_RECORD + " : (MIN_TLV_SIZE > uiBufSize - pos) ->4 < uiBufSize - 30\n", failedAt(61, 28),
                            GET_RECORD + " : data type unmated, received type is 15\n", failedAt(42, 28)));

    std::ostringstream os;
    package.append(makeRecord(1234567));
    package.head().uiVersion = 1234;
    package.dump(os);
    EXPECT_EQ(os.str(),
              "{\n"
              "head: magic 0x55555555 version 1234 uiHeadParam1 0x00000000 uiHeadParam2 0xFFFFFFFF usHeadParam1 0xFFFD "
              "usHeadParam2 0xFFFF usHeadParam3 0xFFFF usHeadParam4 0xFFFF uiDataLen 0\n"
              "record 1234567: 0 cells, 0 bytes\n"
              "}\n");
    try {
        (void)package[1000];
        FAIL() << "nothing thrown";
    } catch (const CVRX_Exception& e) {
        EXPECT_STREQ(e.what(), "CVRX_Exception: record don't exist, index is 1000");
    }
}

// Callers built elsewhere reach the operations by their slots: the order is part of the interface.
TEST(MessagePackage, VirtualOperationsStandInTheirOrder) {
    struct Overriding : CR8KPackageV3 {
        unsigned int decode(unsigned char*, unsigned int) override { return 1; }
        unsigned int encode(unsigned char*&) override { return 2; }
        unsigned int encode(unsigned char*, unsigned int) override { return 3; }
        void clear() override { called = 4; }
        void dump(std::ostringstream&) const override { called = 5; }
        mutable int called = 0;
    } package;
    const auto slots = *reinterpret_cast<void* const* const*>(&package);
    // Slots 0 and 1 are the two destructors.
    auto* const self = static_cast<CR8KPackageV3*>(&package);
    unsigned char* out = nullptr;
    std::ostringstream os;
    EXPECT_EQ(reinterpret_cast<unsigned int (*)(CR8KPackageV3*, unsigned char*, unsigned int)>(slots[2])(self, out, 0),
              1U);
    EXPECT_EQ(reinterpret_cast<unsigned int (*)(CR8KPackageV3*, unsigned char*&)>(slots[3])(self, out), 2U);
    EXPECT_EQ(reinterpret_cast<unsigned int (*)(CR8KPackageV3*, unsigned char*, unsigned int)>(slots[4])(self, out, 0),
              3U);
    reinterpret_cast<void (*)(CR8KPackageV3*)>(slots[5])(self);
    EXPECT_EQ(package.called, 4);
    reinterpret_cast<void (*)(const CR8KPackageV3*, std::ostringstream&)>(slots[6])(self, os);
    EXPECT_EQ(package.called, 5);
}
