#include "host/agent/objects/table_rules.h"

#include <utility>
#include <vector>

namespace vrx {

namespace {

std::vector<std::pair<OidVector, const TableRules*>>& registered() {
    static std::vector<std::pair<OidVector, const TableRules*>> rules;
    return rules;
}

}  // namespace

void registerTableRules(const OidVector& root, const TableRules& rules) {
    if (tableRules(root) == nullptr) registered().emplace_back(root, &rules);
}

const TableRules* tableRules(const OidVector& root) {
    for (const auto& [table, rules] : registered()) {
        if (table == root) return rules;
    }
    return nullptr;
}

}  // namespace vrx
