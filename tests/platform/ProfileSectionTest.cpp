#include <chrono>

#include "tests/platform/ProfileFile.h"

namespace Metrics::platform {

using ProfileSectionTest = ProfileFile;

TEST_F(ProfileSectionTest, MakesTheFileAndItsSectionsThenReplacesOneOfThem) {
    EXPECT_EQ(Write("a.csv", "x=1\0"sv), 0u);
    EXPECT_EQ(Write("run.csv", "Format=Delimited(|)\0col1=\"a b\" Long\0"sv), 0u);
    EXPECT_EQ(Write("z.csv", "y=2\0"sv), 0u);
    EXPECT_EQ(Text(), "[a.csv]\nx=1\n[run.csv]\nFormat=Delimited(|)\ncol1=\"a b\" Long\n[z.csv]\ny=2\n");
    EXPECT_EQ(Write("run.csv", "new=1\0"sv), 0u);
    const std::string text = Text();
    for (const char* part : {"[a.csv]\nx=1\n", "[run.csv]\nnew=1\n", "[z.csv]\ny=2\n"}) {
        EXPECT_NE(text.find(part), std::string::npos) << part << " is not in\n" << text;
    }
    EXPECT_EQ(text.find("col1"), std::string::npos) << text;
}

TEST_F(ProfileSectionTest, LeavesAFileAloneThatHasTheEntries) {
    ASSERT_EQ(Write("run.csv", "a=1\0b=2\0"sv), 0u);
    fs::last_write_time(path_, fs::file_time_type::clock::now() - std::chrono::hours(24));
    const auto before = fs::last_write_time(path_);
    EXPECT_EQ(Write("run.csv", "a=1\0b=2\0"sv), 0u);
    EXPECT_EQ(fs::last_write_time(path_), before);
    EXPECT_EQ(Write("run.csv", "a=1\0"sv), 0u);
    EXPECT_NE(fs::last_write_time(path_), before);
}

TEST_F(ProfileSectionTest, AFolderThatIsNotThereIsAnError) {
    EXPECT_NE(SetProfileSection((folder_ / "none" / "schema.ini").string(), "run.csv", "a=1\0"sv), 0u);
}

}  // namespace Metrics::platform
