// Names that are watched while no thread can be made for their look-ups.
#include <gtest/gtest.h>

#include <future>
#include <new>
#include <string>

#include "host/agent/delivery/name_resolver.h"
#include "tests/failing_memory.h"

namespace vrx {

TEST(NameResolverMemory, NamesAreLookedUpOnceThereIsAThread) {
    std::promise<std::string> answered;
    NameResolver resolver(
        std::chrono::hours(1),
        [&answered](const std::string&, const std::string& address) { answered.set_value(address); },
        [](const std::string& name) { return "address of " + name; });
    failing_memory::failThreads(true);
    EXPECT_THROW(resolver.watch({"a"}), std::bad_alloc);
    EXPECT_THROW(resolver.watch({"a"}), std::bad_alloc);
    failing_memory::failThreads(false);
    resolver.watch({"a"});
    std::future<std::string> address = answered.get_future();
    ASSERT_EQ(address.wait_for(std::chrono::seconds(60)), std::future_status::ready);
    EXPECT_EQ(address.get(), "address of a");
}

TEST(NameResolverMemory, WithoutNamesNoThreadIsWanted) {
    failing_memory::failThreads(true);
    NameResolver resolver(
        std::chrono::hours(1), [](const std::string&, const std::string&) {}, [](const std::string&) { return ""; });
    EXPECT_NO_THROW(resolver.watch({}));
    failing_memory::failThreads(false);
}

}  // namespace vrx
