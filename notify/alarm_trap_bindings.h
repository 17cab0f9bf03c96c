// The 15 bindings of an alarm's trap, one row of a table each.
#pragma once

#include <agent_pp/snmp_pp_ext.h>

#include <string>

struct tAlarmTrapValues;

constexpr int ALARM_TRAP_BINDINGS = 15;

// Fills `bindings` (ALARM_TRAP_BINDINGS elements), each below `baseOid`, and points `texts` (as many; null when nobody
// wants them) to their printable forms, which live as long as `bindings` and `values` stay as they are.
void fillAlarmTrapBindings(const Agentpp::Oidx& baseOid, tAlarmTrapValues& values, Agentpp::Vbx* bindings,
                           const char** texts);

// The text that is logged of `texts`; each null entry becomes "Unknown" in place.
std::string describeAlarmTrapBindings(const char** texts);
