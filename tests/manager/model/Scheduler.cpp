#include "tests/manager/model/Scheduler.h"

#include <utility>

namespace Metrics::Testing::Model {

void Scheduler::AddThread(std::function<void()> body) {
    if (fibers_.empty()) fibers_.push_back(std::make_unique<Fiber>());
    Thread thread{std::move(fibers_.back()), nullptr, {}};
    fibers_.pop_back();
    thread.fiber->Start([this, body = std::move(body)] {
        Step();
        body();
    });
    threads_.push_back(std::move(thread));
}

void Scheduler::Step(const std::function<bool()>* mayGoOn) {
    if (running_ == kMain) return;
    Thread& thread = threads_[running_];
    thread.mayGoOn = mayGoOn;
    thread.fiber->Pause();
}

void Scheduler::Resume(std::size_t thread) {
    running_ = thread;
    threads_[thread].fiber->Resume();
    running_ = kMain;
}

bool Scheduler::MayGoOn(std::size_t thread) const {
    const auto& [fiber, mayGoOn, view] = threads_[thread];
    return !fiber->HasEnded() && (mayGoOn == nullptr || (*mayGoOn)());
}

// The one that ran, or any. False when nobody can go on.
bool Scheduler::Pick() {
    if (next_ < threads_.size() && MayGoOn(next_) && random_() % 256 < stay_) return true;
    std::vector<std::size_t> able;
    for (std::size_t i = 0; i < threads_.size(); ++i)
        if (MayGoOn(i)) able.push_back(i);
    if (!able.empty()) next_ = able[random_() % able.size()];
    return !able.empty();
}

void Scheduler::RunOnce(const Program& program) {
    current_ = this;
    ++runs_;
    stay_ = random_() % 256;
    threads_.clear();
    mainView_ = {};
    places_ = 0;
    program.begin(*this);
    for (std::size_t i = 0; i < threads_.size(); ++i) {
        threads_[i].view = mainView_;
        Resume(i);
    }
    while (Pick()) Resume(next_);
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

void Scheduler::Run(const Program& program, std::uint64_t runs, std::uint64_t seed) {
    random_.seed(seed);
    for (std::uint64_t i = 0; i < runs && failure_.empty(); ++i) RunOnce(program);
}

}  // namespace Metrics::Testing::Model
