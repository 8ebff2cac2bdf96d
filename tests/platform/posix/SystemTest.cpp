#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
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

}  // namespace

TEST(ForkDeathTest, TheChildHasItsOwnIdsAndNoOtherThread) {
    const std::uint32_t threadId = CurrentThreadId();
    EXPECT_EQ(CurrentProcessId(), static_cast<std::uint32_t>(getpid()));
    const ThreadHandle parent = ThreadHandle::Current();
    const auto child = [&] {
        EXPECT_NE(CurrentThreadId(), threadId);
        EXPECT_EQ(CurrentProcessId(), static_cast<std::uint32_t>(getpid()));
        EXPECT_FALSE(parent.IsAlive());
        EXPECT_TRUE(ThreadHandle::Current().IsAlive());
        _exit(testing::Test::HasFailure() ? 1 : 0);
    };
    EXPECT_EXIT(child(), testing::ExitedWithCode(0), "");
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

TEST(AddressSpaceTest, ARegionWithoutRightsIsReservedUntilItGetsSome) {
    constexpr std::size_t kSize = std::size_t{256} << 20;
    const AddressSpaceTotals before = QueryAddressSpace();
    EXPECT_EQ(before.total, before.free + before.reserved + before.committed);
    void* region = mmap(nullptr, kSize, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    ASSERT_NE(region, MAP_FAILED);
    const AddressSpaceTotals reserved = QueryAddressSpace();
    EXPECT_EQ(reserved.reserved, before.reserved + kSize);
    EXPECT_EQ(reserved.committed, before.committed);

    ASSERT_EQ(mprotect(region, kSize, PROT_READ), 0);
    EXPECT_EQ(QueryAddressSpace().committed, before.committed + kSize);

    munmap(region, kSize);
    EXPECT_EQ(QueryAddressSpace().committed, before.committed);
}

}  // namespace Metrics::platform
