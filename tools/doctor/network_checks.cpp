// Where the agent listens: for managers, and for collectors of metrics.
#include <fmt/format.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <system_error>

#include "host/base/file_descriptor.h"
#include "host/base/local_address.h"
#include "host/base/local_socket.h"
#include "host/base/product_root.h"
#include "tools/doctor/checks.h"
#include "tools/doctor/facts.h"
#include "tools/doctor/report.h"

namespace vrx {

namespace {

constexpr std::chrono::seconds CONNECT_PATIENCE{2};

struct Listener {
    bool stream = false;
    int family = AF_INET;
    std::string host;  // empty: every address
    std::string port = "161";
};

// "udp:127.0.0.1:161", "udp6:[::1]:161", "127.0.0.1:161", "161"
Listener listenerOf(std::string text) {
    Listener listener;
    for (const char* transport : {"udp6:", "udp:", "tcp6:", "tcp:"}) {
        const std::string prefix = transport;
        if (text.compare(0, prefix.size(), prefix) != 0) continue;
        listener.stream = prefix[0] == 't';
        if (prefix.find('6') != std::string::npos) listener.family = AF_INET6;
        text.erase(0, prefix.size());
        break;
    }
    const std::size_t colon = text.rfind(':');
    if (!text.empty() && text.back() != ']' && colon != std::string::npos) {
        listener.port = text.substr(colon + 1);
        text.erase(colon);
    } else if (!text.empty() && text.find_first_not_of("0123456789") == std::string::npos) {
        listener.port = std::exchange(text, "");
    }
    if (text.size() > 1 && text.front() == '[' && text.back() == ']') text = text.substr(1, text.size() - 2);
    listener.host = text;
    return listener;
}

// Errno of an attempt to take the address, which is given back at once; 0 when it is free; -1 for a name.
int tryToBind(const Listener& listener) {
    addrinfo hints{};
    hints.ai_family = listener.family;
    hints.ai_socktype = listener.stream ? SOCK_STREAM : SOCK_DGRAM;
    hints.ai_flags = AI_PASSIVE | AI_NUMERICHOST | AI_NUMERICSERV;
    addrinfo* found = nullptr;
    const char* const host = listener.host.empty() ? nullptr : listener.host.c_str();
    if (::getaddrinfo(host, listener.port.c_str(), &hints, &found) != 0) return -1;
    const std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> address(found, &::freeaddrinfo);
    const FileDescriptor socket(::socket(found->ai_family, found->ai_socktype | SOCK_CLOEXEC, 0));
    if (!socket) return errno;
    const int on = 1;
    if (found->ai_family == AF_INET6) ::setsockopt(socket.get(), IPPROTO_IPV6, IPV6_V6ONLY, &on, sizeof on);
    if (listener.stream) ::setsockopt(socket.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    return ::bind(socket.get(), found->ai_addr, found->ai_addrlen) == 0 ? 0 : errno;
}

std::string whoListens(const Listener& listener) {
    return fmt::format("ss -{}lnp 'sport = :{}'", listener.stream ? "t" : "u", listener.port);
}

void checkListener(const std::string& text, const std::string& subject, const Facts& facts, Report& report) {
    const Listener listener = listenerOf(text);
    const bool runs = facts.agentAnswers();
    const std::string edit = "vi " + directivesPath() + "\nsystemctl restart vrx-agentd";
    switch (const int error = tryToBind(listener)) {
        case 0:
            if (!runs) return;
            report.warning(subject, "The running agent does not listen on " + text + ".",
                           "agentaddress is read at a start, not at a reload: managers get no answer there.",
                           "systemctl restart vrx-agentd");
            return;
        case -1:
            report.notChecked(subject, text + " is no numeric address");
            return;
        case EADDRINUSE:
            if (runs || facts.agent.state == AgentFacts::State::Silent) return;
            report.fault(subject, "Another program has " + text + ".", "The agent does not start.",
                         whoListens(listener) + "   # which? see beside-snmpd.md for snmpd\n" + edit);
            return;
        case EADDRNOTAVAIL:
            report.fault(subject, "This machine does not have the address of " + text + ".",
                         "The agent does not start, or not before the address is there.", "ip address\n" + edit);
            return;
        case EAFNOSUPPORT:
            report.fault(subject, "This machine has no IPv6, which " + text + " needs.", "The agent does not start.",
                         edit);
            return;
        case EACCES:
            if (!runs) report.notChecked(subject, "only root may try " + text);
            return;
        default:
            report.notChecked(subject, text + ": " + std::strerror(error));
    }
}

}  // namespace

void checkListeners(const Facts& facts, Report& report) {
    if (facts.agentAnswers() && !facts.agent.commandLineKnown) {
        report.notChecked("listeners", "the agent's command line cannot be read");
        return;
    }
    for (const std::string& address : facts.agent.listeners) checkListener(address, "--listen", facts, report);
    if (!facts.agent.listeners.empty()) return;
    const std::vector<Directive> lines = facts.directivesOf({"agentaddress"});
    for (const Directive& line : lines) {
        const std::string subject = fmt::format("{}:{}", directivesPath(), line.line);
        if (report.names(subject) || line.arguments.empty()) continue;
        std::istringstream addresses(line.arguments[0]);
        for (std::string address; std::getline(addresses, address, ',');) {
            if (!address.empty()) checkListener(address, subject, facts, report);
        }
    }
    if (lines.empty() && facts.directives) checkListener("udp:127.0.0.1:1161", "agentaddress", facts, report);
}

void checkMetrics(const Facts& facts, Report& report) {
    for (const Directive& line : facts.directivesOf({"vrxmetrics"})) {
        const std::string subject = fmt::format("{}:{}", directivesPath(), line.line);
        if (report.names(subject) || line.arguments.empty()) continue;
        const LocalAddress address = parseServerAddress(line.arguments[0], productPath(""), "vrxMetrics");
        const char* const why = "Collectors get no metrics, and alerts on them stay silent or fire all.";
        if (facts.agentAnswers()) {
            const Expected<FileDescriptor> socket =
                connectSocket(address, std::chrono::steady_clock::now() + CONNECT_PATIENCE, -1);
            if (!socket) {
                report.fault(subject,
                             "The running agent does not listen on " + address.text() + ": " + socket.failure() + ".",
                             why, facts.vrxctl("reload"));
            }
        } else if (address.kind == LocalAddress::Kind::Unix) {
            const std::filesystem::path folder = std::filesystem::path(address.path).parent_path();
            std::error_code error;
            if (!std::filesystem::is_directory(folder, error) && folder != productPath("state")) {
                report.fault(subject, "There is no folder " + folder.string() + " for the socket.", why,
                             "install -d -o " + facts.service.name + " " + folder.string());
            }
        } else if (address.kind == LocalAddress::Kind::Tcp) {
            Listener listener;
            listener.stream = true;
            listener.family = AF_UNSPEC;
            listener.host = address.host;
            listener.port = std::to_string(address.port);
            if (tryToBind(listener) == EADDRINUSE && facts.agent.state == AgentFacts::State::Away) {
                report.fault(subject, "Another program has " + address.text() + ".", why,
                             whoListens(listener) + "\nvi " + directivesPath());
            }
        }
    }
}

}  // namespace vrx
