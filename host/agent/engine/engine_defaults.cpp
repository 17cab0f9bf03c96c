#include "platform/snmp_basic_impl.h"  // first: Net-SNMP's `oid` is a common name of parameters in SNMP++'s headers

#include "host/agent/engine/engine_defaults.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "host/snmp/net_snmp.h"
// After Net-SNMP's others.
#include <net-snmp/agent/agent_sysORTable.h>

#include "host/snmp/oid_vector.h"

namespace vrx {

namespace {

constexpr std::array DEFAULT_WORDS = {
    "[vrx-agentd] sysDescr vrx-agentd " VRX_VERSION ", SNMP agent of the storage system",
    "[vrx-agentd] sysObjectID .1.3.6.1.4.1.99871.3.2",  // vrxStorageSystem of VRX-AGENT-MIB
    "[vrx-agentd] sysServices 72",                      // end-to-end and applications (RFC 3418)
};

constexpr MibModule AGENT_MIB{"1.3.6.1.4.1.99871.3.1", "VRX-AGENT-MIB: the state of the agent"};

void list(const MibModule& module) {
    OidVector identity = parseOid(module.first);
    register_sysORTable(identity.data(), identity.size(), module.second);
}

// The library's name for what is seen by whom the configuration gives no view.
constexpr const char* DEFAULT_VIEW = "_all_";
constexpr std::array SEEN = {"1.3.6.1.2.1.1", "1.3.6.1.2.1.11", "1.3.6.1.4.1.99871"};

}  // namespace

// The library has taken the host's name. Not the word sysName: no manager could write the object then.
void setSystemName() {
    OidVector object = parseOid("1.3.6.1.2.1.1.5.0");
    const netsnmp_subtree* const subtree = netsnmp_subtree_find(object.data(), object.size(), nullptr, "");
    if (subtree == nullptr || subtree->reginfo == nullptr) return;
    const netsnmp_mib_handler* const watcher = netsnmp_find_handler_by_name(subtree->reginfo, "watcher");
    if (watcher == nullptr || watcher->myvoid == nullptr) return;
    const auto& watched = *static_cast<const netsnmp_watcher_info*>(watcher->myvoid);
    const std::string name = GetSystemName();
    if (watched.type != ASN_OCTET_STR || (watched.flags & WATCHER_SIZE_STRLEN) == 0 || watched.max_size < 2) return;
    auto* const text = static_cast<char*>(watched.data);
    text[name.copy(text, watched.max_size - 1)] = '\0';
}

void setSystemDefaults() {
    for (const char* word : DEFAULT_WORDS) {
        std::string line = word;  // the library takes it apart
        netsnmp_config(line.data());
    }
}

void listMibModules(const MibModules& served) {
    for (const MibModule& module : served) list(module);
    list(AGENT_MIB);
}

void setDefaultView() {
    std::vector<OidVector> wider;  // as the library keeps them, with their length in front
    vacm_scanViewInit();
    while (const vacm_viewEntry* const entry = vacm_scanViewNext()) {
        const std::string_view name(entry->viewName + 1, static_cast<unsigned char>(entry->viewName[0]));
        if (name == DEFAULT_VIEW) wider.emplace_back(entry->viewSubtree, entry->viewSubtree + entry->viewSubtreeLen);
    }
    for (OidVector& subtree : wider) vacm_destroyViewEntry(DEFAULT_VIEW, subtree.data(), subtree.size());
    for (const char* seen : SEEN) {
        OidVector subtree = parseOid(seen);
        vacm_viewEntry* const entry = vacm_createViewEntry(DEFAULT_VIEW, subtree.data(), subtree.size());
        if (entry == nullptr) continue;
        entry->viewType = SNMP_VIEW_INCLUDED;
        entry->viewStorageType = ST_PERMANENT;
        entry->viewStatus = RS_ACTIVE;
    }
}

}  // namespace vrx
