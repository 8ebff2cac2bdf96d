#include "metrics/rows/SchemaFile.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "metrics/platform/Platform.h"

namespace {

using Metrics::ColumnType;
using Metrics::detail::SchemaEntries;
using Metrics::detail::WriteSchema;
namespace fs = std::filesystem;

// A folder of its own for each test.
class SchemaFileTest : public testing::Test {
  protected:
    SchemaFileTest() {
        const auto* info = testing::UnitTest::GetInstance()->current_test_info();
        folder_ = fs::temp_directory_path() / ("metrics_schema_" + std::string(info->name()));
        fs::remove_all(folder_);
        fs::create_directories(folder_);
    }
    ~SchemaFileTest() override { fs::remove_all(folder_); }

    std::string Table(const std::string& name) const { return (folder_ / name).string(); }
    fs::path Schema() const { return folder_ / "schema.ini"; }
    void Put(const std::string& content) const { std::ofstream(Schema(), std::ios::binary) << content; }
    std::string Get() const {
        std::ostringstream content;
        content << std::ifstream(Schema()).rdbuf();
        return content.str();
    }
    static std::string Message(const std::string& file) {
        try {
            WriteSchema(file, {}, ',');
        } catch (const std::runtime_error& error) {
            return error.what();
        }
        return "no error";
    }

    fs::path folder_;
};

const std::string kHead =
    "ColNameHeader=True\nFormat=Delimited(|)\nDecimalSymbol=.\nDateTimeFormat=yy-m-d h:n:s\n";

TEST_F(SchemaFileTest, EntriesNameEveryType) {
    const std::string entries = SchemaEntries({{"n", ColumnType::None},
                                               {"i", ColumnType::Integer},
                                               {"duration", ColumnType::Real},
                                               {"b", ColumnType::Boolean},
                                               {"s", ColumnType::String},
                                               {"d", ColumnType::DateTime}},
                                              ',');
    std::string lines = entries;
    std::replace(lines.begin(), lines.end(), '\0', '\n');
    EXPECT_EQ(lines,
              "ColNameHeader=True\nFormat=Delimited(,)\nDecimalSymbol=.\nDateTimeFormat=yy-m-d h:n:s\n"
              "col1=\"n\" Memo\ncol2=\"i\" Long\ncol3=\"duration\" Double\ncol4=\"b\" Bit\n"
              "col5=\"s\" Memo\ncol6=\"d\" DateTime\n");
}

TEST_F(SchemaFileTest, OtherSectionsKeepTheirBytes) {
    if (Metrics::platform::PathSeparator() == '\\')
        GTEST_SKIP() << "there the system writes the file, in its own way";
    const std::string before = "; mine\n[a.csv]\ncol1=\"x\" Memo \t\n\n";
    const std::string after = "[ab.csv]\nx = y ; z\n\n\n[b.csv.old]\nno end of line";
    Put(before + "[B.CSV]\nold=1\n\nolder=2\n" + after);
    WriteSchema(Table("b.csv"), {{"v", ColumnType::Real}}, '|');
    EXPECT_EQ(Get(), before + "[b.csv]\n" + kHead + "col1=\"v\" Double\n" + after);
    WriteSchema(Table("c.csv"), {}, '|');
    EXPECT_EQ(Get(), before + "[b.csv]\n" + kHead + "col1=\"v\" Double\n" + after + "\n[c.csv]\n" + kHead);
}

TEST_F(SchemaFileTest, AnUnchangedSectionIsNotWritten) {
    WriteSchema(Table("a.csv"), {{"v", ColumnType::Real}}, '|');
    fs::last_write_time(Schema(), fs::file_time_type::clock::now() - std::chrono::hours(1));
    const auto longAgo = fs::last_write_time(Schema());  // as the file system keeps it
    WriteSchema(Table("a.csv"), {{"v", ColumnType::Real}}, '|');
    EXPECT_EQ(fs::last_write_time(Schema()), longAgo);
    WriteSchema(Table("a.csv"), {{"v", ColumnType::Integer}}, '|');
    EXPECT_NE(fs::last_write_time(Schema()), longAgo);
}

TEST_F(SchemaFileTest, ARelativeNameMeansTheWorkingDirectory) {
    const fs::path previous = fs::current_path();
    fs::current_path(folder_);
    fs::create_directory("out");
    WriteSchema("out/x.csv", {}, '|');
    fs::current_path(previous);
    EXPECT_TRUE(fs::exists(folder_ / "out" / "schema.ini"));
}

TEST_F(SchemaFileTest, PathsThatAreTooLong) {
    EXPECT_EQ(Message("/" + std::string(254, 'd') + "/x.csv"), "input path too long");
    EXPECT_EQ(Message(Table(std::string(255, 'n') + ".csv")), "input path too long");
    EXPECT_EQ(Message(Table(std::string(200, 'n') + ".csv")), "no error");
}

// The first table of a folder that cannot be written is tried for a while, each further one once.
TEST_F(SchemaFileTest, AFolderThatIsNoneFailsOnceSlowlyThenAtOnce) {
    std::ofstream(folder_ / "file") << "x";
    const auto start = std::chrono::steady_clock::now();
    const std::string message = Message(Table("file/x.csv"));
    const auto first = std::chrono::steady_clock::now();
    EXPECT_TRUE(message.starts_with("WritePrivateProfileString failed with errorcode ")) << message;
    EXPECT_NE(message.back(), ' ');
    EXPECT_GE(first - start, std::chrono::milliseconds(1250));
    for (int i = 0; i < 10; ++i) EXPECT_EQ(Message(Table("file/" + std::to_string(i) + ".csv")), message);
    EXPECT_LT(std::chrono::steady_clock::now() - first, std::chrono::milliseconds(500));
}

}  // namespace
