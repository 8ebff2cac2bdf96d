#include "examples/platform/Process.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace Platform {

namespace {

constexpr const char* kThisProgram = "/proc/self/exe";

}  // namespace

Process::Process(const std::vector<std::string>& arguments) {
    // The interface predates const; it changes neither the array nor the texts.
    std::vector<char*> argv{const_cast<char*>(kThisProgram)};
    for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    pid_t pid = 0;
    const int error = posix_spawn(&pid, kThisProgram, nullptr, nullptr, argv.data(), environ);
    if (error != 0) throw std::system_error(error, std::generic_category(), "cannot start a process");
    native_ = pid;
}

int Process::Wait() noexcept {
    const auto pid = static_cast<pid_t>(std::exchange(native_, 0));
    if (pid == 0) return -1;
    int status = 0;
    pid_t ended = 0;
    do ended = waitpid(pid, &status, 0);
    while (ended < 0 && errno == EINTR);
    return ended == pid && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace Platform
