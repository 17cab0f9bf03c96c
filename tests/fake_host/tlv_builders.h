// Messages of the backend as plain values: to build them in one line, to compare them whole, to print them.
//
//     handler.OnSetLeaf(ctx, requestWith(u32(0, 42)), rsp);
//     EXPECT_THAT(recordsOf(rsp), ElementsAre(RecordIs(NO_IDENTIFIER, u32(1, 7), text(2, "disk"))));
#pragma once

#include <gmock/gmock.h>

#include <cstring>
#include <initializer_list>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "vrxpub/vrx_message_package.h"

constexpr unsigned long long NO_IDENTIFIER = CTLVRecordV3::NO_IDENTIFIER;

struct TlvCell {
    unsigned short tag;
    CTLVCell::ETLVType type;
    std::string bytes;  // the value as on the wire

    bool operator==(const TlvCell& other) const;
};
std::ostream& operator<<(std::ostream& os, const TlvCell& cell);

struct TlvRecord {
    unsigned long long identifier;
    std::vector<TlvCell> cells;

    bool operator==(const TlvRecord& other) const;
};
std::ostream& operator<<(std::ostream& os, const TlvRecord& record);

TlvCell u32(unsigned short tag, unsigned int number);
TlvCell u64(unsigned short tag, unsigned long long number);
TlvCell i32(unsigned short tag, int number);
TlvCell text(unsigned short tag, const std::string& value);  // the final zero byte is added
TlvCell noText(unsigned short tag);                          // a string cell of length 0
TlvCell octets(unsigned short tag, const std::string& bytes);
TlvCell rawCell(unsigned short tag, int type, const std::string& bytes);  // any type and length

template <typename... Cells>
TlvRecord recordOf(unsigned long long identifier, Cells... cells) {
    return TlvRecord{identifier, {cells...}};
}

TlvRecord copyOf(const CTLVRecordV3& record);
std::vector<TlvRecord> recordsOf(const CR8KPackageV3& package);
std::unique_ptr<CTLVRecordV3> makeRecord(const TlvRecord& record);
void appendRecords(CR8KPackageV3& package, const std::vector<TlvRecord>& records);

// A package with the given records.
class TestPackage : public CR8KPackageV3 {
public:
    TestPackage() = default;
    explicit TestPackage(const std::vector<TlvRecord>& records) { appendRecords(*this, records); }
};

// A request with one record that holds the cells.
template <typename... Cells>
TestPackage requestWith(Cells... cells) {
    return TestPackage({TlvRecord{NO_IDENTIFIER, {cells...}}});
}

// Matches a TlvRecord, a CTLVRecordV3 or a pointer to one with exactly this identifier and these cells in this order.
class RecordMatcher {
public:
    explicit RecordMatcher(TlvRecord expected) : m_expected(std::move(expected)) {}
    bool MatchAndExplain(const TlvRecord& record, testing::MatchResultListener* listener) const;
    bool MatchAndExplain(const CTLVRecordV3& record, testing::MatchResultListener* listener) const {
        return MatchAndExplain(copyOf(record), listener);
    }
    bool MatchAndExplain(const CTLVRecordV3* record, testing::MatchResultListener* listener) const {
        return record != nullptr && MatchAndExplain(*record, listener);
    }
    void DescribeTo(std::ostream* os) const { *os << "is " << m_expected; }
    void DescribeNegationTo(std::ostream* os) const { *os << "is not " << m_expected; }

private:
    TlvRecord m_expected;
};

template <typename... Cells>
testing::PolymorphicMatcher<RecordMatcher> RecordIs(unsigned long long identifier, Cells... cells) {
    return testing::MakePolymorphicMatcher(RecordMatcher(TlvRecord{identifier, {cells...}}));
}
