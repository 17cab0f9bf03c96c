// This host's per-request context. Handlers only pass it on, and nothing of a request concerns those that exist.
#pragma once

#include "platform/vrx_snmp_context.h"

class CVRX_SnmpContext {};
