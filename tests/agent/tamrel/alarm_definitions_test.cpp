#include "host/agent/tamrel/alarm_definitions.h"

#include <gtest/gtest.h>

#include <chrono>
#include <new>
#include <stdexcept>
#include <string>

namespace vrx {

namespace {

using namespace std::chrono_literals;

class AlarmDefinitionsTest : public testing::Test {
protected:
    // Definitions whose files are at fault for as long as `m_reason` is not empty.
    AlarmDefinitions make(std::chrono::milliseconds pause) {
        const auto load = [this] {
            ++m_loads;
            if (m_noMemory) throw std::bad_alloc();
            if (!m_reason.empty()) throw std::runtime_error(m_reason);
        };
        const auto reload = [this] {
            ++m_reloads;
            if (!m_reason.empty()) throw std::runtime_error(m_reason);
        };
        return AlarmDefinitions(load, reload, pause);
    }
    static std::string logged() {
        std::string text = testing::internal::GetCapturedStderr();
        std::string lines;
        for (std::size_t at = 0; at < text.size();) {
            const std::size_t end = text.find('\n', at);
            lines += text.substr(text.find(' ', at) + 1, end - text.find(' ', at));  // without the time
            at = end + 1;
        }
        return lines;
    }

    std::string m_reason;
    bool m_noMemory = false;
    int m_loads = 0;
    int m_reloads = 0;
};

}  // namespace

TEST_F(AlarmDefinitionsTest, LoadedOnesHaveNoFault) {
    AlarmDefinitions definitions = make(1h);
    EXPECT_EQ(definitions.fault(), std::nullopt);
    EXPECT_EQ(definitions.lastFault(), std::nullopt);
}

TEST_F(AlarmDefinitionsTest, AFaultIsNotTriedAgainWithinThePause) {
    AlarmDefinitions definitions = make(1h);
    m_reason = "no file";
    for (int i = 0; i < 2000; ++i) EXPECT_EQ(definitions.fault(), "no file");
    EXPECT_EQ(m_loads, 1);
}

TEST_F(AlarmDefinitionsTest, AFaultIsTriedAgainAfterThePause) {
    AlarmDefinitions definitions = make(0ms);
    m_reason = "no file";
    EXPECT_EQ(definitions.fault(), "no file");
    m_reason = "another one";
    EXPECT_EQ(definitions.fault(), "another one");
    m_reason.clear();
    EXPECT_EQ(definitions.fault(), std::nullopt);
    EXPECT_EQ(m_loads, 3);
}

TEST_F(AlarmDefinitionsTest, OneLineTellsOfTheFaultAndOneOfItsEnd) {
    testing::internal::CaptureStderr();
    AlarmDefinitions definitions = make(0ms);
    EXPECT_EQ(definitions.fault(), std::nullopt);
    m_reason = "open config file(x) failed.\nNo file.";
    for (int i = 0; i < 3; ++i) (void)definitions.fault();
    m_reason.clear();
    for (int i = 0; i < 3; ++i) (void)definitions.fault();
    EXPECT_EQ(logged(),
              "error [agent] the alarm definitions cannot be loaded: open config file(x) failed. No file. Alarm events "
              "wait for them, and the table of alarms cannot be read\n"
              "info [agent] the alarm definitions are loaded again\n");
}

TEST_F(AlarmDefinitionsTest, AReloadEndsTheFaultAtOnce) {
    AlarmDefinitions definitions = make(1h);
    m_reason = "no file";
    EXPECT_EQ(definitions.fault(), "no file");
    m_reason.clear();
    definitions.reload();
    EXPECT_EQ(definitions.fault(), std::nullopt);
    EXPECT_EQ(m_reloads, 1);
}

TEST_F(AlarmDefinitionsTest, AReloadOfFilesAtFaultThrowsAndIsRemembered) {
    AlarmDefinitions definitions = make(1h);
    EXPECT_EQ(definitions.fault(), std::nullopt);
    m_reason = "no file";
    EXPECT_THROW(definitions.reload(), std::runtime_error);
    EXPECT_EQ(definitions.fault(), "no file");
    EXPECT_EQ(m_loads, 1);
}

TEST_F(AlarmDefinitionsTest, NoMemoryIsNoFaultOfTheFiles) {
    AlarmDefinitions definitions = make(1h);
    m_noMemory = true;
    EXPECT_THROW((void)definitions.fault(), std::bad_alloc);
    m_noMemory = false;
    EXPECT_EQ(definitions.fault(), std::nullopt);
}

}  // namespace vrx
