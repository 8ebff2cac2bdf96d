// A thread's last moments, and what many threads leave behind.
#include "metrics/Context.h"
#include "metrics/Instrument.h"
#include "tests/support/Memory.h"
#include "tests/support/RunningTest.h"

namespace Metrics::Testing {
namespace {

using ThreadEnd = RunningTest;

// Marks when its thread ends, after or before the library has let go of the thread.
struct LastMark {
    ~LastMark() {
        Context context = Context::Root("end");
        METRICS_SCOPE("last");
        METRICS_VALUE("last", 1);
        MetricsManager::GetInstance().SetBits(0, false);
    }
};

thread_local std::unique_ptr<Context> leftOpen;
thread_local const LastMark beforeTheFirstMark;

TEST_F(ThreadEnd, LastMarksAreDeliveredOrDroppedButSafe) {
    if (LIFETIME_NO_THREAD_LOCAL_OBJECTS)
        GTEST_SKIP() << "this compiler frees thread-local objects before it runs their destructors";
    for (int i = 0; i < 100; ++i) {
        std::thread([] {
            static_cast<void>(&beforeTheFirstMark);
            { METRICS_SCOPE("first"); }
            static thread_local const LastMark afterTheFirstMark;
            static_cast<void>(&afterTheFirstMark);
            leftOpen = std::make_unique<Context>(0, Context::Create(true));
            METRICS_SCOPE("work");
        }).join();
    }
    const Lines lines = TakeLines();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "6 work"), 100);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "7 work"), 100);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "6 last"), 100) << "one before the end, one after it";
}

TEST(ManyThreads, LeaveNothingBehind) {
    const Session session;
    auto& manager = MetricsManager::GetInstance();
    const auto run = [&](int threads) {
        for (int i = 0; i < threads; ++i) {
            std::thread([] {
                auto* abandoned = new Context(0, Context::Create(true));
                METRICS_SCOPE("work");
                abandoned->SetThreadId(0);  // or its end elsewhere is logged
                std::thread([abandoned] { delete abandoned; }).join();
            }).join();
        }
        EXPECT_TRUE(manager.WaitUntil([&] { return manager.GetStatistics().queued == 0; }, 20000));
    };
    constexpr int kThreads = kSanitized ? 2000 : LIFETIME_THREADS;  // each of them with another one
    run(kThreads / 10);
    const std::int64_t before = ResidentKiB();
    // In small parts: what a worker falls behind, on a busy machine, is not what is measured.
    for (int part = 0; part < 100; ++part) run(kThreads / 100);
    // 80 bytes a thread is less than any record of one.
    EXPECT_LT(ResidentKiB() - before, kSanitized ? 256 * 1024 : 512 + kThreads * 2 * 80 / 1024)
        << "KiB for " << 2 * kThreads << " threads";
}

}  // namespace
}  // namespace Metrics::Testing
