// What the codec does with memory: values are wiped before it is given back, and a failing allocation leaks nothing.
// This program has its own operator new and delete, so it is apart from the other tests.
#include <gmock/gmock.h>

#include <algorithm>
#include <cstdlib>
#include <new>
#include <thread>
#include <vector>

#include "ace_log_capture.h"
#include "wire_bytes.h"

namespace {

// One block to look at when it is given back.
const void* watched = nullptr;
std::size_t watchedSize = 0;
bool watchedReleased = false;
bool watchedWiped = false;

long allocationsLeft = -1;  // the allocation after so many fails, once; -1: none

void watch(const CTLVCell& cell) {
    watched = cell.data();
    watchedSize = cell.length();
    watchedReleased = watchedWiped = false;
}

void* allocateOrNull(std::size_t size) noexcept {
    if (allocationsLeft == 0) {
        allocationsLeft = -1;
        return nullptr;
    }
    if (allocationsLeft > 0) --allocationsLeft;
    return std::malloc(size == 0 ? 1 : size);
}

void* allocate(std::size_t size) {
    if (void* const block = allocateOrNull(size)) return block;
    throw std::bad_alloc();
}

void release(void* block) noexcept {
    if (block != nullptr && block == watched) {
        const auto* const bytes = static_cast<const unsigned char*>(block);
        watchedReleased = true;
        watchedWiped = true;
        for (std::size_t i = 0; i < watchedSize; ++i) watchedWiped = watchedWiped && bytes[i] == 0;
        watched = nullptr;
    }
    std::free(block);
}

}  // namespace

void* operator new(std::size_t size) {
    return allocate(size);
}
void* operator new[](std::size_t size) {
    return allocate(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return allocateOrNull(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return allocateOrNull(size);
}
void operator delete(void* block) noexcept {
    release(block);
}
void operator delete[](void* block) noexcept {
    release(block);
}
void operator delete(void* block, std::size_t) noexcept {
    release(block);
}
void operator delete[](void* block, std::size_t) noexcept {
    release(block);
}

TEST(ValueWiping, LongValueIsZeroWhenItsCellEnds) {
    auto cell = makeCell(CTLVCell::TLV_TYPE_OCTETS, 1, Bytes(100, 0x5A));
    watch(*cell);
    cell.reset();
    EXPECT_TRUE(watchedReleased);
    EXPECT_TRUE(watchedWiped);
}

TEST(ValueWiping, LongValueIsZeroWhenItIsReplaced) {
    for (const std::size_t next : {0U, 3U, 100U}) {
        const auto cell = makeCell(CTLVCell::TLV_TYPE_OCTETS, 1, Bytes(100, 0x5A));
        watch(*cell);
        cell->set_i(CTLVCell::TLV_TYPE_OCTETS, 1, Bytes(next, 0x5A).data(), next);
        EXPECT_TRUE(watchedReleased) << next;
        EXPECT_TRUE(watchedWiped) << next;
    }
}

TEST(ValueWiping, LongValueIsZeroWhenItsRecordIsClearedOrEnds) {
    auto row = makeRecord(1);
    append(*row, makeCell(CTLVCell::TLV_TYPE_OCTETS, 1, Bytes(100, 0x5A)));
    watch((*row)[1]);
    row->clear();
    EXPECT_TRUE(watchedWiped);
    append(*row, makeCell(CTLVCell::TLV_TYPE_OCTETS, 1, Bytes(100, 0x5A)));
    watch((*row)[1]);
    row.reset();
    EXPECT_TRUE(watchedWiped);
}

// Values that stand inside the cell: its own memory is looked at.
TEST(ValueWiping, ShortValueIsZeroWhenItsCellEndsOrIsReplaced) {
    const Bytes value(16, 0x5A);
    alignas(CTLVCell) unsigned char place[sizeof(CTLVCell)];
    const auto countOfValueBytes = [&place] {
        std::size_t count = 0;
        for (const unsigned char byte : place) count += byte == 0x5A;
        return count;
    };
    for (std::size_t length = 1; length <= 16; ++length) {
        std::fill(std::begin(place), std::end(place), 0);
        auto* const cell = ::new (place) CTLVCell;
        cell->setCell(0, reinterpret_cast<const char*>(value.data()), length);
        EXPECT_EQ(countOfValueBytes(), length);
        cell->setCell(0, "x", 1);
        EXPECT_EQ(countOfValueBytes(), 0U) << length;
        cell->setCell(0, reinterpret_cast<const char*>(value.data()), length);
        cell->setCell(0, std::string(100, 'y').data(), 100);
        EXPECT_EQ(countOfValueBytes(), 0U) << length;
        cell->setCell(0, reinterpret_cast<const char*>(value.data()), length);
        cell->~CTLVCell();
        EXPECT_EQ(countOfValueBytes(), 0U) << length;
    }
}

TEST(AllocationFailure, CellKeepsItsValue) {
    const auto cell = makeCell(CTLVCell::TLV_TYPE_STRING, 1, {'a', 0});
    const Bytes longValue(100, 0x5A);
    allocationsLeft = 0;
    EXPECT_THROW(cell->set_i(CTLVCell::TLV_TYPE_OCTETS, 2, longValue.data(), longValue.size()), std::bad_alloc);
    EXPECT_EQ(cell->tag(), 1);
    EXPECT_EQ(cell->toString(), "a");
}

TEST(AllocationFailure, RecordWithoutListIsNotMade) {
    allocationsLeft = 0;  // the list's sentinel
    EXPECT_THROW(CTLVRecordV3(1, 32), std::bad_alloc);
}

TEST(AllocationFailure, CellThatIsNotAppendedStaysTheCallers) {
    CTLVRecordV3 record(1, 32);
    const auto cell = makeCell(CTLVCell::TLV_TYPE_UINT, 1, {1});
    allocationsLeft = 0;
    EXPECT_THROW(record.append(cell.get()), std::bad_alloc);
    EXPECT_EQ(record.count(), 0U);
}

// A record that is long enough to be searched by its index.
TEST(AllocationFailure, SearchGoesOnWhereTheIndexStopped) {
    constexpr unsigned short FIRST = 40;
    constexpr unsigned short ALL = 50;
    CTLVRecordV3 record(1, 32);
    for (unsigned short tag = 0; tag < FIRST; ++tag) append(record, makeCell(CTLVCell::TLV_TYPE_UINT, tag, {1}));
    EXPECT_TRUE(record.has(0));
    for (unsigned short tag = FIRST; tag < ALL; ++tag) append(record, makeCell(CTLVCell::TLV_TYPE_UINT, tag, {1}));
    for (const long before : {0, 1, 3}) {
        allocationsLeft = before;
        EXPECT_THROW((void)record.find(ALL - 1), std::bad_alloc) << before;
    }
    for (unsigned short tag = 0; tag < ALL; ++tag) EXPECT_TRUE(record.has(tag));
}

TEST(AllocationFailure, SearchWithoutMemoryForTheIndexFindsNothing) {
    const AceLogCapture log;
    CTLVRecordV3 record(1, 32);
    for (unsigned short tag = 0; tag < 40; ++tag) append(record, makeCell(CTLVCell::TLV_TYPE_UINT, tag, {1}));
    allocationsLeft = 1;  // the index object, then its buckets
    EXPECT_FALSE(record.has(0));
    EXPECT_THAT(log.errors(), ::testing::ElementsAre("ACE_Hash_Map_Manager_Ex\n"));
}

// Cells that begin on one thread and end on another, more than a thread keeps for later.
TEST(CellMemory, CellsMayEndOnAnotherThread) {
    for (int round = 0; round < 3; ++round) {
        std::vector<std::unique_ptr<CTLVCell>> cells;
        std::thread([&cells] {
            for (int i = 0; i < 3000; ++i) cells.push_back(makeCell(CTLVCell::TLV_TYPE_UINT, 1, {1, 2}));
        }).join();
        for (const auto& cell : cells) EXPECT_EQ(bytesOf(*cell), (Bytes{1, 2}));
        std::thread([&cells] { cells.clear(); }).join();
    }
}

// Every allocation of a decode fails in turn: bad_alloc, or a record without index; never a leak or half a record.
TEST(AllocationFailure, AnywhereInDecodeLeavesAUsablePackage) {
    Bytes manyCells;
    for (unsigned int tag = 0; tag < 40; ++tag) manyCells = manyCells + cell(tag, 1, Bytes(tag, 0x5A));
    OddBuffer buffer(packageOf(record(1, cell(1, 1, Bytes(50, 1))) + record(2, manyCells) + recordHead(3, 0)));
    const AceLogCapture log;  // the failure of an index is logged
    bool failed = true;
    for (long before = 0; failed; ++before) {
        CR8KPackageV3 package;
        unsigned int result = 0;
        allocationsLeft = before;
        try {
            result = package.decode(buffer.data(), buffer.size());
            failed = allocationsLeft == -1;
        } catch (const std::bad_alloc&) {
            EXPECT_LT(package.records().size(), 3U);
            EXPECT_EQ(package.head().uiDataLen, 0U);
        }
        allocationsLeft = -1;
        if (result != 0) {
            unsigned char* out = nullptr;
            ASSERT_EQ(package.encode(out), buffer.size());
            const std::unique_ptr<unsigned char[]> owner(out);
            EXPECT_EQ(Bytes(out, out + buffer.size()), buffer.bytes());
        }
    }
}
