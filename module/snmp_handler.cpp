#include "module/snmp_handler.h"

#include <memory>

#include "module/vrx_exception.h"

CSnmpHandler::~CSnmpHandler() = default;
int CSnmpHandler::strategy() {
    return 0;
}
bool CSnmpHandler::isWholeTable() {
    return true;
}
int CSnmpHandler::getSnmpOIDVersion() {
    return 1;
}

CSnmpTableHandler::~CSnmpTableHandler() = default;

int CSnmpTableHandler::OnQueryLeaf(const CVRX_SnmpContext&, const CR8KPackageV3&, CR8KPackageV3&) {
    throw CVRX_Exception("CSnmpTableHandler can't support leaf OnQueryLeaf!");
}

int CSnmpTableHandler::OnQueryTable(const CVRX_SnmpContext&, const CR8KPackageV3&, CR8KPackageV3&) {
    return -1;
}

int CSnmpTableHandler::OnSetLeaf(const CVRX_SnmpContext&, const CR8KPackageV3&, CR8KPackageV3&) {
    throw CVRX_Exception("CSnmpTableHandler can't support leaf OnSetLeaf!");
}

int CSnmpTableHandler::OnCreateTable(const CVRX_SnmpContext&, const CR8KPackageV3&, CR8KPackageV3&) {
    return -1;
}
int CSnmpTableHandler::OnModifyTable(const CVRX_SnmpContext&, const CR8KPackageV3&, CR8KPackageV3&) {
    return -1;
}
int CSnmpTableHandler::OnDeleteTable(const CVRX_SnmpContext&, const CR8KPackageV3&, CR8KPackageV3&) {
    return -1;
}

CSnmpLeafHandler::~CSnmpLeafHandler() = default;

int CSnmpLeafHandler::OnQueryLeaf(const CVRX_SnmpContext& ctx, const CR8KPackageV3&, CR8KPackageV3& rsp) {
    CTLVCell* cell = nullptr;
    const auto deleteCell = [](CTLVCell** owned) { delete *owned; };
    const std::unique_ptr<CTLVCell*, decltype(deleteCell)> owner(&cell, deleteCell);  // of what a throw leaves, too
    if (queryLeaf(ctx, cell) != 0 || cell == nullptr) return -1;

    cell->setTag(0);
    auto record = std::make_unique<CTLVRecordV3>(CTLVRecordV3::NO_IDENTIFIER, CTLVRecordV3::DEFAULT_BUCKETS);
    record->append(cell);
    cell = nullptr;  // the record owns it from here
    rsp.append(std::move(record));
    return 0;
}

// The word "leaf" in the four texts below is wrong for tables and stays: managers' scripts match the texts.
int CSnmpLeafHandler::OnQueryTable(const CVRX_SnmpContext&, const CR8KPackageV3&, CR8KPackageV3&) {
    throw CVRX_Exception("CSnmpLeafHandler can't support leaf OnQueryTable!");
}

int CSnmpLeafHandler::OnSetLeaf(const CVRX_SnmpContext&, const CR8KPackageV3&, CR8KPackageV3&) {
    return -1;
}

int CSnmpLeafHandler::OnCreateTable(const CVRX_SnmpContext&, const CR8KPackageV3&, CR8KPackageV3&) {
    throw CVRX_Exception("CSnmpLeafHandler can't support leaf OnCreateTable!");
}

int CSnmpLeafHandler::OnModifyTable(const CVRX_SnmpContext&, const CR8KPackageV3&, CR8KPackageV3&) {
    throw CVRX_Exception("CSnmpLeafHandler can't support leaf OnModifyTable!");
}

int CSnmpLeafHandler::OnDeleteTable(const CVRX_SnmpContext&, const CR8KPackageV3&, CR8KPackageV3&) {
    throw CVRX_Exception("CSnmpLeafHandler can't support leaf OnDeleteTable!");
}

int CSnmpLeafHandler::queryLeaf(const CVRX_SnmpContext&, CTLVCell*&) {
    return -1;
}
