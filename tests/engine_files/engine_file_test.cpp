#include "host/engine_files/engine_file.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>

#include "tests/base/temporary_root.h"

namespace vrx {

namespace {

using engine_file::stateFault;

constexpr const char* USER =
    "usmUser 1 3 0x8001861f05d9033f6f50a80fff \"admin\" \"admin\" NULL .1.3 0x68 .1.3 0x50 \"\"\n";
constexpr const char* COUNT = "engineBoots 3\n";
constexpr const char* END = "oldEngineID 0x8001861f05d9033f6f50a80fff\n";

TEST(EngineFileTest, AStateIsWholeWithCountAndEnd) {
    EXPECT_EQ(stateFault(std::string("# head\n\n") + USER + COUNT + END), "");
    EXPECT_EQ(stateFault(std::string(COUNT) + END), "");
    EXPECT_EQ(stateFault(std::string(USER) + COUNT + END + "createUser late SHA \"passphrase\"\n"), "");
}

TEST(EngineFileTest, WhatVrxctlLeavesBeforeTheFirstStartIsWhole) {
    EXPECT_EQ(stateFault("createUser oncall SHA-256 \"passphrase\" AES \"passphrase\"\n"), "");
}

TEST(EngineFileTest, EveryCutIsNoticed) {
    const std::string whole = std::string("# head\n") + USER + COUNT + END;
    for (std::size_t size = 0; size < whole.size(); ++size) EXPECT_NE(stateFault(whole.substr(0, size)), "") << size;
}

TEST(EngineFileTest, ACountThatIsNoneOrZeroBytesAreNoticed) {
    EXPECT_NE(stateFault(std::string("engineBoots\n") + END), "");
    EXPECT_NE(stateFault(std::string("engineBoots x\n") + END), "");
    EXPECT_NE(stateFault(std::string(COUNT) + "oldEngineID 0x80\n"), "");
    EXPECT_NE(stateFault(std::string(USER) + std::string(100, '\0') + "\n" + COUNT + END), "");
}

TEST(EngineFileTest, AnEngineIdHas5To32Octets) {
    EXPECT_TRUE(engine_file::isEngineId("0x8000000001"));
    EXPECT_TRUE(engine_file::isEngineId("0X" + std::string(64, 'f')));
    for (const std::string text : {"", "0x", "zz", "0xzz00000001", "0x80000000", "0x800000000", "8000000001"}) {
        EXPECT_FALSE(engine_file::isEngineId(text)) << text;
    }
    EXPECT_FALSE(engine_file::isEngineId("0x" + std::string(66, 'f')));
}

TEST(EngineFileTest, EveryCutOfAnEngineIdIsNoticed) {
    const TemporaryRoot root;
    const std::string whole = "exactEngineID 0x8001861f05d9033f6f50a80fff\n";
    const std::string file = root.write("id", whole);
    EXPECT_EQ(engine_file::readEngineId(file), whole);
    for (std::size_t size = 0; size < whole.size(); ++size) {
        root.write("id", whole.substr(0, size));
        EXPECT_THROW((void)engine_file::readEngineId(file), WholeFileError) << size;
        root.write("id", whole.substr(0, size) + "\n");  // as an editor ends it
        if (size == whole.size() - 1) continue;
        EXPECT_THROW((void)engine_file::readEngineId(file), WholeFileError) << size;
    }
    root.write("id", whole + whole);
    EXPECT_THROW((void)engine_file::readEngineId(file), WholeFileError);
    root.write("id", "# of another agent\nexactEngineID 0x80001f8804616263\n");
    EXPECT_TRUE(engine_file::readEngineId(file));
}

TEST(EngineFileTest, TheCopyStaysWhereTheFileIsNotWhole) {
    const TemporaryRoot root;
    const std::string whole = std::string(COUNT) + END;
    const std::string file = root.write("state.conf", whole);
    engine_file::keepLastGoodCopy(file);
    EXPECT_EQ(root.read("state.conf.last"), whole);
    root.write("state.conf", COUNT);
    engine_file::keepLastGoodCopy(file);
    EXPECT_EQ(root.read("state.conf.last"), whole);
}

TEST(EngineFileTest, AReplacedStateIsTheLastGoodCopy) {
    const TemporaryRoot root;
    const std::string first = std::string(COUNT) + END;
    const std::string second = first + "# more\n";
    const std::string file = root.pathOf("state.conf");
    engine_file::replaceState(file, first);
    EXPECT_EQ(root.read("state.conf"), first);
    EXPECT_FALSE(std::filesystem::exists(file + ".last"));
    std::filesystem::permissions(file, std::filesystem::perms(0644));  // as a restore may leave it
    engine_file::replaceState(file, second);
    EXPECT_EQ(root.read("state.conf"), second);
    EXPECT_EQ(std::filesystem::status(file).permissions(), std::filesystem::perms(0600));
    EXPECT_EQ(root.read("state.conf.last"), first);
    EXPECT_FALSE(std::filesystem::exists(file + ".new"));
    root.write("state.conf", COUNT);
    engine_file::replaceState(file, second);
    EXPECT_EQ(root.read("state.conf"), second);
    EXPECT_EQ(root.read("state.conf.last"), first);
}

TEST(EngineFileTest, OneHoldsTheStateAtATime) {
    const TemporaryRoot root;
    using std::chrono::milliseconds;
    FileDescriptor first = engine_file::lockState(root.path(), milliseconds(0));
    EXPECT_TRUE(first);
    EXPECT_FALSE(engine_file::lockState(root.path(), milliseconds(0)));
    first = FileDescriptor();
    EXPECT_TRUE(engine_file::lockState(root.path(), milliseconds(0)));
}

}  // namespace

}  // namespace vrx
