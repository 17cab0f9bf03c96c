// Looks up the names of trap destinations in the background: a name server that is slow or dead holds up nothing but
// the traps to that name.
//
//     NameResolver resolver(interval, [&](const std::string& name, const std::string& address) { ... });
//     resolver.watch({"nms.example.com"});
//
// Each watched name is looked up at once, again every interval, and after a failure with pauses of 1 s to 1 min. The
// answer is an IPv4 or IPv6 address as text, "" when there is none. IPv4 is preferred where a name has both.
//
// Threads: watch() from any; the answers come from the resolver's own thread, which is there while names are watched.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <set>
#include <string>

#include "host/base/expected.h"

namespace vrx {

class NameResolver {
public:
    using Answer = std::function<void(const std::string& name, const std::string& address)>;
    using Lookup = std::function<std::string(const std::string& name)>;

    // `answer` must not throw, `lookup` may block.
    NameResolver(std::chrono::seconds interval, Answer answer, Lookup lookup = systemLookup);

    // No answer comes any more. A look-up that blocks is left to end by itself after a moment.
    ~NameResolver();
    NameResolver(const NameResolver&) = delete;
    NameResolver& operator=(const NameResolver&) = delete;

    // From now on these names and no others. Throws std::bad_alloc without memory, and when the system has no thread
    // for them; asked again it goes on from there.
    void watch(const std::set<std::string>& names);

    // Blocks as long as the system's resolver does; "" when the name has no address.
    static std::string systemLookup(const std::string& name);

private:
    struct State;
    std::shared_ptr<State> m_state;  // shared with the thread, which may outlive this object
};

// Whether the text is an IPv4 address, or an IPv6 address with or without a zone ("fe80::1%eth0"): what is sent to as
// it is, and not looked up. Which of them a destination may have, with a zone for link-local ones only, is
// destination_check's to say.
bool isIpv4Address(const std::string& text);
bool isIpv6Address(const std::string& text);

// The library's name for a port of a numeric address: "udp:192.0.2.1:162", "udp6:[fe80::1%eth0]:162". Fails for a zone
// that does not exist, which the library takes for none at all, and the datagram leaves somewhere; and for a link-local
// address without one: the system does not know where that is.
Expected<std::string> peerName(const std::string& address, unsigned int port);

}  // namespace vrx
