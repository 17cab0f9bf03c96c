// Bases of the handlers of MIB objects: what the host calls, and how an object answers what it does not serve.
//
// The host turns each SNMP operation on a registered object into one call. Every operation takes the request's context
// (passed on, never read), a request package and a response package; records that a handler appends to the response
// belong to the response. A result of 0 is success; anything else, or a CVRX_Exception, is failure.
//
// Threads: handlers have no locks; the host runs one operation at a time on an object.
#pragma once

#include "platform/vrx_snmp_context.h"
#include "vrxpub/vrx_message_package.h"

// The host calls through the slots in this order: do not reorder, insert or remove.
class CSnmpHandler {
public:
    virtual ~CSnmpHandler();
    virtual int OnQueryLeaf(const CVRX_SnmpContext& ctx, const CR8KPackageV3& req, CR8KPackageV3& rsp) = 0;
    virtual int OnQueryTable(const CVRX_SnmpContext& ctx, const CR8KPackageV3& req, CR8KPackageV3& rsp) = 0;
    virtual int OnSetLeaf(const CVRX_SnmpContext& ctx, const CR8KPackageV3& req, CR8KPackageV3& rsp) = 0;
    virtual int OnCreateTable(const CVRX_SnmpContext& ctx, const CR8KPackageV3& req, CR8KPackageV3& rsp) = 0;
    virtual int OnModifyTable(const CVRX_SnmpContext& ctx, const CR8KPackageV3& req, CR8KPackageV3& rsp) = 0;
    virtual int OnDeleteTable(const CVRX_SnmpContext& ctx, const CR8KPackageV3& req, CR8KPackageV3& rsp) = 0;
    virtual int strategy();
    virtual bool isWholeTable();
    virtual int getSnmpOIDVersion();
};

// A table: answers table operations that it does not implement with -1 and throws for leaf operations.
class CSnmpTableHandler : public CSnmpHandler {
public:
    ~CSnmpTableHandler() override;
    int OnQueryLeaf(const CVRX_SnmpContext& ctx, const CR8KPackageV3& req, CR8KPackageV3& rsp) override;
    int OnQueryTable(const CVRX_SnmpContext& ctx, const CR8KPackageV3& req, CR8KPackageV3& rsp) override;
    int OnSetLeaf(const CVRX_SnmpContext& ctx, const CR8KPackageV3& req, CR8KPackageV3& rsp) override;
    int OnCreateTable(const CVRX_SnmpContext& ctx, const CR8KPackageV3& req, CR8KPackageV3& rsp) override;
    int OnModifyTable(const CVRX_SnmpContext& ctx, const CR8KPackageV3& req, CR8KPackageV3& rsp) override;
    int OnDeleteTable(const CVRX_SnmpContext& ctx, const CR8KPackageV3& req, CR8KPackageV3& rsp) override;
};

// A scalar: throws for all table operations, answers OnSetLeaf with -1 where it is not overridden, and serves reads
// through queryLeaf.
class CSnmpLeafHandler : public CSnmpHandler {
public:
    ~CSnmpLeafHandler() override;

    // Appends one record (identifier all ones) with the cell of queryLeaf under tag 0; -1 and an unchanged response
    // when queryLeaf fails or gives no cell.
    int OnQueryLeaf(const CVRX_SnmpContext& ctx, const CR8KPackageV3& req, CR8KPackageV3& rsp) override;
    int OnQueryTable(const CVRX_SnmpContext& ctx, const CR8KPackageV3& req, CR8KPackageV3& rsp) override;
    int OnSetLeaf(const CVRX_SnmpContext& ctx, const CR8KPackageV3& req, CR8KPackageV3& rsp) override;
    int OnCreateTable(const CVRX_SnmpContext& ctx, const CR8KPackageV3& req, CR8KPackageV3& rsp) override;
    int OnModifyTable(const CVRX_SnmpContext& ctx, const CR8KPackageV3& req, CR8KPackageV3& rsp) override;
    int OnDeleteTable(const CVRX_SnmpContext& ctx, const CR8KPackageV3& req, CR8KPackageV3& rsp) override;

    // The scalar's value: 0 and `cell` set to a new cell that the caller owns; anything else is failure, and `cell`,
    // where it was set all the same, still belongs to the caller.
    virtual int queryLeaf(const CVRX_SnmpContext& ctx, CTLVCell*& cell);
};
