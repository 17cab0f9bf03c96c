// One typed, tagged value of a backend message.
#pragma once

#include <string>

class CTLVCell {
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

    // A prepared cell: type 0, tag 4094, no value.
    CTLVCell();
    ~CTLVCell();  // the value's bytes are overwritten with zeros first
    CTLVCell(const CTLVCell&) = delete;
    CTLVCell& operator=(const CTLVCell&) = delete;

    unsigned short tag() const;   // 0 to 4095
    ETLVType type() const;        // 0 to 15
    unsigned short length() const;  // bytes of the value
    const unsigned char* data() const;  // null when the length is 0
    unsigned short word() const;  // tag and type as on the wire
    unsigned int size() const;    // bytes on the wire: header and value

    void setTag(unsigned short tag);  // keeps type and value

    // A string cell; a null text gives length 0.
    void set(unsigned short tag, const char* text);
    // Replaces type, tag and value; `length` bytes are copied. A value longer than 65535 bytes keeps its first 65535, a
    // string its final zero.
    void set_i(ETLVType type, unsigned short tag, const void* data, unsigned long length);
    // As set_i, with tag and type in one word as on the wire.
    void setCell(unsigned short word, const char* data, unsigned long length);

    // Throw CVRX_Exception unless the type is numerical (above 2), textual (2).
    void checkNumerical() const;
    void checkString() const;

    // A numeric type's value in decimal (signed for type 4), of any other its bytes up to the first zero byte or the
    // end.
    std::string toString() const;

    // Number of a cell, whatever its type: ValueCast<unsigned int>()(cell), ValueCast<unsigned long long>()(cell).
    template <typename Number>
    struct ValueCast {
        Number operator()(const CTLVCell* cell) const;
    };
};
