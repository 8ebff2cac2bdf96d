#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "metrics/platform/Platform.h"
#include "metrics/platform/posix/ProfileText.h"

namespace Metrics::platform {

namespace {

namespace fs = std::filesystem;
using namespace std::string_view_literals;

class ProfileFileTest : public testing::Test {
  protected:
    void SetUp() override { fs::create_directories(folder_); }
    void TearDown() override { fs::remove_all(folder_); }

    std::uint32_t Write() { return SetProfileSection(path_.string(), "s", "a=1\0"sv); }

    fs::path folder_ = fs::temp_directory_path() / ("metrics-ini-" + std::to_string(CurrentProcessId()));
    fs::path path_ = folder_ / "schema.ini";
};

}  // namespace

TEST(ProfileTextTest, OnlyTheSectionsOwnBytesChange) {
    struct Case {
        std::string_view before;
        std::string_view after;
    };
    const Case cases[] = {
        {"", "[s]\na=1\nb=2\n"},
        {"x", "x\n[s]\na=1\nb=2\n"},
        {"; note\n[t]\nx=1", "; note\n[t]\nx=1\n[s]\na=1\nb=2\n"},
        {"[s]\nold=1\n\n[t]\n[u]\n", "[s]\na=1\nb=2\n[t]\n[u]\n"},
        {"[t]\r\n [S] \r\nold=1\r\n", "[t]\r\n[s]\r\na=1\r\nb=2\r\n"},
        {"[s]x]\n[ss]\n[s\n", "[s]x]\n[ss]\n[s\n[s]\na=1\nb=2\n"},
        {"\0\xFF[s]\n"sv, "\0\xFF[s]\n[s]\na=1\nb=2\n"sv},
        {"[s]", "[s]\na=1\nb=2\n"},
    };
    for (const auto& [before, after] : cases) {
        const std::string result = ReplaceProfileSection(before, "s", "a=1\0b=2\0"sv);
        EXPECT_EQ(result, after);
        EXPECT_EQ(ReplaceProfileSection(result, "s", "a=1\0b=2\0"sv), result);
    }
}

TEST_F(ProfileFileTest, AFolderThatAnotherWriterHasLockedIsAnErrorForNow) {
    const int folder = open(folder_.c_str(), O_RDONLY | O_DIRECTORY);
    ASSERT_EQ(flock(folder, LOCK_EX), 0);
    EXPECT_EQ(Write(), static_cast<std::uint32_t>(EWOULDBLOCK));
    close(folder);
    EXPECT_EQ(Write(), 0u);
}

TEST_F(ProfileFileTest, KeepsModeAndLinkAndLeavesNothingBeside) {
    const fs::path real = folder_ / "real.ini";
    std::ofstream(real) << "[t]\n";
    ASSERT_EQ(chmod(real.c_str(), 0640), 0);
    fs::create_symlink("real.ini", path_);
    EXPECT_EQ(Write(), 0u);
    EXPECT_TRUE(fs::is_symlink(path_));
    EXPECT_EQ(fs::status(real).permissions(), fs::perms(0640));
    EXPECT_EQ(std::distance(fs::directory_iterator(folder_), fs::directory_iterator()), 2);
}

TEST_F(ProfileFileTest, WhatIsNoPlainFileIsAnErrorAndIsNotWaitedFor) {
    ASSERT_EQ(mkfifo(path_.c_str(), 0600), 0);
    EXPECT_NE(Write(), 0u);
    fs::remove(path_);
    fs::create_directory(path_);
    EXPECT_NE(Write(), 0u);
}

TEST_F(ProfileFileTest, ASectionNameWithALineEndIsRefused) {
    EXPECT_NE(SetProfileSection(path_.string(), "s]\n[t", "a=1\0"sv), 0u);
    EXPECT_FALSE(fs::exists(path_));
}

}  // namespace Metrics::platform
