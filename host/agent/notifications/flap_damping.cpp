#include "host/agent/notifications/flap_damping.h"

#include <algorithm>
#include <functional>
#include <iterator>
#include <new>

namespace vrx {

namespace {

constexpr std::size_t MOST_HELD = 2;  // of a stream: an end, and a raise after it

}  // namespace

FlapDamping::Verdict FlapDamping::setLimits(const FlapDampingLimits& limits) {
    m_limits = limits;
    if (limits.changes == 0) return sendAll();
    for (auto& [name, alarm] : m_alarms) {
        while (alarm.changes.size() > limits.changes) alarm.changes.pop_front();
    }
    // Intervals may end sooner now: those that do not go on waiting.
    std::set<std::tuple<Clock::time_point, Name, Stream>> due;
    for (const auto& [name, alarm] : m_alarms) {
        for (const auto& [stream, state] : alarm.streams) {
            if (!state.held.empty()) due.emplace(state.lastSent + limits.interval, name, stream);
        }
    }
    m_due.swap(due);
    return {};
}

FlapDamping::Verdict FlapDamping::sendAll() {
    Verdict verdict;
    verdict.send.reserve(m_held);
    for (auto& [name, alarm] : m_alarms) {
        for (auto& [stream, state] : alarm.streams) release(state, verdict);
    }
    m_alarms.clear();
    m_byAge.clear();
    m_due.clear();
    return verdict;
}

FlapDamping::Noted FlapDamping::change(const Change& change, Clock::time_point now) {
    Noted noted;
    if (m_limits.changes == 0) return noted;
    const Name name{change.alarmId, std::hash<std::string>()(change.parameters)};
    std::list<Clock::time_point> moment{now};
    Alarm& alarm = alarmOf(name);
    if (m_alarms.size() > m_most) forgetOne(noted.first);

    noted.name = name;
    noted.raised = change.raised;
    noted.serial = change.serial;
    noted.byTurns = change.raised ? !alarm.standing : alarm.standing == change.serial;
    if (change.raised) {
        alarm.standing = change.serial;
    } else if (noted.byTurns) {
        alarm.standing.reset();
    }
    if (noted.byTurns) {
        alarm.changes.splice(alarm.changes.end(), moment);
        if (alarm.changes.size() > m_limits.changes) alarm.changes.pop_front();
    }
    noted.flaps = flaps(alarm, now);
    return noted;
}

// The youngest of all from here on.
FlapDamping::Alarm& FlapDamping::alarmOf(const Name& name) {
    const auto found = m_alarms.find(name);
    if (found != m_alarms.end()) {
        m_byAge.splice(m_byAge.end(), m_byAge, found->second.place);
        return found->second;
    }
    std::list<Name> place{name};
    Alarm& alarm = m_alarms[name];  // nothing below throws
    m_byAge.splice(m_byAge.end(), place);
    alarm.place = std::prev(m_byAge.end());
    return alarm;
}

FlapDamping::Verdict FlapDamping::offer(const Noted& change, const Stream& stream, Item item, Clock::time_point now) {
    Verdict verdict;
    verdict.send.reserve(MOST_HELD + 1);
    const auto alarm = change.name ? m_alarms.find(*change.name) : m_alarms.end();
    if (alarm == m_alarms.end()) {
        verdict.send.push_back(item);
        return verdict;
    }
    std::map<Stream, StreamState>& streams = alarm->second.streams;
    const auto found = streams.find(stream);
    const bool known = found != streams.end();
    if (known && !found->second.held.empty()) {
        StreamState& state = found->second;
        const Held& last = state.held.back();
        if (change.byTurns && last.raised && !change.raised && last.serial == change.serial) {
            verdict.superseded = {last.item, item};
            state.held.pop_back();
            --m_held;
            return verdict;
        }
        if (change.byTurns && !last.raised && change.raised) {
            hold(change, stream, state, item);
            return verdict;
        }
        release(state, verdict);  // it stands more than once, or this stream has missed something
        verdict.send.push_back(item);
        state.lastSent = now;
        return verdict;
    }
    const bool early = known && now < found->second.lastSent + m_limits.interval;
    if (change.flaps && change.byTurns && early) {
        hold(change, stream, found->second, item);
        return verdict;
    }
    verdict.send.push_back(item);
    if (change.flaps) {
        streams[stream].lastSent = now;
    } else if (known) {
        streams.erase(found);
    }
    return verdict;
}

FlapDamping::Verdict FlapDamping::takeDue(Clock::time_point now) {
    Verdict verdict;
    try {
        while (!m_due.empty() && std::get<Clock::time_point>(*m_due.begin()) <= now) takeFirst(now, verdict);
    } catch (const std::bad_alloc&) {  // the rest next time
        if (verdict.send.empty()) throw;
    }
    return verdict;
}

// Of what is due. All or nothing when it throws.
void FlapDamping::takeFirst(Clock::time_point now, Verdict& verdict) {
    const auto first = m_due.begin();
    const auto& [when, name, stream] = *first;
    StreamState* state = stateOf(name, stream);
    if (state != nullptr && !state->held.empty()) {
        if (state->lastSent + m_limits.interval <= now) {
            verdict.send.reserve(verdict.send.size() + 1);
            if (state->held.size() > 1) m_due.emplace(now + m_limits.interval, name, stream);
            verdict.send.push_back(state->held.front().item);
            state->held.erase(state->held.begin());
            --m_held;
            state->lastSent = now;
        } else {  // something was sent since: the interval began anew
            m_due.emplace(state->lastSent + m_limits.interval, name, stream);
        }
    }
    m_due.erase(first);
}

FlapDamping::StreamState* FlapDamping::stateOf(const Name& name, const Stream& stream) {
    const auto alarm = m_alarms.find(name);
    if (alarm == m_alarms.end()) return nullptr;
    const auto state = alarm->second.streams.find(stream);
    return state == alarm->second.streams.end() ? nullptr : &state->second;
}

FlapDamping::Clock::time_point FlapDamping::nextDue() const {
    return m_due.empty() ? Clock::time_point::max() : std::get<Clock::time_point>(*m_due.begin());
}

bool FlapDamping::flaps(const Alarm& alarm, Clock::time_point now) const {
    return alarm.changes.size() >= m_limits.changes && now - alarm.changes.front() <= m_limits.window;
}

bool FlapDamping::holds(const Alarm& alarm) {
    return std::any_of(alarm.streams.begin(), alarm.streams.end(),
                       [](const auto& stream) { return !stream.second.held.empty(); });
}

// REQUIRES: the change's name.
void FlapDamping::hold(const Noted& change, const Stream& stream, StreamState& state, Item item) {
    m_due.emplace(state.lastSent + m_limits.interval, *change.name, stream);
    state.held.push_back({item, change.serial, change.raised});
    ++m_held;
}

// REQUIRES: room in the verdict.
void FlapDamping::release(StreamState& state, Verdict& verdict) {
    for (const Held& held : state.held) verdict.send.push_back(held.item);
    m_held -= state.held.size();
    state.held.clear();
}

// The one that changed longest ago of those that hold nothing; if there is none, the one that changed longest ago.
// Never the youngest: that one is changing now.
void FlapDamping::forgetOne(Verdict& verdict) {
    const auto youngest = std::prev(m_byAge.end());
    auto victim =
        std::find_if(m_byAge.begin(), youngest, [this](const Name& name) { return !holds(m_alarms.at(name)); });
    if (victim == youngest) victim = m_byAge.begin();
    if (victim == youngest) return;
    const auto alarm = m_alarms.find(*victim);
    verdict.send.reserve(MOST_HELD * alarm->second.streams.size());
    for (auto& [stream, state] : alarm->second.streams) release(state, verdict);
    m_byAge.erase(victim);
    m_alarms.erase(alarm);
}

}  // namespace vrx
