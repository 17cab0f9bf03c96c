// The topology table: one row, the storage system itself, read-only.
//
// Columns (tag = column number): 1 node code, 2 node type, 3 constant 1, 4 management address (constant), 5 kind
// ("Array"), 6 and 7 one blank, 8 status: 1 when the backend answered a probe just now, else 2.
//
// Threads: stateless; the host runs one operation at a time on an object.
#pragma once

#include "module/snmp_handler.h"

class CSnmpTopoHandler : public CSnmpTableHandler {
public:
    ~CSnmpTopoHandler() override;

    // Appends the row, whatever row or column the request names, and returns 0, also when the backend does not answer.
    int OnQueryTable(const CVRX_SnmpContext& ctx, const CR8KPackageV3& req, CR8KPackageV3& rsp) override;
};
