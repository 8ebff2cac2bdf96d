#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "metrics/platform/Platform.h"

namespace Metrics::platform {

namespace {

namespace fs = std::filesystem;
using namespace std::string_view_literals;

class ProfileFileTest : public testing::Test {
  protected:
    void SetUp() override { fs::create_directories(folder_); }
    void TearDown() override { fs::remove_all(folder_); }

    std::uint32_t Write(const std::string& section = "s") {
        return SetProfileSection(path_.string(), section, "a=1\0"sv);
    }
    // In place, as some editors do.
    void Fill(std::string_view text) { std::ofstream(path_, std::ios::binary) << text; }
    std::string Text() const {
        std::ifstream file(path_, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    fs::path folder_ = fs::temp_directory_path() / ("metrics-ini-" + std::to_string(CurrentProcessId()));
    fs::path path_ = folder_ / "schema.ini";
};

}  // namespace

// Each case finds the file as the case before left it known, and changed behind the writer's back.
TEST_F(ProfileFileTest, OnlyTheSectionsOwnBytesChange) {
    struct Case {
        std::string_view before;
        std::string_view after;
    };
    const Case cases[] = {
        {"", "[s]\na=1\n"},
        {"x", "x\n[s]\na=1\n"},
        {"; note\n[t]\nx=1", "; note\n[t]\nx=1\n[s]\na=1\n"},
        {"[s]\nold=1\n\n[t]\n[u]\n", "[s]\na=1\n[t]\n[u]\n"},
        {"[t]\r\n [S] \r\nold=1\r\n", "[t]\r\n[s]\r\na=1\r\n"},
        {"[s]x]\n[ss]\n[s\n", "[s]x]\n[ss]\n[s\n[s]\na=1\n"},
        {"\0\xFF[s]\n"sv, "\0\xFF[s]\n[s]\na=1\n"sv},
        {"[s]", "[s]\na=1\n"},
        {"[s]\na=1\n[t]\n[s]\nb=2\n", "[s]\na=1\n[t]\n[s]\nb=2\n"},  // the first of a name counts
    };
    for (const auto& [before, after] : cases) {
        Fill(before);
        EXPECT_EQ(Write(), 0u);
        EXPECT_EQ(Text(), after);
        EXPECT_EQ(Write(), 0u);
        EXPECT_EQ(Text(), after);
    }
}

TEST_F(ProfileFileTest, WhatOthersChangeMeanwhileIsSeen) {
    const std::string own = "[s]\na=1\n";
    for (const std::string before : {"", "[t]\n", "[s]\nb=2\n[t]\n"}) {
        struct Change {
            std::string from;  // the text from here on is replaced
            std::string by;
        };
        for (const Change& change : {Change{"", "x\n[t]\n"},
                                     {"", ""},
                                     {own, ""},
                                     {own, "[S]\na=1\n"},
                                     {own, own + "more=1\n[u]\n"},
                                     {own, own + "[s]\nlater=1\n"}}) {
            Fill(before);
            ASSERT_EQ(Write(), 0u);
            ASSERT_EQ(Write("u"), 0u);
            std::string text = Text();
            text.replace(text.find(change.from), std::string::npos, change.by);
            Fill(text);
            ASSERT_EQ(Write(), 0u);
            ASSERT_EQ(Write("u"), 0u);
            const std::string known = Text();
            fs::rename(path_, folder_ / "kept.ini");
            Fill(text);
            ASSERT_EQ(Write(), 0u);
            ASSERT_EQ(Write("u"), 0u);
            EXPECT_EQ(known, Text()) << "instead of\n" << text;
        }
    }
}

// Ten thousand tables of one folder would rewrite each other's sections ten thousand times.
TEST_F(ProfileFileTest, ANewSectionIsAppendedAChangedOneMakesANewFile) {
    ASSERT_EQ(Write("t"), 0u);
    fs::create_hard_link(path_, folder_ / "link.ini");
    EXPECT_EQ(Write(), 0u);
    EXPECT_TRUE(fs::equivalent(path_, folder_ / "link.ini"));
    EXPECT_EQ(SetProfileSection(path_.string(), "t", "b=2\0"sv), 0u);
    EXPECT_FALSE(fs::equivalent(path_, folder_ / "link.ini"));
    EXPECT_EQ(Text(), "[t]\nb=2\n[s]\na=1\n");
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
