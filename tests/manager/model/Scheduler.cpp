#include "tests/manager/model/Scheduler.h"

#include <bit>
#include <utility>

namespace Metrics::Testing::Model {

Scheduler* Scheduler::current_ = nullptr;

namespace {

constexpr std::uint32_t Bit(std::size_t thread) {
    return std::uint32_t{1} << thread;
}

std::size_t Lowest(std::uint32_t set) {
    return static_cast<std::size_t>(std::countr_zero(set));
}

}  // namespace

Scheduler::~Scheduler() = default;

// --- Running ---

void Scheduler::AddThread(std::function<void()> body) {
    Thread thread;
    if (fibers_.empty()) fibers_.push_back(std::make_unique<Fiber>());
    thread.fiber = std::move(fibers_.back());
    fibers_.pop_back();
    thread.fiber->Start([this, body = std::move(body)] {
        Step({});
        body();
    });
    threads_.push_back(std::move(thread));
}

void Scheduler::Step(const Operation& operation) {
    if (running_ == kMain) return;
    Thread& thread = threads_[running_];
    thread.pending = operation;
    thread.fiber->Pause();
}

void Scheduler::Resume(std::size_t thread) {
    running_ = thread;
    choice_ = 0;
    threads_[thread].fiber->Resume();
    running_ = kMain;
}

std::uint32_t Scheduler::Enabled() const {
    std::uint32_t enabled = 0;
    for (std::size_t i = 0; i < threads_.size(); ++i) {
        const auto& [fiber, pending, view, happened] = threads_[i];
        if (!fiber->HasEnded() && (pending.isEnabled == nullptr || (*pending.isEnabled)())) enabled |= Bit(i);
    }
    return enabled;
}

// `pick` sets `next_`, or says that no more need be known of this run.
void Scheduler::Run(const Program& program, const std::function<bool(std::uint32_t)>& pick) {
    current_ = this;
    ++runs_;
    threads_.clear();
    accesses_.clear();
    mainView_ = {};
    places_ = kMost;
    depth_ = 0;
    redundant_ = false;
    program.begin(*this);
    for (std::size_t i = 0; i < threads_.size(); ++i) {
        threads_[i].view = mainView_;
        Resume(i);
    }
    while (const std::uint32_t enabled = Enabled()) {
        if (!redundant_ && !pick(enabled)) redundant_ = true;
        Resume(redundant_ ? Lowest(enabled) : next_);
    }
    for (Thread& thread : threads_) {
        if (!thread.fiber->HasEnded()) {
            Fail("nobody can go on");
            std::exchange(thread.fiber, nullptr).release();  // its stack is in use
            continue;
        }
        mainView_.Join(thread.view);
        fibers_.push_back(std::move(thread.fiber));
    }
    program.end();
    current_ = nullptr;
}

// --- Random orders ---

void Scheduler::RunRandom(const Program& program, std::uint64_t runs, std::uint64_t seed) {
    inOrder_ = false;
    random_.seed(seed);
    for (std::uint64_t i = 0; i < runs && failure_.empty(); ++i) {
        stay_ = static_cast<std::uint32_t>(random_() % 256);
        Run(program, [this](std::uint32_t enabled) { return PickRandomly(enabled); });
    }
}

bool Scheduler::PickRandomly(std::uint32_t enabled) {
    if ((enabled & Bit(next_)) != 0 && random_() % 256 < stay_) return true;
    do {
        next_ = random_() % threads_.size();
    } while ((enabled & Bit(next_)) == 0);
    return true;
}

std::size_t Scheduler::Choose(std::size_t count) {
    if (count < 2 || redundant_ || running_ == kMain) return count - 1;
    if (!inOrder_) return random_() % count;
    auto& choices = path_[depth_ - 1].choices;
    if (choice_ == choices.size()) choices.push_back({0, count});
    return choices[choice_++].chosen;
}

// --- Every order: dynamic partial order reduction with sleep sets ---

bool Scheduler::RunAll(const Program& program, std::uint64_t most) {
    inOrder_ = true;
    path_.clear();
    for (std::uint64_t i = 0; i < most && failure_.empty(); ++i) {
        Run(program, [this](std::uint32_t enabled) { return PickInOrder(enabled); });
        if (!NextOrder()) return true;
    }
    return false;
}

bool Scheduler::PickInOrder(std::uint32_t enabled) {
    if (depth_ == path_.size()) {
        WantReversals();
        const std::uint32_t sleeping = depth_ == 0 ? 0 : SleepingAfter(path_.back());
        const std::uint32_t useful = enabled & ~sleeping;
        if (useful == 0) return false;
        const std::size_t first = (useful & Bit(next_)) != 0 && depth_ > 0 ? next_ : Lowest(useful);
        Node node{.thread = first,
                  .enabled = enabled,
                  .sleeping = sleeping,
                  .wanted = Bit(first),
                  .pending = {},
                  .choices = {},
                  .clock = {}};
        for (const Thread& thread : threads_) node.pending.push_back(thread.pending);
        path_.push_back(std::move(node));
    }
    Node& node = path_[depth_++];
    next_ = node.thread;
    NoteHappened(node);
    return true;
}

// For what each thread is about to do, the last step that it could have come before.
void Scheduler::WantReversals() {
    for (std::size_t i = 0; i < threads_.size(); ++i)
        if (!threads_[i].fiber->HasEnded()) WantReversal(i);
}

void Scheduler::WantReversal(std::size_t thread) {
    const Operation& operation = threads_[thread].pending;
    const Clock& happened = threads_[thread].happened;
    for (std::size_t i = path_.size(); i-- > 0;) {
        Node& node = path_[i];
        if (node.thread == thread || happened[node.thread] > i) continue;
        if (!node.pending[node.thread].ConflictsWith(operation)) continue;
        const bool isSame = happened[thread] <= i;  // the thread has done nothing since
        if ((node.enabled & Bit(thread)) != 0) {
            node.wanted |= Bit(thread);
        } else if (isSame) {
            continue;  // it waited for that step, or for an earlier one
        } else {
            node.wanted |= node.enabled;
        }
        return;
    }
}

void Scheduler::NoteHappened(Node& node) {
    const Operation& operation = node.pending[node.thread];
    Thread& thread = threads_[node.thread];
    if (operation.place >= accesses_.size()) accesses_.resize(operation.place + 8);
    Access& access = accesses_[operation.place];
    if (operation.place != 0) {
        thread.happened.Join(access.written);
        if (operation.writes) thread.happened.Join(access.read);
    }
    thread.happened.Set(node.thread, static_cast<std::uint32_t>(depth_));
    (operation.writes ? access.written : access.read).Join(thread.happened);
}

std::uint32_t Scheduler::SleepingAfter(const Node& node) const {
    std::uint32_t sleeping = 0;
    for (std::uint32_t set = node.sleeping | node.done; set != 0; set &= set - 1) {
        const std::size_t thread = Lowest(set);
        if (!node.pending[thread].ConflictsWith(node.pending[node.thread])) sleeping |= Bit(thread);
    }
    return sleeping;
}

bool Scheduler::NextOrder() {
    for (; !path_.empty(); path_.pop_back()) {
        Node& node = path_.back();
        for (; !node.choices.empty(); node.choices.pop_back())
            if (++node.choices.back().chosen < node.choices.back().count) return true;
        node.done |= Bit(node.thread);
        const std::uint32_t left = node.wanted & ~node.done & ~node.sleeping;
        if (left != 0) {
            node.thread = Lowest(left);
            return true;
        }
    }
    return false;
}

}  // namespace Metrics::Testing::Model
