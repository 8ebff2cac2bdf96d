#include "tests/support/Fiber.h"

#include <ucontext.h>

#include <cstddef>

namespace Metrics::Testing {

struct Fiber::Native {
    static constexpr std::size_t kStack = std::size_t{256} << 10;
    // makecontext passes nothing but ints.
    static constinit thread_local Fiber* starting;

    static void Enter() { starting->Run(); }

    std::unique_ptr<std::byte[]> stack{new std::byte[kStack]};
    ucontext_t own{};
    ucontext_t resumer{};
};

constinit thread_local Fiber* Fiber::Native::starting = nullptr;

Fiber::Fiber() : native_(std::make_unique<Native>()) {}
Fiber::~Fiber() = default;

void Fiber::Start(std::function<void()> body) {
    body_ = std::move(body);
    ended_ = false;
    getcontext(&native_->own);
    native_->own.uc_stack.ss_sp = native_->stack.get();
    native_->own.uc_stack.ss_size = Native::kStack;
    native_->own.uc_link = nullptr;
    makecontext(&native_->own, &Native::Enter, 0);
}

void Fiber::Resume() {
    Native::starting = this;
    swapcontext(&native_->resumer, &native_->own);
}

void Fiber::Pause() {
    swapcontext(&native_->own, &native_->resumer);
}

void Fiber::Run() {
    body_();
    ended_ = true;
    Pause();
}

}  // namespace Metrics::Testing
