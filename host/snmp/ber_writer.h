// Writes BER from the end of a buffer to its start: an element's length is known when its header is written.
//
//     BerWriter out(buffer);
//     out.integer(ASN_INTEGER, 5);
//     out.header(ASN_SEQUENCE | ASN_CONSTRUCTOR, 0);  // around all that was written
//     if (!out.overflowed()) send(out.data(), out.size());
//
// Encodes as Net-SNMP does: shortest lengths, shortest integers.
//
// Threads: none of its own. The buffer outlives the writer and keeps its size meanwhile.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "host/snmp/oid_vector.h"

namespace vrx {

class BerWriter {
public:
    explicit BerWriter(std::vector<unsigned char>& buffer)
        : m_begin(buffer.data()), m_end(buffer.data() + buffer.size()), m_at(m_end) {}

    // What was written so far, last element first.
    const unsigned char* data() const { return m_at; }
    // After an overflow: what it would be in a buffer that is large enough.
    std::size_t size() const { return static_cast<std::size_t>(m_end - m_at) + m_missing; }

    // The buffer was too small; what is in it means nothing.
    bool overflowed() const { return m_missing > 0; }

    void integer(unsigned char tag, std::int64_t value);
    void unsignedInteger(unsigned char tag, std::uint64_t value);
    void octets(unsigned char tag, std::string_view value);

    // The header of an element whose content is all that was written since size() was `contentEnd`.
    void header(unsigned char tag, std::size_t contentEnd);

    // An object identifier. REQUIRES: two sub-identifiers at least.
    void name(const oid* ids, std::size_t length);

    // Pieces of an object identifier's content.
    void subIdentifier(oid number);
    void bytes(std::string_view content);
    void nameContent(const oid* ids, std::size_t length);

private:
    void byte(unsigned char value);
    void numberEndingWith(std::uint64_t value, unsigned int octets);

    unsigned char* m_begin;
    unsigned char* m_end;
    unsigned char* m_at;
    std::size_t m_missing = 0;  // octets that found no room
};

// The content octets of a name, which has two sub-identifiers at least.
std::string berContentOf(const OidVector& name);

}  // namespace vrx
