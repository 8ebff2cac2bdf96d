#include "metrics/ContextGuard.h"

#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <thread>

#include "metrics/Scope.h"
#include "tests/support/RunningTest.h"

namespace Metrics::Testing {
namespace {

// Three contexts on this thread, the third one current, the second disabled.
class ContextGuardTest : public RunningTest {
  protected:
    ContextGuardTest() { Attach(); }

    void Attach() {
        for (std::size_t i = 0; i < 3; ++i) {
            contexts_[i].reset();
            contexts_[i].emplace(0, i + 1);
        }
        contexts_[1]->Enable(false);
        contexts_[2]->Enable(true);
        threadId_ = contexts_[0]->GetThreadId();
    }
    Context& At(std::size_t i) { return *contexts_.at(i); }

    // Takes the thread's stack apart: the context's numbers from the top down, a minus before those disabled.
    std::string TakeStack() {
        std::string stack;
        while (Context* current = Context::Current()) {
            stack += current->IsEnabled() ? " " : " -";
            stack += std::to_string(current->GetContextId());
            EXPECT_EQ(current->GetThreadId(), threadId_);
            current->DetachFromThread();
        }
        return stack;
    }

    std::array<std::optional<Context>, 3> contexts_;
    int threadId_;
};

TEST_F(ContextGuardTest, LeavesThreadAndContextAsItFoundThem) {
    const std::pair<const char*, std::function<void()>> blocks[] = {
        {" 3 -2 1",
         [this] {
             const ContextGuard guard(At(1));
             EXPECT_TRUE(At(1).IsEnabled()) << "as the one that it covers";
             EXPECT_EQ(Context::Current(), &At(1));
         }},
        {" 3 -2 1",
         [this] {
             const ContextGuard first(At(0));
             const ContextGuard second(At(1));
             const ContextGuard third(At(0));
             const ContextGuard fourth(At(0));
             EXPECT_EQ(Context::Current(), &At(0));
         }},
        {" 3 -2 1",
         [this] {
             const ContextGuard guard(At(2));
             At(2).DetachFromThread();
         }},
        {" 3 -2 1",
         [this] {
             const ContextGuard guard(At(0));
             At(0).AttachToThread();
             const ContextGuard other(At(2));
         }},
        {" 3 1",  // what is above it goes
         [this] {
             const ContextGuard guard(At(0));
             At(1).Close();
         }},
        {" 3 1",
         [this] {
             const ContextGuard guard(At(1));
             At(1).Close();
         }},
        {" 3 -2",
         [this] {
             const ContextGuard guard(At(0));
             const ContextGuard again(At(0));
             contexts_[0].reset();
         }},
        {" 1 3 -2",
         [this] {
             const ContextGuard guard(At(2));
             At(0).AttachToThread();
         }},
    };
    for (const auto& [stack, block] : blocks) {
        Attach();
        block();
        EXPECT_EQ(TakeStack(), stack);
    }
}

TEST_F(ContextGuardTest, OnAnotherThreadItLeavesTheContextToItsOwn) {
    std::thread([this] {
        Context own(0, Context::Create(true));
        {
            const ContextGuard guard(At(2));
            EXPECT_NE(At(2).GetThreadId(), threadId_);
            EXPECT_TRUE(Scope("lends a hand").IsOpen());
        }
        EXPECT_EQ(Context::Current(), &own);
        const ContextGuard outlives(At(1));
        contexts_[1].reset();
    }).join();
    EXPECT_EQ(contexts_[2]->GetThreadId(), threadId_);
    EXPECT_EQ(TakeStack(), " 3 1") << "the one destroyed elsewhere went when the first one was left";
}

}  // namespace
}  // namespace Metrics::Testing
