// Informs over Net-SNMP: a session of its own per receiver, answers read by the agent's loop, nothing that waits. The
// library's callbacks only note what arrived, which needs no memory; outcome() goes on with it.
//
// SNMPv3 takes the receiver's engine as the authority: its ID is asked for first, with an empty request that it answers
// with a report. The keys are made for that ID; the engine's count of starts and its time come with the report that
// rejects the first authenticated message, which the library then repeats by itself. After an inform without answer, or
// a report that the engine is another one, everything is asked anew: receivers come back as others, or with less time
// than they had.
//
// Threads: agent thread.
#pragma once

#include "host/agent/informs/inform_channel.h"
#include "host/agent/informs/inform_users.h"

namespace vrx {

class NetSnmpInformTransport : public InformTransport {
public:
    // The transport outlives its channels.
    Expected<std::unique_ptr<InformChannel>> open(const InformPeer& peer, const std::string& address,
                                                  std::function<void()> arrived) override;

private:
    InformUsers m_users;
};

}  // namespace vrx
