#include "vrxpub/vrx_tlv_record.h"

#include <ace/Log_Msg.h>
#include <string.h>  // explicit_bzero

#include <cerrno>
#include <functional>
#include <new>

#include "module/vrx_exception.h"

std::unique_ptr<CTLVRecordV3> CTLVRecordV3::withRoom(unsigned long long identifier, unsigned long buckets,
                                                     unsigned int cells, unsigned int valueBytes) {
    const tRoom room{cells * sizeof(CTLVCell) + valueBytes};
    return std::unique_ptr<CTLVRecordV3>(new (room) CTLVRecordV3(identifier, buckets, cells, valueBytes));
}

CTLVRecordV3::CTLVRecordV3(unsigned long long identifier, unsigned long buckets, unsigned int cells,
                           unsigned int valueBytes)
    : m_identifier(identifier),
      m_freeCell(roomBegin()),
      m_cellsEnd(m_freeCell + cells * sizeof(CTLVCell)),
      m_freeValue(m_cellsEnd),
      m_valuesEnd(m_freeValue + valueBytes) {
    static_assert(sizeof(CTLVRecordV3) % alignof(CTLVCell) == 0);
    m_lastIndexed = end();
    if (buckets == DEFAULT_BUCKETS) return;
    // ACE multiplies without a look: a count whose table size wraps would give a table that is too small.
    constexpr std::size_t ADDRESS_SPACE = std::size_t{1} << 47;
    constexpr std::size_t MAX_BUCKETS = ADDRESS_SPACE / sizeof(TagIndex::ENTRY);
    m_hasNoBuckets = buckets == 0 || buckets > MAX_BUCKETS;
    makeIndex(m_hasNoBuckets ? 0 : buckets);
}

CTLVRecordV3::~CTLVRecordV3() {
    endCells();
}

void CTLVRecordV3::append(const CTLVCell* cell) {
    if (cell == nullptr) throw CVRX_Exception("record can't hold a null cell");
    // The record owns the cell from here, and may change it.
    insert(*const_cast<CTLVCell*>(cell));
    m_isPieced = true;
}

void CTLVRecordV3::appendAll(const unsigned char* wire, unsigned int count) {
    const unsigned char* const begin = wire;
    ACE_DLList_Node* last = m_cells.sentinel()->prev_;
    for (unsigned int i = 0; i < count; ++i, m_freeCell += sizeof(CTLVCell)) {
        auto* const cell = new (m_freeCell) CTLVCell(wire, m_freeValue);
        if (cell->isOutside()) m_freeValue += cell->length();
        cell->m_record = this;
        cell->m_indexedTag = cell->tag();
        cell->m_node.prev_ = last;
        last->next_ = &cell->m_node;
        last = &cell->m_node;
        wire += cell->size();
    }
    m_cells.close(*last, count);
    m_length += static_cast<unsigned long>(wire - begin);
}

// The nodes up to `last` are linked already, but for the ring's end.
void CTLVRecordV3::CellList::close(ACE_DLList_Node& last, std::size_t added) {
    last.next_ = head_;
    head_->prev_ = &last;
    size_ += added;
}

bool CTLVRecordV3::isInRoom(const CTLVCell& cell) {
    const std::less<const void*> before;  // in order also for pieces of memory that do not belong together
    return !before(&cell, roomBegin()) && before(&cell, m_freeCell);
}

unsigned char* CTLVRecordV3::placeForValue(unsigned long length) {
    if (length > static_cast<unsigned long>(m_valuesEnd - m_freeValue)) return nullptr;
    unsigned char* const place = m_freeValue;
    m_freeValue += length;
    return place;
}

CTLVCell& CTLVRecordV3::operator[](unsigned short tag) const {
    const Position position = find(tag);
    if (position == end()) throw CVRX_Exception("record has no cell, tag equal to " + std::to_string(tag));
    return cellAt(position);
}

CTLVRecordV3::Position CTLVRecordV3::find(unsigned short tag) const noexcept {
    Position position = end();
    if (!m_hasNoBuckets) {
        if (count() <= MAX_WALKED_CELLS || !indexNewCells()) {
            position = walkTo(tag);
        } else if (m_index->find(tag, position) != 0) {
            position = end();
        }
    }
    if (position == end()) errno = ENOENT;
    return position;
}

CTLVRecordV3::Position CTLVRecordV3::walkTo(unsigned short tag) const {
    Position p = begin();
    while (p != end() && cellAt(p).m_indexedTag != tag) p = p->next_;
    return p;
}

// Leaves the record without an index where memory lacks.
void CTLVRecordV3::makeIndex(std::size_t buckets) const noexcept {
    try {
        m_index = std::make_unique<TagIndex>(buckets);
        if (m_index->total_size() != 0) return;
        m_index.reset();  // without buckets, which ACE has logged; bind() would write through a null pointer
        m_isIndexGivenUp = true;
    } catch (...) {
        giveIndexUp();
    }
}

// Logs the line that ACE has for an index without buckets.
void CTLVRecordV3::giveIndexUp() const noexcept {
    m_index.reset();
    m_isIndexGivenUp = true;
    try {
        ACE_ERROR((LM_ERROR, ACE_TEXT("ACE_Hash_Map_Manager_Ex\n")));
    } catch (...) {
        // A log without memory for the line: the search goes on.
    }
}

// Whether all cells are in the index.
bool CTLVRecordV3::indexNewCells() const noexcept {
    const int savedErrno = errno;  // bind() leaves ENOENT also when it enters a cell
    if (m_index == nullptr && !m_isIndexGivenUp) makeIndex(DEFAULT_BUCKETS);
    for (Position p = m_lastIndexed->next_; m_index != nullptr && p != end(); p = p->next_) {
        // The first cell of a tag stays.
        if (m_index->bind(cellAt(p).m_indexedTag, p) == -1) giveIndexUp();
        m_lastIndexed = p;
    }
    errno = savedErrno;
    return m_index != nullptr;
}

void CTLVRecordV3::endCells() {
    if (m_isPieced) {
        for (Position p = begin(); p != end();) {
            CTLVCell& cell = cellAt(p);
            p = p->next_;
            if (isInRoom(cell)) {
                cell.dropOwnArray();
            } else {
                delete &cell;
            }
        }
        m_isPieced = false;
    }
    // What stands in the room is wiped at one go.
    unsigned char* const room = roomBegin();
    if (m_freeCell == m_cellsEnd) {
        if (m_freeValue != room) explicit_bzero(room, static_cast<std::size_t>(m_freeValue - room));
    } else {
        explicit_bzero(room, static_cast<std::size_t>(m_freeCell - room));
        explicit_bzero(m_cellsEnd, static_cast<std::size_t>(m_freeValue - m_cellsEnd));
    }
    m_freeCell = room;
    m_freeValue = m_cellsEnd;
    m_cells.forgetAll();
    m_length = 0;
}

void CTLVRecordV3::CellList::forgetAll() {
    init_head();
    size_ = 0;
}

void CTLVRecordV3::clear() {
    endCells();
    if (m_index != nullptr) m_index->unbind_all();
    m_lastIndexed = end();
}

void CTLVRecordV3::dump(std::ostringstream& os) const {
    os << "record " << std::to_string(m_identifier) << ": " << std::to_string(count()) << " cells, "
       << std::to_string(length()) << " bytes" << std::endl;
    for (Position p = begin(); p != end(); p = p->next_) {
        const CTLVCell& cell = cellAt(p);
        os << "  tag " << std::to_string(cell.tag()) << " type " << std::to_string(cell.type()) << " length "
           << std::to_string(cell.length()) << ": ";
        if (cell.type() == CTLVCell::TLV_TYPE_STRING) {
            os << '"' << cell.toString() << '"';
        } else if (cell.type() > CTLVCell::TLV_TYPE_STRING && cell.length() <= 8) {
            os << cell.toString();
        } else {
            constexpr char DIGITS[] = "0123456789ABCDEF";
            for (unsigned int i = 0; i < cell.length(); ++i) {
                const unsigned char byte = cell.data()[i];
                os << (i == 0 ? "" : " ") << DIGITS[byte >> 4] << DIGITS[byte & 15];
            }
        }
        os << std::endl;
    }
}
