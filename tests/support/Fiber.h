#pragma once

#include <functional>
#include <memory>

namespace Metrics::Testing {

/// A stack of its own on the calling thread, on which functions run in turns with who resumes them.
class Fiber {
  public:
    Fiber();
    ~Fiber();
    Fiber(const Fiber&) = delete;
    Fiber& operator=(const Fiber&) = delete;

    /// What the next `Resume` begins to run. The one before must have come to its end.
    void Start(std::function<void()> body);
    /// Runs it until it pauses or ends. Not from another fiber.
    void Resume();
    bool HasEnded() const { return ended_; }

    /// Back to who has resumed this fiber. Only on the fiber itself.
    void Pause();

  private:
    struct Native;
    void Run();

    std::unique_ptr<Native> native_;
    std::function<void()> body_;
    bool ended_ = true;
};

}  // namespace Metrics::Testing
