// Informs over Net-SNMP: a session of its own per receiver, answers read by the agent's loop, nothing that waits.
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
#include "host/agent/loop/agent_loop.h"

namespace vrx {

class NetSnmpInformTransport : public InformTransport {
public:
    // The loop outlives the transport, which outlives its channels.
    explicit NetSnmpInformTransport(AgentLoop& loop) : m_loop(loop) {}

    std::unique_ptr<InformChannel> open(const InformPeer& peer, const std::string& address,
                                        std::string& failure) override;

private:
    AgentLoop& m_loop;
    InformUsers m_users;
};

}  // namespace vrx
