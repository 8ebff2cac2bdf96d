#include "metrics/MetricsSubscope.h"

#include "metrics/MetricsMemoryUtils.h"
#include "metrics/MetricsTimer.h"
#include "metrics/instrument/SmallScope.h"

namespace Metrics {

namespace {

constexpr EightCC kClock("clock");

MetricsValue SignedBytes(unsigned long long bytes) {
    return static_cast<long long>(bytes);
}

}  // namespace

// Runs after the derived destructor has emitted, so that the chain emits from its head.
MetricsSubscope::~MetricsSubscope() {
    delete next_;
}

LocationSubscope::LocationSubscope(const Scope& scope, MetricsSubscope* next, const char* text, int line)
    : MetricsSubscope(scope, next) {
    if (text == nullptr) return;
    SmallScope location(scope, FourCC("loc"));
    location.Emit(FourCC("func"), MetricsValue::Ref(text));
    location.Emit(FourCC("line"), line);
}

MemoryMonitorSubscope::MemoryMonitorSubscope(const Scope& scope, MetricsSubscope* next)
    : MetricsSubscope(scope, next), startCommitted_(MetricsMemoryUtils::GetMemoryCommitted()) {}

MemoryMonitorSubscope::~MemoryMonitorSubscope() {
    SmallScope memory(Owner(), FourCC("mem"));
    memory.Emit(kClock, MetricsTimer::GetApplicationElapsedSecs());
    memory.Emit(FourCC("ts"), MetricsValue::FromCurrentTime());
    memory.Emit(EightCC("start"), SignedBytes(startCommitted_));
    const auto endCommitted = MetricsMemoryUtils::GetMemoryCommitted();
    memory.Emit(FourCC("end"), SignedBytes(endCommitted));
    memory.Emit(EightCC("delta"), SignedBytes(endCommitted - startCommitted_));
}

ElapsedTimeSubscope::ElapsedTimeSubscope(const Scope& scope, MetricsSubscope* next)
    : MetricsSubscope(scope, next),
      startSeconds_(MetricsTimer::GetApplicationElapsedSecs()),
      enter_(MetricsValue::FromCurrentTime()) {}

ElapsedTimeSubscope::~ElapsedTimeSubscope() {
    SmallScope time(Owner(), FourCC("time"));
    const auto [used, exclusive] = time.StopMeasuring(entry_);
    time.Emit(kClock, startSeconds_);
    time.Emit(EightCC("elapsed"), MetricsTimer::GetApplicationElapsedSecs() - startSeconds_);
    time.Emit(FourCC("proc"), used.processor);
    time.Emit(EightCC("procexcl"), exclusive.processor);
    time.Emit(FourCC("user"), used.user);
    time.Emit(EightCC("userexcl"), exclusive.user);
    time.Emit(EightCC("enter"), enter_);
    time.Emit(EightCC("leave"), MetricsValue::FromCurrentTime());
}

}  // namespace Metrics
