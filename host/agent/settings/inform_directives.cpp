#include "host/agent/settings/inform_directives.h"

#include <strings.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <stdexcept>
#include <string>
#include <utility>

#include "host/command_line/option_parser.h"
#include "host/destinations/trap_destination_checks.h"
#include "host/snmp/limits.h"
#include "host/snmp/net_snmp.h"

#include <net-snmp/agent/agent_trap.h>
#include <net-snmp/library/keytools.h>

namespace vrx {

// What the agent library read from the last trapcommunity line; it declares this in no installed header.
extern "C" char* snmp_trapcommunity;

namespace {

using Fault = std::invalid_argument;

constexpr unsigned int LARGEST_QUEUE = 10'000'000;
constexpr unsigned int LONGEST_WAIT = 3'600'000;  // an hour, in milliseconds
constexpr unsigned int MOST_RETRIES = 1'000'000;
constexpr unsigned int MILLISECONDS = 1000;
constexpr std::size_t LONGEST_TEXT = 255;  // of a context name

InformDirectives* g_words = nullptr;

// The words of a line; one in quotes may have blanks.
std::vector<std::string> splitLine(char* line) {
    std::vector<std::string> words;
    std::string word(SNMP_MAXBUF, '\0');
    while (line != nullptr && *line != '\0') {
        line = copy_nword(line, word.data(), static_cast<int>(word.size()));
        words.emplace_back(word.c_str());
    }
    return words;
}

unsigned int number(const std::string& text, unsigned int least, unsigned int most, const std::string& what) {
    unsigned int value = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc() || stop != end || value < least || value > most) {
        throw Fault(what + " is no number from " + std::to_string(least) + " to " + std::to_string(most) + ": " + text);
    }
    return value;
}

// "HOST", "HOST:PORT", "udp:HOST:PORT", "udp6:[ADDRESS]:PORT", "[ADDRESS]:PORT"; an IPv6 address alone needs no
// brackets.
void readHost(std::string text, InformPeer& peer) {
    const std::string all = text;
    for (const std::string transport : {"tcp:", "tcp6:", "tlstcp:", "dtlsudp:", "ssh:", "unix:"}) {
        if (text.compare(0, transport.size(), transport) == 0) throw Fault("informs are sent over UDP only: " + all);
    }
    for (const std::string transport : {"udp:", "udp6:", "udpv6:", "udpipv6:"}) {
        if (text.compare(0, transport.size(), transport) == 0) {
            text.erase(0, transport.size());
            break;
        }
    }
    std::string port;
    const std::size_t bracket = text.find(']');
    const std::size_t colon = text.rfind(':');
    if (!text.empty() && text.front() == '[' && bracket != std::string::npos) {
        if (bracket + 1 < text.size()) {
            if (text[bracket + 1] != ':') throw Fault("no address: " + all);
            port = text.substr(bracket + 2);
            if (port.empty()) throw Fault("no port after the colon: " + all);
        }
        text = text.substr(1, bracket - 1);
        if (!destination_check::isIpv6Address(text)) throw Fault("no IPv6 address: " + all);
    } else if (colon != std::string::npos && !destination_check::isIpv6Address(text)) {
        port = text.substr(colon + 1);
        text.resize(colon);
        if (port.empty()) throw Fault("no port after the colon: " + all);
    }
    if (!destination_check::isAddress(text)) {
        throw Fault("neither an address nor a host name that informs can be sent to over UDP: " + all);
    }
    if (!port.empty()) peer.port = number(port, 1, HIGHEST_PORT, "the port");
    peer.host = destination_check::canonicalAddress(text);
}

void setCommunity(const std::string& given, InformPeer& peer) {
    peer.name = !given.empty() || snmp_trapcommunity == nullptr ? given : snmp_trapcommunity;
    if (peer.name.empty()) throw Fault("it has no community, and no trapcommunity line stands before it");
    if (!destination_check::isUserText(peer.name)) throw Fault("a community has 1 to 32 printable characters");
}

// "0x80001f88..." as bytes.
std::string bytesOfId(const std::string& text, const char* what) {
    std::string digits = text;
    if (digits.compare(0, 2, "0x") == 0 || digits.compare(0, 2, "0X") == 0) digits.erase(0, 2);
    const bool hexadecimal =
        std::all_of(digits.begin(), digits.end(), [](unsigned char c) { return isxdigit(c) != 0; });
    if (!hexadecimal || digits.size() % 2 != 0 || digits.size() < 2 * SHORTEST_ENGINE_ID ||
        digits.size() > 2 * LONGEST_ENGINE_ID) {
        throw Fault(std::string(what) + ": an engine ID is 5 to 32 bytes in hexadecimal: " + text);
    }
    std::string bytes;
    for (std::size_t i = 0; i < digits.size(); i += 2) {
        constexpr int HEXADECIMAL = 16;
        bytes += static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, HEXADECIMAL));
    }
    return bytes;
}

struct Arguments {
    std::string kind, version = "3", user, level = "noAuthNoPriv", authProtocol, authPassphrase, privProtocol,
                      privPassphrase, community, engineId, contextEngineId, contextName, retries, timeout, host;
};

Arguments parseArguments(std::vector<std::string> words) {
    Arguments arguments;
    OptionParser options;
    options.removeHelp();
    options.add("-C", arguments.kind);
    options.add("-v", arguments.version);
    options.add("-c", arguments.community);
    options.add("-u", arguments.user);
    options.add("-l", arguments.level);
    options.add("-a", arguments.authProtocol);
    options.add("-A", arguments.authPassphrase);
    options.add("-x", arguments.privProtocol);
    options.add("-X", arguments.privPassphrase);
    options.add("-e", arguments.engineId);
    options.add("-E", arguments.contextEngineId);
    options.add("-n", arguments.contextName);
    options.add("-r", arguments.retries);
    options.add("-t", arguments.timeout);
    options.add("HOST", arguments.host);
    options.parse(std::move(words));
    if (arguments.host.empty()) throw Fault("the receiver is missing");
    return arguments;
}

int levelOf(const std::string& text) {
    static const std::array<std::pair<const char*, int>, 6> LEVELS = {{{"noAuthNoPriv", SNMP_SEC_LEVEL_NOAUTH},
                                                                       {"nanp", SNMP_SEC_LEVEL_NOAUTH},
                                                                       {"authNoPriv", SNMP_SEC_LEVEL_AUTHNOPRIV},
                                                                       {"anp", SNMP_SEC_LEVEL_AUTHNOPRIV},
                                                                       {"authPriv", SNMP_SEC_LEVEL_AUTHPRIV},
                                                                       {"ap", SNMP_SEC_LEVEL_AUTHPRIV}}};
    for (const auto& [name, level] : LEVELS) {
        if (strcasecmp(name, text.c_str()) == 0) return level;
    }
    throw Fault("-l is neither noAuthNoPriv nor authNoPriv nor authPriv: " + text);
}

// A passphrase as a key that is not yet good for any engine.
std::string keyOf(const std::string& passphrase, int authentication, const char* what) {
    if (passphrase.size() < SHORTEST_PASSPHRASE) {
        throw Fault(std::string(what) + ": a passphrase has at least 8 characters");
    }
    std::size_t nameLength = 0;
    const oid* name = sc_get_auth_oid(authentication, &nameLength);
    std::array<unsigned char, USM_AUTH_KU_LEN> key{};
    std::size_t length = key.size();
    if (name == nullptr ||
        generate_Ku(name, static_cast<u_int>(nameLength), reinterpret_cast<const u_char*>(passphrase.data()),
                    passphrase.size(), key.data(), &length) != SNMPERR_SUCCESS) {
        throw Fault(std::string(what) + ": no key can be made of the passphrase");
    }
    return {key.begin(), key.begin() + static_cast<std::ptrdiff_t>(length)};
}

void readUser(const Arguments& arguments, InformPeer& peer) {
    peer.name = arguments.user;
    if (!destination_check::isUserText(peer.name)) throw Fault("-u: a user has 1 to 32 printable characters");
    peer.level = levelOf(arguments.level);
    if (!arguments.engineId.empty()) peer.engineId = bytesOfId(arguments.engineId, "-e");
    if (!arguments.contextEngineId.empty()) peer.contextEngineId = bytesOfId(arguments.contextEngineId, "-E");
    if (arguments.contextName.size() > LONGEST_TEXT) throw Fault("-n: the name is too long");
    peer.contextName = arguments.contextName;
    if (peer.level == SNMP_SEC_LEVEL_NOAUTH) return;

    if (arguments.authPassphrase.empty()) {
        if (peer.engineId.empty()) throw Fault("it needs -a and -A, or -e and a createUser line for that engine");
        return;
    }
    peer.authentication = usm_lookup_auth_type(arguments.authProtocol.c_str());
    if (arguments.authProtocol.empty() || peer.authentication <= NETSNMP_USMAUTH_NOAUTH) {
        throw Fault("-a is no authentication protocol: " + arguments.authProtocol);
    }
    peer.authenticationKey = keyOf(arguments.authPassphrase, peer.authentication, "-A");
    if (peer.level == SNMP_SEC_LEVEL_AUTHNOPRIV) return;

    peer.privacy = usm_lookup_priv_type(arguments.privProtocol.c_str());
    if (arguments.privProtocol.empty() || peer.privacy <= USM_CREATE_USER_PRIV_NONE) {
        throw Fault("-x is no encryption protocol: " + arguments.privProtocol);
    }
    peer.privacyKey = keyOf(arguments.privPassphrase, peer.authentication, "-X");
}

void readPolicy(const Arguments& arguments, InformPolicy& policy) {
    if (!arguments.retries.empty()) policy.retries = number(arguments.retries, 0, MOST_RETRIES, "-r");
    if (arguments.timeout.empty()) return;
    double seconds = 0;
    const char* end = arguments.timeout.data() + arguments.timeout.size();
    const auto [stop, error] = std::from_chars(arguments.timeout.data(), end, seconds);
    const double milliseconds = std::round(seconds * MILLISECONDS);
    if (error != std::errc() || stop != end || !(milliseconds >= 1) || milliseconds > LONGEST_WAIT) {
        throw Fault("-t is no number of seconds up to an hour: " + arguments.timeout);
    }
    policy.firstRetry = std::chrono::milliseconds(static_cast<long>(milliseconds));
}

void add(InformDestination destination) {
    for (const InformDestination& other : g_words->destinations) {
        if (other.name() == destination.name()) {
            throw Fault("another line has the same address and port: " + destination.name());
        }
    }
    destination.policy.longestBackoff = std::max(destination.policy.longestBackoff, destination.policy.firstRetry);
    g_words->destinations.push_back(std::move(destination));
}

void readInformSink(const std::vector<std::string>& words) {
    constexpr std::size_t MOST_WORDS = 3;
    if (words.empty() || words.front().empty() || words.front().front() == '-' || words.size() > MOST_WORDS) {
        throw Fault("expected HOST [COMMUNITY [PORT]]");
    }
    InformDestination destination;
    destination.policy = g_words->policy;
    if (words.size() == MOST_WORDS) {
        destination.peer.port = number(words[2], 1, HIGHEST_PORT, "the port");
    }
    readHost(words.front(), destination.peer);
    setCommunity(words.size() > 1 ? words[1] : "", destination.peer);
    add(std::move(destination));
}

void readSession(const std::vector<std::string>& words) {
    const Arguments arguments = parseArguments(words);
    if (arguments.kind != "i") throw Fault("-C" + arguments.kind + " is not known here");
    InformDestination destination;
    destination.policy = g_words->policy;
    readPolicy(arguments, destination.policy);
    readHost(arguments.host, destination.peer);
    if (arguments.version == "2c" || arguments.version == "2") {
        setCommunity(arguments.community, destination.peer);
    } else if (arguments.version == "3") {
        destination.peer.version = SNMPV3;
        readUser(arguments, destination.peer);
    } else {
        throw Fault("informs exist in versions 2c and 3: -v " + arguments.version);
    }
    add(std::move(destination));
}

bool asksForInforms(const std::vector<std::string>& words) {
    for (std::size_t i = 0; i < words.size(); ++i) {
        if (words[i] == "-Ci" || (words[i] == "-C" && i + 1 < words.size() && words[i + 1] == "i")) return true;
    }
    return false;
}

// What a callback of the library must not throw becomes a fault of the line.
template <typename Read>
void reading(const char* token, const Read& read) {
    try {
        read();
    } catch (const std::exception& fault) {
        netsnmp_config_error("%s: %s", token, fault.what());
    }
}

void parseInformSink(const char* token, char* line) {
    reading(token, [&] { readInformSink(splitLine(line)); });
}

void parseTrapSession(const char* token, char* line) {
    reading(token, [&] {
        const std::vector<std::string> words = splitLine(line);
        if (!asksForInforms(words)) throw Fault("receivers of traps are rows of vrxTrapDestTable, here they have -Ci");
        readSession(words);
    });
}

struct PolicyWord {
    const char* word;
    const char* help;
    unsigned int least;
    unsigned int most;
    void (*set)(InformPolicy& policy, unsigned int value);
};

const PolicyWord POLICY_WORDS[] = {
    {"vrxInformQueue", "number", 1, LARGEST_QUEUE, [](InformPolicy& p, unsigned int v) { p.queueLimit = v; }},
    {"vrxInformWindow", "number", 1, LARGEST_INFORM_WINDOW, [](InformPolicy& p, unsigned int v) { p.window = v; }},
    {"vrxInformRetry", "milliseconds", 1, LONGEST_WAIT,
     [](InformPolicy& p, unsigned int v) { p.firstRetry = std::chrono::milliseconds(v); }},
    {"vrxInformBackoff", "milliseconds", 1, LONGEST_WAIT,
     [](InformPolicy& p, unsigned int v) { p.longestBackoff = std::chrono::milliseconds(v); }},
};

void parsePolicyWord(const char* token, char* line) {
    reading(token, [&] {
        for (const PolicyWord& word : POLICY_WORDS) {
            if (strcasecmp(word.word, token) == 0) word.set(g_words->policy, number(line, word.least, word.most, "it"));
        }
    });
}

void parseTrapType(const char* token, char* line) {
    reading(token, [&] {
        const std::string text = line;
        if (text != "1" && text != "3" && text != "4") throw Fault("it is none of 1, 3 and 4: " + text);
        g_words->policy.trapType = number(text, 1, 4, "it");
    });
}

}  // namespace

void registerInformDirectives(InformDirectives& words) {
    g_words = &words;
    // The library's words of these names go.
    snmpd_register_config_handler("informsink", parseInformSink, nullptr, "HOST [COMMUNITY [PORT]]");
    snmpd_register_config_handler("trapsess", parseTrapSession, nullptr, "-Ci [SNMPCMD_ARGS] HOST[:PORT]");
    for (const PolicyWord& word : POLICY_WORDS) {
        snmpd_register_config_handler(word.word, parsePolicyWord, nullptr, word.help);
    }
    snmpd_register_config_handler("vrxInformTraps", parseTrapType, nullptr, "1|3|4");
}

}  // namespace vrx
