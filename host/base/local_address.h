// Where a server of this machine listens (the management backend, the agent for vrxctl and for collectors): a Unix
// socket or a TCP port on the loopback interface.
//
// Only loopback addresses are accepted, because their protocols have neither authentication nor encryption, but for
// servers that have both, and only numeric ones (and "localhost"), because a name look-up could outlast the deadline of
// a call.
#pragma once

#include <string>

namespace vrx {

struct LocalAddress {
    enum class Kind { None, Unix, Tcp };

    Kind kind = Kind::None;  // None: nothing can be reached there
    std::string path;        // Unix: absolute, or relative to the working directory
    std::string host;        // Tcp: numeric IPv4 or IPv6 address
    unsigned short port = 0;

    // As parseLocalAddress reads it.
    std::string text() const;
};

// Reads "unix:PATH" (a relative PATH stands below `root`) or "tcp:HOST:PORT" (IPv6 as "tcp:[::1]:PORT"). Throws
// std::invalid_argument with a text that names the fault, after `what`.
LocalAddress parseLocalAddress(const std::string& text, const std::string& root,
                               const std::string& what = "backend address");

// The same with any numeric address, for a server that knows its clients.
LocalAddress parseServerAddress(const std::string& text, const std::string& root, const std::string& what);

}  // namespace vrx
