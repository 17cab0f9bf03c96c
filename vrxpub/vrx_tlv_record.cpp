#include "vrxpub/vrx_tlv_record.h"

#include <string.h>  // explicit_bzero

#include <cerrno>
#include <limits>
#include <new>

#include "module/vrx_exception.h"

CTLVRecordV3::CTLVRecordV3(unsigned long long identifier, unsigned long buckets) : m_identifier(identifier) {
    if (m_cells.sentinel() == nullptr) throw std::bad_alloc();
    m_lastOfBlock = m_lastIndexed = end();
    if (buckets == DEFAULT_BUCKETS) return;
    // ACE multiplies without a look: a count whose table size wraps would give a table that is too small.
    constexpr std::size_t MAX_BUCKETS = std::numeric_limits<std::size_t>::max() / sizeof(TagIndex::ENTRY);
    const std::size_t usable = buckets > MAX_BUCKETS ? 0 : buckets;
    m_index = std::make_unique<TagIndex>(usable);
}

CTLVRecordV3::~CTLVRecordV3() {
    endCells();
}

void CTLVRecordV3::append(const CTLVCell* cell) {
    if (cell == nullptr) throw CVRX_Exception("record can't hold a null cell");
    // The record owns the cell from here, and may change it.
    insert(*const_cast<CTLVCell*>(cell));
}

void CTLVRecordV3::appendAll(const tWireCells& wire) {
    static_assert(alignof(CTLVCell) <= __STDCPP_DEFAULT_NEW_ALIGNMENT__);
    const auto cellBytes = static_cast<unsigned int>(wire.count * sizeof(CTLVCell));
    m_block.reset(new unsigned char[cellBytes + wire.longValues]);
    m_blockSize = cellBytes + wire.longValues;
    unsigned char* place = m_block.get();
    unsigned char* longValue = place + cellBytes;
    const unsigned char* p = wire.bytes;
    for (unsigned int i = 0; i < wire.count; ++i, place += sizeof(CTLVCell)) {
        auto* const cell = new (place) CTLVCell(p, longValue);
        if (cell->isOutside()) longValue += cell->length();
        insert(*cell);
        p += cell->size();
    }
    m_lastOfBlock = m_cells.sentinel()->prev_;
}

CTLVCell& CTLVRecordV3::operator[](unsigned short tag) const {
    const Position position = find(tag);
    if (position == end()) throw CVRX_Exception("record has no cell, tag equal to " + std::to_string(tag));
    return cellAt(position);
}

CTLVRecordV3::Position CTLVRecordV3::find(unsigned short tag) const {
    if (count() > MAX_WALKED_CELLS) {
        indexNewCells();
        Position position = nullptr;
        if (m_index->find(tag, position) == 0) return position;
    } else if (!isIndexRefused()) {
        for (Position p = begin(); p != end(); p = p->next_) {
            if (cellAt(p).tag() == tag) return p;
        }
    }
    errno = ENOENT;
    return end();
}

bool CTLVRecordV3::isIndexRefused() const {
    return m_index != nullptr && m_index->total_size() == 0;
}

void CTLVRecordV3::indexNewCells() const {
    const int savedErrno = errno;  // bind() leaves ENOENT also when it enters a cell
    if (m_index == nullptr) {
        const std::size_t buckets = DEFAULT_BUCKETS;
        m_index = std::make_unique<TagIndex>(buckets);
    }
    if (!isIndexRefused()) {  // bind() on a table without buckets would write through a null pointer
        for (Position p = m_lastIndexed->next_; p != end(); p = p->next_) {
            // The first cell of a tag stays.
            if (m_index->bind(cellAt(p).tag(), p) == -1) throw std::bad_alloc();
            m_lastIndexed = p;
        }
    }
    errno = savedErrno;
}

void CTLVRecordV3::endCells() {
    const Position appended = m_lastOfBlock->next_;
    for (Position p = appended; p != end();) {
        const CTLVCell& cell = cellAt(p);
        p = p->next_;
        delete &cell;
    }
    if (m_block != nullptr) {
        // These cells are wiped at one go. Only a value that was replaced may have an array of its own.
        if (m_isValueReplaced) {
            for (Position p = begin(); p != appended; p = p->next_) cellAt(p).dropOwnArray();
        }
        explicit_bzero(m_block.get(), m_blockSize);
        m_block.reset();
    }
    m_cells.forgetAll();
    m_lastOfBlock = end();
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
