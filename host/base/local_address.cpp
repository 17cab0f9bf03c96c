#include "host/base/local_address.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/un.h>

#include <charconv>
#include <stdexcept>

namespace vrx {

namespace {

constexpr char UNIX_PREFIX[] = "unix:";
constexpr char TCP_PREFIX[] = "tcp:";

bool startsWith(const std::string& text, const std::string& prefix) {
    return text.compare(0, prefix.size(), prefix) == 0;
}

enum class Hosts { Loopback, Any };

bool isOf(Hosts hosts, const std::string& host) {
    in_addr v4{};
    if (inet_pton(AF_INET, host.c_str(), &v4) == 1) {
        return hosts == Hosts::Any || (ntohl(v4.s_addr) >> 24) == IN_LOOPBACKNET;
    }
    in6_addr v6{};
    return inet_pton(AF_INET6, host.c_str(), &v6) == 1 && (hosts == Hosts::Any || IN6_IS_ADDR_LOOPBACK(&v6));
}

unsigned short parsePort(const std::string& text) {
    unsigned short port = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, port);
    if (error != std::errc() || stop != end || port == 0)
        throw std::invalid_argument("port \"" + text + "\" is not a number from 1 to 65535");
    return port;
}

LocalAddress parseUnix(const std::string& path, const std::string& root) {
    if (path.empty()) throw std::invalid_argument("\"unix:\" needs a path");
    LocalAddress address;
    address.kind = LocalAddress::Kind::Unix;
    address.path = path.front() == '/' ? path : root + "/" + path;
    constexpr std::size_t LONGEST = sizeof(sockaddr_un::sun_path) - 1;
    if (address.path.size() > LONGEST)
        throw std::invalid_argument("socket path \"" + address.path + "\" is longer than " + std::to_string(LONGEST) +
                                    " bytes");
    return address;
}

LocalAddress parseTcp(const std::string& hostAndPort, Hosts hosts) {
    const std::size_t colon = hostAndPort.rfind(':');
    if (colon == std::string::npos) throw std::invalid_argument("\"tcp:\" needs HOST:PORT");
    std::string host = hostAndPort.substr(0, colon);
    if (host.size() > 2 && host.front() == '[' && host.back() == ']') host = host.substr(1, host.size() - 2);
    if (host == "localhost") host = "127.0.0.1";
    if (!isOf(hosts, host)) {
        throw std::invalid_argument("\"" + host + "\" is not a numeric " + (hosts == Hosts::Any ? "" : "loopback ") +
                                    "address");
    }
    LocalAddress address;
    address.kind = LocalAddress::Kind::Tcp;
    address.host = host;
    address.port = parsePort(hostAndPort.substr(colon + 1));
    return address;
}

LocalAddress parse(const std::string& text, const std::string& root, const std::string& what, Hosts hosts) try {
    if (startsWith(text, UNIX_PREFIX)) return parseUnix(text.substr(sizeof(UNIX_PREFIX) - 1), root);
    if (startsWith(text, TCP_PREFIX)) return parseTcp(text.substr(sizeof(TCP_PREFIX) - 1), hosts);
    throw std::invalid_argument("\"" + text + "\" begins with neither \"unix:\" nor \"tcp:\"");
} catch (const std::invalid_argument& fault) {
    throw std::invalid_argument(what + ": " + fault.what());
}

}  // namespace

std::string LocalAddress::text() const {
    switch (kind) {
        case Kind::Unix:
            return UNIX_PREFIX + path;
        case Kind::Tcp:
            return TCP_PREFIX + (host.find(':') == std::string::npos ? host : "[" + host + "]") + ":" +
                   std::to_string(port);
        case Kind::None:
            break;
    }
    return "(no address)";
}

LocalAddress parseLocalAddress(const std::string& text, const std::string& root, const std::string& what) {
    return parse(text, root, what, Hosts::Loopback);
}

LocalAddress parseServerAddress(const std::string& text, const std::string& root, const std::string& what) {
    return parse(text, root, what, Hosts::Any);
}

}  // namespace vrx
