#include "metrics/rows/SchemaFile.h"

#include <gtest/gtest.h>

#include <chrono>
#include <fstream>

#include "metrics/base/FileError.h"
#include "tests/support/FolderTest.h"

namespace {

using Metrics::ColumnType;

using SchemaFileTest = Metrics::Testing::FolderTest;

using Metrics::detail::FileError;
using Metrics::detail::TableSchema;

// What is thrown, and what is told besides.
std::pair<std::string, std::string> Failure(const std::vector<TableSchema>& tables) {
    try {
        Metrics::detail::WriteSchemas(tables);
    } catch (const FileError& error) {
        return {error.what(), error.Details()};
    }
    return {"nothing was thrown", ""};
}
std::string Message(const std::string& file) {
    return Failure({{file, "a=1"}}).first;
}

// How a section gets into the file, and what stays of the others, is the platform's.
TEST(SchemaEntries, NameEveryType) {
    const std::vector<StreamingXml::XmlColumnInfo> columns = {
        {"n", ColumnType::None},    {"i", ColumnType::Integer}, {"duration", ColumnType::Real},
        {"b", ColumnType::Boolean}, {"s", ColumnType::String},  {"d", ColumnType::DateTime}};
    std::string entries = Metrics::detail::SchemaEntries(columns, '|');
    std::replace(entries.begin(), entries.end(), '\0', '\n');
    EXPECT_EQ(entries,
              "ColNameHeader=True\nFormat=Delimited(|)\nDecimalSymbol=.\nDateTimeFormat=yy-m-d h:n:s\n"
              "col1=\"n\" Memo\ncol2=\"i\" Long\ncol3=\"duration\" Double\ncol4=\"b\" Bit\n"
              "col5=\"s\" Memo\ncol6=\"d\" DateTime\n");
}

TEST_F(SchemaFileTest, PathsThatAreTooLong) {
    EXPECT_EQ(Message("/" + std::string(254, 'd') + "/x.csv"), "input path too long");
    EXPECT_EQ(Message(Path(std::string(255, 'n') + ".csv")), "input path too long");
    EXPECT_EQ(Message(Path(std::string(200, 'n') + ".csv")), "nothing was thrown");
}

TEST_F(SchemaFileTest, TheTablesOfOtherFoldersAreDescribedAllTheSame) {
    std::filesystem::create_directories(Path("a"));
    std::filesystem::create_directories(Path("b"));
    const std::string late(255, 'n');
    const auto [what, details] =
        Failure({{Path("a/1"), "x=1"}, {late, ""}, {Path("b/2"), "y=1"}, {Path("a/3"), "z=1"}});
    EXPECT_EQ(what, "input path too long");
    EXPECT_EQ(details, "input path too long: " + late);
    EXPECT_EQ(Metrics::Testing::ReadFile(Path("a/schema.ini")), "[1]\nx=1\n[3]\nz=1\n");
    EXPECT_EQ(Metrics::Testing::ReadFile(Path("b/schema.ini")), "[2]\ny=1\n");
}

// The first table of a folder that cannot be written is tried for a while, each further one once.
TEST_F(SchemaFileTest, AFolderThatIsNoneFailsOnceSlowlyThenAtOnce) {
    std::ofstream(Path("file")) << "x";
    const auto start = std::chrono::steady_clock::now();
    const std::string message = Message(Path("file/x.csv"));
    const auto first = std::chrono::steady_clock::now();
    EXPECT_TRUE(message.starts_with("WritePrivateProfileString failed with errorcode ")) << message;
    EXPECT_NE(message.back(), ' ');
    const std::string details = Failure({{Path("file/x.csv"), "a=1"}}).second;
    EXPECT_TRUE(details.starts_with(message + ": " + Path("file/schema.ini") + ": ")) << details;
    EXPECT_GE(first - start, std::chrono::milliseconds(1250));
    for (int i = 0; i < 10; ++i) EXPECT_EQ(Message(Path("file/" + std::to_string(i) + ".csv")), message);
    EXPECT_LT(std::chrono::steady_clock::now() - first, std::chrono::milliseconds(500));
}

}  // namespace
