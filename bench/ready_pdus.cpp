#include "bench/ready_pdus.h"

#include <memory>
#include <string>
#include <vector>

#include "host/agent/delivery/notification_pdu.h"
#include "host/snmp/usm_users.h"

namespace vrx {

namespace {

constexpr int READY_PDUS = 200;  // made at a time

struct CloseSession {
    void operator()(void* session) const { snmp_sess_close(session); }
};

using SessionPointer = std::unique_ptr<void, CloseSession>;

SessionPointer openSession(unsigned int port, ReadyPdu kind) {
    std::string peer = "udp:127.0.0.1:" + std::to_string(port);
    std::string name = kind == ReadyPdu::Secure ? USER : COMMUNITY;
    std::string engine = ownEngineId();
    netsnmp_session wanted;
    snmp_sess_init(&wanted);
    wanted.peername = peer.data();
    if (kind == ReadyPdu::Community) {
        wanted.version = SNMP_VERSION_2c;
        wanted.community = reinterpret_cast<u_char*>(name.data());
        wanted.community_len = name.size();
    } else {
        wanted.version = SNMP_VERSION_3;
        wanted.flags |= SNMP_FLAGS_DONT_PROBE;
        wanted.securityModel = USM_SEC_MODEL_NUMBER;
        wanted.securityLevel = SNMP_SEC_LEVEL_AUTHPRIV;
        wanted.securityName = name.data();
        wanted.securityNameLen = name.size();
        wanted.securityEngineID = reinterpret_cast<u_char*>(engine.data());
        wanted.securityEngineIDLen = engine.size();
    }
    return SessionPointer(snmp_sess_open(&wanted));
}

}  // namespace

void addUser() {
    std::string line = std::string(USER) + " SHA-256 bench-auth-pass AES bench-priv-pass";
    usm_parse_create_usmUser("createUser", line.data());
}

void sendReadyPdus(benchmark::State& state, const Notification& trap, unsigned int port, ReadyPdu kind) {
    const SessionPointer session = openSession(port, kind);
    if (!session) return state.SkipWithError("no session");
    std::vector<PduPointer> pdus;
    for (auto _ : state) {
        if (pdus.empty()) {
            state.PauseTiming();
            for (int i = 0; i < READY_PDUS; ++i) pdus.push_back(makeTrapPdu(trap, 1));
            state.ResumeTiming();
        }
        PduPointer pdu = std::move(pdus.back());
        pdus.pop_back();
        if (snmp_sess_send(session.get(), pdu.get()) == 0) return state.SkipWithError("not sent");
        static_cast<void>(pdu.release());  // the library has freed it
    }
}

}  // namespace vrx
