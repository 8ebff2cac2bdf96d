#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <thread>

#include "metrics/platform/Platform.h"

namespace Metrics::platform {

namespace {

// The exit code of a child in which `check` ran: 0 when it held.
template <class Check>
int InForkChild(Check check) {
    const pid_t child = fork();
    if (child == 0) _exit(check() ? 0 : 1);
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

int handlerCalls = 0;

}  // namespace

TEST(ForkTest, TheChildHasIdsOfItsOwn) {
    const std::uint32_t threadId = CurrentThreadId();
    const std::uint32_t processId = CurrentProcessId();
    EXPECT_EQ(InForkChild([=] {
                  return CurrentThreadId() != threadId && CurrentProcessId() != processId &&
                         CurrentProcessId() == static_cast<std::uint32_t>(getpid());
              }),
              0);
    EXPECT_EQ(CurrentProcessId(), processId);
}

TEST(ForkTest, HandlersRunInTheChildOnly) {
    OnForkChild([] { ++handlerCalls; });
    EXPECT_EQ(InForkChild([] { return handlerCalls == 1; }), 0);
    EXPECT_EQ(handlerCalls, 0);
}

TEST(ForkTest, ThreadsOfTheParentAreDeadInTheChild) {
    const ThreadHandle parent = ThreadHandle::Current();
    EXPECT_EQ(InForkChild([&] { return !parent.IsAlive() && ThreadHandle::Current().IsAlive(); }), 0);
    EXPECT_TRUE(parent.IsAlive());
}

TEST(InvalidObjectDeathTest, EndsWithItsMessage) {
    EXPECT_DEATH(RaiseInvalidObject("Thing: Error: invalid object: ptr=0x12"), "invalid object: ptr=0x12");
}

}  // namespace Metrics::platform
