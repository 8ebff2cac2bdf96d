// The processor times of contexts, against a plain account: at each tick of a thread's clock all measured
// scopes are charged that are open in its current context or in an ancestor of it, as far as the parents
// stand on its stack.
#include "metrics/manager/ContextStack.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <random>

namespace Metrics::Testing {
namespace {

using detail::ContextStack;
using detail::ContextState;

class ContextStackTest : public ::testing::Test {
  protected:
    static constexpr int kThreads = 3;
    static constexpr int kContexts = 7;

    struct OpenScope {
        std::uint64_t entry;  // 0 when it is not measured
        double used = 0;
        double children = 0;
    };
    struct Unit {
        ContextState* state;
        int parent;
        std::vector<OpenScope> open{};
        bool inOrder = true;  // its scopes have closed in the order of a stack
    };

    ContextStackTest() {
        detail::processorClock = [] {
            ++reads;
            return platform::ProcessorTime{clocks.at(now), clocks.at(now) / 2};
        };
        clocks = {};
        reads = 0;
        units_.push_back({nullptr, 0});  // no context has the id 0
        for (int id = 1; id < kContexts; ++id) {
            const int parent = Draw(id);
            units_.push_back(
                {new ContextState(nullptr, static_cast<unsigned>(parent), static_cast<unsigned>(id), 0),
                 parent});
        }
    }
    ~ContextStackTest() override {
        detail::processorClock = &platform::ThreadProcessorTime;
        for (const Unit& unit : units_) {
            if (unit.state != nullptr) detail::Release(unit.state);
        }
    }

    int Draw(int below) { return static_cast<int>(random_() % static_cast<unsigned>(below)); }

    // The thread works.
    void Tick(int thread) {
        const double time = 1 + Draw(10);
        clocks.at(static_cast<std::size_t>(thread)) += time;
        const auto& stack = stacks_[thread];
        std::vector<int> charged;
        for (int id = stack.empty() ? 0 : stack.back(); Stands(thread, id); id = units_[id].parent) {
            charged.push_back(id);
        }
        for (const int id : charged) {
            for (OpenScope& scope : units_[id].open) scope.used += time;
        }
    }

    void Take(int thread, int id) {
        now = thread;
        std::erase(stacks_[thread], id);
        stacks_[thread].push_back(id);
        tested_[thread].Take(units_[id].state);
        Compare(thread);
    }

    void Leave(int thread, int id) {
        now = thread;
        std::erase(stacks_[thread], id);
        tested_[thread].Leave(units_[id].state, {});
        Compare(thread);
    }

    void Open(int thread, int id, bool measured) {
        now = thread;
        ContextState& state = *units_[id].state;
        state.timeStack.Push();
        units_[id].open.push_back({measured ? tested_[thread].StartMeasuring(state, false) : 0});
    }

    // Mostly the innermost.
    void Close(int thread, int id, int fromTop) {
        now = thread;
        Unit& unit = units_[id];
        const auto scope = unit.open.end() - 1 - fromTop;
        unit.inOrder = unit.inOrder && fromTop == 0;
        if (scope->entry != 0) {
            const auto figures = tested_[thread].StopMeasuring(*unit.state, scope->entry);
            EXPECT_EQ(figures.used.processor, scope->used);
            EXPECT_EQ(figures.used.user, scope->used / 2);
            EXPECT_GE(figures.exclusive.processor, 0);
            if (unit.inOrder) {
                EXPECT_EQ(figures.exclusive.processor, scope->used - scope->children);
                const bool isChild = scope != unit.open.begin() && (scope - 1)->entry != 0;
                if (isChild) (scope - 1)->children += scope->used;
            }
        }
        ContextStack::PopTime(*unit.state);
        unit.open.erase(scope);
        if (unit.open.empty()) unit.inOrder = true;
        EXPECT_EQ(unit.state->timeStack.Size(), unit.open.size());
    }

    // Works for a context of a thread that waits meanwhile, as with a guard.
    void Lend(int owner, int id) {
        const int other = (owner + 1) % kThreads;
        if (!units_[id].open.empty()) Take(other, id);
        if (!Stands(other, id)) return;
        Open(other, id, measuring_ && Draw(2) == 0);
        Tick(other);
        Close(other, id, 0);
        Tick(other);
        Leave(other, id);
    }

    // As a guard does, on a thread that may have the context already.
    void Guard(int thread, int id) {
        const auto before = stacks_[thread];
        const auto place = tested_[thread].Find(units_[id].state);
        Take(thread, id);
        Tick(thread);
        stacks_[thread] = before;
        tested_[thread].Leave(units_[id].state, place);
        Compare(thread);
    }

    bool Stands(int thread, int id) const {
        return std::count(stacks_[thread].begin(), stacks_[thread].end(), id) != 0;
    }
    void Compare(int thread) {
        const auto& stack = stacks_[thread];
        for (std::size_t i = 0; i < stack.size(); ++i) {
            ASSERT_EQ(tested_[thread].Find(units_[stack[i]].state).index, i);
        }
        EXPECT_EQ(tested_[thread].Current(), stack.empty() ? nullptr : units_[stack.back()].state);
    }

    void Step() {
        const int thread = Draw(kThreads);
        const int id = 1 + Draw(kContexts - 1);
        for (int other = 0; other < kThreads; ++other) {
            if (other != thread && Stands(other, id))
                return Draw(4) == 0 ? Lend(other, id) : Leave(other, id);
        }
        const auto open = static_cast<int>(units_[id].open.size());
        switch (Draw(8)) {
            case 0: return Leave(thread, id);
            case 1: return Guard(thread, id);
            case 2:
            case 3: return Take(thread, id);
            case 4: return Open(thread, id, measuring_ && Draw(3) != 0);
            case 5:
                if (open > 0) Close(thread, id, Draw(8) == 0 ? Draw(open) : 0);
                return;
            default: return Tick(thread);
        }
    }

    static inline std::array<double, kThreads> clocks{};
    static inline int now = 0;
    static inline int reads = 0;
    bool measuring_ = true;
    std::mt19937 random_{12};
    std::vector<Unit> units_;
    std::array<std::vector<int>, kThreads> stacks_;
    std::array<ContextStack, kThreads> tested_;
};

TEST_F(ContextStackTest, ChargesAsAPlainAccountDoes) {
    for (int i = 0; i < 200000 && !HasFailure(); ++i) Step();
    EXPECT_GT(reads, 0);
}

// A child on its parent changes nothing for the parent.
TEST_F(ContextStackTest, ReadsNoClockForWhatIsNotMeasured) {
    measuring_ = false;
    for (int i = 0; i < 20000; ++i) Step();
    EXPECT_EQ(reads, 0);
    while (!units_[1].open.empty()) Close(0, 1, 0);
    for (int thread = 0; thread < kThreads; ++thread) Leave(thread, 1);
    ContextState child(nullptr, 1, kContexts, 0);
    Take(0, 1);
    Open(0, 1, true);
    const int before = reads;
    tested_[0].Take(&child);
    tested_[0].Leave(&child, {});
    EXPECT_EQ(reads, before);
}

// What the first thread spends, and looks at later, is not that of a scope that began when it had others.
TEST_F(ContextStackTest, AThreadThatLooksLateChargesNoLaterScopes) {
    ContextState stranger(nullptr, 0, kContexts, 0);
    detail::Retain(&stranger);
    Take(0, 1);
    Open(0, 1, true);
    Take(1, 1);
    Close(1, 1, 0);
    Open(1, 1, true);
    clocks[0] += 100;
    now = 0;
    tested_[0].Take(&stranger);
    Close(1, 1, 0);
    tested_[0].Leave(&stranger, {});
}

}  // namespace
}  // namespace Metrics::Testing
