// Start and Shutdown, from many threads and many times.
#include "metrics/Context.h"
#include "tests/lifetime/Threads.h"
#include "tests/support/RunningTest.h"

namespace Metrics::Testing {
namespace {

using StartTest = FreshTest;

constexpr auto kEvents = MetricsEventCategory::Events;

TEST_F(StartTest, FromManyThreadsAtOnceThereIsOneWorker) {
    for (int round = 0; round < 20; ++round) {
        std::atomic<int> workers{0};
        Manager().SetThreadInitFunction([&] { ++workers; });
        AtOnce(8, [&](int) {
            Manager().Start();
            EXPECT_NE(Manager().GetState() & MetricsManager::Running, 0U);
        });
        EXPECT_EQ(workers, 1);
        AtOnce(6, [&](int thread) {
            for (int i = 0; i < 20; ++i) {
                if ((thread + i) % 2 == 0) {
                    Manager().Start();
                } else {
                    Manager().Shutdown();
                }
                Manager().Unsubscribe(Manager().Subscribe(kEvents, [](const auto&) {}));
            }
        });
        Manager().Shutdown();
        EXPECT_EQ(Manager().GetState(), 0U);
    }
}

TEST_F(StartTest, AThousandTimesInARowNothingIsLost) {
    Manager().SetState(MetricsManager::Collecting, true);
    std::atomic<int> seen{0};
    for (int i = 1; i <= 1000; ++i) {
        Manager().Start();
        Manager().Start();
        Manager().Subscribe(kEvents, [&](const auto& batch) {
            for (const MetricsEvent& event : batch) seen += event.Type() == MetricsEventType::ContextCreate;
        });
        Context::Create(true);
        Manager().Shutdown();
        Manager().Shutdown();
        ASSERT_EQ(seen, i);
    }
}

}  // namespace
}  // namespace Metrics::Testing
