#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "metrics/platform/Platform.h"

namespace Metrics::platform {

namespace {

namespace fs = std::filesystem;
using namespace std::string_view_literals;

// A profile file in a folder of its own, gone at the end.
class ProfileFile {
  public:
    ProfileFile() { fs::create_directories(folder_); }
    ~ProfileFile() { fs::remove_all(folder_); }
    ProfileFile(const ProfileFile&) = delete;
    ProfileFile& operator=(const ProfileFile&) = delete;

    void Fill(std::string_view text) { std::ofstream(path_, std::ios::binary) << text; }
    std::uint32_t Write(const std::string& section, std::string_view entries) {
        return SetProfileSection(path_.string(), section, entries);
    }
    // Without carriage returns: systems end lines each in their way.
    std::string Text() const {
        std::ifstream file(path_, std::ios::binary);
        std::string text{std::istreambuf_iterator<char>(file), {}};
        std::erase(text, '\r');
        return text;
    }
    fs::path Folder() const { return folder_; }
    fs::path Path() const { return path_; }

  private:
    fs::path folder_ =
        fs::absolute(fs::temp_directory_path()) / ("metrics-profile-" + std::to_string(CurrentProcessId()));
    fs::path path_ = folder_ / "schema.ini";
};

}  // namespace

TEST(ProfileSectionTest, MakesTheFileAndItsSections) {
    ProfileFile file;
    EXPECT_EQ(file.Write("run.csv", "Format=Delimited(|)\0col1=\"a b\" Long\0"sv), 0u);
    EXPECT_EQ(file.Write("other.csv", "x=1\0"sv), 0u);
    EXPECT_EQ(file.Text(), "[run.csv]\nFormat=Delimited(|)\ncol1=\"a b\" Long\n[other.csv]\nx=1\n");
}

TEST(ProfileSectionTest, ReplacesTheWholeSectionAndKeepsTheOthers) {
    ProfileFile file;
    file.Fill("[a.csv]\r\nx=1\r\n[run.csv]\r\nold=1\r\nolder=2\r\n[z.csv]\r\ny=2\r\n");
    EXPECT_EQ(file.Write("run.csv", "new=1\0"sv), 0u);
    const std::string text = file.Text();
    EXPECT_NE(text.find("[a.csv]\nx=1\n"), std::string::npos) << text;
    EXPECT_NE(text.find("[run.csv]\nnew=1\n"), std::string::npos) << text;
    EXPECT_NE(text.find("[z.csv]\ny=2\n"), std::string::npos) << text;
    EXPECT_EQ(text.find("old"), std::string::npos) << text;
}

TEST(ProfileSectionTest, LeavesAFileAloneThatHasTheEntries) {
    ProfileFile file;
    ASSERT_EQ(file.Write("run.csv", "a=1\0b=2\0"sv), 0u);
    const auto longAgo = fs::file_time_type::clock::now() - std::chrono::hours(24);
    fs::last_write_time(file.Path(), longAgo);
    const auto before = fs::last_write_time(file.Path());
    EXPECT_EQ(file.Write("run.csv", "a=1\0b=2\0"sv), 0u);
    EXPECT_EQ(fs::last_write_time(file.Path()), before);
    EXPECT_EQ(file.Write("run.csv", "a=1\0"sv), 0u);
    EXPECT_NE(fs::last_write_time(file.Path()), before);
}

TEST(ProfileSectionTest, AFolderThatIsNotThereIsAnError) {
    ProfileFile file;
    EXPECT_NE(SetProfileSection((file.Folder() / "none" / "schema.ini").string(), "run.csv", "a=1\0"sv), 0u);
}

}  // namespace Metrics::platform
