// A stock Net-SNMP agent to compare ours with: the library's own listener and loop, its table helper (tdata) over rows
// in memory, and its scalar helper. Rows come from a running agent, so that both serve the same columns, types and
// values.
//
//     tdata_agent --copy udp:127.0.0.1:1161 --table 1.3.6.1.4.1.99871.2.91.10.1.1 --scalar 1.3...2.0
//                 --listen udp:127.0.0.1:1162 --state DIR
//
// With --agentx ADDRESS in place of --listen it is a subagent of the snmpd there.
//
// --table names the object's table, whose entries stand below TABLE.1.COLUMN.INDEX. Says "ready" on stderr when it
// serves; ends on SIGTERM.
#include <net-snmp/net-snmp-config.h>
// The configuration header comes first.
#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/command_line/option_parser.h"

// Of the library's access control, whose header is not installed.
extern "C" void init_vacm_vars();

namespace {

constexpr const char* NAME = "tdata-agent";
constexpr long REPETITIONS = 50;

volatile std::sig_atomic_t g_stop = 0;

struct tValue {
    u_char type = ASN_NULL;
    std::string bytes;  // as the library keeps them
};

using Row = std::vector<tValue>;  // by column number

struct tRows {
    std::vector<oid> table;
    std::map<u_long, Row> rows;  // by index
    std::vector<oid> scalarName;
    tValue scalar;
};

std::vector<oid> parseName(const std::string& text) {
    std::vector<oid> name(MAX_OID_LEN);
    std::size_t length = name.size();
    if (snmp_parse_oid(text.c_str(), name.data(), &length) == nullptr) {
        throw std::runtime_error("no object identifier: " + text);
    }
    name.resize(length);
    return name;
}

tValue valueOf(const netsnmp_variable_list& varbind) {
    return {varbind.type, std::string(reinterpret_cast<const char*>(varbind.val.string), varbind.val_len)};
}

bool isBelow(const netsnmp_variable_list& varbind, const std::vector<oid>& root) {
    return netsnmp_oid_is_subtree(root.data(), root.size(), varbind.name, varbind.name_length) == 0;
}

struct FreePdu {
    void operator()(netsnmp_pdu* pdu) const { snmp_free_pdu(pdu); }
};
using PduPointer = std::unique_ptr<netsnmp_pdu, FreePdu>;

// A manager's session with the agent that is copied.
class Source {
public:
    explicit Source(std::string address) {
        char community[] = "public";
        netsnmp_session wanted;
        snmp_sess_init(&wanted);
        wanted.version = SNMP_VERSION_2c;
        wanted.peername = address.data();
        wanted.community = reinterpret_cast<u_char*>(community);
        wanted.community_len = sizeof community - 1;
        wanted.timeout = 10'000'000;
        m_session = snmp_sess_open(&wanted);
        if (m_session == nullptr) throw std::runtime_error("cannot reach " + address);
    }
    ~Source() { snmp_sess_close(m_session); }
    Source(const Source&) = delete;
    Source& operator=(const Source&) = delete;

    PduPointer ask(int command, const std::vector<oid>& name) {
        netsnmp_pdu* const pdu = snmp_pdu_create(command);
        if (command == SNMP_MSG_GETBULK) {
            pdu->non_repeaters = 0;
            pdu->max_repetitions = REPETITIONS;
        }
        snmp_add_null_var(pdu, name.data(), name.size());
        netsnmp_pdu* answer = nullptr;
        if (snmp_sess_synch_response(m_session, pdu, &answer) != STAT_SUCCESS || answer->errstat != 0) {
            throw std::runtime_error("the agent to be copied does not answer");
        }
        return PduPointer(answer);
    }

private:
    void* m_session;
};

tRows copyRows(const std::string& address, const std::string& table, const std::string& scalar) {
    tRows copy;
    copy.table = parseName(table);
    copy.scalarName = parseName(scalar);
    Source source(address);
    copy.scalar = valueOf(*source.ask(SNMP_MSG_GET, copy.scalarName)->variables);
    std::vector<oid> name = copy.table;
    while (true) {
        const PduPointer answer = source.ask(SNMP_MSG_GETBULK, name);
        for (const netsnmp_variable_list* at = answer->variables; at != nullptr; at = at->next_variable) {
            if (at->type == SNMP_ENDOFMIBVIEW || !isBelow(*at, copy.table)) return copy;
            const std::size_t column = copy.table.size() + 1;
            if (at->name_length != column + 2) throw std::runtime_error("an instance is not TABLE.1.COLUMN.INDEX");
            Row& row = copy.rows[at->name[column + 1]];
            row.resize(std::max<std::size_t>(row.size(), at->name[column] + 1));
            row[at->name[column]] = valueOf(*at);
            name.assign(at->name, at->name + at->name_length);
        }
    }
}

void setValue(netsnmp_variable_list* varbind, const tValue& value) {
    snmp_set_var_typed_value(varbind, value.type, value.bytes.data(), value.bytes.size());
}

int serveTable(netsnmp_mib_handler*, netsnmp_handler_registration*, netsnmp_agent_request_info* info,
               netsnmp_request_info* requests) {
    if (info->mode != MODE_GET) return SNMP_ERR_NOERROR;  // the helper makes GETs of everything that reads
    for (netsnmp_request_info* request = requests; request != nullptr; request = request->next) {
        if (request->processed != 0) continue;
        const auto* const row = static_cast<const Row*>(netsnmp_tdata_extract_entry(request));
        const netsnmp_table_request_info* const where = netsnmp_extract_table_info(request);
        if (row == nullptr || where->colnum >= row->size() || (*row)[where->colnum].type == ASN_NULL) {
            netsnmp_set_request_error(info, request, SNMP_NOSUCHINSTANCE);
            continue;
        }
        setValue(request->requestvb, (*row)[where->colnum]);
    }
    return SNMP_ERR_NOERROR;
}

void registerTable(tRows& served) {
    netsnmp_tdata* const table = netsnmp_tdata_create_table(NAME, 0);
    std::size_t columns = 0;
    for (auto& [index, row] : served.rows) {
        netsnmp_tdata_row* const entry = netsnmp_tdata_create_row();
        netsnmp_tdata_row_add_index(entry, ASN_UNSIGNED, &index, sizeof index);
        entry->data = &row;
        netsnmp_tdata_add_row(table, entry);
        columns = std::max(columns, row.size());
    }
    auto* const shape = SNMP_MALLOC_TYPEDEF(netsnmp_table_registration_info);
    netsnmp_table_helper_add_indexes(shape, ASN_UNSIGNED, 0);
    shape->min_column = 1;
    shape->max_column = static_cast<unsigned int>(columns - 1);
    netsnmp_handler_registration* const registration = netsnmp_create_handler_registration(
        NAME, serveTable, served.table.data(), served.table.size(), HANDLER_CAN_RONLY);
    if (netsnmp_tdata_register(registration, table, shape) != SNMPERR_SUCCESS) {
        throw std::runtime_error("the table cannot be registered");
    }
}

int serveScalar(netsnmp_mib_handler* self, netsnmp_handler_registration*, netsnmp_agent_request_info* info,
                netsnmp_request_info* requests) {
    const auto& value = *static_cast<const tValue*>(self->myvoid);
    if (info->mode == MODE_GET) {
        setValue(requests->requestvb, value);
    }
    return SNMP_ERR_NOERROR;
}

void registerScalar(tRows& served) {
    // The helper adds the instance's 0 itself.
    netsnmp_handler_registration* const registration = netsnmp_create_handler_registration(
        "scalar", serveScalar, served.scalarName.data(), served.scalarName.size() - 1, HANDLER_CAN_RONLY);
    registration->handler->myvoid = &served.scalar;
    if (netsnmp_register_scalar(registration) != SNMPERR_SUCCESS) {
        throw std::runtime_error("the scalar cannot be registered");
    }
}

// No address for a subagent, whose master listens.
void serve(tRows& served, const std::string& address) {
    registerTable(served);
    registerScalar(served);
    if (!address.empty()) {
        netsnmp_ds_set_string(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_PORTS, address.c_str());
        if (init_master_agent() != 0) throw std::runtime_error("cannot listen on " + address);
    }
    std::fprintf(stderr, "%s: %zu rows, ready\n", NAME, served.rows.size());
    while (g_stop == 0) agent_check_and_process(1);
}

// Reads DIR/tdata-agent.conf; the library keeps its own file in DIR/state.
void startLibrary(const std::string& folder, const std::string& master) {
    ::setenv("MIBS", "", 1);
    ::unsetenv("SNMPCONFPATH");
    netsnmp_ds_set_string(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_CONFIGURATION_DIR, folder.c_str());
    netsnmp_ds_set_string(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_PERSISTENT_DIR, (folder + "/state").c_str());
    snmp_enable_stderrlog();
    if (!master.empty()) {
        netsnmp_ds_set_string(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_X_SOCKET, master.c_str());
        netsnmp_enable_subagent();
    }
    if (init_agent(NAME) != 0) throw std::runtime_error("the agent library cannot be initialised");
    init_vacm_vars();
    init_snmp(NAME);
}

}  // namespace

int main(int argc, char** argv) {
    vrx::OptionParser options{"A stock Net-SNMP agent that serves another agent's rows from memory."};
    std::string copied;
    std::string table;
    std::string scalar;
    std::string listener;
    std::string master;
    std::string folder;
    options.add("--copy", copied, "agent whose rows are served").required();
    options.add("--table", table, "OID of the table").required();
    options.add("--scalar", scalar, "OID of the scalar's instance").required();
    options.add("--listen", listener, "address");
    options.add("--agentx", master, "address of the snmpd that it is a subagent of");
    options.add("--state", folder, "absolute folder with tdata-agent.conf").required();
    if (const std::optional<int> exitCode = options.parse(argc, argv)) return *exitCode;
    try {
        std::signal(SIGTERM, [](int) { g_stop = 1; });
        startLibrary(folder, master);
        tRows served = copyRows(copied, table, scalar);
        serve(served, listener);
        snmp_shutdown(NAME);
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s: %s\n", NAME, error.what());
        return 1;
    }
}
