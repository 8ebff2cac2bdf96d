#include "tests/support/Fiber.h"

#include <windows.h>

namespace Metrics::Testing {

struct Fiber::Native {
    static void CALLBACK Enter(void* fiber) {
        for (;;) static_cast<Fiber*>(fiber)->Run();
    }
    static void* OfThread() {
        static void* const main = ConvertThreadToFiber(nullptr);
        return main;
    }

    void* own = nullptr;
};

Fiber::Fiber() : native_(std::make_unique<Native>()) {
    Native::OfThread();
    native_->own = CreateFiber(0, &Native::Enter, this);
}
Fiber::~Fiber() {
    DeleteFiber(native_->own);
}

void Fiber::Start(std::function<void()> body) {
    body_ = std::move(body);
    ended_ = false;
}

void Fiber::Resume() {
    SwitchToFiber(native_->own);
}

void Fiber::Pause() {
    SwitchToFiber(Native::OfThread());
}

void Fiber::Run() {
    body_();
    ended_ = true;
    Pause();
}

}  // namespace Metrics::Testing
