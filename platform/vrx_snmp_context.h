// The host's per-request context. Modules pass it on and never look inside; each host defines it.
#pragma once

class CVRX_SnmpContext;
