#include "host/base/fault_line.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <new>
#include <string>
#include <thread>
#include <vector>

namespace vrx {

namespace {

using testing::ElementsAre;

class FaultLineTest : public testing::Test {
protected:
    void begin() {
        m_fault.begins([this] { tell("begins"); });
    }
    void end() {
        m_fault.ends([this] { tell("ends"); });
    }

    FaultLine m_fault;
    std::vector<std::string> m_told;
    bool m_memory = true;

private:
    void tell(const char* text) {
        if (!m_memory) throw std::bad_alloc();
        m_told.emplace_back(text);
    }
};

}  // namespace

TEST_F(FaultLineTest, IsOneLineWhenItBeginsAndOneWhenItEnds) {
    end();
    EXPECT_FALSE(m_fault.lasts());
    for (int i = 0; i < 3; ++i) begin();
    EXPECT_TRUE(m_fault.lasts());
    for (int i = 0; i < 3; ++i) end();
    EXPECT_FALSE(m_fault.lasts());
    begin();
    EXPECT_THAT(m_told, ElementsAre("begins", "ends", "begins"));
}

TEST_F(FaultLineTest, ALineWithoutMemoryIsDueAgain) {
    m_memory = false;
    begin();
    EXPECT_FALSE(m_fault.lasts());
    m_memory = true;
    begin();
    m_memory = false;
    end();
    EXPECT_TRUE(m_fault.lasts());
    m_memory = true;
    end();
    EXPECT_THAT(m_told, ElementsAre("begins", "ends"));
}

TEST_F(FaultLineTest, MayEndWithoutALine) {
    begin();
    m_fault.ends();
    end();
    begin();
    EXPECT_THAT(m_told, ElementsAre("begins", "begins"));
}

TEST_F(FaultLineTest, OneOfManyThreadsTells) {
    std::atomic<int> lines{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int times = 0; times < 1000; ++times) m_fault.begins([&] { ++lines; });
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(lines, 1);
}

}  // namespace vrx
