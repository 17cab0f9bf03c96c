#include "platform/snmp_util.h"  // first: Net-SNMP's `oid` is a common name of parameters in SNMP++'s headers

#include "host/agent/operator/status_scalars.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <exception>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <string>

#include "host/agent/assembly/notification_service.h"
#include "host/base/log_line.h"
#include "host/log_lines/requests.h"
#include "host/snmp/net_snmp.h"
#include "host/snmp/oid_vector.h"

namespace vrx {

namespace {

using Moment = ActiveAlarms::Moment;

// What the objects show.
struct Facts {
    ActiveAlarms::State alarms;
    TrapCounters traps;
};

struct ScalarValue {
    std::uint64_t number = 0;
    std::string octets;  // instead, of OCTET STRINGs
};

using Result = std::optional<ScalarValue>;  // nothing: there is no such instance now

struct Scalar {
    oid group;
    oid number;
    unsigned char type;
    Result (*value)(const Facts& facts);
};

enum BackendState : std::uint8_t { CONNECTED = 1, AWAY = 2 };

// When sysUpTime was 0. Found once: a time stamp is not to waver by the hundredth that the clocks are read apart.
std::chrono::steady_clock::time_point agentsStart() {
    static const auto start =
        std::chrono::steady_clock::now() - std::chrono::milliseconds(10) * netsnmp_get_agent_uptime();
    return start;
}

// sysUpTime at that moment; 0 for one before the agent's start.
std::uint64_t timeStampOf(const Moment& moment) {
    using Hundredths = std::chrono::duration<std::int64_t, std::centi>;
    const auto ticks = std::chrono::duration_cast<Hundredths>(moment.steady - agentsStart()).count();
    return ticks < 0 ? 0 : static_cast<std::uint64_t>(ticks);
}

// A DateAndTime has no value for "never" (RFC 2579: months are 1 to 12).
Result dateOf(const std::optional<Moment>& moment) {
    if (!moment) return std::nullopt;
    Snmp_pp::OctetStr octets;
    CSnmpUtil::convertTime2DateTime(octets, std::chrono::system_clock::to_time_t(moment->time));
    return ScalarValue{0, {reinterpret_cast<const char*>(octets.data()), octets.len()}};
}

template <FaultLevel LEVEL>
Result alarmsOf(const Facts& facts) {
    return ScalarValue{facts.alarms.of(LEVEL), {}};
}

constexpr oid GROUP_ALARMS = 1;
constexpr oid GROUP_BACKEND = 2;
constexpr oid GROUP_TRAPS = 3;
constexpr std::array GROUPS = {GROUP_ALARMS, GROUP_BACKEND, GROUP_TRAPS};

// clang-format off
const Scalar SCALARS[] = {
    {GROUP_ALARMS,  1, ASN_GAUGE,     [](const Facts& f) -> Result { return ScalarValue{f.alarms.active, {}}; }},
    {GROUP_ALARMS,  2, ASN_GAUGE,     alarmsOf<FaultLevel::Critical>},
    {GROUP_ALARMS,  3, ASN_GAUGE,     alarmsOf<FaultLevel::Major>},
    {GROUP_ALARMS,  4, ASN_GAUGE,     alarmsOf<FaultLevel::Minor>},
    {GROUP_ALARMS,  5, ASN_GAUGE,     alarmsOf<FaultLevel::Warning>},
    {GROUP_ALARMS,  6, ASN_COUNTER,   [](const Facts& f) -> Result { return ScalarValue{f.alarms.changes, {}}; }},
    {GROUP_ALARMS,  7, ASN_TIMETICKS, [](const Facts& f) -> Result { return ScalarValue{f.alarms.lastChange ? timeStampOf(*f.alarms.lastChange) : 0, {}}; }},
    {GROUP_ALARMS,  8, ASN_OCTET_STR, [](const Facts& f) -> Result { return dateOf(f.alarms.lastChange); }},
    {GROUP_ALARMS,  9, ASN_COUNTER64, [](const Facts& f) -> Result { return ScalarValue{f.alarms.lastEvent, {}}; }},
    {GROUP_BACKEND, 1, ASN_INTEGER,   [](const Facts& f) -> Result { return ScalarValue{f.alarms.connected ? CONNECTED : AWAY, {}}; }},
    {GROUP_BACKEND, 2, ASN_TIMETICKS, [](const Facts& f) -> Result { return ScalarValue{timeStampOf(f.alarms.since), {}}; }},
    {GROUP_BACKEND, 3, ASN_COUNTER,   [](const Facts& f) -> Result { return ScalarValue{f.alarms.connections, {}}; }},
    {GROUP_TRAPS,   1, ASN_COUNTER,   [](const Facts& f) -> Result { return ScalarValue{f.traps.sent, {}}; }},
    {GROUP_TRAPS,   2, ASN_COUNTER,   [](const Facts& f) -> Result { return ScalarValue{f.traps.droppedInAll(), {}}; }},
    {GROUP_TRAPS,   3, ASN_GAUGE,     [](const Facts& f) -> Result { return ScalarValue{f.traps.waiting, {}}; }},
};
// clang-format on

const OidVector& rootOid() {
    static const OidVector root = parseOid("1.3.6.1.4.1.99871.3.1.1");
    return root;
}

const Scalar* find(oid group, oid number) {
    const auto* const found = std::find_if(std::begin(SCALARS), std::end(SCALARS), [&](const Scalar& scalar) {
        return scalar.group == group && scalar.number == number;
    });
    return found == std::end(SCALARS) ? nullptr : found;
}

oid lastOf(oid group) {
    oid last = 0;
    for (const Scalar& scalar : SCALARS) {
        if (scalar.group == group) last = scalar.number;
    }
    return last;
}

// False without memory.
bool setValue(netsnmp_variable_list* varbind, unsigned char type, const ScalarValue& value) {
    constexpr std::uint64_t LOW = 0xFFFF'FFFF;
    if (type == ASN_OCTET_STR) {
        return snmp_set_var_typed_value(varbind, type, value.octets.data(), value.octets.size()) == 0;
    }
    if (type == ASN_COUNTER64) {
        const ::counter64 number = {static_cast<u_long>(value.number >> 32U), static_cast<u_long>(value.number & LOW)};
        return snmp_set_var_typed_value(varbind, type, &number, sizeof number) == 0;
    }
    return snmp_set_var_typed_integer(varbind, type, static_cast<long>(value.number & LOW)) == 0;
}

// For the variables of one scalar: while it is called the registration's root is the scalar's name, group and number
// after the root of all.
int answer(netsnmp_mib_handler* self, netsnmp_handler_registration* registration, netsnmp_agent_request_info* info,
           netsnmp_request_info* requests) {
    try {
        const auto& notifications = *static_cast<const NotificationService*>(self->myvoid);
        const Facts facts = {notifications.alarms(), notifications.trapTotals()};
        const std::size_t place = rootOid().size();
        const bool named = registration->rootoid_len > place + 1;
        const Scalar* const scalar =
            named ? find(registration->rootoid[place], registration->rootoid[place + 1]) : nullptr;
        for (netsnmp_request_info* request = requests; request != nullptr; request = request->next) {
            if (request->processed != 0) continue;
            if (scalar == nullptr) {
                netsnmp_request_set_error(request, SNMP_NOSUCHOBJECT);
                continue;
            }
            const Result value = scalar->value(facts);
            if (!value) {
                netsnmp_request_set_error(request, SNMP_NOSUCHINSTANCE);
            } else if (!setValue(request->requestvb, scalar->type, *value)) {
                netsnmp_request_set_error(request, SNMP_ERR_GENERR);
            }
        }
    } catch (const std::exception& error) {  // the engine is C: nothing may leave
        logFault<lines::OWN_OBJECTS_UNREADABLE>(error.what());
        netsnmp_set_all_requests_error(info, requests, SNMP_ERR_GENERR);
    }
    return SNMP_ERR_NOERROR;
}

}  // namespace

StatusScalars::StatusScalars(const NotificationService& notifications) {
    constexpr const char* NAME = "VRX-AGENT-MIB";
    m_registrations.reserve(GROUPS.size());
    for (const oid group : GROUPS) {
        OidVector root = rootOid();
        root.push_back(group);
        netsnmp_mib_handler* const handler = netsnmp_create_handler(NAME, answer);
        if (handler != nullptr) handler->myvoid = const_cast<NotificationService*>(&notifications);
        netsnmp_handler_registration* const registration =
            handler == nullptr
                ? nullptr
                : netsnmp_handler_registration_create(NAME, handler, root.data(), root.size(), HANDLER_CAN_RONLY);
        // A failed registration is freed by the library.
        if (registration == nullptr ||
            netsnmp_register_scalar_group(registration, 1, lastOf(group)) != MIB_REGISTERED_OK) {
            unregister();
            throw std::runtime_error(std::string(NAME) + ": the engine refuses " + oidText(root));
        }
        m_registrations.push_back(registration);
    }
}

StatusScalars::~StatusScalars() {
    unregister();
}

void StatusScalars::unregister() {
    for (netsnmp_handler_registration* registration : m_registrations) netsnmp_unregister_handler(registration);
    m_registrations.clear();
}

}  // namespace vrx
