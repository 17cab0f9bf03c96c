#include "host/transport/alarm_event_source.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "host/backend/backend.h"
#include "host/transport/backend_client.h"
#include "host/transport/backend_result.h"
#include "tests/backend/test_support.h"

namespace vrx {

namespace {

using Numbers = std::vector<unsigned long long>;
using Serials = std::vector<unsigned int>;

// Remembers what it is told; like an agent it takes the store's last number when it has none of its own.
class RecordingListener : public AlarmEventSource::Listener {
public:
    std::optional<HandledEvent> lastHandledEvent() override {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_handled;
    }
    void onConnected(const BackendState& state) override {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_activeLevels.clear();
        m_activeSerials.clear();
        for (const ActiveAlarm& alarm : state.alarms) {
            m_activeSerials.push_back(alarm.serial);
            m_activeLevels.push_back(alarm.level);
        }
        ++m_connected;
        m_lastSequenceOfStore = state.lastSequence;
        m_listedUpTo = state.listedUpTo;
        m_isAnother.push_back(state.isAnother);
        if (!m_handled) m_handled = HandledEvent{state.lastSequence, ""};
        m_handled->store = state.store;
        if (m_failsAtConnection) throw std::runtime_error("cannot compare");
    }
    void onEvent(const AlarmEvent& event, const CTLVRecordV3& record) override {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_handled->sequence = event.sequence;
        m_events.push_back(event.sequence);
        m_parsed.push_back(event);
        m_cells.push_back(record.count());
        m_currentAtEvents.push_back(m_isCurrent());
        if (event.sequence == m_failAt) throw std::runtime_error("cannot handle it");
    }
    void onDisconnected() override {
        const std::lock_guard<std::mutex> lock(m_mutex);
        ++m_disconnected;
    }

    // Before the start.
    void setHandled(unsigned long long handled, const std::string& store = "") {
        m_handled = HandledEvent{handled, store};
    }
    void failAt(unsigned long long sequence) { m_failAt = sequence; }  // before the start
    void failAtConnection() { m_failsAtConnection = true; }            // before the start
    void watch(std::function<bool()> isCurrent) { m_isCurrent = std::move(isCurrent); }

    Numbers events() const { return copy(m_events); }
    std::vector<AlarmEvent> parsed() const { return copy(m_parsed); }
    std::vector<std::size_t> cells() const { return copy(m_cells); }
    std::vector<bool> currentAtEvents() const { return copy(m_currentAtEvents); }
    Serials activeSerials() const { return copy(m_activeSerials); }
    std::vector<unsigned int> activeLevels() const { return copy(m_activeLevels); }
    unsigned long long lastSequenceOfStore() const { return copy(m_lastSequenceOfStore); }
    unsigned long long listedUpTo() const { return copy(m_listedUpTo); }
    std::vector<bool> isAnother() const { return copy(m_isAnother); }
    std::string store() const { return copy(m_handled)->store; }
    int connected() const { return copy(m_connected); }
    int disconnected() const { return copy(m_disconnected); }

private:
    template <typename Value>
    Value copy(const Value& value) const {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return value;
    }

    mutable std::mutex m_mutex;
    std::optional<HandledEvent> m_handled;
    unsigned long long m_listedUpTo = 0;
    std::vector<bool> m_isAnother;
    unsigned long long m_failAt = 0;
    bool m_failsAtConnection = false;
    std::function<bool()> m_isCurrent;
    std::vector<bool> m_currentAtEvents;  // what the source said when each event came
    unsigned long long m_lastSequenceOfStore = 0;
    Serials m_activeSerials;
    std::vector<unsigned int> m_activeLevels;
    Numbers m_events;
    std::vector<AlarmEvent> m_parsed;
    std::vector<std::size_t> m_cells;
    int m_connected = 0;
    int m_disconnected = 0;
};

Numbers numbersTo(unsigned long long last) {
    Numbers numbers;
    for (unsigned long long number = 1; number <= last; ++number) numbers.push_back(number);
    return numbers;
}

class AlarmEventSourceTest : public testing::Test {
protected:
    AlarmEventSourceTest()
        : m_address(unixAddress(m_directory.file("b.sock"))),
          m_options(optionsFor(m_address)),
          m_source(m_options, testCommands(), m_listener) {
        m_settings.transport = m_options;
        m_settings.commands = testCommands();
        m_settings.stateDirectory = m_directory.file("state");
        m_listener.watch([this] { return m_source.isCurrent(); });
    }
    ~AlarmEventSourceTest() override { m_source.stop(); }

    void startBackend() {
        m_backend = std::make_unique<Backend>(m_settings);
        m_backend->start();
    }
    void raise(unsigned int count) {
        CR8KPackageV3 request;
        for (unsigned int number = 0; number < count; ++number) {
            auto record = makeRecord(testCommands().raiseAlarm);
            appendUint64(*record, alarm_tag::ID, 77);
            appendUint32(*record, alarm_tag::LEVEL, 3);
            appendText(*record, alarm_tag::PARAMETERS, "p");
            request.append(std::move(record));
        }
        ASSERT_EQ(call(request), BACKEND_OK);
    }
    void clear(unsigned int serial) {
        CR8KPackageV3 request;
        auto record = makeRecord(testCommands().clearAlarm);
        appendUint32(*record, alarm_tag::SERIAL, serial);
        appendText(*record, alarm_tag::CLEARED_BY, "TEST");
        request.append(std::move(record));
        ASSERT_EQ(call(request), BACKEND_OK);
    }
    int call(CR8KPackageV3& request) {
        BackendClient client(m_options);
        CR8KPackageV3 answer;
        return client.call(request, answer);
    }
    bool isConnected(int times = 1) {
        return eventually([&] { return m_listener.connected() == times; });
    }
    bool hasEvents(std::size_t count) {
        return eventually([&] { return m_listener.events().size() >= count; });
    }

    LogCapture m_log;
    TemporaryDirectory m_directory;
    LocalAddress m_address;
    BackendOptions m_options;
    BackendSettings m_settings;
    std::unique_ptr<Backend> m_backend;
    RecordingListener m_listener;
    AlarmEventSource m_source;
};

// Plays a backend whose store ends with event 10, or with `later` when the subscription begins, and has no active
// alarms; then sends `pushes` and waits.
class PushingServer {
public:
    PushingServer(const LocalAddress& address, std::vector<Bytes> pushes, unsigned long long later = 10)
        : m_server(address, [pushes = std::move(pushes), later](int peer, int) {
              readPackage(peer);
              writeAll(peer, numberAnswer(status_tag::LAST_SEQUENCE, 10));
              readPackage(peer);
              writeAll(peer, answerBytes(0));
              readPackage(peer);
              writeAll(peer, numberAnswer(event_tag::LAST_SEQUENCE, later));
              for (const Bytes& push : pushes) writeAll(peer, push);
              readPackage(peer);
          }) {}

    static Bytes push(const std::vector<unsigned long long>& sequences) {
        CR8KPackageV3 package;
        for (const unsigned long long sequence : sequences) {
            auto record = makeRecord(testCommands().subscribeAlarm);
            appendUint64(*record, event_tag::SEQUENCE, sequence);
            package.append(std::move(record));
        }
        return encoded(package);
    }

    int connections() const { return m_server.connections(); }

private:
    static Bytes numberAnswer(unsigned short tag, unsigned long long number) {
        CR8KPackageV3 answer;
        auto record = makeRecord(1);
        appendUint64(*record, tag, number);
        answer.append(std::move(record));
        return encoded(answer);
    }

    ScriptedServer m_server;
};

}  // namespace

TEST_F(AlarmEventSourceTest, TheFirstStartEverBeginsWithTheStoresLastNumber) {
    startBackend();
    raise(3);
    m_source.start();
    ASSERT_TRUE(isConnected());
    EXPECT_EQ(m_listener.lastSequenceOfStore(), 3U);
    EXPECT_EQ(m_listener.activeSerials(), (Serials{1, 2, 3}));
    EXPECT_EQ(m_listener.activeLevels(), (std::vector<unsigned int>{3, 3, 3}));
    raise(1);
    ASSERT_TRUE(hasEvents(1));
    EXPECT_EQ(m_listener.events(), Numbers{4});
}

TEST_F(AlarmEventSourceTest, EventsAfterTheLastHandledOneAreDelivered) {
    startBackend();
    raise(5);
    m_listener.setHandled(2);
    m_source.start();
    ASSERT_TRUE(hasEvents(3));
    EXPECT_EQ(m_listener.events(), (Numbers{3, 4, 5}));
    EXPECT_EQ(m_listener.lastSequenceOfStore(), 5U);
}

TEST_F(AlarmEventSourceTest, EventsCarryTheWholeAlarm) {
    startBackend();
    m_listener.setHandled(0);
    m_source.start();
    raise(1);
    clear(1);
    ASSERT_TRUE(hasEvents(2));
    EXPECT_EQ(m_listener.events(), (Numbers{1, 2}));
    EXPECT_EQ(m_listener.cells(), (std::vector<std::size_t>{9, 9}));
}

TEST_F(AlarmEventSourceTest, ActiveAlarmsAreFetchedInBatches) {
    startBackend();
    raise(2500);
    clear(1000);
    m_source.start();
    ASSERT_TRUE(isConnected());
    const Serials serials = m_listener.activeSerials();
    ASSERT_EQ(serials.size(), 2499U);
    EXPECT_EQ(serials.front(), 1U);
    EXPECT_EQ(serials[998], 999U);
    EXPECT_EQ(serials[999], 1001U);
    EXPECT_EQ(serials.back(), 2500U);
}

TEST_F(AlarmEventSourceTest, ABackendThatStartsLaterIsFound) {
    m_source.start();
    ASSERT_TRUE(eventually([this] { return !m_log.linesWith("no subscription").empty(); }));
    startBackend();
    EXPECT_TRUE(isConnected());
    EXPECT_EQ(m_log.linesWith("[events]"),
              (std::vector<std::string>{
                  "warning [events] no subscription at " + m_address.text() + ": connect: No such file or directory",
                  "info [events] subscribed at " + m_address.text() + " after event 0, 0 active alarms"}));
}

TEST_F(AlarmEventSourceTest, AfterARestartOfTheBackendEveryEventCameOnce) {
    startBackend();
    m_listener.setHandled(0);
    m_source.start();
    for (int restart = 1; restart <= 3; ++restart) {
        raise(10);
        m_backend.reset();
        startBackend();
        raise(10);
    }
    ASSERT_TRUE(hasEvents(60));
    EXPECT_EQ(m_listener.events(), numbersTo(60));
    EXPECT_EQ(m_source.counters().events, 60U);
    EXPECT_EQ(m_source.counters().missing, 0U);
    EXPECT_EQ(m_source.counters().malformed, 0U);
}

TEST_F(AlarmEventSourceTest, TheListenerHearsOfEachConnectionAndOfItsEnd) {
    startBackend();
    m_source.start();
    ASSERT_TRUE(isConnected());
    EXPECT_EQ(m_listener.disconnected(), 0);
    m_backend.reset();
    ASSERT_TRUE(eventually([this] { return m_listener.disconnected() == 1; }));
    startBackend();
    ASSERT_TRUE(isConnected(2));
    m_source.stop();
    EXPECT_EQ(m_listener.disconnected(), 2);
    EXPECT_EQ(m_source.counters().connections, 2U);
}

TEST_F(AlarmEventSourceTest, ItIsCurrentFromItsConnectionToItsEnd) {
    EXPECT_FALSE(m_source.isCurrent());
    startBackend();
    m_source.start();
    ASSERT_TRUE(eventually([this] { return m_source.isCurrent(); }));
    EXPECT_EQ(m_listener.connected(), 1);
    m_backend.reset();
    ASSERT_TRUE(eventually([this] { return m_listener.disconnected() == 1; }));
    EXPECT_FALSE(m_source.isCurrent());
    startBackend();
    ASSERT_TRUE(eventually([this] { return m_source.isCurrent(); }));
    m_source.stop();
    EXPECT_FALSE(m_source.isCurrent());
}

TEST_F(AlarmEventSourceTest, ItIsCurrentWhenItHasComeUpWithTheStore) {
    m_listener.setHandled(8);
    const PushingServer server(m_address, {PushingServer::push({9, 10, 11})});
    m_source.start();
    ASSERT_TRUE(hasEvents(3));
    EXPECT_EQ(m_listener.currentAtEvents(), (std::vector<bool>{false, false, true})) << "the store's last was 10";
}

TEST_F(AlarmEventSourceTest, AListenerThatDidNotTakeTheConnectionIsNotCurrent) {
    m_listener.failAtConnection();
    const PushingServer server(m_address, {PushingServer::push({11, 12})});
    m_source.start();
    ASSERT_TRUE(hasEvents(2));
    EXPECT_EQ(m_listener.currentAtEvents(), (std::vector<bool>{false, false}));
}

TEST_F(AlarmEventSourceTest, AYoungerStoreIsFollowedFromItsFirstEvent) {
    startBackend();
    raise(3);
    m_listener.setHandled(500);
    m_source.start();
    ASSERT_TRUE(hasEvents(3));
    EXPECT_EQ(m_listener.events(), (Numbers{1, 2, 3}));
    EXPECT_EQ(m_log.linesWith("younger"),
              std::vector<std::string>{"warning [events] event 500 was handled, but the backend's last one is 3: "
                                       "its store is a younger one, going on with its first event"});
}

TEST_F(AlarmEventSourceTest, AnotherStoreIsFollowedFromItsFirstEvent) {
    startBackend();
    raise(5);
    m_listener.setHandled(3, "another");
    m_source.start();
    ASSERT_TRUE(hasEvents(5));
    EXPECT_EQ(m_listener.events(), (Numbers{1, 2, 3, 4, 5}));
    EXPECT_EQ(m_listener.isAnother(), std::vector<bool>{true});
    EXPECT_EQ(m_log.linesWith("another"),
              std::vector<std::string>{"warning [events] event 3 of store another was handled, but the backend's store "
                                       "is another one, " +
                                       m_listener.store() + ": going on with its first event"});
}

TEST_F(AlarmEventSourceTest, AStoreIsTheSameAfterARestartOfTheBackend) {
    startBackend();
    raise(2);
    m_source.start();
    ASSERT_TRUE(isConnected());
    m_backend.reset();
    startBackend();
    ASSERT_TRUE(isConnected(2));
    EXPECT_EQ(m_listener.isAnother(), (std::vector<bool>{false, false}));
    EXPECT_EQ(m_listener.store().size(), 32U);
}

// One side knows no identity: the backend is older, or the agent was when it handled its last event.
TEST_F(AlarmEventSourceTest, WithoutAnIdentityTheNumbersDecide) {
    m_listener.setHandled(10, "mine");
    const PushingServer server(m_address, {PushingServer::push({11})});
    m_source.start();
    ASSERT_TRUE(hasEvents(1));
    EXPECT_EQ(m_listener.isAnother(), std::vector<bool>{false});
}

TEST_F(AlarmEventSourceTest, AnAgentThatKnowsNoIdentityYetGoesOnAfterItsEvent) {
    startBackend();
    raise(5);
    m_listener.setHandled(3);
    m_source.start();
    ASSERT_TRUE(hasEvents(2));
    EXPECT_EQ(m_listener.events(), (Numbers{4, 5}));
    EXPECT_EQ(m_listener.isAnother(), std::vector<bool>{false});
}

TEST_F(AlarmEventSourceTest, AnIdentityWithoutEndIsRefused) {
    CR8KPackageV3 answer;
    auto record = makeRecord(1);
    appendUint64(*record, status_tag::LAST_SEQUENCE, 10);
    appendText(*record, status_tag::STORE, std::string(LONGEST_STORE_IDENTITY + 1, 'x'));
    answer.append(std::move(record));
    const Bytes status = encoded(answer);
    const ScriptedServer server(m_address, [&status](int peer, int) { answerAll(peer, status); });
    m_source.start();
    ASSERT_TRUE(eventually([this] { return !m_log.linesWith("identity").empty(); }));
    EXPECT_EQ(m_listener.connected(), 0);
}

// The list of alarms is read between two answers that tell how far the store has come.
TEST_F(AlarmEventSourceTest, ItTellsUpToWhichEventTheListMayBeAhead) {
    const PushingServer server(m_address, {}, 14);
    m_source.start();
    ASSERT_TRUE(isConnected());
    EXPECT_EQ(m_listener.lastSequenceOfStore(), 10U);
    EXPECT_EQ(m_listener.listedUpTo(), 14U);
}

TEST_F(AlarmEventSourceTest, EventsThatAreNoLongerKeptAreCountedAsMissing) {
    m_settings.eventLimit = 2;
    startBackend();
    raise(5);
    m_listener.setHandled(1);
    m_source.start();
    ASSERT_TRUE(hasEvents(2));
    EXPECT_EQ(m_listener.events(), (Numbers{4, 5}));
    EXPECT_EQ(m_source.counters().missing, 2U);
    EXPECT_EQ(
        m_log.linesWith("missing"),
        std::vector<std::string>{"error [events] events 2 to 3 are missing, the backend does not keep them any more"});
}

TEST_F(AlarmEventSourceTest, AnEventThatWasDeliveredIsNotDeliveredAgain) {
    const PushingServer server(m_address, {PushingServer::push({11, 12}), PushingServer::push({12, 11, 13})});
    m_source.start();
    ASSERT_TRUE(hasEvents(3));
    EXPECT_EQ(m_listener.events(), (Numbers{11, 12, 13}));
    EXPECT_EQ(m_source.counters().malformed, 2U);
    EXPECT_EQ(m_log.linesWith("skipped"),
              (std::vector<std::string>{"error [events] event 12 after event 12 is skipped",
                                        "error [events] event 11 after event 12 is skipped"}));
}

TEST_F(AlarmEventSourceTest, ARecordWithoutANumberIsLoggedAndCounted) {
    const PushingServer server(m_address, {textAnswer("no number"), PushingServer::push({11})});
    m_source.start();
    ASSERT_TRUE(hasEvents(1));
    EXPECT_EQ(m_listener.events(), Numbers{11});
    EXPECT_EQ(m_source.counters().malformed, 1U);
    EXPECT_EQ(m_log.linesWith("without a number").size(), 1U);
}

TEST_F(AlarmEventSourceTest, AFloodOfRecordsThatCannotBeUsedMakesFewLines) {
    std::vector<Bytes> pushes;
    for (int package = 0; package < 20; ++package) pushes.push_back(PushingServer::push(Numbers(1000, 5)));
    pushes.push_back(PushingServer::push({11}));
    const PushingServer server(m_address, pushes);
    m_source.start();
    ASSERT_TRUE(hasEvents(1));
    EXPECT_EQ(m_source.counters().malformed, 20'000U);
    EXPECT_EQ(m_log.linesWith("is skipped").size(), 60U);
}

TEST_F(AlarmEventSourceTest, AListOfAlarmsWithoutEndIsGivenUp) {
    std::atomic<unsigned int> last{0};
    const ScriptedServer server(m_address, [&last](int peer, int) {
        last = 0;
        readPackage(peer);
        CR8KPackageV3 status;
        auto record = makeRecord(1);
        appendUint64(*record, status_tag::LAST_SEQUENCE, 10);
        status.append(std::move(record));
        bool wanted = writeAll(peer, encoded(status));
        while (wanted && !readPackage(peer).empty()) {
            CR8KPackageV3 answer;
            for (int i = 0; i < 20'000; ++i) {
                auto alarm = makeRecord(1);
                appendUint32(*alarm, alarm_tag::SERIAL, ++last);
                answer.append(std::move(alarm));
            }
            wanted = writeAll(peer, encoded(answer));
        }
    });
    m_source.start();
    ASSERT_TRUE(eventually([this] { return !m_log.linesWith("does not end").empty(); }));
    EXPECT_EQ(m_log.linesWith("does not end").front(),
              "warning [events] no subscription at " + m_address.text() + ": the list of active alarms does not end");
    EXPECT_EQ(m_listener.connected(), 0);
}

TEST_F(AlarmEventSourceTest, ARecordWithANumberAndNothingElseIsPassedOn) {
    const PushingServer server(m_address, {PushingServer::push({11})});
    m_source.start();
    ASSERT_TRUE(hasEvents(1));
    EXPECT_EQ(m_listener.cells(), std::vector<std::size_t>{1});
}

TEST_F(AlarmEventSourceTest, AnEventIsReadFromItsRecord) {
    CR8KPackageV3 package;
    auto record = makeRecord(testCommands().subscribeAlarm);
    appendUint64(*record, event_tag::SEQUENCE, 11);
    appendUint64(*record, alarm_tag::ID, 4295032833ULL);
    appendUint32(*record, alarm_tag::LEVEL, 5);
    appendUint32(*record, alarm_tag::SERIAL, 7);
    appendUint64(*record, alarm_tag::ENDED, 1600000000);
    appendText(*record, alarm_tag::PARAMETERS, "CTE0,7");
    package.append(std::move(record));
    const PushingServer server(m_address, {encoded(package), PushingServer::push({12})});
    m_source.start();
    ASSERT_TRUE(hasEvents(2));
    const std::vector<AlarmEvent> events = m_listener.parsed();
    EXPECT_EQ(events[0].sequence, 11U);
    EXPECT_EQ(events[0].alarmId, 4295032833ULL);
    EXPECT_EQ(events[0].level, 5U);
    EXPECT_EQ(events[0].serial, 7U);
    EXPECT_FALSE(events[0].raised);
    EXPECT_EQ(events[0].parameters, "CTE0,7");
    EXPECT_EQ(events[1].sequence, 12U);  // whose record says nothing else
    EXPECT_EQ(events[1].alarmId, 0U);
    EXPECT_EQ(events[1].level, std::nullopt);
    EXPECT_TRUE(events[1].raised);
}

TEST_F(AlarmEventSourceTest, EmptyPackagesAreNoEvents) {
    const PushingServer server(m_address, {answerBytes(0), answerBytes(0), PushingServer::push({11})});
    m_source.start();
    ASSERT_TRUE(hasEvents(1));
    EXPECT_EQ(m_listener.events(), Numbers{11});
    EXPECT_EQ(m_source.counters().events, 1U);
}

TEST_F(AlarmEventSourceTest, GarbageEndsTheConnectionAndAnotherOneIsMade) {
    const PushingServer server(m_address, {Bytes(100, 'x')});
    m_source.start();
    ASSERT_TRUE(eventually([this] { return m_listener.disconnected() >= 2; }));
    EXPECT_EQ(m_log.linesWith("no subscription").front(),
              "warning [events] no subscription at " + m_address.text() + ": bytes that do not begin a package");
}

TEST_F(AlarmEventSourceTest, ASilentBackendIsLeft) {
    const PushingServer server(m_address, {});
    m_source.start();
    ASSERT_TRUE(eventually([&server] { return server.connections() >= 2; }));
    EXPECT_EQ(m_log.linesWith("no subscription").front(),
              "warning [events] no subscription at " + m_address.text() + ": the backend is silent");
}

TEST_F(AlarmEventSourceTest, AnIdleBackendIsNotLeft) {
    startBackend();
    m_source.start();
    ASSERT_TRUE(isConnected());
    // Longer than the silence that makes a source give up.
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(8);
    EXPECT_TRUE(eventually([end] { return std::chrono::steady_clock::now() > end; }));
    EXPECT_EQ(m_listener.connected(), 1);
    EXPECT_EQ(m_listener.disconnected(), 0);
}

TEST_F(AlarmEventSourceTest, ABackendThatRefusesIsAskedAgain) {
    const ScriptedServer server(m_address,
                                [](int peer, int) { answerAll(peer, answerBytes(BACKEND_UNKNOWN_COMMAND)); });
    m_source.start();
    ASSERT_TRUE(eventually([&server] { return server.connections() >= 3; }));
    m_source.stop();
    EXPECT_EQ(m_listener.connected(), 0);
    EXPECT_EQ(m_listener.disconnected(), 0);
    EXPECT_EQ(m_log.linesWith("[events]"), std::vector<std::string>{"warning [events] no subscription at " +
                                                                    m_address.text() + ": refused: unknown command"});
}

TEST_F(AlarmEventSourceTest, AnAnswerWithoutTheExpectedRecordEndsTheConnection) {
    const ScriptedServer server(m_address, [](int peer, int) { answerAll(peer, answerBytes(0)); });
    m_source.start();
    ASSERT_TRUE(eventually([&server] { return server.connections() >= 2; }));
    EXPECT_EQ(m_listener.connected(), 0);
}

TEST_F(AlarmEventSourceTest, AListenerThatThrowsGetsTheNextEvent) {
    startBackend();
    m_listener.setHandled(0);
    m_listener.failAt(2);
    m_source.start();
    raise(3);
    ASSERT_TRUE(hasEvents(3));
    EXPECT_EQ(m_listener.events(), (Numbers{1, 2, 3}));
    EXPECT_EQ(m_log.linesWith("onEvent"),
              std::vector<std::string>{"error [events] the listener's onEvent failed: cannot handle it"});
}

TEST_F(AlarmEventSourceTest, StopEndsItWhileNobodyIsThere) {
    m_source.start();
    ASSERT_TRUE(eventually([this] { return !m_log.linesWith("no subscription").empty(); }));
    m_source.stop();
    EXPECT_EQ(m_listener.connected(), 0);
}

TEST_F(AlarmEventSourceTest, StopEndsItWhileItWaitsForAnAnswer) {
    std::atomic<bool> asked{false};
    const ScriptedServer server(m_address, [&asked](int peer, int) {
        readPackage(peer);
        asked = true;
        readPackage(peer);
    });
    m_source.start();
    ASSERT_TRUE(eventually([&asked] { return asked.load(); }));
    m_source.stop();
    EXPECT_EQ(m_listener.connected(), 0);
}

TEST_F(AlarmEventSourceTest, AfterStopAndStartItGoesOnWhereItWas) {
    startBackend();
    m_listener.setHandled(0);
    m_source.start();
    raise(2);
    ASSERT_TRUE(hasEvents(2));
    m_source.stop();
    raise(2);
    m_source.start();
    ASSERT_TRUE(hasEvents(4));
    EXPECT_EQ(m_listener.events(), numbersTo(4));
}

TEST_F(AlarmEventSourceTest, ManyEventsArriveInOrder) {
    startBackend();
    m_listener.setHandled(0);
    m_source.start();
    for (int package = 0; package < 10; ++package) raise(1000);
    ASSERT_TRUE(hasEvents(10'000));
    EXPECT_EQ(m_listener.events(), numbersTo(10'000));
}

}  // namespace vrx
