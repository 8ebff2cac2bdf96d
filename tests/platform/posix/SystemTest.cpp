#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <thread>

#include "metrics/platform/Platform.h"
#include "tests/support/FolderTest.h"

namespace Metrics::platform {

namespace {

bool IsBlocked(int signal) {
    sigset_t mask;
    pthread_sigmask(SIG_BLOCK, nullptr, &mask);
    return sigismember(&mask, signal) == 1;
}

int OpenDescriptors() {
    return static_cast<int>(std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}));
}

// What a child of a fork finds.
template <class Check>
void ExpectInChild(Check check) {
    const pid_t child = fork();
    if (child == 0) _exit(check() ? 0 : 1);
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
}

}  // namespace

TEST(ForkTest, TheChildHasItsOwnIdsAndNoOtherThread) {
    const std::uint32_t threadId = CurrentThreadId();
    EXPECT_EQ(CurrentProcessId(), static_cast<std::uint32_t>(getpid()));
    const ThreadHandle parent = ThreadHandle::Current();
    ExpectInChild([&] {
        return CurrentThreadId() != threadId && CurrentProcessId() == static_cast<std::uint32_t>(getpid()) &&
               !parent.IsAlive() && ThreadHandle::Current().IsAlive();
    });
}

TEST(InvalidObjectDeathTest, EndsWithItsMessage) {
    EXPECT_DEATH(RaiseInvalidObject("Thing: Error: invalid object: ptr=0x12"), "invalid object: ptr=0x12");
}

TEST(SignalTest, AThreadMadeUnderABlockerKeepsItsSignalsBlocked) {
    std::optional<SignalBlocker> blocker(std::in_place);
    std::thread thread([] {
        EXPECT_TRUE(IsBlocked(SIGINT));
        EXPECT_TRUE(IsBlocked(SIGPIPE));
        EXPECT_FALSE(IsBlocked(SIGSEGV));
    });
    EXPECT_TRUE(IsBlocked(SIGTERM));
    blocker.reset();
    EXPECT_FALSE(IsBlocked(SIGTERM));
    thread.join();
}

// Without the guard the write would end the process.
TEST(SignalTest, UnderAGuardAClosedPipeIsAnErrorCodeOnAnyThread) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    close(ends[0]);
    {
        const BrokenPipeGuard guard;
        EXPECT_EQ(write(ends[1], "x", 1), -1);
        EXPECT_EQ(errno, EPIPE);
    }
    EXPECT_FALSE(IsBlocked(SIGPIPE));
    close(ends[1]);
}

TEST(InterruptHandlerTest, CtrlCSetsTheFlagUntilTheLastHandlerGoes) {
    signal(SIGINT, SIG_IGN);
    {
        std::optional<InterruptHandler> first(std::in_place);
        const InterruptHandler second;
        first.reset();
        EXPECT_FALSE(InterruptHandler::Flag());
        raise(SIGINT);
        EXPECT_TRUE(InterruptHandler::Flag());
    }
    EXPECT_EQ(signal(SIGINT, SIG_DFL), SIG_IGN);
}

TEST(ThreadHandleTest, ALivingThreadIsAliveWithoutAnyDescriptorLeft) {
    const ThreadHandle self = ThreadHandle::Current();
    rlimit before{};
    getrlimit(RLIMIT_NOFILE, &before);
    const rlimit none{0, before.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    const bool isAlive = self.IsAlive();
    setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_TRUE(isAlive);
}

using LongPathTest = Testing::FolderTest;

TEST_F(LongPathTest, AWorkingDirectoryThatDoesNotFitIsEmpty) {
    namespace fs = std::filesystem;
    const fs::path before = fs::current_path();
    for (const std::size_t length : {kWorkingDirectoryBuffer - 1, kWorkingDirectoryBuffer}) {
        const fs::path deep = folder_ / std::string(length - folder_.string().size() - 1, 'd');
        fs::create_directories(deep);
        fs::current_path(deep);
        EXPECT_EQ(WorkingDirectory(), length < kWorkingDirectoryBuffer ? deep.string() : "");
    }
    fs::current_path(before);
}

// What may be written privately is committed; all else that is mapped is reserved.
TEST(AddressSpaceTest, TheRightsOfAMappingDecide) {
    constexpr std::size_t kSize = std::size_t{256} << 20;
    const AddressSpaceTotals before = QueryAddressSpace();
    EXPECT_EQ(before.total, before.free + before.reserved + before.committed);
    EXPECT_GT(before.committed, 0U);
    const auto expectMore = [&](std::size_t committed, std::size_t reserved) {
        const AddressSpaceTotals now = QueryAddressSpace();
        EXPECT_EQ(now.committed - before.committed, committed);
        EXPECT_EQ(now.reserved - before.reserved, reserved);
        EXPECT_EQ(before.free - now.free, committed + reserved);
        EXPECT_EQ(now.total, before.total);
    };
    void* region = mmap(nullptr, kSize, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    ASSERT_NE(region, MAP_FAILED);
    expectMore(0, kSize);
    ASSERT_EQ(mprotect(region, kSize / 2, PROT_READ | PROT_WRITE), 0);
    expectMore(kSize / 2, kSize / 2);
    munmap(region, kSize);
    region = mmap(nullptr, kSize, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    expectMore(0, kSize);
    munmap(region, kSize);
    expectMore(0, 0);
}

// The child writes nothing of its parent's memory, and the parent learns the difference by the exit code.
TEST(AddressSpaceTest, AChildOfAForkTellsOfItself) {
    QueryAddressSpace();
    constexpr std::size_t kSize = std::size_t{64} << 20;
    ExpectInChild([] {
        const auto before = QueryAddressSpace().committed;
        mmap(nullptr, kSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        return QueryAddressSpace().committed - before == kSize;
    });
}

TEST(AddressSpaceTest, ItsDescriptorIsOneAndIsNotMissedWhenTheHostClosesAndReusesAll) {
    ExpectInChild([] {
        for (int i = 0; i < 1000; ++i) close(i);
        const auto before = QueryAddressSpace();
        const bool leavesStandardStreams =
            fcntl(0, F_GETFD) < 0 && fcntl(1, F_GETFD) < 0 && fcntl(2, F_GETFD) < 0;
        const bool isClosedOnExec = (fcntl(3, F_GETFD) & FD_CLOEXEC) != 0;
        const int count = OpenDescriptors();
        for (int i = 0; i < 100; ++i) QueryAddressSpace();
        const bool isOne = OpenDescriptors() == count;
        close(3);
        int pipes[2];
        while (pipe(pipes) == 0 && pipes[1] < 10) {
        }
        const bool isToldOf = QueryAddressSpace().committed >= before.committed;
        const bool isLeftAlone = write(pipes[1], "x", 1) == 1 && fcntl(3, F_GETFD) >= 0;
        return isToldOf && leavesStandardStreams && isClosedOnExec && isOne && isLeftAlone;
    });
}

// Not even what reads like the kernel's line, of another process.
TEST(AddressSpaceTest, AFileThatTookThePlaceOfItsDescriptorIsNotRead) {
    const int other = open(("/proc/" + std::to_string(getppid()) + "/statm").c_str(), O_RDONLY);
    ASSERT_GE(other, 0);
    QueryAddressSpace();
    const std::string own = std::filesystem::canonical("/proc/self") / "statm";
    for (int i = 3; i < 1000; ++i) {
        std::error_code error;
        if (std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(i), error) != own) continue;
        const auto before = QueryAddressSpace().committed;
        dup2(other, i);
        EXPECT_EQ(QueryAddressSpace().committed, before);
        close(other);
        close(i);
        return;
    }
    FAIL() << "no descriptor is kept";
}

TEST(AddressSpaceTest, IsToldWhenTheFirstThreadHasEnded) {
    ExpectInChild([] {
        std::thread([] {
            for (int mapped = 1; mapped != 0;) std::ifstream("/proc/self/statm") >> mapped;
            _exit(QueryAddressSpace().committed > 0 ? 0 : 1);
        }).detach();
        return syscall(SYS_exit, 0) == 0;  // of this thread alone
    });
}

TEST(AddressSpaceTest, NoQueryIsAPointOfCancellation) {
    bool isBack = false;
    std::thread([&] {
        pthread_cancel(pthread_self());
        QueryAddressSpace();
        QueryGlobalMemory();
        isBack = true;
    }).join();
    EXPECT_TRUE(isBack);
}

}  // namespace Metrics::platform
