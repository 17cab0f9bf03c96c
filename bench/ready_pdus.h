// Net-SNMP's own part of notification_bench, in a source without SNMP++'s values.
#pragma once

#include <benchmark/benchmark.h>

#include "host/notification_log/notification.h"

namespace vrx {

constexpr const char* COMMUNITY = "traps";
constexpr const char* USER = "traps";  // of SNMPv3: authenticated and encrypted

// To the engine's users.
void addUser();

enum class ReadyPdu { Community, Secure };  // of SNMPv2c, of SNMPv3

// Only the sending of PDUs of the same trap, which are made while the clock stands.
void sendReadyPdus(benchmark::State& state, const Notification& trap, unsigned int port, ReadyPdu kind);

}  // namespace vrx
