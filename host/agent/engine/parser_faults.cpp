#include "host/agent/engine/parser_faults.h"

namespace vrx {

namespace {

// Null while no parser runs. The library, which frees the arguments of its callbacks, can have none of ours.
std::string* g_fault = nullptr;

class Catching {
public:
    explicit Catching(std::string& fault) : m_outer(g_fault) { g_fault = &fault; }
    ~Catching() { g_fault = m_outer; }
    Catching(const Catching&) = delete;
    Catching& operator=(const Catching&) = delete;

private:
    std::string* const m_outer;
};

}  // namespace

std::string parserFault(const std::function<void()>& parse) {
    std::string fault;
    {
        const Catching catching(fault);
        parse();
    }
    return fault;
}

// "(null): line 0: Error: text", with a place that tells nothing: no file of the library's is read.
bool takeParserFault(const std::string& line) {
    if (g_fault == nullptr) return false;
    for (const std::string kind : {": Error: ", ": Warning: "}) {
        const std::size_t found = line.find(kind);
        if (found == std::string::npos || line.find(": line ") > found) continue;
        if (g_fault->empty()) *g_fault = line.substr(found + kind.size());
        return true;
    }
    return false;
}

}  // namespace vrx
