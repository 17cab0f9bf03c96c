#include "module/vrx_exception.h"

#include <gtest/gtest.h>

#include <string>
#include <type_traits>

namespace {

TEST(VrxException, WhatIsThePrefixAndTheMessage) {
    EXPECT_STREQ(CVRX_Exception("open file failed.").what(), "CVRX_Exception: open file failed.");
}

TEST(VrxException, EmptyMessageLeavesThePrefixWithItsBlank) {
    EXPECT_STREQ(CVRX_Exception("").what(), "CVRX_Exception: ");
    EXPECT_EQ(std::string(CVRX_Exception(std::string()).what()).size(), 16u);
}

TEST(VrxException, IsAStandardException) {
    static_assert(std::is_base_of<std::exception, CVRX_Exception>::value, "caught as std::exception");
    try {
        throw CVRX_Exception("text");
    } catch (const std::exception& fault) {
        EXPECT_STREQ(fault.what(), "CVRX_Exception: text");
    }
}

TEST(VrxException, CopyKeepsItsOwnMessage) {
    CVRX_Exception copy("");
    {
        CVRX_Exception original("a message that is longer than any small string");
        copy = original;
    }
    EXPECT_STREQ(copy.what(), "CVRX_Exception: a message that is longer than any small string");
}

}  // namespace
