#include "metrics/output/Notices.h"

#include <utility>

namespace Metrics::detail {

namespace {

enum class Telling { Nobody, Handler, Log };

// Whom the calling thread is telling something.
constinit thread_local Telling telling = Telling::Nobody;

class Tells {
  public:
    explicit Tells(Telling whom) : before_(std::exchange(telling, whom)) {}
    ~Tells() { telling = before_; }
    Tells(const Tells&) = delete;
    Tells& operator=(const Tells&) = delete;

  private:
    const Telling before_;
};

void Log(Core& core, const Notice& notice) {
    const Tells tells(Telling::Log);
    switch (notice.kind) {
        case Notice::Kind::Error: return core.LogError("MetricsOutput: " + notice.text);
        case Notice::Kind::Remark: return core.Log("MetricsOutput: " + notice.text);
        case Notice::Kind::Line: return core.Log(notice.text);
        case Notice::Kind::Hint: return core.LogOnce(notice.hint, notice.text);
    }
}

bool IsForHandler(const Notice& notice) {
    return notice.kind == Notice::Kind::Error || notice.kind == Notice::Kind::Remark;
}

void Call(const ErrorHandler& handler, const std::string& text) noexcept {
    const Tells tells(Telling::Handler);
    try {
        handler(text);
    } catch (...) {
        // The host's own affair; the log has the error.
    }
}

}  // namespace

void TellNotices(Core& core, const ErrorHandler* handler, const std::vector<Notice>& notices) noexcept {
    if (telling == Telling::Log) return;
    const bool handles = handler != nullptr && *handler && telling == Telling::Nobody;
    for (const Notice& notice : notices) {
        try {
            Log(core, notice);
        } catch (...) {
            // There is no memory for the line.
        }
        if (handles && IsForHandler(notice)) Call(*handler, notice.text);
    }
}

}  // namespace Metrics::detail
