// Ways to end a process, with eight threads that go on posting: nothing hangs or crashes, and the file has
// what it must have. The program is ExitScenarios.cpp.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace Metrics::Testing {
namespace {

struct Ending {
    const char* where;
    const char* way;
    const char* session;
    bool lastIsWritten;  // the output was closed: what was posted after its last Flush is there as well
};

void PrintTo(const Ending& ending, std::ostream* out) {
    *out << ending.where << ' ' << ending.way << ' ' << ending.session;
}

class Exit : public ::testing::TestWithParam<Ending> {};

int ExitCode(const std::string& command) {
    const int status = std::system(command.c_str());
    return status > 255 ? status >> 8 : status;
}

// The numbers 0, 1, 2 ... of the events called `name`: how many there are in this order, and none besides.
int CountInOrder(const std::string& file, const std::string& name) {
    std::ifstream text(file);
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

TEST_P(Exit, KeepsWhatItPromises) {
    const Ending& ending = GetParam();
    if (LIFETIME_NO_THREAD_LOCAL_OBJECTS && std::string(ending.where) == "thread_local")
        GTEST_SKIP() << "this compiler frees thread-local objects before it runs their destructors";
    std::string file = "exit-";
    for (const char* part : {ending.where, "-", ending.way, ending.session, ".csv"}) file += part;
    std::filesystem::remove(file);
    const bool throws = std::string(ending.way) == "throw";
    std::string command = std::filesystem::path(LIFETIME_EXIT).make_preferred().string();
    for (const char* part : {file.c_str(), ending.where, ending.way, ending.session})
        (command += ' ') += part;
    if (throws) (command += " 2>") += file + ".err";
    const int code = ExitCode(command);
    if (throws) {
        EXPECT_NE(code, 0);
        EXPECT_NE(code, 7);
        std::string said;
        std::getline(std::ifstream(file + ".err"), said);
        EXPECT_NE(said.find("std::runtime_error"), std::string::npos)
            << "ended over something else: " << said;
    } else {
        EXPECT_EQ(code, 7);
    }
    EXPECT_EQ(CountInOrder(file, "kept"), 1000);
    const int last = CountInOrder(file, "last");
    EXPECT_GE(last, ending.lastIsWritten ? 1000 : 0);
}

constexpr Ending kEndings[] = {
    {"local", "return", "", true},
    {"local", "return", "session", true},
    {"local", "exit", "", false},
    {"local", "exit", "session", false},
    {"local", "quick_exit", "", false},
    {"local", "throw", "", false},
    {"static", "return", "", true},
    {"static", "return", "session", true},
    {"static", "exit", "", true},
    {"static", "exit", "session", true},
    {"static", "quick_exit", "", false},
    {"static", "throw", "", false},
    {"thread_local", "return", "", true},
    {"thread_local", "return", "session", true},
    {"thread_local", "exit", "", true},
    {"thread_local", "exit", "session", true},
    {"thread_local", "quick_exit", "", false},
    {"thread_local", "throw", "", false},
};

INSTANTIATE_TEST_SUITE_P(Ways, Exit, ::testing::ValuesIn(kEndings), [](const auto& test) {
    const Ending& ending = test.param;
    return std::string(ending.where) + "_" + ending.way + (*ending.session != '\0' ? "_session" : "");
});

}  // namespace
}  // namespace Metrics::Testing
