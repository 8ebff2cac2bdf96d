#include <chrono>
#include <string_view>

#include "metrics/platform/Platform.h"
#include "tests/support/FolderTest.h"

namespace Metrics::platform {

using ProfileSectionTest = Testing::FolderTest;

TEST_F(ProfileSectionTest, IsMadeAndReplacedAndLeftAloneWhenItHasTheEntries) {
    using namespace std::string_view_literals;
    const std::string path = Path("schema.ini");
    const auto write = [&](const char* section, std::string_view entries) {
        const ProfileSection one{section, std::string(entries)};
        EXPECT_EQ(SetProfileSections(path, {&one, 1}), 0u);
        return Testing::ReadFile(path);
    };
    write("a.csv", "x=1\0"sv);
    write("run.csv", "Format=Delimited(|)\0col1=\"a b\" Long\0"sv);
    EXPECT_EQ(write("z.csv", "y=2\0"sv),
              "[a.csv]\nx=1\n[run.csv]\nFormat=Delimited(|)\ncol1=\"a b\" Long\n[z.csv]\ny=2\n");
    const std::string text = write("run.csv", "new=1\0b=2\0"sv);
    for (const char* part : {"[a.csv]\nx=1\n", "[run.csv]\nnew=1\nb=2\n", "[z.csv]\ny=2\n"}) {
        EXPECT_NE(text.find(part), std::string::npos) << part << " is not in\n" << text;
    }
    EXPECT_EQ(text.find("col1"), std::string::npos) << text;

    namespace fs = std::filesystem;
    fs::last_write_time(path, fs::file_time_type::clock::now() - std::chrono::hours(24));
    const auto before = fs::last_write_time(path);
    EXPECT_EQ(write("run.csv", "new=1\0b=2\0"sv), text);
    EXPECT_EQ(fs::last_write_time(path), before);
    write("run.csv", "new=1\0"sv);
    EXPECT_NE(fs::last_write_time(path), before);
}

}  // namespace Metrics::platform
