// The way to a receiver, as far as this machine can tell: the name's address, a route, the path MTU. Nothing is sent to
// the receiver.
#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <set>
#include <string>

namespace vrx {

struct PathFacts {
    std::string nameFault;   // why the name has no address
    std::string routeFault;  // why no route leads there
    bool isIpv6 = false;
    std::size_t mtu = 0;  // octets of a packet; 0: not known
};

// By address. All are looked up at the same time; a name that has no answer after `patience` has a fault.
std::map<std::string, PathFacts> lookUpPaths(const std::set<std::string>& addresses, std::chrono::seconds patience);

}  // namespace vrx
