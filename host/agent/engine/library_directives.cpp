#include "host/agent/engine/library_directives.h"

#include <strings.h>

#include <algorithm>
#include <charconv>

#include "host/agent/engine/listener_address.h"
#include "host/engine_files/engine_file.h"
#include "host/snmp/limits.h"
#include "host/snmp/net_snmp.h"

namespace vrx {

namespace {

using Words = std::vector<std::string>;

constexpr std::size_t LONGEST_NAME = 32;   // of users, groups, views and communities: SnmpAdminString (SIZE(0..32))
constexpr std::size_t LONGEST_TEXT = 255;  // DisplayString
constexpr std::size_t LONGEST_PASSPHRASE = 255;
constexpr long long LARGEST_NUMBER = 2'147'483'647;

std::string textFault(const std::string& text) {
    return text.size() > LONGEST_TEXT ? "more than " + std::to_string(LONGEST_TEXT) + " characters" : "";
}

bool isNumber(const std::string& text, long long least, long long most) {
    long long value = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    return error == std::errc() && stop == end && value >= least && value <= most;
}

template <long long LEAST, long long MOST>
std::string numberFault(const std::string& text) {
    if (isNumber(text, LEAST, MOST)) return {};
    return "not a number from " + std::to_string(LEAST) + " to " + std::to_string(MOST) + ": " + text;
}

std::string switchFault(const std::string& text) {
    for (const char* known : {"1", "yes", "true", "0", "no", "false"}) {
        if (strcasecmp(known, text.c_str()) == 0) return {};
    }
    return "neither yes nor no: " + text;
}

// ".1.3.6" or "1.3.6": this agent knows no names.
bool isOid(const std::string& text) {
    constexpr std::size_t MOST_DIGITS = 10;
    constexpr long long LARGEST_SUBIDENTIFIER = 4'294'967'295;
    std::size_t at = text.rfind('.', 0) == 0 ? 1 : 0;
    for (std::size_t count = 1; count <= LONGEST_OID; ++count) {
        const std::size_t end = std::min(text.find('.', at), text.size());
        const std::string number = text.substr(at, end - at);
        if (number.size() > MOST_DIGITS || number.rfind('-', 0) == 0 || !isNumber(number, 0, LARGEST_SUBIDENTIFIER))
            return false;
        if (end == text.size()) return true;
        at = end + 1;
    }
    return false;
}

std::string oidFault(const std::string& text) {
    return isOid(text) ? "" : "not an object identifier: " + text;
}

std::string engineIdFault(const std::string& text) {
    return engine_file::isEngineId(text) ? "" : "an engine ID is 0x and 5 to 32 octets in hexadecimal: " + text;
}

std::string listenersFault(const std::string& text) {
    for (const std::string& address : splitListeners(text)) {
        std::string fault = listenerFault(address);
        if (!fault.empty()) return fault;
    }
    return {};
}

std::string nameFault(const std::string& name) {
    if (!name.empty() && name.size() <= LONGEST_NAME) return {};
    return "a name has 1 to " + std::to_string(LONGEST_NAME) + " characters: " + name;
}

// Takes what stands for a key from the front: a passphrase, or -m or -l and a key in hexadecimal.
std::string takeKey(Words& words, const char* what) {
    if (words.empty()) return std::string("no ") + what + " passphrase";
    if (words.front() == "-m" || words.front() == "-l") {
        constexpr std::size_t SHORTEST_KEY = 16;
        constexpr std::size_t LONGEST_KEY = 64;
        const std::string key = words.size() > 1 ? words[1] : "";
        const std::size_t digits = key.size() < 2 ? 0 : key.size() - 2;
        const bool hexadecimal =
            key.rfind("0x", 0) == 0 && key.find_first_not_of("0123456789abcdefABCDEF", 2) == std::string::npos;
        if (!hexadecimal || digits % 2 != 0 || digits < 2 * SHORTEST_KEY || digits > 2 * LONGEST_KEY) {
            return std::string("the ") + what + " key is not 0x and 16 to 64 octets in hexadecimal";
        }
        words.erase(words.begin(), words.begin() + 2);
        return {};
    }
    const std::size_t size = words.front().size();
    if (size < SHORTEST_PASSPHRASE || size > LONGEST_PASSPHRASE) {
        return std::string("the ") + what + " passphrase has " + std::to_string(SHORTEST_PASSPHRASE) + " to " +
               std::to_string(LONGEST_PASSPHRASE) + " characters";
    }
    words.erase(words.begin());
    return {};
}

// "[-e ENGINEID] NAME [PROTOCOL KEY [PROTOCOL [KEY]]]"
std::string createUserFault(const std::string& text) {
    Words words = wordsOf(text);
    if (words.front() == "-e") {
        if (words.size() < 2) return "no engine ID after -e";
        std::string fault = engineIdFault(words[1]);
        if (!fault.empty()) return fault;
        words.erase(words.begin(), words.begin() + 2);
    }
    if (words.empty()) return "no name";
    std::string fault = nameFault(words.front());
    words.erase(words.begin());
    if (!fault.empty() || words.empty()) return fault;

    const std::string authentication = words.front();
    if (strcasecmp(authentication.c_str(), "default") != 0 &&
        usm_lookup_auth_type(authentication.c_str()) <= NETSNMP_USMAUTH_NOAUTH) {
        return "no authentication protocol: " + authentication;
    }
    words.erase(words.begin());
    fault = takeKey(words, "authentication");
    if (!fault.empty() || words.empty()) return fault;

    const std::string privacy = words.front();
    if (strcasecmp(privacy.c_str(), "default") != 0 &&
        usm_lookup_priv_type(privacy.c_str()) <= USM_CREATE_USER_PRIV_NONE) {
        return "no encryption protocol: " + privacy;
    }
    words.erase(words.begin());
    if (words.empty()) return {};  // the same passphrase for both
    fault = takeKey(words, "encryption");
    if (!fault.empty() || words.empty()) return fault;
    return "one word too many: " + words.front();
}

// Users, communities, groups and views: as many words as the parser reads, each of a length that it holds.
template <std::size_t LEAST, std::size_t MOST>
std::string namesFault(const std::string& text) {
    const Words words = wordsOf(text);
    if (words.size() < LEAST) return "at least " + std::to_string(LEAST) + " words are wanted";
    if (words.size() > MOST) return "more than " + std::to_string(MOST) + " words";
    for (const std::string& word : words) {
        if (word.size() > LONGEST_TEXT) return textFault(word);
    }
    return nameFault(words.front());
}

// "NAME included|excluded OID [MASK]"
std::string viewFault(const std::string& text) {
    constexpr std::size_t PLACE_OF_OID = 2;
    std::string fault = namesFault<3, 4>(text);
    return fault.empty() ? oidFault(wordsOf(text)[PLACE_OF_OID]) : fault;
}

// The agent's own parsers of these words look after their arguments themselves (inform_directives.h).
std::string nothing(const std::string&) {
    return {};
}

struct LibraryDirective {
    const char* word;
    std::string (*fault)(const std::string& arguments);
    bool inLibrarySection = false;
};

constexpr std::size_t MANY = 16;  // options and words of an access line

const LibraryDirective WORDS[] = {
    {"access", namesFault<8, MANY>},
    {"agentAddress", listenersFault},
    {"authAccess", namesFault<3, MANY>},
    {"authCommunity", namesFault<2, MANY>},
    {"authGroup", namesFault<2, MANY>},
    {"authTrapEnable", numberFault<1, 2>},
    {"authUser", namesFault<2, MANY>},
    {"com2sec", namesFault<3, 5>},
    {"com2sec6", namesFault<3, 5>},
    {"createUser", createUserFault},
    {"dontLogTCPWrappersConnects", switchFault},
    {"exactEngineID", engineIdFault},
    {"group", namesFault<3, 3>},
    {"informsink", nothing},
    {"maxGetbulkRepeats", numberFault<-1, LARGEST_NUMBER>},
    {"maxGetbulkResponses", numberFault<-1, LARGEST_NUMBER>},
    {"rocommunity", namesFault<1, 5>},
    {"rocommunity6", namesFault<1, 5>},
    {"rouser", namesFault<1, 7>},
    {"rwcommunity", namesFault<1, 5>},
    {"rwcommunity6", namesFault<1, 5>},
    {"rwuser", namesFault<1, 7>},
    {"setaccess", namesFault<7, MANY>},
    {"sysContact", textFault},
    {"sysDescr", textFault},
    {"sysLocation", textFault},
    {"sysName", textFault},
    {"sysObjectID", oidFault},
    {"sysServices", numberFault<0, 127>},
    {"trapcommunity", nameFault},
    {"trapsess", nothing},
    {"view", viewFault},
    {"clientRecvBuf", numberFault<0, LARGEST_NUMBER>, true},
    {"clientSendBuf", numberFault<0, LARGEST_NUMBER>, true},
    {"disableSNMPv1", switchFault, true},
    {"disableSNMPv2c", switchFault, true},
    {"disableSNMPv3", switchFault, true},
    {"sendMessageMaxSize", numberFault<SHORTEST_MAX_MESSAGE, LONGEST_MESSAGE>, true},
    {"serverRecvBuf", numberFault<0, LARGEST_NUMBER>, true},
    {"serverSendBuf", numberFault<0, LARGEST_NUMBER>, true},
};

const LibraryDirective* find(const std::string& word) {
    const auto* const found = std::find_if(std::begin(WORDS), std::end(WORDS), [&](const LibraryDirective& known) {
        return strcasecmp(known.word, word.c_str()) == 0;
    });
    return found == std::end(WORDS) ? nullptr : found;
}

}  // namespace

bool isLibraryDirective(bool inLibrarySection, const std::string& word) {
    const LibraryDirective* const known = find(word);
    return known != nullptr && known->inLibrarySection == inLibrarySection;
}

std::string libraryDirectiveFault(const std::string& word, const std::string& arguments) {
    const LibraryDirective* const known = find(word);
    return known == nullptr ? "not known" : known->fault(arguments);
}

std::vector<std::string> wordsOf(const std::string& arguments) {
    std::vector<std::string> words;
    std::string line = arguments;
    std::string word(arguments.size() + 1, '\0');
    for (char* rest = line.data(); rest != nullptr && *rest != '\0';) {
        rest = copy_nword(rest, word.data(), static_cast<int>(word.size()));
        words.emplace_back(word.c_str());
    }
    return words;
}

}  // namespace vrx
