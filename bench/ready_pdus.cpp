#include "bench/ready_pdus.h"

#include <memory>
#include <string>
#include <vector>

#include "host/agent/delivery/notification_pdu.h"

namespace vrx {

namespace {

constexpr int READY_PDUS = 200;  // made at a time

struct CloseSession {
    void operator()(void* session) const { snmp_sess_close(session); }
};

}  // namespace

void sendReadyPdus(benchmark::State& state, const Notification& trap, unsigned int port) {
    std::string peer = "udp:127.0.0.1:" + std::to_string(port);
    std::string community = COMMUNITY;
    netsnmp_session wanted;
    snmp_sess_init(&wanted);
    wanted.peername = peer.data();
    wanted.version = SNMP_VERSION_2c;
    wanted.community = reinterpret_cast<u_char*>(community.data());
    wanted.community_len = community.size();
    const std::unique_ptr<void, CloseSession> session(snmp_sess_open(&wanted));
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
