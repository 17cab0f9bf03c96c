#include "tools/doctor/path_facts.h"

#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <future>
#include <memory>
#include <system_error>
#include <thread>
#include <utility>

#include "host/base/file_descriptor.h"

namespace vrx {

namespace {

PathFacts lookUp(const std::string& address) {
    addrinfo hints{};
    hints.ai_socktype = SOCK_DGRAM;
    addrinfo* found = nullptr;
    PathFacts path;
    const int result = ::getaddrinfo(address.c_str(), "162", &hints, &found);  // a route does not depend on the port
    if (result != 0) {
        path.nameFault = ::gai_strerror(result);
        return path;
    }
    const std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> all(found, &::freeaddrinfo);
    for (const addrinfo* one = found; one != nullptr; one = one->ai_next) {
        // Connecting a UDP socket sends nothing and does not wait.
        const FileDescriptor socket(::socket(one->ai_family, SOCK_DGRAM | SOCK_CLOEXEC, 0));
        if (!socket || ::connect(socket.get(), one->ai_addr, one->ai_addrlen) != 0) {
            path.routeFault = std::strerror(errno);
            continue;
        }
        path.routeFault.clear();
        path.isIpv6 = one->ai_family == AF_INET6;
        int mtu = 0;
        socklen_t size = sizeof mtu;
        const bool known = path.isIpv6 ? ::getsockopt(socket.get(), IPPROTO_IPV6, IPV6_MTU, &mtu, &size) == 0
                                       : ::getsockopt(socket.get(), IPPROTO_IP, IP_MTU, &mtu, &size) == 0;
        path.mtu = known && mtu > 0 ? static_cast<std::size_t>(mtu) : 0;
        break;
    }
    return path;
}

}  // namespace

std::map<std::string, PathFacts> lookUpPaths(const std::set<std::string>& addresses, std::chrono::seconds patience) {
    const auto end = std::chrono::steady_clock::now() + patience;
    std::map<std::string, std::future<PathFacts>> answers;
    for (const std::string& address : addresses) {
        std::packaged_task<PathFacts()> task([address] { return lookUp(address); });
        answers[address] = task.get_future();
        try {
            std::thread(std::move(task)).detach();  // a look-up cannot be ended; the process does not wait for it
        } catch (const std::system_error& error) {
            std::promise<PathFacts> answer;
            PathFacts path;
            path.nameFault = error.code().message();
            answer.set_value(path);
            answers[address] = answer.get_future();
        }
    }
    std::map<std::string, PathFacts> paths;
    for (auto& [address, answer] : answers) {
        if (answer.wait_until(end) == std::future_status::ready) {
            paths[address] = answer.get();
        } else {
            paths[address].nameFault = "no answer within " + std::to_string(patience.count()) + " s";
        }
    }
    return paths;
}

}  // namespace vrx
