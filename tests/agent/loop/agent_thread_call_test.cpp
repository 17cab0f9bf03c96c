#include "host/agent/loop/agent_thread_call.h"

#include <gtest/gtest.h>

#include <future>
#include <stdexcept>
#include <string>
#include <thread>

namespace vrx {

namespace {

using std::chrono::milliseconds;
using std::chrono::minutes;

class AgentThreadCallTest : public testing::Test {
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
    AgentThreadCall m_caller{m_loop};
};

TEST_F(AgentThreadCallTest, WorkIsDoneOnTheLoopsThreadAndItsResultComesBack) {
    std::thread::id where;
    EXPECT_EQ(outcomeOf([&] { where = m_caller.call<std::thread::id>([] { return std::this_thread::get_id(); }); }),
              "");
    EXPECT_EQ(where, std::this_thread::get_id());
}

TEST_F(AgentThreadCallTest, WhatTheWorkThrowsIsThrown) {
    EXPECT_EQ(outcomeOf([&] { m_caller.call<int>([]() -> int { throw std::runtime_error("no luck"); }); }), "no luck");
}

TEST_F(AgentThreadCallTest, WorkMayFinishLater) {
    bool finished = false;
    EXPECT_EQ(outcomeOf([&] {
                  m_caller.run(
                      [&](const AgentThreadCall::Finished& done) {
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

TEST_F(AgentThreadCallTest, AnAgentWithoutTimeIsBusy) {
    EXPECT_EQ(outcomeOf([&] { m_caller.run([](const AgentThreadCall::Finished&) {}, milliseconds(1)); }),
              "the agent is busy");
}

TEST_F(AgentThreadCallTest, WhoeverWaitsIsLetGoAtTheEndAndNobodyWaitsAfterIt) {
    EXPECT_EQ(outcomeOf([&] { m_caller.run([&](const AgentThreadCall::Finished&) { m_caller.end(); }, minutes(1)); }),
              "the agent is ending");
    EXPECT_EQ(outcomeOf([&] { m_caller.run([&](const AgentThreadCall::Finished&) {}, minutes(1)); }),
              "the agent is ending");
}

}  // namespace

}  // namespace vrx
