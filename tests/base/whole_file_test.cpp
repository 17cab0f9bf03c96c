#include "host/base/whole_file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <system_error>

#include "tests/base/temporary_root.h"

namespace vrx {

namespace {

constexpr std::size_t LIMIT = 100;

class WholeFileTest : public testing::Test {
protected:
    std::string reasonOf(const std::string& path) {
        try {
            (void)readWholeFile(path, LIMIT);
            return "";
        } catch (const WholeFileError& error) {
            return error.what();
        }
    }

    TemporaryRoot m_root;
    const std::string m_path = m_root.pathOf("file");
};

TEST_F(WholeFileTest, IsReadUpToItsLimit) {
    for (const std::size_t size : {std::size_t{0}, std::size_t{1}, LIMIT}) {
        m_root.write("file", std::string(size, 'x'));
        EXPECT_EQ(readWholeFile(m_path, LIMIT), std::string(size, 'x'));
    }
    m_root.write("file", std::string(LIMIT + 1, 'x'));
    EXPECT_EQ(reasonOf(m_path), m_path + ": larger than 100 bytes");
}

TEST_F(WholeFileTest, OnlyAMissingFileIsNone) {
    EXPECT_EQ(readWholeFile(m_path, LIMIT), std::nullopt);
    std::filesystem::create_symlink("nowhere", m_path);
    EXPECT_EQ(reasonOf(m_path), m_path + ": No such file or directory");
}

TEST_F(WholeFileTest, PipesDevicesAndFoldersAreNotReadNorWaitedFor) {
    ASSERT_EQ(mkfifo(m_path.c_str(), 0600), 0);
    for (const std::string& path : {m_path, std::string("/dev/zero"), m_root.path()}) {
        EXPECT_EQ(reasonOf(path), path + ": not a regular file");
    }
}

TEST_F(WholeFileTest, ReplacingKeepsTheModeAndANewFileIsItsOwnersAlone) {
    replaceWholeFile(m_path, "first");
    struct stat status {};
    ASSERT_EQ(stat(m_path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
    chmod(m_path.c_str(), 0640);
    replaceWholeFile(m_path, "second");
    ASSERT_EQ(stat(m_path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0640U);
    EXPECT_EQ(m_root.read("file"), "second");
    EXPECT_FALSE(std::filesystem::exists(m_path + ".new"));
}

TEST_F(WholeFileTest, WhatCannotBeReplacedStays) {
    m_root.write("file", "first");
    std::filesystem::create_directories(m_path + ".new/full");
    EXPECT_THROW(replaceWholeFile(m_path, "second"), std::system_error);
    EXPECT_EQ(m_root.read("file"), "first");
}

TEST_F(WholeFileTest, SeveralAreReplacedWhenAllCouldBeWritten) {
    const std::string second = m_root.pathOf("second");
    m_root.write("file", "old");
    replaceWholeFiles({{m_path, "first"}, {second, "second"}}, false);
    EXPECT_EQ(m_root.read("file"), "first");
    EXPECT_EQ(m_root.read("second"), "second");
    EXPECT_THROW(replaceWholeFiles({{m_path, "third"}, {m_root.pathOf("absent/file"), ""}}, false), std::system_error);
    EXPECT_EQ(m_root.read("file"), "first");
    EXPECT_FALSE(std::filesystem::exists(m_path + ".new"));
}

TEST_F(WholeFileTest, NewFilesThatAreNotPrivateHaveTheModeOfTheProcess) {
    const mode_t before = umask(022);
    replaceWholeFiles({{m_path, "text"}}, false);
    umask(before);
    struct stat status {};
    ASSERT_EQ(stat(m_path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0644U);
}

TEST_F(WholeFileTest, PathWithoutAFolderIsOneOfTheWorkingDirectory) {
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(m_root.path());
    replaceWholeFile("file", "text");
    std::filesystem::current_path(before);
    EXPECT_EQ(m_root.read("file"), "text");
}

}  // namespace

}  // namespace vrx
