// One schema.ini for the tables of several processes.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <vector>

#include "metrics/rows/SchemaFile.h"

namespace {

namespace fs = std::filesystem;
using Metrics::detail::WriteSchema;

constexpr int kProcesses = 8;
constexpr int kTables = 50;

std::string Name(int process, int table) {
    return std::to_string(process) + "_" + std::to_string(table) + ".csv";
}

// Describes its tables and every second one again, in another way.
int Describe(const fs::path& folder, int process) {
    try {
        for (int i = 0; i < kTables; ++i) {
            WriteSchema((folder / Name(process, i)).string(), {}, ',');
            if (i % 2 != 0) WriteSchema((folder / Name(process, i)).string(), {}, '|');
        }
    } catch (const std::exception&) {
        return 1;
    }
    return 0;
}

TEST(SchemaProcesses, NoneLosesASectionOfAnother) {
    const fs::path folder = fs::temp_directory_path() / ("metrics_schema_" + std::to_string(getpid()));
    fs::create_directories(folder);
    int gate[2];
    ASSERT_EQ(pipe(gate), 0);
    std::vector<pid_t> children;
    for (int process = 0; process < kProcesses; ++process) {
        children.push_back(fork());
        if (children.back() != 0) continue;
        char none = 0;
        close(gate[1]);
        _exit(read(gate[0], &none, 1) == 0 ? Describe(folder, process) : 2);
    }
    close(gate[0]);
    close(gate[1]);  // now all begin
    for (const pid_t child : children) {
        int status = -1;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0);
    }

    std::multiset<std::string> lines;
    std::ifstream file(folder / "schema.ini");
    for (std::string line; std::getline(file, line);) lines.insert(line);
    EXPECT_EQ(lines.size(), kProcesses * kTables * 5U);
    EXPECT_EQ(lines.count("Format=Delimited(|)"), kProcesses * kTables / 2U);
    for (int process = 0; process < kProcesses; ++process)
        for (int i = 0; i < kTables; ++i) EXPECT_EQ(lines.count("[" + Name(process, i) + "]"), 1U);
    EXPECT_EQ(std::distance(fs::directory_iterator(folder), fs::directory_iterator()), 1);
    fs::remove_all(folder);
}

}  // namespace
