#include "host/agent/sets/set_request.h"

#include <algorithm>

#include "host/agent/objects/cell_value.h"
#include "host/agent/objects/table_rules.h"
#include "host/snmp/net_snmp.h"

namespace vrx {

namespace {

// The column and row that a name in the object means, or why it cannot be set.
struct Target {
    int error;
    const MibColumn* column;
    std::uint32_t row;
};

Target targetOf(const MibObject& mib, const oid* suffix, std::size_t length) {
    if (!mib.table) {
        const MibColumn* const value = &mib.columns.front();
        if (!value->writable()) return {SNMP_ERR_NOTWRITABLE, nullptr, 0};
        const bool instance = length == 1 && suffix[0] == 0;
        return {instance ? SNMP_ERR_NOERROR : SNMP_ERR_NOCREATION, value, 0};
    }
    const MibColumn* const column = length >= 2 && suffix[0] == MibObject::ENTRY ? mib.column(suffix[1]) : nullptr;
    if (column == nullptr || !column->writable()) return {SNMP_ERR_NOTWRITABLE, nullptr, 0};
    if (length != MibObject::INSTANCE_LENGTH || suffix[2] < static_cast<oid>(mib.index.min) ||
        suffix[2] > static_cast<oid>(mib.index.max)) {
        return {SNMP_ERR_NOCREATION, nullptr, 0};
    }
    return {SNMP_ERR_NOERROR, column, static_cast<std::uint32_t>(suffix[2])};
}

SetStep& stepOf(std::vector<SetStep>& steps, ManagedObject* object) {
    const auto found =
        std::find_if(steps.begin(), steps.end(), [object](const SetStep& step) { return step.object == object; });
    if (found != steps.end()) return *found;
    steps.push_back({object, {}});
    return steps.back();
}

SetRow& rowOf(SetStep& step, std::uint32_t number) {
    const auto found =
        std::find_if(step.rows.begin(), step.rows.end(), [number](const SetRow& row) { return row.number == number; });
    if (found != step.rows.end()) return *found;
    step.rows.emplace_back();
    step.rows.back().number = number;
    return step.rows.back();
}

// Both of one variable twice in a request cannot be set "as if simultaneously", unless nothing is lost: it is refused.
int addTo(SetRow& row, const netsnmp_variable_list& varbind, const MibObject& mib, const MibColumn& column,
          int variable) {
    if (&column == mib.rowStatus()) {
        if (row.rowStatusVariable != 0) return SNMP_ERR_INCONSISTENTVALUE;
        row.rowStatusVariable = variable;
        row.rowStatus = static_cast<int>(*varbind.val.integer);
        const bool offered =
            row.rowStatus == RS_ACTIVE || row.rowStatus == RS_CREATEANDGO || row.rowStatus == RS_DESTROY;
        return offered ? SNMP_ERR_NOERROR : SNMP_ERR_WRONGVALUE;
    }
    const auto tag = static_cast<unsigned short>(column.number);
    const bool twice =
        std::any_of(row.cells.begin(), row.cells.end(), [tag](const SetCell& cell) { return cell.tag == tag; });
    if (twice) return SNMP_ERR_INCONSISTENTVALUE;
    row.cells.push_back({tag, variable, cellOfVarbind(varbind, tag)});
    return SNMP_ERR_NOERROR;
}

}  // namespace

const TableRules* SetStep::rules() const {
    return tableRules(object->mib().root);
}

bool SetStep::revocable() const {
    return rules() != nullptr;
}

SetResult parseSet(netsnmp_pdu* pdu, const ObjectFinder& objectOf, std::vector<SetStep>& steps) {
    int variable = 0;
    for (netsnmp_variable_list* varbind = pdu->variables; varbind != nullptr; varbind = varbind->next_variable) {
        ++variable;
        ManagedObject* const object = objectOf(*varbind);
        std::size_t length = varbind->name_length;
        if (in_a_view(varbind->name, &length, pdu, varbind->type) != VACM_SUCCESS) return {SNMP_ERR_NOACCESS, variable};
        // Ours and others' variables cannot be set as one: theirs are not undone when ours fail.
        if (object == nullptr) return {SNMP_ERR_GENERR, variable, "it cannot be set together with objects of ours"};

        const MibObject& mib = object->mib();
        const Target target = targetOf(mib, varbind->name + mib.root.size(), varbind->name_length - mib.root.size());
        if (target.error != SNMP_ERR_NOERROR) return {target.error, variable};
        int error = checkVarbind(*varbind, target.column->syntax);
        if (error == SNMP_ERR_NOERROR) {
            error = addTo(rowOf(stepOf(steps, object), target.row), *varbind, mib, *target.column, variable);
        }
        if (error != SNMP_ERR_NOERROR) return {error, variable};
    }
    const auto last = std::stable_partition(steps.begin(), steps.end(), [](const SetStep& s) { return s.revocable(); });
    if (steps.end() - last > 1) {
        const int second = last[1].rows.front().anyVariable();
        return {SNMP_ERR_GENERR, second, "it cannot be set together with " + last->object->mib().name};
    }
    return {};
}

int v1Error(int error) {
    switch (error) {
        case SNMP_ERR_WRONGVALUE:
        case SNMP_ERR_WRONGENCODING:
        case SNMP_ERR_WRONGTYPE:
        case SNMP_ERR_WRONGLENGTH:
        case SNMP_ERR_INCONSISTENTVALUE:
            return SNMP_ERR_BADVALUE;
        case SNMP_ERR_NOACCESS:
        case SNMP_ERR_NOTWRITABLE:
        case SNMP_ERR_NOCREATION:
        case SNMP_ERR_INCONSISTENTNAME:
        case SNMP_ERR_AUTHORIZATIONERROR:
            return SNMP_ERR_NOSUCHNAME;
        case SNMP_ERR_RESOURCEUNAVAILABLE:
        case SNMP_ERR_COMMITFAILED:
        case SNMP_ERR_UNDOFAILED:
            return SNMP_ERR_GENERR;
        default:
            return error;
    }
}

}  // namespace vrx
