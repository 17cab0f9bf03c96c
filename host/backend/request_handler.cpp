#include "host/backend/request_handler.h"

#include <algorithm>
#include <ctime>
#include <limits>
#include <memory>
#include <string>
#include <utility>

#include "host/base/log_line.h"
#include "host/log_lines/backend.h"

namespace vrx {

namespace {

// Most records in an answer or a push; the package limit may end it earlier.
constexpr std::size_t MOST_RECORDS = 1000;

constexpr std::size_t ANY_NUMBER = std::numeric_limits<std::size_t>::max();

// Ends a command: nothing was done.
struct Refusal {
    BackendResult code;
};

void acceptOnly(BackendResult result) {
    if (result != BACKEND_OK) throw Refusal{result};
}

const CTLVCell& neededCell(const CTLVRecordV3& record, unsigned short tag, CTLVCell::ETLVType type) {
    const CTLVRecordV3::Position position = record.find(tag);
    if (position == record.end()) throw Refusal{BACKEND_MISSING_CELL};
    const CTLVCell& cell = CTLVRecordV3::cellAt(position);
    if (cell.type() != type) throw Refusal{BACKEND_WRONG_CELL};
    return cell;
}

unsigned long long neededNumber(const CTLVRecordV3& record, unsigned short tag, unsigned long long most) {
    const CTLVCell& cell = neededCell(record, tag, CTLVCell::TLV_TYPE_UINT);
    if (cell.length() == 0 || cell.length() > sizeof(unsigned long long)) throw Refusal{BACKEND_WRONG_CELL};
    const auto number = CTLVCell::ValueCast<unsigned long long>()(&cell);
    if (number > most) throw Refusal{BACKEND_WRONG_CELL};
    return number;
}

unsigned int neededUint32(const CTLVRecordV3& record, unsigned short tag) {
    return static_cast<unsigned int>(neededNumber(record, tag, std::numeric_limits<unsigned int>::max()));
}

unsigned long long neededUint64(const CTLVRecordV3& record, unsigned short tag) {
    return neededNumber(record, tag, std::numeric_limits<unsigned long long>::max());
}

std::string neededText(const CTLVRecordV3& record, unsigned short tag) {
    return neededCell(record, tag, CTLVCell::TLV_TYPE_STRING).toString();
}

unsigned long long now() {
    return static_cast<unsigned long long>(std::time(nullptr));
}

std::unique_ptr<CTLVRecordV3> newRecord(unsigned long long code) {
    return std::make_unique<CTLVRecordV3>(code, CTLVRecordV3::DEFAULT_BUCKETS);
}

std::unique_ptr<CTLVRecordV3> alarmRecord(unsigned long long code, unsigned int type, const Alarm& alarm) {
    auto record = newRecord(code);
    appendUint32(*record, alarm_tag::TYPE, type);
    appendUint64(*record, alarm_tag::ID, alarm.id);
    appendUint32(*record, alarm_tag::LEVEL, alarm.level);
    appendUint32(*record, alarm_tag::SERIAL, alarm.serial);
    appendUint64(*record, alarm_tag::RAISED, alarm.raised);
    appendUint64(*record, alarm_tag::ENDED, alarm.ended);
    appendUint64(*record, alarm_tag::SECOND_END, 0);
    appendText(*record, alarm_tag::PARAMETERS, alarm.parameters);
    return record;
}

Alarm readAlarm(const CTLVRecordV3& record) {
    Alarm alarm;
    alarm.id = neededUint64(record, alarm_tag::ID);
    alarm.level = neededUint32(record, alarm_tag::LEVEL);
    alarm.parameters = neededText(record, alarm_tag::PARAMETERS);
    if (alarm.parameters.size() > LONGEST_ALARM_PARAMETERS) throw Refusal{BACKEND_WRONG_CELL};
    if (record.has(alarm_tag::SERIAL)) {
        alarm.serial = neededUint32(record, alarm_tag::SERIAL);
        // Serial number 0 would stand before the first position of a list.
        if (alarm.serial == 0) throw Refusal{BACKEND_WRONG_CELL};
    }
    alarm.raised = record.has(alarm_tag::RAISED) ? neededUint64(record, alarm_tag::RAISED) : now();
    return alarm;
}

}  // namespace

RequestHandler::RequestHandler(AlarmStore& store, const BackendCommands& commands, std::size_t packageLimit,
                               BackendTraffic& traffic, std::function<void()> onNewEvents)
    : m_store(store),
      m_codes(commands),
      m_commands{
          {commands.getSystemWwn, 1, &RequestHandler::getSystemWwn},
          {commands.getBackendStatus, 1, &RequestHandler::getBackendStatus},
          {commands.getCurrentAlarm, 1, &RequestHandler::getCurrentAlarm},
          {commands.clearAlarm, ANY_NUMBER, &RequestHandler::clearAlarm},
          {commands.raiseAlarm, ANY_NUMBER, &RequestHandler::raiseAlarm},
          {commands.subscribeAlarm, 1, &RequestHandler::subscribeAlarm},
      },
      m_packageLimit(packageLimit),
      m_traffic(traffic),
      m_onNewEvents(std::move(onNewEvents)) {}

std::optional<unsigned long long> RequestHandler::handle(const CR8KPackageV3& request, CR8KPackageV3& answer) {
    ++m_traffic.requests;
    BackendResult result = BACKEND_STORE_FAILED;
    try {
        result = execute(request.records(), answer);
    } catch (const Refusal& refusal) {
        result = refusal.code;
    } catch (const SqliteError& error) {
        noteStoreFailure(error.what());
    }
    answer.head().uiHeadParam1 = static_cast<unsigned int>(result);
    if (result != BACKEND_OK) {
        ++m_traffic.refusals;
        answer.clear();
        return std::nullopt;
    }
    const CTLVRecordV3& first = *request.records().front();
    if (first.identifier() != m_codes.subscribeAlarm) return std::nullopt;
    const unsigned long long last = uint64Of(*answer[0], event_tag::LAST_SEQUENCE);
    // A number beyond the last event was handled with another store: such a client gets what comes up from now on.
    return first.has(event_tag::HANDLED) ? std::min(neededUint64(first, event_tag::HANDLED), last) : last;
}

// One line for each change of state.
void RequestHandler::noteStoreFailure(const std::string& reason) {
    m_writing.begins([&] { logLine<lines::ALARM_STORE_NOT_WRITTEN>(reason); });
}

void RequestHandler::noteStoreChanged() {
    m_writing.ends([] { logLine<lines::ALARM_STORE_WRITTEN>(); });
}

BackendResult RequestHandler::execute(const Records& records, CR8KPackageV3& answer) {
    if (records.empty()) return BACKEND_NO_RECORD;
    const unsigned long long code = records.front()->identifier();
    const auto command = std::find_if(m_commands.begin(), m_commands.end(),
                                      [code](const Command& candidate) { return candidate.code == code; });
    if (command == m_commands.end()) return BACKEND_UNKNOWN_COMMAND;
    const bool sameCode = std::all_of(records.begin(), records.end(),
                                      [code](const CTLVRecordV3* record) { return record->identifier() == code; });
    if (!sameCode || records.size() > command->mostRecords) return BACKEND_MIXED_RECORDS;
    (this->*command->operation)(records, answer);
    return BACKEND_OK;
}

void RequestHandler::getSystemWwn(const Records& /*records*/, CR8KPackageV3& answer) {
    auto record = newRecord(m_codes.getSystemWwn);
    appendText(*record, wwn_tag::WWN, m_store.worldWideName());
    answer.append(std::move(record));
}

void RequestHandler::getBackendStatus(const Records& /*records*/, CR8KPackageV3& answer) {
    const AlarmStoreStatus status = m_store.status();
    auto record = newRecord(m_codes.getBackendStatus);
    appendUint64(*record, status_tag::ACTIVE_ALARMS, status.activeAlarms);
    appendUint64(*record, status_tag::LAST_SEQUENCE, status.lastSequence);
    appendUint64(*record, status_tag::OLDEST_SEQUENCE, status.oldestSequence);
    appendUint64(*record, status_tag::CLIENTS, m_traffic.clients);
    appendUint64(*record, status_tag::SUBSCRIBERS, m_traffic.subscribers);
    appendUint64(*record, status_tag::REQUESTS, m_traffic.requests);
    appendUint64(*record, status_tag::REFUSALS, m_traffic.refusals);
    appendText(*record, status_tag::STORE, m_store.identity());
    answer.append(std::move(record));
}

void RequestHandler::getCurrentAlarm(const Records& records, CR8KPackageV3& answer) {
    const unsigned int start = neededUint32(*records.front(), alarm_tag::SERIAL);
    const std::size_t count = std::min<std::size_t>(neededUint32(*records.front(), alarm_tag::COUNT), MOST_RECORDS);
    for (const Alarm& alarm : m_store.activeAfter(start, count, m_packageLimit / 2))
        answer.append(alarmRecord(m_codes.getCurrentAlarm, ALARM_TYPE_FAULT, alarm));
}

void RequestHandler::clearAlarm(const Records& records, CR8KPackageV3& /*answer*/) {
    std::vector<unsigned int> serials;
    for (const CTLVRecordV3* record : records) {
        serials.push_back(neededUint32(*record, alarm_tag::SERIAL));
        const std::string who = neededText(*record, alarm_tag::CLEARED_BY);
        logLine<lines::ALARM_CLEARED>(serials.back(), who);
    }
    acceptOnly(m_store.clear(serials, now()));
    m_onNewEvents();
    noteStoreChanged();
}

void RequestHandler::raiseAlarm(const Records& records, CR8KPackageV3& answer) {
    std::vector<Alarm> alarms;
    for (const CTLVRecordV3* record : records) alarms.push_back(readAlarm(*record));
    acceptOnly(m_store.raise(alarms));
    m_onNewEvents();
    noteStoreChanged();
    for (const Alarm& alarm : alarms) {
        auto record = newRecord(m_codes.raiseAlarm);
        appendUint32(*record, alarm_tag::SERIAL, alarm.serial);
        answer.append(std::move(record));
    }
}

void RequestHandler::subscribeAlarm(const Records& records, CR8KPackageV3& answer) {
    if (records.front()->has(event_tag::HANDLED)) (void)neededUint64(*records.front(), event_tag::HANDLED);
    auto record = newRecord(m_codes.subscribeAlarm);
    appendUint64(*record, event_tag::LAST_SEQUENCE, m_store.lastSequence());
    answer.append(std::move(record));
}

void RequestHandler::fillPush(unsigned long long& position, CR8KPackageV3& package) {
    for (const StoredEvent& event : m_store.eventsAfter(position, MOST_RECORDS, m_packageLimit / 2)) {
        auto record = alarmRecord(m_codes.subscribeAlarm, event.type, event.alarm);
        appendUint64(*record, event_tag::SEQUENCE, event.sequence);
        package.append(std::move(record));
        position = event.sequence;
    }
}

}  // namespace vrx
