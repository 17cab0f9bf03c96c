#include "host/agent/requests/answer_size.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace vrx {

namespace {

// What the engine reads as the bound of an answer: the real one in the lower half, which copies of the PDU keep, and
// above it a bit that makes it a number no answer comes near.
constexpr long WITHOUT_BOUND = 1L << 40;
constexpr long OF_GETBULK = 1L << 41;
constexpr long REAL_BOUND = (1L << 32) - 1;
static_assert(sizeof(long) == 8);

constexpr std::size_t SMALLEST_VARIABLE = 7;  // octets: a name of one octet, no value, and the headers
constexpr std::size_t LONGEST_PADDING = 7;    // octets that an encryption adds to fill its last block
constexpr long LARGEST_ERROR = SNMP_ERR_INCONSISTENTNAME;

struct FreeBuffer {
    void operator()(unsigned char* buffer) const { std::free(buffer); }
};
using Buffer = std::unique_ptr<unsigned char, FreeBuffer>;

// The library encodes from the buffer's end, and forwards into buffers that it takes for larger than they are.
int encode(netsnmp_session* session, netsnmp_pdu* pdu, unsigned char** buffer, std::size_t* size, std::size_t* used) {
    pdu->flags &= ~static_cast<u_long>(UCD_MSG_FLAG_FORWARD_ENCODE | UCD_MSG_FLAG_BULK_TOOBIG);
    *used = 0;
    const int result = snmp_build(buffer, size, used, session, pdu);
    if (result == 0) std::memmove(*buffer, *buffer + (*size - *used), *used);
    return result;
}

// Octets of a variable in a message; `scratch` is a buffer of `size`. 0 without memory.
std::size_t encodedSize(netsnmp_variable_list& variable, Buffer& scratch, std::size_t& size) {
    unsigned char* buffer = scratch.release();
    std::size_t used = 0;
    const int done = snmp_realloc_rbuild_var_op(&buffer, &size, &used, 1, variable.name, &variable.name_length,
                                                variable.type, variable.val.string, variable.val_len);
    scratch.reset(buffer);
    return done == 0 ? 0 : used;
}

// Drops variables at the end that make at least so many octets. False when none would stay.
bool shorten(netsnmp_pdu& pdu, std::size_t octets) {
    std::size_t size = SNMP_MIN_MAX_LEN;
    Buffer scratch(static_cast<unsigned char*>(std::malloc(size)));
    if (scratch == nullptr) return false;
    std::size_t all = 0;
    for (auto* v = pdu.variables; v != nullptr; v = v->next_variable) all += encodedSize(*v, scratch, size);
    if (all <= octets) return false;
    std::size_t left = all - octets;
    netsnmp_variable_list** rest = &pdu.variables;
    for (; *rest != nullptr; rest = &(*rest)->next_variable) {
        const std::size_t next = encodedSize(**rest, scratch, size);
        if (next > left) break;
        left -= next;
    }
    snmp_free_varbind(*rest);
    *rest = nullptr;
    return pdu.variables != nullptr;
}

// RFC 3416, 4.2.1: an answer of another form. SNMPv1's (RFC 1157, 4.1.2) repeats the request.
void empty(netsnmp_pdu& answer) {
    snmp_free_varbind(answer.variables);
    answer.variables = nullptr;
    answer.errindex = 0;
}

int refuse(netsnmp_session* session) {
    session->s_snmp_errno = SNMPERR_TOO_LONG;
    return -1;
}

}  // namespace

std::size_t longestAnswer(const netsnmp_session& session, const netsnmp_pdu& request) {
    // The session's is the transport's, or less.
    const std::size_t longest = std::min(session.sndMsgMaxSize, static_cast<std::size_t>(netsnmp_max_send_msg_size()));
    const auto real = static_cast<std::size_t>(request.msgMaxSize & REAL_BOUND);
    return real == 0 ? longest : std::min(longest, real);
}

long mostBulkResponses() {
    constexpr int DEFAULT = 100;  // the engine's own, for configurations without maxGetbulkResponses
    const int configured = netsnmp_ds_get_int(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_MAX_GETBULKRESPONSES);
    if (configured < 0) return static_cast<long>(MOST_VARIABLES);
    return configured == 0 ? DEFAULT : configured;
}

void boundAnswer(const netsnmp_session& session, netsnmp_pdu& request) {
    const std::size_t bound = longestAnswer(session, request);
    request.msgMaxSize = static_cast<long>(bound) | WITHOUT_BOUND;
    if (request.command != SNMP_MSG_GETBULK) return;
    request.msgMaxSize |= OF_GETBULK;
    const long variables = count_varbinds(request.variables);
    const long repeated = variables - std::clamp(request.non_repeaters, 0L, variables);
    if (repeated == 0) return;
    const auto fitting = static_cast<long>(std::min(bound / SMALLEST_VARIABLE, MOST_VARIABLES));
    request.max_repetitions = std::min(request.max_repetitions, std::max(fitting / repeated, 1L));
    if (request.max_repetitions > 0 && repeated > mostBulkResponses()) {
        request.command = SNMP_MSG_GETNEXT;
        request.non_repeaters = 0;
        request.max_repetitions = 0;
    }
}

bool answerFits(netsnmp_session& session, netsnmp_pdu& set) {
    netsnmp_pdu* const answer = snmp_clone_pdu(&set);
    if (answer == nullptr) return false;
    answer->command = SNMP_MSG_RESPONSE;
    answer->errstat = LARGEST_ERROR;
    answer->errindex = count_varbinds(answer->variables);
    std::size_t size = SNMP_MIN_MAX_LEN;
    std::size_t used = 0;
    auto* buffer = static_cast<unsigned char*>(std::malloc(size));
    const bool fits = buffer != nullptr && encode(&session, answer, &buffer, &size, &used) == 0 &&
                      used <= longestAnswer(session, set);
    std::free(buffer);
    snmp_free_pdu(answer);
    return fits;
}

bool answerTooBig(netsnmp_session& session, netsnmp_pdu& request) {
    netsnmp_pdu* const answer = snmp_clone_pdu(&request);
    if (answer == nullptr) return false;
    answer->command = SNMP_MSG_RESPONSE;
    answer->errstat = SNMP_ERR_TOOBIG;
    answer->errindex = 0;
    snmp_increment_statistic(STAT_SNMPOUTTOOBIGS);
    const bool sent = snmp_send(&session, answer) != 0;
    if (!sent) snmp_free_pdu(answer);  // otherwise the library has done so
    return sent;
}

int buildMessage(netsnmp_session* session, netsnmp_pdu* pdu, unsigned char** buffer, std::size_t* size,
                 std::size_t* used) {
    const bool answer = pdu->command == SNMP_MSG_RESPONSE;
    if (answer && pdu->errstat == SNMP_ERR_TOOBIG && pdu->version != SNMP_VERSION_1) empty(*pdu);
    int result = encode(session, pdu, buffer, size, used);
    const std::size_t bound = longestAnswer(*session, *pdu);
    if (result != 0 || *used <= bound) return result;
    if (!answer) return refuse(session);

    if (pdu->errstat == SNMP_ERR_NOERROR) {
        // Refused, it is answered by the engine with tooBig and the request's own variables.
        const bool getBulk = (pdu->msgMaxSize & OF_GETBULK) != 0;
        if (!getBulk || !shorten(*pdu, *used - bound + LONGEST_PADDING)) return refuse(session);
    } else {
        if (pdu->errstat != SNMP_ERR_TOOBIG) snmp_increment_statistic(STAT_SNMPOUTTOOBIGS);
        pdu->errstat = SNMP_ERR_TOOBIG;
        empty(*pdu);
    }
    result = encode(session, pdu, buffer, size, used);
    if (result != 0 || *used <= bound) return result;
    snmp_increment_statistic(STAT_SNMPSILENTDROPS);
    return refuse(session);
}

}  // namespace vrx
