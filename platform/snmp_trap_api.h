// The host's list of trap destinations and the checks of its values.
//
// Threads: every operation may be called from any thread; each takes effect as a whole.
#pragma once

#include <list>
#include <string>

#include "platform/trap_dest_info.h"

class CSNMP_TrapApi {
public:
    // 0, or a code of the host when the list could not be changed or read; a change is durable when 0 is returned.
    static int createTrapAddr(const tTrapDestInfo& destination);  // the host assigns the index
    static int modifyTrapAddr(const tTrapDestInfo& destination);  // `index` names the row, which is rewritten whole
    static int deleteTrapAddr(const tTrapDestInfo& destination);  // `index` names the row
    static int getAllTrapAddr(std::list<tTrapDestInfo>& destinations);  // appends, in the order of the index
};

// Whether a value is acceptable. Each looks at the member it is named after (the user check at the version too). That a
// user exists is looked at when a row takes it.
bool CheckIPAddrOK(std::string address);
bool CheckTrapIndOK(tTrapDestInfo& destination);  // an existing index
bool CheckTrapPortOK(tTrapDestInfo& destination);
bool CheckTrapVerOK(tTrapDestInfo& destination);
bool CheckTrapTypeOK(tTrapDestInfo& destination);
bool CheckTrapUserOK(tTrapDestInfo& destination);

// Whether the address can be reached, as far as is known now; never blocks.
bool testDomainConnectivity(const char* address);
