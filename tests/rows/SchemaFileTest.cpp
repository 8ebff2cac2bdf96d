#include "metrics/rows/SchemaFile.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "metrics/platform/Platform.h"
#include "tests/support/FolderTest.h"

namespace {

using Metrics::ColumnType;
using Metrics::detail::WriteSchema;
namespace fs = std::filesystem;

class SchemaFileTest : public Metrics::Testing::FolderTest {
  protected:
    static std::string Message(const std::string& file) {
        try {
            WriteSchema(file, {}, ',');
        } catch (const std::runtime_error& error) {
            return error.what();
        }
        return "no error";
    }

    const fs::path schema_ = folder_ / "schema.ini";
};

TEST_F(SchemaFileTest, ASectionNamesEveryTypeAndTheOthersKeepTheirBytes) {
    const std::vector<StreamingXml::XmlColumnInfo> columns = {
        {"n", ColumnType::None},    {"i", ColumnType::Integer}, {"duration", ColumnType::Real},
        {"b", ColumnType::Boolean}, {"s", ColumnType::String},  {"d", ColumnType::DateTime}};
    std::string entries = Metrics::detail::SchemaEntries(columns, '|');
    std::replace(entries.begin(), entries.end(), '\0', '\n');
    const std::string head =
        "ColNameHeader=True\nFormat=Delimited(|)\nDecimalSymbol=.\nDateTimeFormat=yy-m-d h:n:s\n";
    EXPECT_EQ(entries, head +
                           "col1=\"n\" Memo\ncol2=\"i\" Long\ncol3=\"duration\" Double\ncol4=\"b\" Bit\n"
                           "col5=\"s\" Memo\ncol6=\"d\" DateTime\n");

    if (Metrics::platform::PathSeparator() == '\\')
        GTEST_SKIP() << "there the system writes the file, in its own way";
    const std::string before = "; mine\n[a.csv]\ncol1=\"x\" Memo \t\n\n";
    const std::string after = "[ab.csv]\nx = y ; z\n\n\n[b.csv.old]\nno end of line";
    std::ofstream(schema_, std::ios::binary) << before + "[B.CSV]\nold=1\n\nolder=2\n" + after;
    WriteSchema(Path("b.csv"), columns, '|');
    WriteSchema(Path("c.csv"), {}, '|');
    std::ostringstream content;
    content << std::ifstream(schema_).rdbuf();
    EXPECT_EQ(content.str(), before + "[b.csv]\n" + entries + after + "\n[c.csv]\n" + head);
}

TEST_F(SchemaFileTest, AnUnchangedSectionIsNotWritten) {
    const auto write = [&](ColumnType type) { WriteSchema(Path("a.csv"), {{"v", type}}, '|'); };
    write(ColumnType::Real);
    fs::last_write_time(schema_, fs::file_time_type::clock::now() - std::chrono::hours(1));
    const auto longAgo = fs::last_write_time(schema_);  // as the file system keeps it
    write(ColumnType::Real);
    EXPECT_EQ(fs::last_write_time(schema_), longAgo);
    write(ColumnType::Integer);
    EXPECT_NE(fs::last_write_time(schema_), longAgo);
}

TEST_F(SchemaFileTest, PathsThatAreTooLong) {
    EXPECT_EQ(Message("/" + std::string(254, 'd') + "/x.csv"), "input path too long");
    EXPECT_EQ(Message(Path(std::string(255, 'n') + ".csv")), "input path too long");
    EXPECT_EQ(Message(Path(std::string(200, 'n') + ".csv")), "no error");
}

// The first table of a folder that cannot be written is tried for a while, each further one once.
TEST_F(SchemaFileTest, AFolderThatIsNoneFailsOnceSlowlyThenAtOnce) {
    std::ofstream(folder_ / "file") << "x";
    const auto start = std::chrono::steady_clock::now();
    const std::string message = Message(Path("file/x.csv"));
    const auto first = std::chrono::steady_clock::now();
    EXPECT_TRUE(message.starts_with("WritePrivateProfileString failed with errorcode ")) << message;
    EXPECT_NE(message.back(), ' ');
    EXPECT_GE(first - start, std::chrono::milliseconds(1250));
    for (int i = 0; i < 10; ++i) EXPECT_EQ(Message(Path("file/" + std::to_string(i) + ".csv")), message);
    EXPECT_LT(std::chrono::steady_clock::now() - first, std::chrono::milliseconds(500));
}

}  // namespace
