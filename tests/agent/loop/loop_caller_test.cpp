#include "host/agent/loop/loop_caller.h"

#include <gtest/gtest.h>

#include <future>
#include <stdexcept>
#include <string>
#include <thread>

namespace {

using std::chrono::milliseconds;
using std::chrono::minutes;

class LoopCallerTest : public testing::Test {
protected:
    // What run() ends with, asked from another thread while the loop turns: "" or the exception's text.
    template <typename Call>
    std::string outcomeOf(Call call) {
        std::future<std::string> outcome = std::async(std::launch::async, [&] {
            std::string text;
            try {
                call();
            } catch (const std::exception& error) {
                text = error.what();
            }
            m_loop.stop();
            return text;
        });
        m_loop.run();
        return outcome.get();
    }

    AgentLoop m_loop;
    LoopCaller m_caller{m_loop};
};

TEST_F(LoopCallerTest, WorkIsDoneOnTheLoopsThreadAndItsResultComesBack) {
    std::thread::id where;
    EXPECT_EQ(outcomeOf([&] { where = m_caller.call<std::thread::id>([] { return std::this_thread::get_id(); }); }),
              "");
    EXPECT_EQ(where, std::this_thread::get_id());
}

TEST_F(LoopCallerTest, WhatTheWorkThrowsIsThrown) {
    EXPECT_EQ(outcomeOf([&] { m_caller.call<int>([]() -> int { throw std::runtime_error("no luck"); }); }), "no luck");
}

TEST_F(LoopCallerTest, WorkMayFinishLater) {
    bool finished = false;
    EXPECT_EQ(outcomeOf([&] {
                  m_caller.run(
                      [&](const LoopCaller::Finished& done) {
                          m_loop.runAfter(milliseconds(1), [&finished, done] {
                              finished = true;
                              done();
                          });
                      },
                      minutes(1));
              }),
              "");
    EXPECT_TRUE(finished);
}

TEST_F(LoopCallerTest, AnAgentWithoutTimeIsBusy) {
    EXPECT_EQ(outcomeOf([&] { m_caller.run([](const LoopCaller::Finished&) {}, milliseconds(1)); }),
              "the agent is busy");
}

TEST_F(LoopCallerTest, WhoeverWaitsIsLetGoAtTheEndAndNobodyWaitsAfterIt) {
    EXPECT_EQ(outcomeOf([&] { m_caller.run([&](const LoopCaller::Finished&) { m_caller.end(); }, minutes(1)); }),
              "the agent is ending");
    EXPECT_EQ(outcomeOf([&] { m_caller.run([&](const LoopCaller::Finished&) {}, minutes(1)); }), "the agent is ending");
}

}  // namespace
