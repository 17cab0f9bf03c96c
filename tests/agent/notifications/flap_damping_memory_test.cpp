// The damping of flapping alarms without memory now and then: whatever throws is done again, and nothing is lost.
#include <gtest/gtest.h>

#include <map>
#include <new>
#include <random>
#include <set>
#include <vector>

#include "host/agent/notifications/flap_damping.h"
#include "tests/failing_memory.h"

namespace vrx {

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using Item = FlapDamping::Item;

class Life {
public:
    explicit Life(unsigned int seed) : m_random(seed) {}

    void step() {
        m_now += milliseconds(m_random() % 300);
        take(failing([this] { return m_damping.takeDue(m_now); }));
        const std::size_t object = m_random() % OBJECTS;
        const bool raised = m_standing.count(object) == 0;
        if (raised) m_standing[object] = ++m_lastSerial;
        const FlapDamping::Change change{object, m_standing[object], raised, std::string(50, 'x')};
        if (!raised) m_standing.erase(object);
        m_changes.push_back(change);
        const FlapDamping::Noted noted = failing([&] { return m_damping.change(change, m_now); });
        take(noted.first);
        const Item item = m_changes.size();
        m_open.insert(item);
        take(failing([&] { return m_damping.offer(noted, {0, "a destination of some length"}, item, m_now); }));
        ASSERT_EQ(m_damping.held(), m_open.size());
    }

    void end() {
        for (int interval = 0; interval < 3; ++interval) {
            m_now += seconds(10);
            // What was taken before memory ran out is given at once, the rest with the next call.
            while (m_damping.nextDue() <= m_now) take(failing([this] { return m_damping.takeDue(m_now); }));
        }
        EXPECT_TRUE(m_open.empty());
        EXPECT_EQ(m_told, m_standing);
        EXPECT_GT(m_failures, 100U);
    }

private:
    static constexpr std::size_t OBJECTS = 5;

    template <typename Action>
    auto failing(const Action& action) -> decltype(action()) {
        failing_memory::failAt(1 + m_random() % 8);
        try {
            auto result = action();
            failing_memory::failAt(0);
            return result;
        } catch (const std::bad_alloc&) {
            failing_memory::failAt(0);
            ++m_failures;
            return action();
        }
    }

    void take(const FlapDamping::Verdict& verdict) {
        for (const Item item : verdict.send) {
            EXPECT_EQ(m_open.erase(item), 1U);
            const FlapDamping::Change& change = m_changes[item - 1];
            EXPECT_LT(m_lastTold[change.alarmId], item) << "order";
            m_lastTold[change.alarmId] = item;
            if (change.raised) {
                m_told[change.alarmId] = change.serial;
            } else {
                m_told.erase(change.alarmId);
            }
        }
        for (const Item item : verdict.superseded) EXPECT_EQ(m_open.erase(item), 1U);
    }

    std::mt19937 m_random;
    FlapDamping m_damping{{3, seconds(5), seconds(2)}, 3};
    FlapDamping::Clock::time_point m_now{};
    std::uint32_t m_lastSerial = 0;
    unsigned int m_failures = 0;
    std::vector<FlapDamping::Change> m_changes;
    std::map<std::uint64_t, std::uint32_t> m_standing;
    std::map<std::uint64_t, std::uint32_t> m_told;
    std::map<std::uint64_t, Item> m_lastTold;
    std::set<Item> m_open;
};

}  // namespace

TEST(FlapDampingMemory, NothingIsLostOrOutOfOrderWhereverAnAllocationFails) {
    for (unsigned int seed = 1; seed <= 20; ++seed) {
        Life life(seed);
        for (int step = 0; step < 1000; ++step) life.step();
        life.end();
        if (HasFailure()) FAIL() << "seed " << seed;
    }
}

}  // namespace vrx
