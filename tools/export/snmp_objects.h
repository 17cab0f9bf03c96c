// Objects of the MIB modules that receivers poll, for formats that name them by OID.
#pragma once

namespace vrx::snmp_object {

constexpr const char* ALARM_ROW = "1.3.6.1.4.1.99871.2.91.10.1.1.1";  // vrxAlarmEntry, .COLUMN.SERIAL
constexpr const char* TOPOLOGY_ROW = "1.3.6.1.4.1.99871.2.91.9.1.1";  // vrxTopologyEntry, .COLUMN.1
constexpr const char* AGENT_OBJECTS = "1.3.6.1.4.1.99871.3.1.1";      // vrxAgentObjects
constexpr const char* HEARTBEAT = "1.3.6.1.4.1.99871.3.1.0.1";        // vrxAgentHeartbeat, a notification

}  // namespace vrx::snmp_object
