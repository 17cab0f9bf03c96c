// One trap destination as host and modules exchange it. The members' order is part of the contract.
#pragma once

#include <string>

struct tTrapDestInfo {
    std::string index;          // number of the destination as text, given by the host on create
    std::string address;        // IPv4 or IPv6 address, or a host name
    unsigned int port = 0;      // UDP port
    unsigned int version = 2;   // 1, 2, 3: SNMPv1, v2c, v3
    unsigned int trapType = 3;  // which notification handlers' traps it gets
    std::string user = "--";    // USM user (v3) or community (v1, v2c); "--" means none
};
