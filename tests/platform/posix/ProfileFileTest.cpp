#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string_view>
#include <utility>

#include "metrics/platform/Platform.h"
#include "tests/support/FolderTest.h"

namespace Metrics::platform {

namespace fs = std::filesystem;
using namespace std::string_view_literals;

// A profile file in a folder of its own, gone at the end.
class ProfileFileTest : public Testing::FolderTest {
  protected:
    std::uint32_t Write(const std::string& section = "s", std::string_view entries = "a=1\0"sv) {
        return Write(std::vector<ProfileSection>{{section, std::string(entries)}});
    }
    std::uint32_t Write(const std::vector<ProfileSection>& sections) {
        return SetProfileSections(path_.string(), sections);
    }
    // In place, as some editors do.
    void Fill(std::string_view text) { std::ofstream(path_) << text; }
    std::string Text() const { return Testing::ReadFile(path_); }

    fs::path path_ = folder_ / "schema.ini";
};

// Each case finds the file as the case before left it known, and changed behind the writer's back.
TEST_F(ProfileFileTest, OnlyTheSectionsOwnBytesChange) {
    const std::pair<std::string_view, std::string_view> cases[] = {
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
        for (int time = 0; time < 2; ++time) {
            EXPECT_EQ(Write(), 0u);
            EXPECT_EQ(Text(), after);
        }
    }
}

TEST_F(ProfileFileTest, WhatOthersChangeMeanwhileIsSeen) {
    const auto written = [this] {
        EXPECT_EQ(Write(), 0u);
        EXPECT_EQ(Write("u"), 0u);
        return Text();
    };
    const std::string own = "[s]\na=1\n";
    // From where on the text is replaced, and by what.
    const std::pair<std::string, std::string> changes[] = {{"", "x\n[t]\n"},
                                                           {"", ""},
                                                           {own, ""},
                                                           {own, "[S]\na=1\n"},
                                                           {own, own + "more=1\n[u]\n"},
                                                           {own, own + "[s]\nlater=1\n"}};
    for (const char* before : {"", "[t]\n", "[s]\nb=2\n[t]\n"}) {
        for (const auto& [from, by] : changes) {
            Fill(before);
            std::string text = written();
            text.replace(text.find(from), std::string::npos, by);
            Fill(text);
            const std::string known = written();
            fs::rename(path_, folder_ / "kept.ini");  // or it would be the file that is known
            Fill(text);
            EXPECT_EQ(known, written()) << "instead of\n" << text;
        }
    }
}

// Ten thousand tables of one folder would rewrite each other's sections ten thousand times.
TEST_F(ProfileFileTest, ANewSectionIsAppendedAChangedOneMakesANewFile) {
    ASSERT_EQ(Write("t"), 0u);
    fs::create_hard_link(path_, folder_ / "link.ini");
    EXPECT_EQ(Write(), 0u);
    EXPECT_TRUE(fs::equivalent(path_, folder_ / "link.ini"));
    EXPECT_EQ(Write("t", "b=2\0"sv), 0u);
    EXPECT_FALSE(fs::equivalent(path_, folder_ / "link.ini"));
    EXPECT_EQ(Text(), "[t]\nb=2\n[s]\na=1\n");
}

// The sections of one call: some new, some changed, some as they were, one of them twice.
TEST_F(ProfileFileTest, ManySectionsAreWrittenAtOnce) {
    const std::string a("a=1\0", 4), b("b=2\0", 4);
    for (const char* end : {"\n", ""}) {
        Fill("[t]\nold=1\n[kept]\n[s]\na=1\n[u]\nold=2" + std::string(end));
        EXPECT_EQ(Write({{"s", a}, {"new", a}, {"T", b}, {"NEW", b}, {"newer", a}}), 0u);
        const std::string text = "[T]\nb=2\n[kept]\n[s]\na=1\n[u]\nold=2\n[NEW]\nb=2\n[newer]\na=1\n";
        EXPECT_EQ(Text(), text);
        EXPECT_EQ(Write({{"u", b}, {"t", a}, {"NEW", b}}), 0u);
        EXPECT_EQ(Text(), "[t]\na=1\n[kept]\n[s]\na=1\n[u]\nb=2\n[NEW]\nb=2\n[newer]\na=1\n");
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
    fs::create_symlink("real.ini", path_);
    Fill("[s]\n");
    fs::permissions(real, fs::perms(0640));
    EXPECT_EQ(Write(), 0u);
    EXPECT_TRUE(fs::is_symlink(path_));
    EXPECT_EQ(fs::status(real).permissions(), fs::perms(0640));
    EXPECT_EQ(std::distance(fs::directory_iterator(folder_), fs::directory_iterator()), 2);
}

TEST_F(ProfileFileTest, WhatIsNoPlainFileOrNoNameIsAnErrorAndIsNotWaitedFor) {
    EXPECT_NE(Write("s]\n[t"), 0u);
    EXPECT_FALSE(fs::exists(path_));
    ASSERT_EQ(mkfifo(path_.c_str(), 0600), 0);
    EXPECT_NE(Write(), 0u);
    fs::remove(path_);
    fs::create_directory(path_);
    EXPECT_NE(Write(), 0u);
}

}  // namespace Metrics::platform
