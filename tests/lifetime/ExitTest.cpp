// Ways to end a process, with eight threads that go on posting: nothing hangs or crashes, and the file has
// what it must have. The program is ExitScenarios.cpp.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <sstream>

#include "tests/lifetime/Text.h"
#include "tests/support/FolderTest.h"

namespace Metrics::Testing {
namespace {

int ExitCode(const std::string& command) {
    const int status = std::system(command.c_str());
    return status > 255 ? status >> 8 : status;
}

// The numbers 0, 1, 2 ... of the events called `name`: how many there are in this order, and none besides.
int CountInOrder(const std::string& file, const std::string& name) {
    std::istringstream text(ReadFile(file));
    const std::string before = ",10,\"" + name + "\",\"";
    int count = 0;
    for (std::string line; std::getline(text, line);) {
        const std::size_t at = line.find(before);
        if (at == std::string::npos) continue;
        if (line.substr(at + before.size()) != std::to_string(count) + "\"") return -1;
        ++count;
    }
    return count;
}

std::vector<std::string> Scenarios() {
    std::vector<std::string> all;
    for (const std::string where : {"local ", "static ", "thread_local "}) {
        for (const char* way : {"return", "return session", "exit", "exit session", "quick_exit", "throw"})
            all.push_back(where + way);
    }
    return all;
}

// Where the output lives, the way to end, and whether there is a session.
class Exit : public ::testing::TestWithParam<std::string> {};

TEST_P(Exit, KeepsWhatItPromises) {
    std::string where, way;
    std::istringstream(GetParam()) >> where >> way;
    if (LIFETIME_NO_THREAD_LOCAL_OBJECTS && where == "thread_local")
        GTEST_SKIP() << "this compiler frees thread-local objects before it runs their destructors";
    std::string file = "exit " + GetParam() + ".csv";
    std::replace(file.begin(), file.end(), ' ', '-');
    std::filesystem::remove(file);
    const std::string program = std::filesystem::path(LIFETIME_EXIT).make_preferred().string();
    const std::string errors = file + ".err";
    const int code = ExitCode(program + " " + file + " " + GetParam() + " 2>" + errors);
    if (way == "throw") {
        EXPECT_NE(code, 0);
        EXPECT_NE(code, 7);
        const std::string said = ReadFile(errors);
        EXPECT_LT(said.find("std::runtime_error"), said.find('\n')) << "ended over something else: " << said;
    } else {
        EXPECT_EQ(code, 7) << ReadFile(errors);
    }
    EXPECT_EQ(CountInOrder(file, "kept"), 1000);
    // Where the output was closed, what was posted after its last Flush is there as well.
    const bool closed = way == "return" || (way == "exit" && where != "local");
    EXPECT_GE(CountInOrder(file, "last"), closed ? 1000 : 0);
}

INSTANTIATE_TEST_SUITE_P(Ways, Exit, ::testing::ValuesIn(Scenarios()), [](const auto& test) {
    std::string name = test.param;
    std::replace(name.begin(), name.end(), ' ', '_');
    return name;
});

}  // namespace
}  // namespace Metrics::Testing
