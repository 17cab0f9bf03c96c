// What the codec does with memory: values are wiped before it is given back, and a failing allocation leaks nothing.
#include <gmock/gmock.h>

#include <algorithm>
#include <memory>
#include <new>
#include <thread>
#include <vector>

#include "ace_log_capture.h"
#include "tests/failing_memory.h"
#include "wire_bytes.h"

using failing_memory::failAt;
using failing_memory::failEachAllocation;
using failing_memory::isReleased;
using failing_memory::isWiped;
using failing_memory::liveBlocks;

namespace {

void watch(const CTLVCell& cell) {
    failing_memory::watch(cell.data(), cell.length());
}

// A long value, a record that is searched by its index, and one without cells.
Bytes variedPackage() {
    Bytes manyCells;
    for (unsigned int tag = 0; tag < 40; ++tag) manyCells = manyCells + cell(tag, 1, Bytes(tag, 0x5A));
    return packageOf(record(1, cell(1, 1, Bytes(50, 1))) + record(2, manyCells) + recordHead(3, 0));
}

}  // namespace

TEST(ValueWiping, LongValueIsZeroWhenItsCellEnds) {
    auto cell = makeCell(CTLVCell::TLV_TYPE_OCTETS, 1, Bytes(100, 0x5A));
    watch(*cell);
    cell.reset();
    EXPECT_TRUE(isReleased());
    EXPECT_TRUE(isWiped());
}

TEST(ValueWiping, LongValueIsZeroWhenItIsReplaced) {
    for (const std::size_t next : {0U, 3U, 100U}) {
        const auto cell = makeCell(CTLVCell::TLV_TYPE_OCTETS, 1, Bytes(100, 0x5A));
        watch(*cell);
        cell->set_i(CTLVCell::TLV_TYPE_OCTETS, 1, Bytes(next, 0x5A).data(), next);
        EXPECT_TRUE(isReleased()) << next;
        EXPECT_TRUE(isWiped()) << next;
    }
}

TEST(ValueWiping, LongValueIsZeroWhenItsRecordIsClearedOrEnds) {
    auto row = makeRecord(1);
    append(*row, makeCell(CTLVCell::TLV_TYPE_OCTETS, 1, Bytes(100, 0x5A)));
    watch((*row)[1]);
    row->clear();
    EXPECT_TRUE(isReleased());
    EXPECT_TRUE(isWiped());
    append(*row, makeCell(CTLVCell::TLV_TYPE_OCTETS, 1, Bytes(100, 0x5A)));
    watch((*row)[1]);
    row.reset();
    EXPECT_TRUE(isReleased());
    EXPECT_TRUE(isWiped());
}

TEST(CellMemory, RecordGivesBackTheCellsThatItTookOver) {
    failing_memory::startTracking();
    auto row = makeRecord(1);
    const auto fill = [&row] {
        append(*row, makeCell(CTLVCell::TLV_TYPE_UINT, 1, {7}));
        append(*row, makeCell(CTLVCell::TLV_TYPE_OCTETS, 2, Bytes(100, 0x5A)));
    };
    fill();
    const std::size_t filled = liveBlocks();
    row->clear();
    const std::size_t cleared = liveBlocks();
    fill();
    row.reset();
    failing_memory::stopTracking();
    EXPECT_EQ(filled, 4U);  // the record, two cells, the value that is too long for its cell
    EXPECT_EQ(cleared, 1U);
    EXPECT_EQ(liveBlocks(), 0U);
}

TEST(ValueWiping, LongValueIsZeroWhenItsPackageIsClearedOrEnds) {
    auto package = std::make_unique<CR8KPackageV3>();
    for (const bool isCleared : {true, false}) {
        auto row = makeRecord(1);
        append(*row, makeCell(CTLVCell::TLV_TYPE_OCTETS, 1, Bytes(100, 0x5A)));
        package->append(makeRecord(2));
        package->append(std::move(row));
        watch((*(*package)[1])[1]);
        if (isCleared) {
            package->clear();
        } else {
            package.reset();
        }
        EXPECT_TRUE(isReleased()) << isCleared;
        EXPECT_TRUE(isWiped()) << isCleared;
    }
}

// Values that stand inside the cell: its own memory is looked at, in which addresses may hold such bytes by chance.
TEST(ValueWiping, ShortValueIsZeroWhenItsCellEndsOrIsReplaced) {
    const Bytes value(CTLVCell::INSIDE_SIZE, 0x5A);
    alignas(CTLVCell) unsigned char place[sizeof(CTLVCell)];
    const auto countIn = [](const void* memory, std::size_t size) {
        const auto* const bytes = static_cast<const unsigned char*>(memory);
        return static_cast<std::size_t>(std::count(bytes, bytes + size, 0x5A));
    };
    for (std::size_t length = 1; length <= value.size(); ++length) {
        std::fill(std::begin(place), std::end(place), 0);
        auto* const cell = ::new (place) CTLVCell;
        const std::size_t others = countIn(place, sizeof place);
        const auto countOfValueBytes = [&] { return countIn(place, sizeof place) - others; };
        cell->setCell(0, reinterpret_cast<const char*>(value.data()), length);
        EXPECT_EQ(countOfValueBytes(), length);
        cell->setCell(0, "x", 1);
        EXPECT_EQ(countOfValueBytes(), 0U) << length;
        cell->setCell(0, reinterpret_cast<const char*>(value.data()), length);
        cell->setCell(0, std::string(100, 'y').data(), 100);
        const unsigned char* const outside = cell->data();
        EXPECT_EQ(countOfValueBytes(), countIn(&outside, sizeof outside)) << length;
        cell->setCell(0, reinterpret_cast<const char*>(value.data()), length);
        cell->~CTLVCell();
        EXPECT_EQ(countOfValueBytes(), 0U) << length;
    }
}

// Cells of a decoded record stand after it with their long values.
TEST(ValueWiping, DecodedValuesAreZeroWhenTheirRecordEnds) {
    const Bytes value(20, 0x5A);
    OddBuffer buffer(packageOf(record(1, cell(1, 1, Bytes(8, 0x5A)) + cell(2, 1, value) + cell(3, 2, value))));
    CR8KPackageV3 package;
    ASSERT_EQ(package.decode(buffer.data(), buffer.size()), buffer.size() - TLVMsgHeadV3::SIZE);
    failing_memory::watch(package[0], 3 * sizeof(CTLVCell) + 2 * value.size(), sizeof(CTLVRecordV3));
    package.clear();
    EXPECT_TRUE(isReleased());
    EXPECT_TRUE(isWiped());
}

TEST(ValueWiping, DecodedValuesAreZeroWhenTheirRecordIsCleared) {
    const Bytes value(20, 0x5A);
    OddBuffer buffer(packageOf(record(1, cell(1, 1, Bytes(8, 0x5A)) + cell(2, 1, value) + cell(3, 2, value))));
    CR8KPackageV3 package;
    ASSERT_EQ(package.decode(buffer.data(), buffer.size()), buffer.size() - TLVMsgHeadV3::SIZE);
    CTLVRecordV3& row = *package[0];
    const auto* const cells = reinterpret_cast<const unsigned char*>(&row[1]);  // which stay the record's memory
    row.clear();
    EXPECT_EQ(Bytes(cells, cells + 3 * sizeof(CTLVCell) + 2 * value.size()),
              Bytes(3 * sizeof(CTLVCell) + 2 * value.size(), 0));
}

// Cells in the room of a record, one of them with a value for which there was no place.
TEST(ValueWiping, ValuesInARoomAreZeroWhenTheirRecordIsClearedOrEnds) {
    const Bytes value(20, 0x5A);
    constexpr unsigned int CELLS = 4;  // one more than there will be
    const auto row = CTLVRecordV3::withRoom(1, CTLVRecordV3::DEFAULT_BUCKETS, CELLS, 45);
    for (int round = 0; round < 2; ++round) {
        for (unsigned short tag = 1; tag < CELLS; ++tag) {
            row->appendNew(
                [&](CTLVCell& cell) { cell.set_i(CTLVCell::TLV_TYPE_OCTETS, tag, value.data(), value.size()); });
        }
        const auto* const cells = reinterpret_cast<const unsigned char*>(&(*row)[1]);
        const unsigned char* const values = cells + CELLS * sizeof(CTLVCell);
        EXPECT_EQ((*row)[2].data(), values + value.size()) << round;
        watch((*row)[3]);
        row->clear();
        EXPECT_TRUE(isReleased()) << round;
        EXPECT_TRUE(isWiped()) << round;
        EXPECT_EQ(Bytes(cells, cells + 3 * sizeof(CTLVCell)), Bytes(3 * sizeof(CTLVCell), 0)) << round;
        EXPECT_EQ(Bytes(values, values + 40), Bytes(40, 0)) << round;
    }
}

TEST(ValueWiping, DecodedLongValueIsZeroWhenItIsReplaced) {
    const Bytes value(20, 0x5A);
    OddBuffer buffer(packageOf(record(1, cell(1, 1, value))));
    for (const std::size_t next : {0U, 3U, 100U}) {
        CR8KPackageV3 package;
        ASSERT_EQ(package.decode(buffer.data(), buffer.size()), buffer.size() - TLVMsgHeadV3::SIZE);
        CTLVCell& decoded = (*package[0])[1];
        const unsigned char* const bytes = decoded.data();
        decoded.set_i(CTLVCell::TLV_TYPE_OCTETS, 1, Bytes(next, 0x5A).data(), next);
        EXPECT_EQ(std::count(bytes, bytes + value.size(), 0), 20) << next;
        EXPECT_EQ(bytesOf(decoded), Bytes(next, 0x5A)) << next;
    }
}

TEST(ValueWiping, ValueThatReplacedADecodedOneIsZeroWhenItsRecordEnds) {
    OddBuffer buffer(packageOf(record(1, cell(1, 3, {7}) + cell(2, 3, {8}))));
    CR8KPackageV3 package;
    ASSERT_EQ(package.decode(buffer.data(), buffer.size()), buffer.size() - TLVMsgHeadV3::SIZE);
    CTLVCell& replaced = (*package[0])[2];
    replaced.set_i(CTLVCell::TLV_TYPE_OCTETS, 2, Bytes(100, 0x5A).data(), 100);
    watch(replaced);
    package.clear();
    EXPECT_TRUE(isReleased());
    EXPECT_TRUE(isWiped());
}

// Cells that begin on one thread and end on another.
TEST(CellMemory, CellsMayEndOnAnotherThread) {
    std::vector<std::unique_ptr<CTLVCell>> cells;
    std::thread([&cells] {
        for (int i = 0; i < 3000; ++i) cells.push_back(makeCell(CTLVCell::TLV_TYPE_UINT, 1, {1, 2}));
    }).join();
    for (const auto& cell : cells) EXPECT_EQ(bytesOf(*cell), (Bytes{1, 2}));
    std::thread([&cells] { cells.clear(); }).join();
    EXPECT_TRUE(cells.empty());
}

TEST(AllocationFailure, CellKeepsItsValue) {
    const auto cell = makeCell(CTLVCell::TLV_TYPE_STRING, 1, {'a', 0});
    const Bytes longValue(100, 0x5A);
    failAt(1);
    EXPECT_THROW(cell->set_i(CTLVCell::TLV_TYPE_OCTETS, 2, longValue.data(), longValue.size()), std::bad_alloc);
    EXPECT_EQ(cell->tag(), 1);
    EXPECT_EQ(cell->toString(), "a");
}

TEST(AllocationFailure, CellOfARecordKeepsItsValueAndTheRecordItsLength) {
    const auto row = makeRecord(1);
    append(*row, makeCell(CTLVCell::TLV_TYPE_STRING, 1, {'a', 0}));
    failAt(1);
    EXPECT_THROW((*row)[1].set(2, "a text that needs memory of its own"), std::bad_alloc);
    EXPECT_EQ((*row)[1].toString(), "a");
    EXPECT_EQ(row->length(), 6U);
}

TEST(AllocationFailure, ARecordWithRoomIsMadeWholeOrNotAtAll) {
    failAt(1);
    EXPECT_THROW((void)CTLVRecordV3::withRoom(1, 33, 10, 100), std::bad_alloc);
}

TEST(AllocationFailure, CellsThatFitIntoTheRoomNeedNoMemory) {
    const auto row = CTLVRecordV3::withRoom(1, 32, 3, 2 * 9);
    failAt(1);
    row->appendNew([](CTLVCell& cell) { cell.set(1, "12345678"); });
    row->appendNew([](CTLVCell& cell) { cell.set(2, "abcdefgh"); });
    row->appendNew([](CTLVCell& cell) { cell.set(3, "1234567"); });
    EXPECT_TRUE(failing_memory::isFailureToCome());
    EXPECT_THROW(row->appendNew([](CTLVCell& cell) { cell.set(4, "x"); }), std::bad_alloc);
    EXPECT_EQ(row->count(), 3U);
    EXPECT_EQ(row->length(), 3 * 4 + 9 + 9 + 8U);
}

// The record's memory: without it there is no record. The index and its buckets: the record is made all the same, the
// failure is logged.
TEST(AllocationFailure, AnywhereInANewRecordLeavesNothing) {
    const AceLogCapture log;
    for (const unsigned long buckets : {32UL, 33UL}) {
        std::size_t errors = log.errors().size();
        bool isMade = false;
        const unsigned int failures = failEachAllocation(
            [&](unsigned int n) {
                failAt(n);
                try {
                    const auto row = std::make_unique<CTLVRecordV3>(1, buckets);
                    isMade = true;
                } catch (const std::bad_alloc&) {
                    isMade = false;
                }
                return !failing_memory::isFailureToCome();
            },
            [&](unsigned int n, bool failed) {
                const bool isIndexFailure = failed && isMade;
                if (!isIndexFailure) {  // it is logged, and the log keeps its line
                    EXPECT_EQ(liveBlocks(), 0U) << n;
                }
                EXPECT_EQ(isIndexFailure, failed && n > 1 && buckets == 33) << n;
                EXPECT_EQ(log.errors().size() - errors, isIndexFailure ? 1U : 0U) << n;
                errors = log.errors().size();
            });
        EXPECT_EQ(failures, buckets == 32 ? 1U : 3U);
    }
}

// A record that brings a cell in needs no memory for it.
TEST(AllocationFailure, AppendNeedsNoMemory) {
    CTLVRecordV3 row(1, 32);
    std::vector<std::unique_ptr<CTLVCell>> cells;
    for (unsigned short tag = 0; tag < 40; ++tag) cells.push_back(makeCell(CTLVCell::TLV_TYPE_UINT, tag, {1}));
    failAt(1);
    for (std::unique_ptr<CTLVCell>& cell : cells) {
        row.append(cell.get());
        (void)cell.release();
    }
    EXPECT_TRUE(failing_memory::isFailureToCome());
    failAt(0);
    EXPECT_EQ(row.count(), 40U);
}

// A record that is long enough to be searched by its index, which lacks the memory to grow: its cells are walked.
TEST(AllocationFailure, SearchGoesOnWithoutTheIndexThatStopped) {
    constexpr unsigned short FIRST = 40;
    constexpr unsigned short ALL = 50;
    for (const unsigned long buckets : {32UL, 33UL}) {
        for (const unsigned int n : {1U, 2U, 4U}) {
            const AceLogCapture log;
            CTLVRecordV3 record(1, buckets);
            for (unsigned short tag = 0; tag < FIRST; ++tag)
                append(record, makeCell(CTLVCell::TLV_TYPE_UINT, tag, {1}));
            EXPECT_TRUE(record.has(0));
            for (unsigned short tag = FIRST; tag < ALL; ++tag) {
                append(record, makeCell(CTLVCell::TLV_TYPE_UINT, tag, {1}));
            }
            errno = EINTR;
            failAt(n);
            EXPECT_EQ(&CTLVRecordV3::cellAt(record.find(ALL - 1)), &CTLVRecordV3::cellAt(record.end()->prev_)) << n;
            EXPECT_FALSE(failing_memory::isFailureToCome()) << n;
            failAt(0);
            EXPECT_EQ(errno, EINTR) << n;
            for (unsigned short tag = 0; tag < ALL; ++tag) EXPECT_TRUE(record.has(tag)) << tag;
            EXPECT_FALSE(record.has(ALL));
            EXPECT_EQ(errno, ENOENT) << n;
            EXPECT_THAT(log.errors(), ::testing::ElementsAre("ACE_Hash_Map_Manager_Ex\n"));
        }
    }
}

// The index object, then its buckets; made with the record, or by the first search that needs it.
TEST(AllocationFailure, SearchWithoutMemoryForTheIndexWalksTheCells) {
    for (const unsigned long buckets : {32UL, 33UL, 64UL}) {
        for (const unsigned int n : {1U, 2U}) {
            const AceLogCapture log;
            const bool isMadeWithTheRecord = buckets != CTLVRecordV3::DEFAULT_BUCKETS;
            if (isMadeWithTheRecord) failAt(n);
            CTLVRecordV3 record(1, buckets);
            EXPECT_EQ(log.errors().size(), isMadeWithTheRecord ? 1U : 0U) << buckets;
            for (unsigned short tag = 0; tag < 40; ++tag) {
                append(record, makeCell(CTLVCell::TLV_TYPE_UINT, tag, {static_cast<unsigned char>(tag)}));
            }
            errno = EINTR;
            if (!isMadeWithTheRecord) {
                failAt(n);
                EXPECT_TRUE(record.has(0));
            }
            failAt(1);  // which nothing comes to: the index is tried once
            for (unsigned short tag = 0; tag < 40; ++tag) EXPECT_EQ(*record[tag].data(), tag) << buckets;
            EXPECT_TRUE(failing_memory::isFailureToCome()) << buckets << " " << n;
            failAt(0);
            EXPECT_EQ(errno, EINTR);
            EXPECT_FALSE(record.has(40));
            EXPECT_EQ(errno, ENOENT);
            EXPECT_THAT(log.errors(), ::testing::ElementsAre("ACE_Hash_Map_Manager_Ex\n")) << buckets << " " << n;
            record.clear();
            EXPECT_FALSE(record.has(0));
            append(record, makeCell(CTLVCell::TLV_TYPE_UINT, 0, {1}));
            EXPECT_TRUE(record.has(0));
        }
    }
}

// Every allocation of a decode fails in turn: bad_alloc, or a record without index, whose cells are found all the same;
// never a leak or half a record.
TEST(AllocationFailure, AnywhereInDecodeLeavesAUsablePackage) {
    OddBuffer buffer(variedPackage());
    const AceLogCapture log;  // the failure of an index is logged
    bool isThrown = false;
    unsigned int withoutIndex = 0;
    const unsigned int failures = failEachAllocation(
        [&](unsigned int n) {
            CR8KPackageV3 package;
            unsigned int result = 0;
            isThrown = false;
            failAt(n);
            try {
                result = package.decode(buffer.data(), buffer.size());
            } catch (const std::bad_alloc&) {
                isThrown = true;
            }
            const bool failed = !failing_memory::isFailureToCome();
            failAt(0);
            if (isThrown) {
                EXPECT_LT(package.records().size(), 3U) << n;
                EXPECT_EQ(package.head().uiDataLen, 0U) << n;
                package.clear();
                result = package.decode(buffer.data(), buffer.size());  // with memory again
            } else if (failed) {
                ++withoutIndex;
                EXPECT_TRUE(package[1]->has(0)) << n;
            }
            EXPECT_EQ(result, buffer.size() - TLVMsgHeadV3::SIZE) << n;
            unsigned char* out = nullptr;
            EXPECT_EQ(package.encode(out), buffer.size()) << n;
            const std::unique_ptr<unsigned char[]> owner(out);
            EXPECT_EQ(Bytes(out, out + buffer.size()), buffer.bytes()) << n;
            failing_memory::stopTracking();  // the log keeps its line
            return failed;
        },
        [&](unsigned int n, bool) {
            if (isThrown) {
                EXPECT_EQ(liveBlocks(), 0U) << n;
            }
        });
    // Object and entry of three records, one index and its buckets.
    EXPECT_EQ(failures, 3 * 2 + 2U);
    EXPECT_EQ(withoutIndex, 2U);
}

// The lines of a refused package take memory too: it ends without records, or with an exception.
TEST(AllocationFailure, AnywhereInARefusedDecodeLosesNothing) {
    OddBuffer buffer(packageOf(record(1, cell(1, 1, Bytes(50, 1))) + record(2, cell(1, 10, {1}))));
    {
        const AceLogCapture log;
        (void)CR8KPackageV3().decode(buffer.data(), buffer.size());  // what the log allocates once
    }
    const unsigned int failures = failEachAllocation(
        [&](unsigned int n) {
            const AceLogCapture log;
            CR8KPackageV3 package;
            failAt(n);
            try {
                EXPECT_EQ(package.decode(buffer.data(), buffer.size()), CR8KPackageV3::FAILURE) << n;
                EXPECT_TRUE(package.records().empty()) << n;
            } catch (const std::bad_alloc&) {
                EXPECT_LT(package.records().size(), 2U) << n;
            }
            const bool failed = !failing_memory::isFailureToCome();
            failAt(0);
            return failed;
        },
        [](unsigned int n, bool) { EXPECT_EQ(liveBlocks(), 0U) << n; });
    EXPECT_GE(failures, 3U);
}

TEST(AllocationFailure, EncodeLeavesPackageAndResultAsTheyWere) {
    CR8KPackageV3 package;
    OddBuffer buffer(variedPackage());
    ASSERT_EQ(package.decode(buffer.data(), buffer.size()), buffer.size() - TLVMsgHeadV3::SIZE);
    unsigned char* out = nullptr;
    const unsigned int failures = failEachAllocation(
        [&](unsigned int n) {
            unsigned int size = 0;
            failAt(n);
            try {
                size = package.encode(out);
            } catch (const std::bad_alloc&) {
                EXPECT_EQ(out, nullptr);
                return true;
            }
            failAt(0);
            const std::unique_ptr<unsigned char[]> owner(out);
            EXPECT_EQ(Bytes(out, out + size), buffer.bytes());
            return false;
        },
        [](unsigned int n, bool) { EXPECT_EQ(liveBlocks(), 0U) << n; });
    EXPECT_EQ(failures, 1U);
}

TEST(AllocationFailure, EncodeIntoTheCallersBufferNeedsNoMemory) {
    CR8KPackageV3 package;
    OddBuffer buffer(variedPackage());
    ASSERT_EQ(package.decode(buffer.data(), buffer.size()), buffer.size() - TLVMsgHeadV3::SIZE);
    Bytes out(buffer.size());
    failAt(1);
    EXPECT_EQ(package.encode(out.data(), buffer.size()), buffer.size());
    EXPECT_TRUE(failing_memory::isFailureToCome());
    failAt(0);
    EXPECT_EQ(out, buffer.bytes());
}

TEST(AllocationFailure, RecordThatIsNotAppendedEnds) {
    CR8KPackageV3 package;
    auto row = makeRecord(1);
    failAt(1);  // the entry of the package's list
    EXPECT_THROW(package.append(std::move(row)), std::bad_alloc);
    EXPECT_TRUE(package.records().empty());
}
