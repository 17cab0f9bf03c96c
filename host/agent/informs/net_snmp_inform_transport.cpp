#include "host/agent/informs/net_snmp_inform_transport.h"

#include <algorithm>
#include <array>
#include <cstdlib>
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

class NetSnmpInformChannel : public InformChannel {
public:
    NetSnmpInformChannel(InformUsers& users, InformPeer peer, SessionPointer session, std::function<void()> arrived)
        : m_users(users),
          m_peer(std::move(peer)),
          m_session(std::move(session)),
          m_arrived(std::move(arrived)),
          m_engine(m_peer.engineId) {}

    // Closing the session tells of what is under way as if it had no answer.
    ~NetSnmpInformChannel() override {
        m_closing = true;
        m_session.reset();
    }

    void send(const Inform& inform, std::size_t wanted, std::chrono::milliseconds patience) override;
    const InformOutcome* outcome() override;
    std::string engine() const override { return hexadecimal(m_engine); }

private:
    static int answered(int operation, netsnmp_session*, int, netsnmp_pdu* pdu, void* self);

    bool isV3() const { return m_peer.version == SNMPV3; }
    std::string contextEngine() const {
        return m_peer.contextEngineId.empty() ? ownEngineId() : m_peer.contextEngineId;
    }
    FittedNotification fitted() const;
    void noteSize(const netsnmp_pdu& pdu);
    void ask();
    void transmit();
    void hand(PduPointer pdu);
    void goOn(const Arrival& arrival);
    void takeAnswer(const Arrival& answer);
    void takeReport(int type);
    void takeEngine(const Arrival& answer);
    void forgetEngine();
    void finish(InformOutcome::Kind kind, const std::string& text = "");

    InformUsers& m_users;
    const InformPeer m_peer;
    SessionPointer m_session;
    const std::function<void()> m_arrived;
    std::string m_engine;  // of the receiver; empty while unknown
    InformUsers::Hold m_user;

    std::size_t m_receiverTakes = LONGEST_MESSAGE;  // octets of a message, as its engine said last

    Inform m_inform;                         // the last one
    std::optional<Arrival> m_arrival;        // that nothing was made of yet
    std::optional<InformOutcome> m_outcome;  // nothing while it is under way
    std::size_t m_wanted = LONGEST_MESSAGE;
    unsigned int m_cut = 0;
    bool m_closing = false;
    bool m_asked = false;   // for the engine, which was not known
    bool m_asking = false;  // and the question is what is under way
    bool m_wasSent = false;
};

void NetSnmpInformChannel::send(const Inform& inform, std::size_t wanted, std::chrono::milliseconds patience) {
    m_inform = inform;
    m_arrival.reset();
    m_outcome.reset();
    m_wanted = wanted;
    m_cut = 0;
    m_asked = m_wasSent = false;
    m_session->timeout = static_cast<long>(std::chrono::microseconds(patience).count());
    if (isV3() && m_engine.empty()) {
        ask();
    } else {
        transmit();
    }
    if (m_outcome) m_arrived();  // it could not be sent
}

// An empty request to nobody in particular: the engine answers it with a report that holds its ID.
void NetSnmpInformChannel::ask() {
    m_asked = m_asking = true;
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
    hand(std::move(pdu));
}

FittedNotification NetSnmpInformChannel::fitted() const {
    const Notification& trap = *m_inform.trap;
    const std::optional<std::size_t> size =
        isV3() ? longestMessageV3(
                     trap, m_peer.name.size() + m_peer.contextName.size() + m_engine.size() + contextEngine().size())
               : longestMessage(trap, m_peer.name);
    return {trap, size.value_or(0), std::min(m_wanted, m_receiverTakes)};
}

void NetSnmpInformChannel::transmit() {
    m_asking = false;
    const FittedNotification trap = fitted();
    if (trap.size() > LONGEST_MESSAGE) return finish(InformOutcome::Kind::Unsendable, tooLongText(trap));
    m_cut = trap.cut();
    PduPointer pdu = makeTrapPdu(trap.trap(), m_inform.upTime);
    if (pdu) {
        pdu->command = SNMP_MSG_INFORM;
        pdu->flags |= UCD_MSG_FLAG_EXPECT_RESPONSE;
        pdu->reqid = static_cast<long>(m_inform.number & REQUEST_IDS);
    }
    if (isV3()) {
        Expected<InformUsers::Hold> user = m_users.acquire(m_engine, m_peer);
        if (!user) {
            forgetEngine();
            return finish(InformOutcome::Kind::Failed, user.failure());
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
    hand(std::move(pdu));
}

void NetSnmpInformChannel::hand(PduPointer pdu) {
    if (!pdu) return finish(InformOutcome::Kind::Failed, "no memory");
    const bool isInform = pdu->command == SNMP_MSG_INFORM;
    if (snmp_async_send(m_session.get(), pdu.get(), &NetSnmpInformChannel::answered, this) == 0) {
        char* text = nullptr;
        int systemError = 0;
        int snmpError = 0;
        snmp_error(m_session.get(), &systemError, &snmpError, &text);
        const bool unsendable = isInform && isFaultOfPdu(snmpError, systemError);
        return finish(unsendable ? InformOutcome::Kind::Unsendable : InformOutcome::Kind::Failed, takeErrorText(text));
    }
    (void)pdu.release();  // the library has it
    m_wasSent = m_wasSent || isInform;
}

// Called by the library, which is at work with this session: needs no memory, and leaves the rest to outcome().
int NetSnmpInformChannel::answered(int operation, netsnmp_session*, int, netsnmp_pdu* pdu, void* self) {
    auto& channel = *static_cast<NetSnmpInformChannel*>(self);
    const bool received = operation == NETSNMP_CALLBACK_OP_RECEIVED_MESSAGE;
    // Others tell of what the library does by itself, or of a failure that send() returns.
    if (channel.m_closing || (!received && operation != NETSNMP_CALLBACK_OP_TIMED_OUT)) return 1;
    Arrival arrival;
    arrival.ofQuestion = channel.m_asking;
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
    channel.m_arrival = arrival;
    channel.m_arrived();
    return 1;
}

const InformOutcome* NetSnmpInformChannel::outcome() {
    if (m_arrival) {
        goOn(*m_arrival);
        m_arrival.reset();
    }
    return m_outcome ? &*m_outcome : nullptr;
}

void NetSnmpInformChannel::goOn(const Arrival& arrival) {
    if (arrival.timedOut) {
        forgetEngine();
        finish(InformOutcome::Kind::NoAnswer);
    } else if (arrival.ofQuestion) {
        takeEngine(arrival);
    } else if (arrival.command == SNMP_MSG_REPORT) {
        takeReport(arrival.reportType);
    } else {
        takeAnswer(arrival);
    }
}

void NetSnmpInformChannel::takeAnswer(const Arrival& answer) {
    if (answer.command != SNMP_MSG_RESPONSE) {
        finish(InformOutcome::Kind::Failed, "the receiver answers with something else than a response");
    } else if (answer.errorStatus != SNMP_ERR_NOERROR) {
        finish(InformOutcome::Kind::Refused, snmp_errstring(static_cast<int>(answer.errorStatus)));
    } else {
        finish(InformOutcome::Kind::Acknowledged);
    }
}

// The receiver's engine does not take the message as it is.
void NetSnmpInformChannel::takeReport(int type) {
    forgetEngine();
    const bool isOther = type == SNMPERR_UNKNOWN_ENG_ID || type == SNMPERR_NOT_IN_TIME_WINDOW;
    if (isOther && !m_asked && m_engine.empty()) return ask();
    finish(InformOutcome::Kind::Failed, std::string("the receiver reports: ") + snmp_api_errstring(type));
}

void NetSnmpInformChannel::takeEngine(const Arrival& answer) {
    if (answer.command != SNMP_MSG_REPORT || answer.engineLength == 0) {
        return finish(InformOutcome::Kind::Failed, "the receiver does not report its engine ID");
    }
    m_engine.assign(answer.engine.begin(), answer.engine.begin() + answer.engineLength);
    transmit();
}

void NetSnmpInformChannel::noteSize(const netsnmp_pdu& pdu) {
    if (!isV3() || pdu.msgMaxSize < static_cast<long>(SHORTEST_MAX_MESSAGE)) return;
    m_receiverTakes = std::min(LONGEST_MESSAGE, static_cast<std::size_t>(pdu.msgMaxSize));
}

// What is known of its time goes, and its ID, unless the configuration has it.
void NetSnmpInformChannel::forgetEngine() {
    if (!isV3() || m_engine.empty()) return;
    if (m_engine != ownEngineId()) {
        free_enginetime(reinterpret_cast<unsigned char*>(m_engine.data()), m_engine.size());
    }
    m_user.reset();
    m_engine = m_peer.engineId;
}

void NetSnmpInformChannel::finish(InformOutcome::Kind kind, const std::string& text) {
    m_outcome = InformOutcome{kind, m_wasSent, text, m_cut};
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
