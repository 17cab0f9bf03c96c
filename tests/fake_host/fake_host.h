// A small and total host: every service of platform/ for unit tests, on the test's stack.
//
//     FakeHost host;                                        // installs itself, restores the one before on exit
//     host.setConfig("COMMAND", "CLEAR_ALARM", "12345");
//     host.backend().answer(0);
//     ... run the code under test ...
//     EXPECT_THAT(host.log().lines(), Contains("warn 0x1002E clear alarm of serial number:42, ret:0."));
//
// What a test did not prepare is answered loudly: a test failure that names the service. Log lines without a FakeHost
// are dropped.
//
// Threads: log, configuration, backend, trap API and dispatcher may be used from any thread. Prepare the rest before
// threads start, and end them before the FakeHost ends.
#pragma once

#include <atomic>
#include <deque>
#include <functional>
#include <list>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "platform/notify_handler.h"
#include "platform/trap_dest_info.h"
#include "platform/vrx_snmp_context.h"
#include "tests/fake_host/tlv_builders.h"
#include "vrxpub/vrx_message_package.h"

class CVRX_SnmpContext {};

// One line that the module logged.
struct FakeLogLine {
    std::string kind;  // "trace", "debug", "warn", "error"
    unsigned int module;
    unsigned long long code;  // 0 for trace
    std::string function;     // empty for trace
    unsigned int line;        // 0 for trace
    std::string text;         // formatted

    // "trace enter f...", "error 0x1002E failed to get all trap."
    std::string toString() const;
};

// Each line is looked at when it comes: it has the module's number (or the host's own, 0), and between the trace lines
// of a scope it names the function of the scope's signature.
class FakeLog {
public:
    std::vector<FakeLogLine> entries() const;
    std::vector<std::string> lines() const;                         // all, as FakeLogLine::toString
    std::vector<std::string> lines(const std::string& kind) const;  // of one kind
    std::vector<std::string> linesWithoutTrace() const;
    void clear();

    void add(FakeLogLine line);

    // For tests of the guard itself: lines of all modules are as good.
    void takeAnyModule() { m_takesAnyModule = true; }

    // Lines of these kinds are said to go nowhere; those that come all the same are kept.
    void refuse(std::set<std::string> kinds);
    bool takes(const std::string& kind) const;

private:
    void expectSound(const FakeLogLine& line) const;

    std::atomic<bool> m_takesAnyModule{false};
    mutable std::mutex m_mutex;
    std::set<std::string> m_refused;
    std::vector<FakeLogLine> m_lines;
};

// The management backend that CSNMP_Configuration talks to.
class FakeBackend {
public:
    using Answer = std::function<int(CR8KPackageV3& request, CR8KPackageV3& response)>;

    // Prepare the answer to the next call that has none: a result and records, or a function (which may throw).
    void answer(int result, std::vector<TlvRecord> records = {});
    void answer(Answer function);
    // Answers every call for which no other answer is prepared.
    void answerAlways(Answer function);

    // All records sent so far, of all calls, and one list per call.
    std::vector<TlvRecord> sent() const;
    std::vector<std::vector<TlvRecord>> requests() const;
    std::vector<bool> retryArguments() const;  // one per call

    int configure(CR8KPackageV3& request, CR8KPackageV3& response, bool retry);

private:
    mutable std::mutex m_mutex;
    std::deque<Answer> m_answers;
    Answer m_always;
    std::vector<std::vector<TlvRecord>> m_requests;
    std::vector<bool> m_retries;
};

// The list of trap destinations: shows what a test puts in, records what it is asked to change.
class FakeTrapApi {
public:
    using Change = std::function<int(const tTrapDestInfo&)>;
    using Check = std::function<bool(tTrapDestInfo&)>;
    using AddressCheck = std::function<bool(const std::string&)>;

    FakeTrapApi();

    std::list<tTrapDestInfo> destinations;  // what getAllTrapAddr appends; calls do not change it
    std::function<int()> onList;            // result of getAllTrapAddr; other than 0: nothing is appended
    Change onCreate, onModify, onDelete;    // results of the calls; 0 at first

    // At first: any address that is not empty and not "bad"; an index that `destinations` holds; ports 1 to 65535,
    // versions 1 to 3, types 1 to 4; any user but "bad"; every address connected.
    AddressCheck checkAddress, isConnected;
    Check checkIndex, checkPort, checkVersion, checkType, checkUser;

    // Calls in order: "list", "create", "modify", "delete" and the destination (default for "list"); "checkAddress",
    // "checkIndex" and so on with what was looked at.
    struct Call {
        std::string operation;
        tTrapDestInfo destination;
    };
    std::vector<Call> calls() const;
    std::vector<Call> calls(const std::string& operation) const;
    std::vector<Call> changes() const;            // creates, modifies and deletes
    std::vector<std::string> operations() const;  // names of all calls

    void record(const std::string& operation, const tTrapDestInfo& destination);

private:
    mutable std::mutex m_mutex;
    std::vector<Call> m_calls;
};

bool operator==(const tTrapDestInfo& a, const tTrapDestInfo& b);
std::ostream& operator<<(std::ostream& os, const tTrapDestInfo& destination);

class FakeHost {
public:
    FakeHost();
    ~FakeHost();
    FakeHost(const FakeHost&) = delete;
    FakeHost& operator=(const FakeHost&) = delete;

    static FakeHost* current();  // the innermost; null when there is none

    FakeLog& log() { return m_log; }
    FakeBackend& backend() { return m_backend; }
    FakeTrapApi& trapApi() { return m_trapApi; }

    void setConfig(const std::string& section, const std::string& key, const std::string& value);
    std::string config(const std::string& section, const std::string& key) const;  // "" when it is not set
    // Keys that were asked for, "SECTION/KEY", in order.
    std::vector<std::string> configReads() const;

    // The product root; at first an empty temporary directory that goes with the FakeHost.
    std::string root();
    void setRoot(const std::string& path);
    // Writes a file below the root, with the folders that it needs, and returns its full path.
    std::string writeFile(const std::string& path, const std::string& content);

    // Node facts; at first "NODE0001", 1, 7700, "PSN0001", "storage-1".
    void setNodeCode(std::optional<std::string> code);  // nothing: the host knows none
    void setNodeType(unsigned int type);
    void setDeviceType(int type);
    void setProductSn(const std::string& number);
    void setSystemName(const std::string& name);

    // From now on times cannot be converted: both conversions say nothing and leave what they were given.
    void failTimeConversions();

    // From now on SplitToStr leaves out empty pieces, as a host may.
    void dropEmptyPieces() { m_dropsEmptyPieces = true; }
    // From now on StrToUint makes this number of a text that does not begin with one, as a host may; before that 0.
    void readOtherTextsAs(unsigned int number) { m_otherTextsNumber = number; }
    // From now on memcpy_s refuses and copies nothing.
    void refuseCopies() { m_refusesCopies = true; }

    // The dispatcher. Handlers that are still registered when the FakeHost ends are deleted by it: delete those of an
    // unloaded module before (deleteHandlers).
    CNotifyHandler& dispatcher() { return m_dispatcher; }
    void deleteHandlers();
    // CNotifyHandler::instance() throws std::runtime_error from its n-th next call on, counting from 1; 0: never.
    void failDispatcherAtCall(unsigned int n);

private:
    friend struct FakeHostAccess;

    FakeHost* m_previous;
    FakeLog m_log;
    FakeBackend m_backend;
    FakeTrapApi m_trapApi;
    CNotifyHandler m_dispatcher;
    std::atomic<unsigned int> m_dispatcherFailsAt{0};

    mutable std::mutex m_mutex;  // guards the configuration and the root
    std::map<std::pair<std::string, std::string>, std::string> m_config;
    mutable std::vector<std::string> m_configReads;

    std::string m_root;
    std::string m_temporaryRoot;
    std::optional<std::string> m_nodeCode = "NODE0001";
    unsigned int m_nodeType = 1;
    std::string m_systemName = "storage-1";
    bool m_timeConversionsFail = false;
    bool m_dropsEmptyPieces = false;
    unsigned int m_otherTextsNumber = 0;
    bool m_refusesCopies = false;
    int m_previousDeviceType;
    std::string m_previousProductSn;
};
