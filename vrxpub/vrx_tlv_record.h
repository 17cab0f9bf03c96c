// One row of a backend message: an identifier and cells, in the order of their insertion and found by tag.
//
//     auto record = std::make_unique<CTLVRecordV3>(commandCode, CTLVRecordV3::DEFAULT_BUCKETS);
//     auto cell = std::make_unique<CTLVCell>();
//     cell->set(7, "SNMP_AGENT");
//     record->append(cell.get());
//     cell.release();  // the record owns it from here
//
// A record made by withRoom() has memory for cells and their values right after itself, which appendNew() and decoding
// use: a row of a dozen cells is one piece of memory instead of two dozen.
//
// Threads: a record belongs to one request; no locks. find() enters the cells of a large record into its tag index when
// they are first asked for, so even two readers of one record must take turns.
#pragma once

#include <ace/Containers_T.h>
#include <ace/Functor.h>
#include <ace/Hash_Map_Manager_T.h>
#include <ace/Malloc_Allocator.h>
#include <ace/Null_Mutex.h>

#include <cstddef>
#include <memory>
#include <new>
#include <sstream>

#include "vrxpub/vrx_tlv_cell.h"

class CTLVRecordV3 {
public:
    using Position = ACE_DLList_Node*;  // its item_ is the CTLVCell*

    static constexpr unsigned long long NO_IDENTIFIER = ~0ULL;  // of rows and scalars in responses
    static constexpr unsigned long DEFAULT_BUCKETS = 32;
    static constexpr unsigned int MIN_RECORD_SIZE = 8 + 2;  // identifier, length of the cells

    // With 0 buckets, or more than an address space holds, ACE logs "ACE_Hash_Map_Manager_Ex\n" and the record has no
    // tag index: cells can be appended and walked, none is found. Where memory lacks for the index now, the same line
    // is logged, and cells are found by walking.
    CTLVRecordV3(unsigned long long identifier, unsigned long buckets) : CTLVRecordV3(identifier, buckets, 0, 0) {}
    ~CTLVRecordV3();

    // Of any size: the room lies after the record.
    static void* operator new(std::size_t size) { return ::operator new(size); }
    static void operator delete(void* record) { ::operator delete(record); }

    // With room for that many cells and for that many bytes of values of more than CTLVCell::INSIDE_SIZE. What does not
    // fit takes memory of its own.
    static std::unique_ptr<CTLVRecordV3> withRoom(unsigned long long identifier, unsigned long buckets,
                                                  unsigned int cells, unsigned int valueBytes);
    CTLVRecordV3(const CTLVRecordV3&) = delete;
    CTLVRecordV3& operator=(const CTLVRecordV3&) = delete;

    unsigned long long identifier() const { return m_identifier; }
    void setIdentifier(unsigned long long identifier) { m_identifier = identifier; }

    // Adds the cell at the end and takes it over; CVRX_Exception for a null cell. A tag that the record already holds
    // keeps its first cell in the index.
    void append(const CTLVCell* cell);

    // Makes a cell, lets `fill` set it, and adds it at the end. When `fill` throws the cell is not added. Cells that
    // `fill` appends stand before it.
    template <typename Fill>
    void appendNew(const Fill& fill);

    std::size_t count() const { return m_cells.size(); }  // cells
    unsigned long length() const { return m_length; }     // bytes that the cells take on the wire

    // The cell with that tag; an absent tag raises a CVRX_Exception that names it.
    CTLVCell& operator[](unsigned short tag) const;

    // The position of the first cell that was appended with that tag, or end() and errno ENOENT.
    Position find(unsigned short tag) const noexcept;
    bool has(unsigned short tag) const noexcept { return find(tag) != end(); }

    // All cells: for (Position p = record.begin(); p != record.end(); p = p->next_) use(cellAt(p)).
    Position begin() const { return m_cells.sentinel()->next_; }
    Position end() const { return m_cells.sentinel(); }
    static CTLVCell& cellAt(Position position) { return *static_cast<CTLVCell*>(position->item_); }

    void clear();  // destroys all cells
    void dump(std::ostringstream& os) const;

private:
    friend class CTLVCell;
    template <typename MSG_S_HEAD>
    friend class CTLVPackageV3;

    // Each cell brings its own node: the list asks for memory for its sentinel alone, which stands in the record too.
    class SentinelPlace : public ACE_New_Allocator {
    public:
        void* malloc(std::size_t) override { return m_place; }
        void free(void*) override {}

    private:
        alignas(ACE_DLList_Node) unsigned char m_place[sizeof(ACE_DLList_Node)];
    };
    struct CellList : ACE_DLList<CTLVCell> {
        using ACE_DLList<CTLVCell>::ACE_DLList;
        ACE_DLList_Node* sentinel() const { return head_; }
        void insertTail(ACE_DLList_Node& node) { (void)ACE_DLList_Base::insert_tail(&node); }
        void close(ACE_DLList_Node& last, std::size_t added);
        void forgetAll();
    };
    using TagIndex = ACE_Hash_Map_Manager_Ex<int, ACE_DLList_Node*, ACE_Hash<int>, ACE_Equal_To<int>, ACE_Null_Mutex>;

    // Up to here, walking the list beats entering the cells into the index, however often they are asked for.
    static constexpr std::size_t MAX_WALKED_CELLS = DEFAULT_BUCKETS;

    struct tRoom {
        std::size_t bytes;
    };
    static void* operator new(std::size_t size, const tRoom& room) { return ::operator new(size + room.bytes); }
    static void operator delete(void* record, const tRoom&) { ::operator delete(record); }

    CTLVRecordV3(unsigned long long identifier, unsigned long buckets, unsigned int cells, unsigned int valueBytes);

    // Cells as they stand on the wire, one after the other, and known to be sound and to fit into the room.
    void appendAll(const unsigned char* wire, unsigned int count);

    void insert(CTLVCell& cell);
    void endCells();

    unsigned char* roomBegin() { return reinterpret_cast<unsigned char*>(this + 1); }
    bool isInRoom(const CTLVCell& cell);

    // Of a cell in this record. Null when the room has no place for so many bytes.
    unsigned char* placeForValue(unsigned long length);
    void valueReplaced(unsigned long formerLength, unsigned long length, bool hasOwnMemory) {
        m_length += length - formerLength;
        m_isPieced = m_isPieced || hasOwnMemory;
    }

    Position walkTo(unsigned short tag) const;
    void makeIndex(std::size_t buckets) const noexcept;
    void giveIndexUp() const noexcept;
    bool indexNewCells() const noexcept;

    unsigned long long m_identifier;
    SentinelPlace m_sentinelPlace;
    CellList m_cells{&m_sentinelPlace};
    unsigned long m_length = 0;
    // The room: cells from its begin on, values after the last place of a cell.
    unsigned char* m_freeCell;  // where the next cell goes
    unsigned char* m_cellsEnd;
    unsigned char* m_freeValue;  // where the next value goes
    unsigned char* m_valuesEnd;
    bool m_isPieced = false;  // some cell, or its value, has memory of its own
    // Filled by the first find() that needs it; a table of DEFAULT_BUCKETS is made there too, so that a flood of small
    // records costs no kilobyte each. Other tables are made with the record.
    mutable std::unique_ptr<TagIndex> m_index;
    mutable Position m_lastIndexed;         // the cells up to here are in the index
    mutable bool m_isIndexGivenUp = false;  // memory lacked for it
    bool m_hasNoBuckets = false;            // no index was wanted that could be
};

inline void CTLVRecordV3::insert(CTLVCell& cell) {
    m_cells.insertTail(cell.m_node);
    cell.m_record = this;
    cell.m_indexedTag = cell.tag();
    m_length += cell.size();
}

template <typename Fill>
void CTLVRecordV3::appendNew(const Fill& fill) {
    if (m_freeCell == m_cellsEnd) {
        auto cell = std::make_unique<CTLVCell>();
        fill(*cell);
        append(cell.get());
        (void)cell.release();
        return;
    }
    unsigned char* const place = m_freeCell;
    auto* const cell = new (place) CTLVCell();
    m_freeCell += sizeof(CTLVCell);
    cell->m_record = this;  // its value goes into the room
    try {
        fill(*cell);
    } catch (...) {
        m_length -= cell->length();
        cell->~CTLVCell();
        if (m_freeCell == place + sizeof(CTLVCell)) m_freeCell = place;  // else the place stays empty
        throw;
    }
    m_length -= cell->length();  // which insert() counts
    insert(*cell);
}
