// The table of trap destinations: checks what a manager writes and hands it to the host, which owns the list.
//
// Columns (tag = column number): 1 address if it can be reached, else "0.0.0.0"; 2 port; 3 status, always 1; 4 index;
// 5 SNMP version; 6 address; 7 trap type; 8 user. A request carries one row, in record 0.
//
// Results: what the host's call returned, PARAM_ERROR, or -1 when the host could not list the destinations. Throws
// CVRX_Exception when the request has no record 0, a create or modify no port, or a cell is of the wrong kind; the
// host's list is then as it was.
//
// Threads: stateless; the host runs one operation at a time on an object.
#pragma once

#include "module/snmp_handler.h"
#include "platform/trap_dest_info.h"

class CTamrelTrapAddrHandler : public CSnmpTableHandler {
public:
    static constexpr int PARAM_ERROR = 0x3000003;  // a parameter is missing or invalid

    ~CTamrelTrapAddrHandler() override;

    int OnQueryTable(const CVRX_SnmpContext& ctx, const CR8KPackageV3& req, CR8KPackageV3& rsp) override;
    int OnCreateTable(const CVRX_SnmpContext& ctx, const CR8KPackageV3& req, CR8KPackageV3& rsp) override;

    // Rewrites the row of tag 4 whole: version, trap type and user that the request does not carry become 2, 1, "--".
    int OnModifyTable(const CVRX_SnmpContext& ctx, const CR8KPackageV3& req, CR8KPackageV3& rsp) override;

    // Deletes the row with the address of tag 1 and the port of tag 2; where there is none, the row of tag 4.
    int OnDeleteTable(const CVRX_SnmpContext& ctx, const CR8KPackageV3& req, CR8KPackageV3& rsp) override;

    // Whether a create or modify names an address (tag 1, or a valid one in tag 6) and any version and trap type that
    // it carries are valid.
    bool CheckParam(const CR8KPackageV3& req);

    // Takes over each optional column (tags 5 to 8) that is valid; an invalid one leaves the member as it is.
    void CommonOperation(const CR8KPackageV3& req, tTrapDestInfo& info);

    // Appends the eight cells of a destination's row.
    void makeIntTrapPackage(const tTrapDestInfo& info, CTLVRecordV3& rec);
};
