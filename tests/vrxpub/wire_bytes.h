// Packages of the tests as lists of bytes, and buffers in which a sanitizer sees the first byte too far.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "vrxpub/vrx_message_package.h"

using Bytes = std::vector<unsigned char>;

inline Bytes operator+(Bytes left, const Bytes& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

template <std::size_t COUNT>
Bytes littleEndian(unsigned long long value) {
    Bytes bytes;
    for (std::size_t i = 0; i < COUNT; ++i) bytes.push_back(static_cast<unsigned char>(value >> (8 * i)));
    return bytes;
}
inline Bytes le16(unsigned long long value) {
    return littleEndian<2>(value);
}
inline Bytes le32(unsigned long long value) {
    return littleEndian<4>(value);
}
inline Bytes le64(unsigned long long value) {
    return littleEndian<8>(value);
}

// A header with the defaults of a new package.
inline Bytes head(unsigned int dataLen) {
    return Bytes{0x55, 0x55, 0x55, 0x55, 3,    0,    0,    0,    0,    0,    0,    0,
                 0xFF, 0xFF, 0xFF, 0xFF, 0xFD, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF} +
           le32(dataLen);
}
inline Bytes recordHead(unsigned long long identifier, unsigned int recordLen) {
    return le64(identifier) + le16(recordLen);
}
inline Bytes cell(unsigned int tag, unsigned int type, const Bytes& value) {
    return le16(tag << 4 | type) + le16(value.size()) + value;
}
inline Bytes record(unsigned long long identifier, const Bytes& cells) {
    return recordHead(identifier, static_cast<unsigned int>(cells.size())) + cells;
}
inline Bytes packageOf(const Bytes& records) {
    return head(static_cast<unsigned int>(records.size())) + records;
}

// A heap copy at an odd address whose last byte is the last of its block.
class OddBuffer {
public:
    explicit OddBuffer(std::size_t size) : m_block(new unsigned char[size + 1]), m_size(size) {}
    explicit OddBuffer(const Bytes& bytes) : OddBuffer(bytes.size()) {
        for (std::size_t i = 0; i < bytes.size(); ++i) data()[i] = bytes[i];
    }
    unsigned char* data() { return m_block.get() + 1; }
    unsigned int size() const { return static_cast<unsigned int>(m_size); }
    Bytes bytes() { return Bytes(data(), data() + m_size); }

private:
    std::unique_ptr<unsigned char[]> m_block;
    std::size_t m_size;
};

inline Bytes bytesOf(const CTLVCell& cell) {
    return cell.length() == 0 ? Bytes{} : Bytes(cell.data(), cell.data() + cell.length());
}

inline std::unique_ptr<CTLVCell> makeCell(CTLVCell::ETLVType type, unsigned short tag, const Bytes& value) {
    auto made = std::make_unique<CTLVCell>();
    made->set_i(type, tag, value.data(), value.size());
    return made;
}

inline void append(CTLVRecordV3& record, std::unique_ptr<CTLVCell> cell) {
    record.append(cell.get());
    (void)cell.release();
}

inline std::unique_ptr<CTLVRecordV3> makeRecord(unsigned long long identifier) {
    return std::make_unique<CTLVRecordV3>(identifier, CTLVRecordV3::DEFAULT_BUCKETS);
}
