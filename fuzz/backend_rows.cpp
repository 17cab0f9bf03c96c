// The input is a query and the packages that the backend answers its calls with, one each. The alarm table, the
// topology table and both notification handlers make of them what they can.
//
//     request type, whole table, length of the row's OID, OID, packages
#include <ace/Log_Msg.h>

#include <cstdint>
#include <deque>
#include <memory>
#include <stdexcept>
#include <string>

#include "alarm/alarm_record.h"
#include "fuzz/alarm_host.h"
#include "fuzz/finding.h"
#include "fuzz/input.h"
#include "fuzz/package_stream.h"
#include "handlers/snmp_tamrel_alarm_handler.h"
#include "handlers/snmp_topo_handler.h"
#include "notify/snmp_tamrel_notify_handler.h"

namespace {

constexpr int UNREACHABLE = 0x5000102;
constexpr std::size_t ALARM_COLUMNS = 12;

constexpr const char* DEFINITIONS =
    "<root><eventDefinition><param eventID=\"4295229443\" name=\"Disk fault\" suggestion=\"Replace disk ##00.\""
    " detail=\"Disk ##00 in enclosure ##01 is ##02{offline:not reachable}.\" location=\"Enclosure ##01, slot ##00\""
    " alarmOid=\"5.7\"/><param eventID=\"1\" detail=\"##00\" suggestion=\"##\"/></eventDefinition></root>";

// Gives a package for each call, and then nothing more.
class Answers {
public:
    explicit Answers(const PackageStream& stream) : m_packages(stream.packages.begin(), stream.packages.end()) {}

    int operator()(CR8KPackageV3& response) {
        if (m_packages.empty()) return UNREACHABLE;
        CR8KPackageV3 package;
        require(decodeInto(package, m_packages.front()), "a package decodes only once");
        m_packages.pop_front();
        response.records().splice(response.records().end(), package.records());
        return static_cast<int>(package.head().uiHeadParam1);
    }

private:
    std::deque<std::string> m_packages;
};

struct Query {
    unsigned int type;
    bool whole;
    std::string oid;
};

void query(CSnmpTableHandler& table, const Query& query, std::size_t columns) {
    auto record = std::make_unique<CTLVRecordV3>(CTLVRecordV3::NO_IDENTIFIER, CTLVRecordV3::DEFAULT_BUCKETS);
    auto type = std::make_unique<CTLVCell>();
    const auto number = static_cast<unsigned char>(query.type);
    type->set_i(CTLVCell::TLV_TYPE_UINT, CSnmpTableBase::REQUEST_TYPE_TAG, &number, 1);
    record->append(type.get());
    (void)type.release();
    if (!query.oid.empty()) {
        auto oid = std::make_unique<CTLVCell>();
        oid->set(CSnmpTableBase::REQUEST_OID_TAG, query.oid.c_str());
        record->append(oid.get());
        (void)oid.release();
    }
    CR8KPackageV3 request;
    request.append(std::move(record));

    CR8KPackageV3 response;
    const CVRX_SnmpContext context;
    if (table.OnQueryTable(context, request, response) != 0) {
        require(response.records().empty(), "a query that failed gives rows");
        return;
    }
    const CTLVRecordV3* last = nullptr;
    for (const CTLVRecordV3* row : response.records()) {
        require(row->count() == columns, "a row has another number of cells");
        require(last == nullptr || row->identifier() > last->identifier(), "rows do not ascend");
        last = row;
    }
}

void notify(CTamrelNotifyMsgHandler& handler, const CTLVRecordV3& record) {
    Agentpp::Vbx* bindings = nullptr;
    int result = 0;
    try {
        result = handler.constructAlarmTrapVb(record, bindings);
    } catch (const std::out_of_range&) {
        return;  // of this host: its calendar has no such time (backend_answers converts all times with the real one)
    }
    const std::unique_ptr<Agentpp::Vbx[]> owner(bindings);
    require((result == 0) == (bindings != nullptr), "a trap without bindings, or bindings without a trap");
    for (int i = 0; result == 0 && i < handler.getTrapVbLen(); ++i)
        require(bindings[i].get_oid().valid(), "a binding without a name");
    if (record.has(alarm_tag::ID))
        (void)handler.getTrapOid(CTLVCell::ValueCast<unsigned long long>()(&record[alarm_tag::ID]));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const bool quiet = (ACE_LOG_MSG->priority_mask(0, ACE_Log_Msg::PROCESS), true);
    (void)quiet;
    Input input(data, size);
    Query asked{};
    asked.type = input.byte();
    asked.whole = input.byte() % 2 != 0;
    asked.oid = input.bytes(input.byte());
    const PackageStream stream = cutStream(input.rest());

    AlarmHost alarms;
    AlarmHost::definitions().write(DEFINITIONS);
    alarms.host().setConfig("COMMAND", "GET_CURRENT_ALARM", "2001");
    alarms.host().setConfig("COMMAND", "GET_SYSTEM_WWN", "1001");

    Answers toAlarms(stream);
    alarms.host().backend().answerAlways([&](CR8KPackageV3&, CR8KPackageV3& response) { return toAlarms(response); });
    CSnmpTamrelVrxAlarmHandler table;
    table.setWholeTable(asked.whole);
    query(table, asked, ALARM_COLUMNS);

    Answers toTopology(stream);
    alarms.host().backend().answerAlways([&](CR8KPackageV3&, CR8KPackageV3& response) { return toTopology(response); });
    CSnmpTopoHandler topology;
    query(topology, asked, 8);

    CTamrelNotifyMsgHandler fixed;
    CTamrelOIDBasedMsgHandler oidBased;
    for (const std::string& bytes : stream.packages) {
        CR8KPackageV3 package;
        require(decodeInto(package, bytes), "a package decodes only once");
        for (const CTLVRecordV3* record : package.records()) {
            notify(fixed, *record);
            notify(oidBased, *record);
        }
    }
    return 0;
}
