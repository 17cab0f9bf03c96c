#include "host/snmp/ber_writer.h"

#include <cstring>

namespace vrx {

namespace {

constexpr unsigned int BITS = 8;
constexpr unsigned int NAME_BITS = 7;        // of a sub-identifier in one octet
constexpr unsigned char CONTINUES = 0x80;    // an octet of a sub-identifier that is not its last
constexpr unsigned char LONG_LENGTH = 0x80;  // the first octet of a length that tells how many follow
constexpr oid FIRST_ARCS = 40;  // the first two sub-identifiers share a number: 40 times one plus the other
constexpr std::size_t LONGEST_NAME = 5UL * MAX_OID_LEN;
constexpr std::size_t LONGEST_SUB_IDENTIFIER = (sizeof(oid) * BITS + NAME_BITS - 1) / NAME_BITS;

unsigned char* subIdentifierBefore(unsigned char* at, oid number) {
    *--at = static_cast<unsigned char>(number & (CONTINUES - 1));
    for (number >>= NAME_BITS; number != 0; number >>= NAME_BITS) {
        *--at = static_cast<unsigned char>(CONTINUES | (number & (CONTINUES - 1)));
    }
    return at;
}

}  // namespace

void BerWriter::byte(unsigned char value) {
    if (m_at == m_begin) {
        ++m_missing;
        return;
    }
    *--m_at = value;
}

void BerWriter::bytes(std::string_view content) {
    if (content.size() > static_cast<std::size_t>(m_at - m_begin)) {
        m_missing += content.size();
        return;
    }
    if (content.empty()) return;
    m_at -= content.size();
    std::memcpy(m_at, content.data(), content.size());
}

void BerWriter::numberEndingWith(std::uint64_t value, unsigned int octets) {
    for (unsigned int i = 0; i < octets; ++i) byte(static_cast<unsigned char>(value >> (BITS * i)));
}

// Leading octets that only repeat the sign are left out.
void BerWriter::integer(unsigned char tag, std::int64_t value) {
    const std::size_t contentEnd = size();
    unsigned int octets = 1;
    for (std::int64_t rest = value; rest < -128 || rest > 127; rest >>= BITS) ++octets;
    numberEndingWith(static_cast<std::uint64_t>(value), octets);
    header(tag, contentEnd);
}

// A number whose first bit is set gets a zero octet in front: it would be negative.
void BerWriter::unsignedInteger(unsigned char tag, std::uint64_t value) {
    const std::size_t contentEnd = size();
    unsigned int octets = 1;
    for (std::uint64_t rest = value; rest > 0xFF; rest >>= BITS) ++octets;
    numberEndingWith(value, octets);
    if (((value >> (BITS * (octets - 1))) & 0x80) != 0) byte(0);
    header(tag, contentEnd);
}

void BerWriter::octets(unsigned char tag, std::string_view value) {
    const std::size_t contentEnd = size();
    bytes(value);
    header(tag, contentEnd);
}

void BerWriter::header(unsigned char tag, std::size_t contentEnd) {
    const std::size_t length = size() - contentEnd;
    if (length < LONG_LENGTH) {
        byte(static_cast<unsigned char>(length));
    } else {
        unsigned char octets = 1;
        for (std::size_t rest = length; rest > 0xFF; rest >>= BITS) ++octets;
        numberEndingWith(length, octets);
        byte(static_cast<unsigned char>(LONG_LENGTH | octets));
    }
    byte(tag);
}

void BerWriter::subIdentifier(oid number) {
    byte(static_cast<unsigned char>(number & (CONTINUES - 1)));
    for (number >>= NAME_BITS; number != 0; number >>= NAME_BITS) {
        byte(static_cast<unsigned char>(CONTINUES | (number & (CONTINUES - 1))));
    }
}

void BerWriter::nameContent(const oid* ids, std::size_t length) {
    const auto room = static_cast<std::size_t>(m_at - m_begin);
    if (room / length >= LONGEST_SUB_IDENTIFIER) {  // nearly always: no look at the room for each octet
        for (std::size_t i = length; i-- > 2;) m_at = subIdentifierBefore(m_at, ids[i]);
        m_at = subIdentifierBefore(m_at, ids[0] * FIRST_ARCS + ids[1]);
        return;
    }
    for (std::size_t i = length; i-- > 2;) subIdentifier(ids[i]);
    subIdentifier(ids[0] * FIRST_ARCS + ids[1]);
}

void BerWriter::name(const oid* ids, std::size_t length) {
    const std::size_t contentEnd = size();
    nameContent(ids, length);
    header(ASN_OBJECT_ID, contentEnd);
}

std::string berContentOf(const OidVector& name) {
    std::vector<unsigned char> buffer(LONGEST_NAME);
    BerWriter out(buffer);
    out.nameContent(name.data(), name.size());
    return {reinterpret_cast<const char*>(out.data()), out.size()};
}

}  // namespace vrx
