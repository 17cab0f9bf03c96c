// One typed, tagged value of a backend message.
//
// Threads: a cell belongs to one request; no locks. Ownership: a cell owns a copy of its value and wipes it when the
// value is replaced or the cell ends.
#pragma once

#include <ace/Containers.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "vrxpub/vrx_little_endian.h"

class CTLVRecordV3;

class CTLVCell final {
public:
    // Value types; the low 4 bits of a cell's first word. 0 to 9 are valid on the wire; 5 to 9 are carried unchanged.
    enum ETLVType : unsigned short {
        TLV_TYPE_NONE = 0,    // no value: a prepared cell
        TLV_TYPE_OCTETS = 1,  // raw octets
        TLV_TYPE_STRING = 2,  // characters and one zero byte, which the length counts
        TLV_TYPE_UINT = 3,    // unsigned, little-endian, 1 to 8 bytes
        TLV_TYPE_INT = 4,     // signed, little-endian
    };

    static constexpr unsigned int MIN_TLV_SIZE = 2 + 2;  // tag-type word, value length
    static constexpr unsigned int INSIDE_SIZE = 8;       // up to here a value needs no memory of its own

    // A prepared cell: type 0, tag 4094, no value.
    CTLVCell() = default;
    ~CTLVCell();  // the value's bytes are overwritten with zeros first
    CTLVCell(const CTLVCell&) = delete;
    CTLVCell& operator=(const CTLVCell&) = delete;

    unsigned short tag() const { return static_cast<unsigned short>(m_word >> TYPE_BITS); }  // 0 to 4095
    ETLVType type() const { return static_cast<ETLVType>(m_word & TYPE_MASK); }              // 0 to 15
    unsigned short length() const { return m_length; }                                       // bytes of the value
    const unsigned char* data() const;                                                       // null without value
    unsigned short word() const { return m_word; }                                           // as on the wire
    unsigned int size() const { return MIN_TLV_SIZE + m_length; }                            // bytes on the wire

    // Keeps type and value. A record that holds the cell finds it by the tag that it was appended with, here and below.
    void setTag(unsigned short tag);

    // A string cell; a null text gives length 0.
    void set(unsigned short tag, const char* text);
    // Replaces type, tag and value; `length` bytes are copied, none from a null `data`. The data may be the cell's own
    // value. A value longer than 65535 bytes keeps its first 65535, a string its final zero. On std::bad_alloc the cell
    // is as before.
    void set_i(ETLVType type, unsigned short tag, const void* data, unsigned long length);
    // As set_i, with tag and type in one word as on the wire.
    void setCell(unsigned short word, const char* data, unsigned long length);

    // Writes size() bytes, as on the wire, and returns the position after them. Up to `end` further bytes may change.
    unsigned char* write(unsigned char* p, const unsigned char* end) const;

    // Throw CVRX_Exception unless the type is numerical (above 2), textual (2).
    void checkNumerical() const;
    void checkString() const;

    // A numeric type's value in decimal (signed for type 4; a value of more than 8 bytes shows its first 8), of any
    // other its bytes up to the first zero byte or the end.
    std::string toString() const;

    // Number of a cell, whatever its type: ValueCast<unsigned int>()(cell), ValueCast<unsigned long long>()(cell).
    // Two-byte values of type 4 are sign-extended, all others are not; bytes beyond the number's width are ignored.
    template <typename Number>
    struct ValueCast {
        Number operator()(const CTLVCell* cell) const;
    };

private:
    friend class CTLVRecordV3;

    static constexpr unsigned int TYPE_BITS = 4;
    static constexpr unsigned short TYPE_MASK = (1U << TYPE_BITS) - 1;
    static constexpr unsigned short PREPARED_TAG = 4094;
    // A cell of a decoded record; a value that is too long for the inside is copied to `lent`, memory that the record
    // has for it and that outlives the cell.
    CTLVCell(const unsigned char* wire, unsigned char* lent);

    static unsigned short wordOf(unsigned short tag, unsigned short type);
    bool isOutside() const { return m_length > INSIDE_SIZE; }
    // The first 8 bytes as a little-endian number, 0 for those that a short value lacks.
    std::uint64_t number() const { return getLe64(isOutside() ? m_value.outside : m_value.inside); }
    void wipeInside();
    static void dropArray(unsigned char* array, unsigned short length, bool isLent);
    void dropOwnArray() {
        if (isOutside() && !m_isLent) dropArray(m_value.outside, m_length, false);
    }

    unsigned short m_word = PREPARED_TAG << TYPE_BITS | TLV_TYPE_NONE;
    unsigned short m_length = 0;
    unsigned short m_indexedTag = 0;  // by which the record that holds the cell finds it
    bool m_isLent = false;            // the array outside is not ours to delete
    union {
        unsigned char inside[INSIDE_SIZE];  // up to INSIDE_SIZE bytes, zeros after them
        unsigned char* outside;             // longer values: an array
        std::uint64_t all;
    } m_value{};
    ACE_DLList_Node m_node{this};      // in the list of the record that holds the cell
    CTLVRecordV3* m_record = nullptr;  // that record
};

template <>
unsigned int CTLVCell::ValueCast<unsigned int>::operator()(const CTLVCell* cell) const;
template <>
unsigned long long CTLVCell::ValueCast<unsigned long long>::operator()(const CTLVCell* cell) const;

inline CTLVCell::~CTLVCell() {
    if (isOutside()) {
        dropArray(m_value.outside, m_length, m_isLent);
    } else {
        wipeInside();
    }
}

inline CTLVCell::CTLVCell(const unsigned char* wire, unsigned char* lent)
    : m_word(getLe16(wire)), m_length(getLe16(wire + 2)) {
    const unsigned char* const value = wire + MIN_TLV_SIZE;
    if (isOutside()) {
        memcpy(lent, value, m_length);
        m_value.outside = lent;
        m_isLent = true;
    } else if (m_length == 8) {  // copies of a fixed size are a load and a store
        memcpy(m_value.inside, value, 8);
    } else if (m_length == 4) {
        memcpy(m_value.inside, value, 4);
    } else {
        memcpy(m_value.inside, value, m_length);
    }
}

inline unsigned char* CTLVCell::write(unsigned char* p, const unsigned char* end) const {
    p = putLe16(putLe16(p, m_word), m_length);
    if (isOutside()) {
        memcpy(p, m_value.outside, m_length);
    } else if (end - p >= INSIDE_SIZE) {
        memcpy(p, m_value.inside, INSIDE_SIZE);  // one store; a shorter value's zeros are written over by what follows
    } else {
        memcpy(p, m_value.inside, m_length);
    }
    return p + m_length;
}

// Volatile: a compiler drops other writes to an object that ends.
inline void CTLVCell::wipeInside() {
    volatile std::uint64_t& all = m_value.all;
    all = 0;
}
