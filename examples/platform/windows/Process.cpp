#include "examples/platform/Process.h"

#include <windows.h>

#include <array>
#include <system_error>

namespace Platform {

namespace {

[[noreturn]] void ThrowLastError() {
    throw std::system_error(static_cast<int>(GetLastError()), std::system_category(),
                            "cannot start a process");
}

std::string ThisProgram() {
    std::array<char, MAX_PATH> path;
    const DWORD length = GetModuleFileNameA(nullptr, path.data(), MAX_PATH);
    if (length == 0 || length == MAX_PATH) ThrowLastError();
    return std::string(path.data(), length);
}

// In quotes, as the C run-time takes a command line apart: backslashes count double before a quote.
std::string Quoted(const std::string& argument) {
    std::string quoted = "\"";
    std::size_t backslashes = 0;
    for (const char c : argument) {
        if (c == '"') quoted.append(backslashes + 1, '\\');
        backslashes = c == '\\' ? backslashes + 1 : 0;
        quoted += c;
    }
    return quoted.append(backslashes, '\\') + '"';
}

}  // namespace

Process::Process(const std::vector<std::string>& arguments) {
    const std::string program = ThisProgram();
    std::string commandLine = Quoted(program);
    for (const std::string& argument : arguments) commandLine += ' ' + Quoted(argument);
    STARTUPINFOA startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process{};
    if (!CreateProcessA(program.c_str(), commandLine.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                        &startup, &process)) {
        ThrowLastError();
    }
    CloseHandle(process.hThread);
    native_ = reinterpret_cast<std::intptr_t>(process.hProcess);
}

int Process::Wait() noexcept {
    const auto process = reinterpret_cast<HANDLE>(std::exchange(native_, 0));
    if (process == nullptr) return -1;
    DWORD code = 0;
    const bool ended =
        WaitForSingleObject(process, INFINITE) == WAIT_OBJECT_0 && GetExitCodeProcess(process, &code);
    CloseHandle(process);
    return ended ? static_cast<int>(code) : -1;
}

}  // namespace Platform
