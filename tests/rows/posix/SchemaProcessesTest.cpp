// One schema.ini for the tables of several processes.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>

#include "metrics/rows/SchemaFile.h"
#include "tests/support/FolderTest.h"

namespace {

namespace fs = std::filesystem;
using Metrics::detail::SchemaEntries;
using Metrics::detail::TableSchema;

constexpr int kProcesses = 8;
constexpr int kTables = 50;  // of each process

// While a disk stalls, who has the file may keep it for longer than the others are patient.
struct InMemory {
    InMemory() {
        if (fs::is_directory("/dev/shm")) setenv("TMPDIR", "/dev/shm", 1);
    }
};
struct SchemaProcesses : InMemory, Metrics::Testing::FolderTest {
    // The tables of a process, every second one again in another way. What is thrown ends it.
    void Describe(int process) const noexcept {
        for (int table = process * kTables; table < (process + 1) * kTables; ++table) {
            const std::string file = Path(std::to_string(table) + ".csv");
            const TableSchema schemas[] = {{file, SchemaEntries({}, ',')}, {file, SchemaEntries({}, '|')}};
            for (int i = 0; i <= table % 2; ++i) Metrics::detail::WriteSchemas({&schemas[i], 1});
        }
    }
};

TEST_F(SchemaProcesses, NoneLosesASectionOfAnother) {
    for (int process = 0; process < kProcesses; ++process) {
        if (fork() != 0) continue;
        Describe(process);
        _exit(0);
    }
    for (int process = 0; process < kProcesses; ++process) {
        int status = -1;
        EXPECT_GT(wait(&status), 0);
        EXPECT_EQ(status, 0);
    }

    std::multiset<std::string> lines;
    std::ifstream file(Path("schema.ini"));
    for (std::string line; std::getline(file, line);) lines.insert(line);
    EXPECT_EQ(lines.size(), kProcesses * kTables * 5U);
    EXPECT_EQ(lines.count("Format=Delimited(|)"), kProcesses * kTables / 2U);
    for (int table = 0; table < kProcesses * kTables; ++table)
        EXPECT_EQ(lines.count("[" + std::to_string(table) + ".csv]"), 1U);
    EXPECT_EQ(std::distance(fs::directory_iterator(folder_), fs::directory_iterator()), 1);
}

}  // namespace
