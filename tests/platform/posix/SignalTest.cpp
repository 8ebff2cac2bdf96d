#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <optional>
#include <thread>

#include "metrics/platform/Platform.h"

namespace Metrics::platform {

namespace {

bool IsBlocked(int signal) {
    sigset_t mask;
    pthread_sigmask(SIG_BLOCK, nullptr, &mask);
    return sigismember(&mask, signal) == 1;
}

}  // namespace

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

TEST(SignalTest, AClosedPipeIsAnErrorCode) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    close(ends[0]);
    std::optional<SignalBlocker> blocker(std::in_place);
    std::thread([&] {
        EXPECT_EQ(write(ends[1], "x", 1), -1);
        EXPECT_EQ(errno, EPIPE);
    }).join();
    close(ends[1]);
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
    struct sigaction ignored {};
    ignored.sa_handler = SIG_IGN;
    sigaction(SIGINT, &ignored, nullptr);
    {
        std::optional<InterruptHandler> first(std::in_place);
        const InterruptHandler second;
        first.reset();
        EXPECT_FALSE(InterruptHandler::Flag());
        raise(SIGINT);
        EXPECT_TRUE(InterruptHandler::Flag());
    }
    struct sigaction after {};
    sigaction(SIGINT, nullptr, &after);
    EXPECT_EQ(after.sa_handler, SIG_IGN);
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

TEST(AddressSpaceTest, ARegionWithoutRightsIsReservedUntilItGetsSome) {
    constexpr std::size_t kSize = std::size_t{256} << 20;
    const AddressSpaceTotals before = QueryAddressSpace();
    void* region = mmap(nullptr, kSize, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    ASSERT_NE(region, MAP_FAILED);
    const AddressSpaceTotals reserved = QueryAddressSpace();
    EXPECT_EQ(reserved.reserved, before.reserved + kSize);
    EXPECT_EQ(reserved.committed, before.committed);

    ASSERT_EQ(mprotect(region, kSize, PROT_READ), 0);
    const AddressSpaceTotals committed = QueryAddressSpace();
    EXPECT_EQ(committed.committed, before.committed + kSize);

    munmap(region, kSize);
    EXPECT_EQ(QueryAddressSpace().committed, before.committed);
}

}  // namespace Metrics::platform
