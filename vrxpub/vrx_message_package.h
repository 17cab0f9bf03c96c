// One backend message: a 28-byte header and records. docs/tlv-format.md has the layout byte by byte.
//
//     package = head record*            head = magic version params uiDataLen           28 bytes, little-endian
//     record  = identifier length cell*                                                  10 bytes and the cells
//     cell    = tag-type length value                                                     4 bytes and the value
//
// Threads: a package belongs to one request; no locks. Ownership: package owns records, record owns cells. Sizes are
// bytes. Refused input gives a result, never an exception, and a line in the ACE log at error priority.
#pragma once

#include <cstddef>
#include <list>
#include <memory>
#include <sstream>

#include "vrxpub/vrx_tlv_record.h"

struct TLVMsgHeadV3 {
    static constexpr unsigned int MAGIC = 0x55555555;
    static constexpr unsigned int VERSION = 3;
    static constexpr unsigned int SIZE = 4 * 4 + 4 * 2 + 4;  // on the wire

    unsigned int uiMagic = MAGIC;
    unsigned int uiVersion = VERSION;
    unsigned int uiHeadParam1 = 0;
    unsigned int uiHeadParam2 = 0xFFFFFFFF;
    unsigned short usHeadParam1 = 0xFFFD;
    unsigned short usHeadParam2 = 0xFFFF;
    unsigned short usHeadParam3 = 0xFFFF;
    unsigned short usHeadParam4 = 0xFFFF;
    unsigned int uiDataLen = 0;  // bytes after the header

    void dump(std::ostringstream& os) const;
};

template <typename MSG_S_HEAD>
class CTLVPackageV3 {
public:
    static constexpr unsigned int FAILURE = ~0U;  // result of encode and decode

    CTLVPackageV3();
    CTLVPackageV3(const CTLVPackageV3&) = delete;
    CTLVPackageV3& operator=(const CTLVPackageV3&) = delete;

    // Slots in this order: do not reorder.
    virtual ~CTLVPackageV3();

    // Appends the records of a received buffer and takes over its header fields. Returns the bytes of the records, or
    // FAILURE: with a bad header the package is as before, with a bad record it holds no records at all.
    virtual unsigned int decode(unsigned char* buf, unsigned int size);

    // Both forms set the header's uiDataLen. A record whose cells take more than 65535 bytes is written with the low 16
    // bits of their length and all its cells; a package beyond 4 GiB is refused.
    // Allocates `out` (the caller's, delete[]) and returns its size.
    virtual unsigned int encode(unsigned char*& out);

    // Writes into the caller's buffer; the size written, or FAILURE when `buf` is null or too small.
    virtual unsigned int encode(unsigned char* buf, unsigned int size);

    virtual void clear();  // releases all records; the header stays
    virtual void dump(std::ostringstream& os) const;

    // The record at a position; CVRX_Exception "record don't exist, index is N" beyond the last.
    CTLVRecordV3* operator[](std::size_t index) const;

    // Parses one record of at most `remain` bytes. `out`: a new record (the caller's), or null when it is malformed.
    // Returns the record's size on the wire; for a malformed one 0, or its claimed size when that exceeds `remain`.
    unsigned int getRecord(unsigned char* buf, unsigned int remain, CTLVRecordV3*& out);

    // Adds a record at the end; CVRX_Exception for a null one.
    void append(std::unique_ptr<CTLVRecordV3> record);

    std::list<CTLVRecordV3*>& records() { return m_records; }  // owned by the package
    const std::list<CTLVRecordV3*>& records() const { return m_records; }
    MSG_S_HEAD& head() { return m_head; }
    const MSG_S_HEAD& head() const { return m_head; }

private:
    static bool verifyMsgHead(const unsigned char* buf, unsigned int size);
    unsigned long long updateDataLen();
    void write(unsigned char* buf, const unsigned char* end) const;

    std::list<CTLVRecordV3*> m_records;
    MSG_S_HEAD m_head;
};

extern template class CTLVPackageV3<TLVMsgHeadV3>;
using CR8KPackageV3 = CTLVPackageV3<TLVMsgHeadV3>;
