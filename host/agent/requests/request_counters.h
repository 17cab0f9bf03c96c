// What became of the requests: how many of each kind came to which end, and how long their answers took. Every request
// that the dispatcher was given, and that no longer waits there, is counted once.
//
//     requests.note(RequestKind::Get, RequestResult::Ok, now - arrived);
//
// Threads: agent thread only. An operation takes nanoseconds: it stands on the way of every answer.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "host/base/latency_histogram.h"

namespace vrx {

enum class RequestKind { Get, GetNext, GetBulk, Set };
constexpr std::size_t REQUEST_KINDS = 4;
const char* textOf(RequestKind kind);

enum class RequestResult {
    Ok,          // answered; single values may be exceptions (noSuchInstance, endOfMibView)
    GenErr,      // answered with genErr: an object could not be read or written
    OtherError,  // answered with another error
    NotAllowed,  // of somebody who may not ask: refused, or not answered
    Overload,    // answered with an error since too many requests were waiting
    TimedOut,    // the same since its values did not come in time
    Repeated,    // a retry of it took its place before it was answered
    HeldBack,    // not answered: its peer gets as much as it may without being authenticated
    Lost,        // not answered: the manager had hung up, or there was no memory for it
};
constexpr std::size_t REQUEST_RESULTS = 9;
const char* textOf(RequestResult result);

// The kind of a request by its SNMP command; nothing for what is no request of a manager.
std::optional<RequestKind> requestKindOf(int command);

// Of an answer with that error status.
RequestResult requestResultOf(int snmpError);

class RequestCounters {
public:
    // A request that was not answered, or whose time says nothing.
    void note(RequestKind kind, RequestResult result) { ++at(kind).results[static_cast<std::size_t>(result)]; }

    // One that was answered so long after it came.
    void note(RequestKind kind, RequestResult result, LatencyHistogram::Duration taken) {
        note(kind, result);
        at(kind).latency.add(taken);
    }

    std::uint64_t count(RequestKind kind, RequestResult result) const {
        return at(kind).results[static_cast<std::size_t>(result)];
    }
    const LatencyHistogram& latency(RequestKind kind) const { return at(kind).latency; }

private:
    struct OfKind {
        std::array<std::uint64_t, REQUEST_RESULTS> results{};
        LatencyHistogram latency;
    };
    OfKind& at(RequestKind kind) { return m_kinds[static_cast<std::size_t>(kind)]; }
    const OfKind& at(RequestKind kind) const { return m_kinds[static_cast<std::size_t>(kind)]; }

    std::array<OfKind, REQUEST_KINDS> m_kinds;
};

// What the engine has answered since this was made, as its own counters tell: it does not say so itself.
class EngineAnswer {
public:
    EngineAnswer() : m_before(now()) {}
    RequestResult result() const;

private:
    struct Counters {
        unsigned int responses;
        unsigned int genErrs;
        unsigned int otherErrors;
    };
    static Counters now();

    Counters m_before;
};

}  // namespace vrx
