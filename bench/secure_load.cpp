// A manager that asks by SNMPv3 (authPriv, SHA-256, AES-128) and costs next to nothing while it does: the library makes
// and encrypts all requests before the first is sent, and answers are looked at, not decrypted.
//
//     secure_load PORT OID COUNT OPEN USER AUTH_PASSPHRASE PRIV_PASSPHRASE
//
// COUNT GETs of the instance, OPEN of them under way at a time. Prints one line: their number, and the seconds. One GET
// before them all has to be answered with a value; a later answer that is not encrypted ends it with exit code 1.
#include <net-snmp/net-snmp-config.h>
// The configuration header comes first.
#include <net-snmp/net-snmp-includes.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "bench/manager.h"

namespace {

constexpr unsigned char AUTH_PRIV = 3;  // of msgFlags

std::vector<Bytes> g_requests;

int keepRequest(netsnmp_transport*, const void* data, int size, void**, int*) {
    g_requests.emplace_back(static_cast<const unsigned char*>(data), static_cast<std::size_t>(size));
    return size;
}

int ignoreAnswer(int, netsnmp_session*, int, netsnmp_pdu*, void*) {
    return 1;
}

void makeKey(const char* passphrase, u_char* key, std::size_t& length) {
    length = USM_AUTH_KU_LEN;
    if (generate_Ku(usmHMAC192SHA256AuthProtocol, OID_LENGTH(usmHMAC192SHA256AuthProtocol),
                    reinterpret_cast<const u_char*>(passphrase), std::strlen(passphrase), key,
                    &length) != SNMPERR_SUCCESS) {
        throw std::runtime_error("no key of the passphrase");
    }
}

// The library's session, which finds out engine ID, boots and time, and makes the requests.
class Session {
public:
    Session(const std::string& port, std::string user, const char* authPassphrase, const char* privPassphrase) {
        std::string peer = "udp:127.0.0.1:" + port;
        netsnmp_session wanted;
        snmp_sess_init(&wanted);
        wanted.peername = peer.data();
        wanted.version = SNMP_VERSION_3;
        wanted.securityModel = USM_SEC_MODEL_NUMBER;
        wanted.securityLevel = SNMP_SEC_LEVEL_AUTHPRIV;
        wanted.securityName = user.data();
        wanted.securityNameLen = user.size();
        wanted.securityAuthProto = usmHMAC192SHA256AuthProtocol;
        wanted.securityAuthProtoLen = OID_LENGTH(usmHMAC192SHA256AuthProtocol);
        wanted.securityPrivProto = usmAESPrivProtocol;
        wanted.securityPrivProtoLen = OID_LENGTH(usmAESPrivProtocol);
        makeKey(authPassphrase, wanted.securityAuthKey, wanted.securityAuthKeyLen);
        makeKey(privPassphrase, wanted.securityPrivKey, wanted.securityPrivKeyLen);
        m_session = snmp_sess_open(&wanted);
        if (m_session == nullptr) throw std::runtime_error("the agent does not answer");
    }
    ~Session() { snmp_sess_close(m_session); }
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    void get(const std::vector<oid>& name) {
        netsnmp_pdu* answer = nullptr;
        const bool answered = snmp_sess_synch_response(m_session, request(name), &answer) == STAT_SUCCESS &&
                              answer->errstat == 0 && answer->variables->type < SNMP_NOSUCHOBJECT;
        snmp_free_pdu(answer);
        if (!answered) throw std::runtime_error("no value is answered");
    }

    // Instead of being sent, they are added to g_requests.
    void keep(const std::vector<oid>& name, unsigned long count) {
        snmp_sess_transport(m_session)->f_send = keepRequest;
        while (g_requests.size() < count) {
            if (snmp_sess_async_send(m_session, request(name), ignoreAnswer, nullptr) == 0) {
                throw std::runtime_error("a request cannot be made");
            }
        }
    }

private:
    static netsnmp_pdu* request(const std::vector<oid>& name) {
        netsnmp_pdu* const pdu = snmp_pdu_create(SNMP_MSG_GET);
        snmp_add_null_var(pdu, name.data(), name.size());
        return pdu;
    }

    void* m_session = nullptr;
};

std::vector<oid> nameOf(const char* text) {
    std::vector<oid> name(MAX_OID_LEN);
    std::size_t length = name.size();
    if (read_objid(text, name.data(), &length) == 0) throw std::runtime_error("no object identifier");
    name.resize(length);
    return name;
}

// Reports are not encrypted.
void checkAnswer(View message) {
    Reader outer(Reader(message).expect(SEQUENCE));
    outer.expect(INTEGER);
    Reader header(outer.expect(SEQUENCE));
    header.expect(INTEGER);
    header.expect(INTEGER);
    if ((header.expect(OCTETS).front() & AUTH_PRIV) != AUTH_PRIV)
        throw std::runtime_error("the agent reports an error");
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 8) {
        std::fprintf(stderr, "usage: secure_load PORT OID COUNT OPEN USER AUTH_PASSPHRASE PRIV_PASSPHRASE\n");
        return 2;
    }
    try {
        ::setenv("MIBS", "", 1);
        ::setenv("SNMPCONFPATH", "/nonexistent", 1);
        netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DONT_PERSIST_STATE, 1);
        init_snmp("secure_load");
        const std::vector<oid> name = nameOf(argv[2]);
        const unsigned long count = std::strtoul(argv[3], nullptr, 10);
        Session session(argv[1], argv[5], argv[6], argv[7]);
        session.get(name);
        session.keep(name, count);

        Connection agent(std::atoi(argv[1]));
        const auto begin = std::chrono::steady_clock::now();
        ask(
            agent, count, std::strtoul(argv[4], nullptr, 10),
            [&](unsigned long number) { agent.send(g_requests[number]); }, checkAnswer);
        const std::chrono::duration<double> time = std::chrono::steady_clock::now() - begin;
        std::printf("%lu %.6f\n", count, time.count());
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "secure_load: %s\n", error.what());
        return 1;
    }
}
