#include "tests/fake_host/tlv_builders.h"

#include <iomanip>

namespace {

std::string littleEndian(unsigned long long number, unsigned int size) {
    std::string bytes;
    for (unsigned int i = 0; i < size; ++i) bytes += static_cast<char>((number >> (8 * i)) & 0xFF);
    return bytes;
}

}  // namespace

bool TlvCell::operator==(const TlvCell& other) const {
    return tag == other.tag && type == other.type && bytes == other.bytes;
}

bool TlvRecord::operator==(const TlvRecord& other) const {
    return identifier == other.identifier && cells == other.cells;
}

std::ostream& operator<<(std::ostream& os, const TlvCell& cell) {
    os << cell.tag << ":" << static_cast<unsigned int>(cell.type) << "=[";
    const std::ios_base::fmtflags flags = os.flags();
    const char* separator = "";
    for (char byte : cell.bytes) {
        os << separator << std::hex << std::setw(2) << std::setfill('0')
           << static_cast<unsigned int>(static_cast<unsigned char>(byte));
        separator = " ";
    }
    os.flags(flags);
    os << "]";
    if (cell.type == CTLVCell::TLV_TYPE_STRING) os << " \"" << cell.bytes.c_str() << "\"";
    return os;
}

std::ostream& operator<<(std::ostream& os, const TlvRecord& record) {
    os << "record ";
    if (record.identifier == NO_IDENTIFIER) {
        os << "without identifier";
    } else {
        os << record.identifier;
    }
    os << " {";
    for (const TlvCell& cell : record.cells) os << "\n    " << cell;
    return os << "}";
}

TlvCell u32(unsigned short tag, unsigned int number) {
    return {tag, CTLVCell::TLV_TYPE_UINT, littleEndian(number, 4)};
}

TlvCell u64(unsigned short tag, unsigned long long number) {
    return {tag, CTLVCell::TLV_TYPE_UINT, littleEndian(number, 8)};
}

TlvCell i32(unsigned short tag, int number) {
    return {tag, CTLVCell::TLV_TYPE_INT, littleEndian(static_cast<unsigned int>(number), 4)};
}

TlvCell text(unsigned short tag, const std::string& value) {
    return {tag, CTLVCell::TLV_TYPE_STRING, value + '\0'};
}

TlvCell noText(unsigned short tag) {
    return {tag, CTLVCell::TLV_TYPE_STRING, ""};
}

TlvCell octets(unsigned short tag, const std::string& bytes) {
    return {tag, CTLVCell::TLV_TYPE_OCTETS, bytes};
}

TlvCell rawCell(unsigned short tag, int type, const std::string& bytes) {
    return {tag, static_cast<CTLVCell::ETLVType>(type), bytes};
}

TlvRecord copyOf(const CTLVRecordV3& record) {
    TlvRecord copy{record.identifier(), {}};
    for (CTLVRecordV3::Position p = record.begin(); p != record.end(); p = p->next_) {
        const CTLVCell& cell = CTLVRecordV3::cellAt(p);
        std::string bytes;
        for (unsigned int i = 0; i < cell.length(); ++i) bytes += static_cast<char>(cell.data()[i]);
        copy.cells.push_back({cell.tag(), cell.type(), bytes});
    }
    return copy;
}

std::vector<TlvRecord> recordsOf(const CR8KPackageV3& package) {
    std::vector<TlvRecord> copies;
    for (const CTLVRecordV3* record : package.records()) copies.push_back(copyOf(*record));
    return copies;
}

std::unique_ptr<CTLVRecordV3> makeRecord(const TlvRecord& record) {
    auto made = std::make_unique<CTLVRecordV3>(record.identifier, CTLVRecordV3::DEFAULT_BUCKETS);
    for (const TlvCell& source : record.cells) {
        auto cell = std::make_unique<CTLVCell>();
        cell->set_i(source.type, source.tag, source.bytes.data(), source.bytes.size());
        made->append(cell.get());
        (void)cell.release();  // the record owns it from here
    }
    return made;
}

void appendRecords(CR8KPackageV3& package, const std::vector<TlvRecord>& records) {
    for (const TlvRecord& record : records) package.append(makeRecord(record));
}

bool RecordMatcher::MatchAndExplain(const TlvRecord& record, testing::MatchResultListener* listener) const {
    if (record == m_expected) return true;
    *listener << "which is " << record;
    return false;
}
