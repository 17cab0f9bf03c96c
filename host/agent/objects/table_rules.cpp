#include "host/agent/objects/table_rules.h"

#include <utility>
#include <vector>

namespace vrx {

namespace {

std::vector<std::pair<OidVector, TableTraits>>& registered() {
    static std::vector<std::pair<OidVector, TableTraits>> tables;
    return tables;
}

const TableTraits* find(const OidVector& root) {
    for (const auto& [table, traits] : registered()) {
        if (table == root) return &traits;
    }
    return nullptr;
}

}  // namespace

void registerTable(const OidVector& root, TableTraits traits) {
    if (find(root) == nullptr) registered().emplace_back(root, std::move(traits));
}

const TableTraits& tableTraits(const OidVector& root) {
    static const TableTraits NONE;
    const TableTraits* const traits = find(root);
    return traits == nullptr ? NONE : *traits;
}

}  // namespace vrx
