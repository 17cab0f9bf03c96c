#include "host/agent/informs/net_snmp_inform_transport.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <list>
#include <utility>

#include "host/agent/delivery/community_trap_encoder.h"
#include "host/agent/delivery/name_resolver.h"
#include "host/agent/delivery/net_snmp_errors.h"
#include "host/agent/delivery/notification_fitting.h"
#include "host/agent/delivery/notification_pdu.h"
#include "host/snmp/hexadecimal.h"
#include "host/snmp/limits.h"
#include "host/snmp/net_snmp.h"
#include "host/snmp/usm_users.h"

#include <net-snmp/library/lcd_time.h>

namespace vrx {

namespace {

constexpr std::uint64_t REQUEST_IDS = 0x7fffffff;  // they are positive 32-bit numbers

struct CloseSession {
    void operator()(netsnmp_session* session) const { snmp_close(session); }
};
using SessionPointer = std::unique_ptr<netsnmp_session, CloseSession>;

// A copy that the library frees.
bool setBytes(const std::string& bytes, u_char*& field, std::size_t& length) {
    field = static_cast<u_char*>(netsnmp_memdup(bytes.data(), bytes.size()));
    length = field != nullptr ? bytes.size() : 0;
    return field != nullptr;
}

bool setText(const std::string& text, char*& field, std::size_t& length) {
    field = ::strdup(text.c_str());
    length = field != nullptr ? text.size() : 0;
    return field != nullptr;
}

// Of a message that was handed to the library: what its answer is told by. 0: none.
using Cookie = std::uintptr_t;

// Of one inform: a question, the inform, both once more for another engine, and those that are sent again early.
constexpr std::size_t MOST_MESSAGES = 8;

// What the library tells of a message that was sent.
struct Arrival {
    bool ofQuestion = false;  // for the engine; else of the inform
    bool timedOut = false;
    int command = 0;     // of the answer, as the rest
    int reportType = 0;  // of a report
    long errorStatus = 0;
    std::array<unsigned char, LONGEST_ENGINE_ID> engine{};
    std::size_t engineLength = 0;  // 0: it names none that is usable
};

// An inform that is under way, or has come to its end.
struct Passage {
    Inform inform;
    std::size_t wanted = LONGEST_MESSAGE;
    std::chrono::milliseconds patience{};
    unsigned int cut = 0;
    bool asked = false;   // for the engine, or sent to it as it is known anew
    bool asking = false;  // and the question is what was sent last
    bool wasSent = false;
    Cookie latest = 0;  // message
    // All of them: the library takes an answer in SNMPv2c for that to the first message with its request ID.
    std::array<Cookie, MOST_MESSAGES> messages{};
    std::size_t sent = 0;
    std::uint64_t engineTurn = 0;    // what was known of the engine when it was sent last
    std::uint64_t answers = 0;       // that had come then
    std::optional<Arrival> arrival;  // that nothing was made of yet
    std::optional<InformOutcome> outcome;
};

class NetSnmpInformChannel : public InformChannel {
public:
    NetSnmpInformChannel(InformUsers& users, InformPeer peer, SessionPointer session, std::function<void()> arrived)
        : m_users(users),
          m_peer(std::move(peer)),
          m_session(std::move(session)),
          m_arrived(std::move(arrived)),
          m_engine(m_peer.engineId) {
        m_session->myvoid = this;
    }

    // Closing the session tells of what is under way as if it had no answer.
    ~NetSnmpInformChannel() override {
        m_closing = true;
        m_session.reset();
    }

    void send(const Inform& inform, std::size_t wanted, std::chrono::milliseconds patience) override;
    bool sendAgain(std::uint64_t number) override;
    const InformOutcome* outcome() override;
    void forget() override { m_ended.pop_front(); }
    std::string engine() const override { return hexadecimal(m_engine); }

private:
    using Passages = std::list<Passage>;
    using Failure = std::optional<InformOutcome>;  // nothing: it is under way

    static int answered(int operation, netsnmp_session* session, int, netsnmp_pdu* pdu, void* cookie);

    bool isV3() const { return m_peer.version == SNMPV3; }
    std::string contextEngine() const {
        return m_peer.contextEngineId.empty() ? ownEngineId() : m_peer.contextEngineId;
    }
    FittedNotification fitted(const Passage& passage) const;
    void noteSize(const netsnmp_pdu& pdu);
    Failure begin(Passage& passage);
    Failure ask(Passage& passage);
    Failure transmit(Passage& passage);
    Failure hand(Passage& passage, PduPointer pdu);
    void arrive(Cookie cookie, const Arrival& arrival);
    Failure goOn(Passage& passage, const Arrival& arrival);
    static Failure takeAnswer(const Passage& passage, const Arrival& answer);
    Failure takeReport(Passage& passage, int type);
    Failure takeEngine(Passage& passage, const Arrival& answer);
    void forgetEngine(const Passage& passage);
    static InformOutcome end(const Passage& passage, InformOutcome::Kind kind, const std::string& text = "");

    InformUsers& m_users;
    const InformPeer m_peer;
    SessionPointer m_session;
    const std::function<void()> m_arrived;
    std::string m_engine;  // of the receiver; empty while unknown
    InformUsers::Hold m_user;

    std::size_t m_receiverTakes = LONGEST_MESSAGE;  // octets of a message, as its engine said last

    Passages m_underWay;
    Passages m_ended;  // in this order
    Cookie m_lastCookie = 0;
    std::uint64_t m_engineTurn = 0;  // how often the engine was forgotten
    std::uint64_t m_answers = 0;
    bool m_closing = false;
};

void NetSnmpInformChannel::send(const Inform& inform, std::size_t wanted, std::chrono::milliseconds patience) {
    Passages one(1);
    Passage& passage = one.front();
    passage.inform = inform;
    passage.wanted = wanted;
    passage.patience = patience;
    passage.outcome = begin(passage);
    const bool hasEnded = passage.outcome.has_value();  // it could not be sent
    Passages& where = hasEnded ? m_ended : m_underWay;
    where.splice(where.end(), one);
    if (hasEnded) m_arrived();
}

bool NetSnmpInformChannel::sendAgain(std::uint64_t number) {
    const auto at = std::find_if(m_underWay.begin(), m_underWay.end(),
                                 [number](const Passage& passage) { return passage.inform.number == number; });
    const bool isReady = at != m_underWay.end() && !at->asking && !at->arrival && !(isV3() && m_engine.empty());
    return isReady && !transmit(*at);
}

NetSnmpInformChannel::Failure NetSnmpInformChannel::begin(Passage& passage) {
    return isV3() && m_engine.empty() ? ask(passage) : transmit(passage);
}

// An empty request to nobody in particular: the engine answers it with a report that holds its ID.
NetSnmpInformChannel::Failure NetSnmpInformChannel::ask(Passage& passage) {
    PduPointer pdu(snmp_pdu_create(SNMP_MSG_GET));
    // What the library noted of the last answer would make this a request to that engine.
    SNMP_FREE(m_session->securityEngineID);
    m_session->securityEngineIDLen = 0;
    if (pdu) {
        pdu->version = SNMP_VERSION_3;
        pdu->securityModel = USM_SEC_MODEL_NUMBER;
        pdu->securityLevel = SNMP_SEC_LEVEL_NOAUTH;
        if (!setText("", pdu->securityName, pdu->securityNameLen)) pdu.reset();
    }
    Failure failure = hand(passage, std::move(pdu));
    passage.asked = passage.asking = true;
    return failure;
}

FittedNotification NetSnmpInformChannel::fitted(const Passage& passage) const {
    const Notification& trap = *passage.inform.trap;
    const std::optional<std::size_t> size =
        isV3() ? longestMessageV3(
                     trap, m_peer.name.size() + m_peer.contextName.size() + m_engine.size() + contextEngine().size())
               : longestMessage(trap, m_peer.name);
    return {trap, size.value_or(0), std::min(passage.wanted, m_receiverTakes)};
}

NetSnmpInformChannel::Failure NetSnmpInformChannel::transmit(Passage& passage) {
    passage.asking = false;
    const FittedNotification trap = fitted(passage);
    if (trap.size() > LONGEST_MESSAGE) return end(passage, InformOutcome::Kind::Unsendable, tooLongText(trap));
    passage.cut = trap.cut();
    PduPointer pdu = makeTrapPdu(trap.trap(), passage.inform.upTime);
    if (pdu) {
        pdu->command = SNMP_MSG_INFORM;
        pdu->flags |= UCD_MSG_FLAG_EXPECT_RESPONSE;
        pdu->reqid = static_cast<long>(passage.inform.number & REQUEST_IDS);
    }
    if (isV3()) {
        Expected<InformUsers::Hold> user = m_users.acquire(m_engine, m_peer);
        if (!user) {
            passage.engineTurn = m_engineTurn;
            forgetEngine(passage);
            return end(passage, InformOutcome::Kind::Failed, user.failure());
        }
        m_user = *std::move(user);
        if (pdu) {
            pdu->version = SNMP_VERSION_3;
            pdu->securityModel = USM_SEC_MODEL_NUMBER;
            pdu->securityLevel = m_peer.level;
            const bool complete = setText(m_peer.name, pdu->securityName, pdu->securityNameLen) &&
                                  setText(m_peer.contextName, pdu->contextName, pdu->contextNameLen) &&
                                  setBytes(m_engine, pdu->securityEngineID, pdu->securityEngineIDLen) &&
                                  setBytes(contextEngine(), pdu->contextEngineID, pdu->contextEngineIDLen);
            if (!complete) pdu.reset();
        }
    }
    return hand(passage, std::move(pdu));
}

NetSnmpInformChannel::Failure NetSnmpInformChannel::hand(Passage& passage, PduPointer pdu) {
    if (!pdu) return end(passage, InformOutcome::Kind::Failed, "no memory");
    const bool isInform = pdu->command == SNMP_MSG_INFORM;
    const Cookie cookie = m_lastCookie + 1;
    m_session->timeout = static_cast<long>(std::chrono::microseconds(passage.patience).count());
    // A number that is never followed: the library may tell of a message when nothing else knows it any more.
    void* const magic = reinterpret_cast<void*>(cookie);  // NOLINT(performance-no-int-to-ptr)
    if (snmp_async_send(m_session.get(), pdu.get(), &NetSnmpInformChannel::answered, magic) == 0) {
        char* text = nullptr;
        int systemError = 0;
        int snmpError = 0;
        snmp_error(m_session.get(), &systemError, &snmpError, &text);
        const bool unsendable = isInform && isFaultOfPdu(snmpError, systemError);
        return end(passage, unsendable ? InformOutcome::Kind::Unsendable : InformOutcome::Kind::Failed,
                   takeErrorText(text));
    }
    (void)pdu.release();  // the library has it
    m_lastCookie = passage.latest = cookie;
    passage.messages[passage.sent++ % passage.messages.size()] = cookie;
    passage.engineTurn = m_engineTurn;
    passage.answers = m_answers;
    passage.wasSent = passage.wasSent || isInform;
    return std::nullopt;
}

// Called by the library, which is at work with this session: needs no memory, and leaves the rest to outcome().
int NetSnmpInformChannel::answered(int operation, netsnmp_session* session, int, netsnmp_pdu* pdu, void* cookie) {
    auto& channel = *static_cast<NetSnmpInformChannel*>(session->myvoid);
    const bool received = operation == NETSNMP_CALLBACK_OP_RECEIVED_MESSAGE;
    // Others tell of what the library does by itself, or of a failure that send() returns.
    if (channel.m_closing || (!received && operation != NETSNMP_CALLBACK_OP_TIMED_OUT)) return 1;
    Arrival arrival;
    arrival.timedOut = !received;
    if (received) {
        channel.noteSize(*pdu);
        arrival.command = pdu->command;
        arrival.errorStatus = pdu->errstat;
        if (pdu->command == SNMP_MSG_REPORT) arrival.reportType = snmpv3_get_report_type(pdu);
        if (pdu->securityEngineIDLen >= SHORTEST_ENGINE_ID && pdu->securityEngineIDLen <= LONGEST_ENGINE_ID) {
            arrival.engineLength = pdu->securityEngineIDLen;
            std::copy_n(pdu->securityEngineID, arrival.engineLength, arrival.engine.begin());
        }
    }
    channel.arrive(reinterpret_cast<Cookie>(cookie), arrival);
    return 1;
}

// An answer counts whichever message it is to; that a message had none only when no other followed it.
void NetSnmpInformChannel::arrive(Cookie cookie, const Arrival& arrival) {
    if (!arrival.timedOut) ++m_answers;
    for (Passage& passage : m_underWay) {
        const bool isLatest = passage.latest == cookie;
        const auto& all = passage.messages;
        if (!isLatest && (arrival.timedOut || std::find(all.begin(), all.end(), cookie) == all.end())) continue;
        if (passage.arrival && passage.arrival->command == SNMP_MSG_RESPONSE) continue;
        passage.arrival = arrival;
        passage.arrival->ofQuestion = isLatest && passage.asking;
        m_arrived();
    }
}

const InformOutcome* NetSnmpInformChannel::outcome() {
    for (auto at = m_underWay.begin(); at != m_underWay.end();) {
        const auto passage = at++;
        if (!passage->arrival) continue;
        passage->outcome = goOn(*passage, *passage->arrival);
        passage->arrival.reset();
        if (passage->outcome) m_ended.splice(m_ended.end(), m_underWay, passage);
    }
    return m_ended.empty() ? nullptr : &*m_ended.front().outcome;
}

NetSnmpInformChannel::Failure NetSnmpInformChannel::goOn(Passage& passage, const Arrival& arrival) {
    if (arrival.timedOut) {
        if (passage.answers == m_answers) forgetEngine(passage);  // else it answers, and one datagram was lost
        return end(passage, InformOutcome::Kind::NoAnswer);
    }
    if (arrival.ofQuestion) return takeEngine(passage, arrival);
    if (arrival.command == SNMP_MSG_REPORT) return takeReport(passage, arrival.reportType);
    return takeAnswer(passage, arrival);
}

NetSnmpInformChannel::Failure NetSnmpInformChannel::takeAnswer(const Passage& passage, const Arrival& answer) {
    if (answer.command != SNMP_MSG_RESPONSE) {
        return end(passage, InformOutcome::Kind::Failed, "the receiver answers with something else than a response");
    }
    if (answer.errorStatus != SNMP_ERR_NOERROR) {
        return end(passage, InformOutcome::Kind::Refused, snmp_errstring(static_cast<int>(answer.errorStatus)));
    }
    return end(passage, InformOutcome::Kind::Acknowledged);
}

// The receiver's engine does not take the message as it is.
NetSnmpInformChannel::Failure NetSnmpInformChannel::takeReport(Passage& passage, int type) {
    const bool isOther = type == SNMPERR_UNKNOWN_ENG_ID || type == SNMPERR_NOT_IN_TIME_WINDOW;
    const bool isForgotten = passage.engineTurn != m_engineTurn;  // for the report on another inform
    forgetEngine(passage);
    if (isOther && !passage.asked && (m_engine.empty() || isForgotten)) {
        Failure failure = begin(passage);
        passage.asked = true;
        return failure;
    }
    return end(passage, InformOutcome::Kind::Failed, std::string("the receiver reports: ") + snmp_api_errstring(type));
}

NetSnmpInformChannel::Failure NetSnmpInformChannel::takeEngine(Passage& passage, const Arrival& answer) {
    if (answer.command != SNMP_MSG_REPORT || answer.engineLength == 0) {
        return end(passage, InformOutcome::Kind::Failed, "the receiver does not report its engine ID");
    }
    m_engine.assign(answer.engine.begin(), answer.engine.begin() + answer.engineLength);
    return transmit(passage);
}

void NetSnmpInformChannel::noteSize(const netsnmp_pdu& pdu) {
    if (!isV3() || pdu.msgMaxSize < static_cast<long>(SHORTEST_MAX_MESSAGE)) return;
    m_receiverTakes = std::min(LONGEST_MESSAGE, static_cast<std::size_t>(pdu.msgMaxSize));
}

// What is known of its time goes, and its ID, unless the configuration has it. What was found out since the message was
// sent stays.
void NetSnmpInformChannel::forgetEngine(const Passage& passage) {
    if (!isV3() || m_engine.empty() || passage.engineTurn != m_engineTurn) return;
    if (m_engine != ownEngineId()) {
        free_enginetime(reinterpret_cast<unsigned char*>(m_engine.data()), m_engine.size());
    }
    ++m_engineTurn;
    m_user.reset();
    m_engine = m_peer.engineId;
}

InformOutcome NetSnmpInformChannel::end(const Passage& passage, InformOutcome::Kind kind, const std::string& text) {
    return {kind, passage.wasSent, text, passage.cut, passage.inform.number};
}

}  // namespace

Expected<std::unique_ptr<InformChannel>> NetSnmpInformTransport::open(const InformPeer& peer,
                                                                      const std::string& address,
                                                                      std::function<void()> arrived) {
    Expected<std::string> place = peerName(address, peer.port);
    if (!place) return Unexpected{place.failure()};
    std::string name = peer.name;

    netsnmp_session wanted;  // the library copies what it points to
    snmp_sess_init(&wanted);
    wanted.peername = place->data();
    wanted.sndMsgMaxSize = LONGEST_MESSAGE;
    wanted.retries = 0;
    if (peer.version == SNMPV3) {
        wanted.version = SNMP_VERSION_3;
        wanted.flags |= SNMP_FLAGS_DONT_PROBE;
        wanted.securityModel = USM_SEC_MODEL_NUMBER;
        wanted.securityLevel = peer.level;
        wanted.securityName = name.data();
        wanted.securityNameLen = name.size();
    } else {
        wanted.version = SNMP_VERSION_2c;
        wanted.community = reinterpret_cast<u_char*>(name.data());
        wanted.community_len = name.size();
    }
    SessionPointer session(snmp_open(&wanted));
    if (!session) return Unexpected{openingError(wanted)};
    // Opening takes the flag away, and the first message would make the library ask for the engine by itself, waiting
    // for the answer; a user is made for nobody then, too.
    session->flags |= SNMP_FLAGS_DONT_PROBE | SNMP_FLAGS_USER_CREATED;
    return std::make_unique<NetSnmpInformChannel>(m_users, peer, std::move(session), std::move(arrived));
}

}  // namespace vrx
