#include "host/agent/engine/message_numbers.h"

#include <algorithm>
#include <optional>

namespace vrx {

namespace {

constexpr unsigned char SEQUENCE = ASN_SEQUENCE | ASN_CONSTRUCTOR;
constexpr unsigned char SIGN = 0x80;         // the bit of a number's first octet
constexpr unsigned char LONG_LENGTH = 0x80;  // the bit of a length's first octet that tells how many follow
constexpr std::size_t OCTETS = 4;            // of a number of 32 bits

struct Element {
    unsigned char tag;
    const unsigned char* content;
    std::size_t size;
};

// The elements of a content, one after the other, as far as they are whole.
class Elements {
public:
    Elements(const unsigned char* content, std::size_t size) : m_at(content), m_left(size) {}
    explicit Elements(const Element& around) : Elements(around.content, around.size) {}

    std::optional<Element> next() {
        if (m_left < 2) return std::nullopt;
        const unsigned char tag = *m_at;
        std::size_t length = m_at[1];
        skip(2);
        if ((length & LONG_LENGTH) != 0) {
            std::size_t octets = length & (LONG_LENGTH - 1U);
            if (octets > m_left) return std::nullopt;
            for (length = 0; octets > 0; --octets, skip(1)) {
                if (length > m_left) return std::nullopt;  // and no more of it: it would overflow
                length = length << 8U | *m_at;
            }
        }
        if (length > m_left) return std::nullopt;
        const Element element{tag, m_at, length};
        skip(length);
        return element;
    }

private:
    void skip(std::size_t octets) {
        m_at += octets;
        m_left -= octets;
    }

    const unsigned char* m_at;
    std::size_t m_left;
};

// Octets in front of the last four may only repeat the sign. Of an Unsigned32 four are taken without the zero octet
// that its first bit asks for: managers leave it out, and no other number can be meant.
bool numberFits(const Element& element) {
    if (element.size == 0) return true;  // the library's to refuse
    const unsigned char* const first = element.content;
    const std::size_t inFront = element.size > OCTETS ? element.size - OCTETS : 0;
    unsigned char sign = 0;
    switch (element.tag) {
        case ASN_INTEGER:
            if ((first[inFront] & SIGN) != 0) sign = 0xFF;
            break;
        case ASN_COUNTER:
        case ASN_GAUGE:
        case ASN_TIMETICKS:
        case ASN_UINTEGER:
            if (element.size < OCTETS && (*first & SIGN) != 0) return false;
            break;
        default:
            return true;
    }
    return std::all_of(first, first + inFront, [sign](unsigned char octet) { return octet == sign; });
}

// The numbers of an element's content and, down to a depth, of the sequences in it.
bool numbersFit(const Element& around, int depth) {
    Elements elements(around);
    while (const auto element = elements.next()) {
        if (!numberFits(*element)) return false;
        if (depth > 0 && element->tag == SEQUENCE && !numbersFit(*element, depth - 1)) return false;
    }
    return true;
}

// A PDU holds numbers, the sequence of its variables, and in each of these a value.
bool pduNumbersFit(const Element& pdu) {
    return numbersFit(pdu, 2);
}

// The numbers around an SNMPv3 message's scoped PDU: in its header, and in the security parameters, which are a
// sequence in a string.
bool numbersAroundFit(Elements& message) {
    if (const auto header = message.next()) {
        if (!numbersFit(*header, 0)) return false;
    }
    const auto security = message.next();
    return !security || numbersFit(*security, 1);
}

int refuse() {
    snmp_increment_statistic(STAT_SNMPINASNPARSEERRS);
    return SNMPERR_ASN_PARSE_ERR;
}

SecmodInMsg* g_decode = nullptr;  // the library's

int decode(snmp_secmod_incoming_params* message) {
    const int result = g_decode(message);
    if (result != SNMPERR_SUCCESS || scopedPduNumbersFit(*message->scopedPdu, *message->scopedPduLen)) return result;
    *message->scopedPduLen = 0;  // so that the library makes nothing of it
    return refuse();
}

}  // namespace

bool messageNumbersFit(const unsigned char* message, std::size_t size) {
    const auto whole = Elements(message, size).next();
    if (!whole) return true;
    Elements elements(*whole);
    const auto version = elements.next();
    if (!version) return true;
    if (!numberFits(*version)) return false;
    if (version->tag == ASN_INTEGER && version->size > 0 && version->content[version->size - 1] == SNMP_VERSION_3) {
        return numbersAroundFit(elements);
    }
    elements.next();  // the community
    const auto pdu = elements.next();
    return !pdu || pduNumbersFit(*pdu);
}

bool scopedPduNumbersFit(const unsigned char* scopedPdu, std::size_t size) {
    const auto whole = Elements(scopedPdu, size).next();
    if (!whole) return true;
    Elements elements(*whole);
    elements.next();  // the context's engine and name
    elements.next();
    const auto pdu = elements.next();
    return !pdu || pduNumbersFit(*pdu);
}

int parseMessage(netsnmp_session* session, netsnmp_pdu* pdu, unsigned char* message, std::size_t size) {
    if (!messageNumbersFit(message, size)) return refuse();
    return snmp_parse(static_cast<session_list*>(snmp_sess_pointer(session)), session, pdu, message, size);
}

void checkScopedPdus() {
    snmp_secmod_def* const security = find_sec_mod(SNMP_SEC_MODEL_USM);
    if (security == nullptr || security->decode == decode) return;
    g_decode = security->decode;
    security->decode = decode;
}

}  // namespace vrx
