// Start and Shutdown, from many threads and many times.
#include <latch>
#include <thread>

#include "metrics/Context.h"
#include "tests/support/RunningTest.h"

namespace Metrics::Testing {
namespace {

using StartTest = FreshTest;

TEST_F(StartTest, FromEightThreadsAtOnceThereIsOneWorker) {
    for (int round = 0; round < 20; ++round) {
        std::atomic<int> workers{0};
        Manager().SetThreadInitFunction([&] { ++workers; });
        std::latch together(8);
        std::vector<std::thread> threads;
        for (int i = 0; i < 8; ++i) {
            threads.emplace_back([&] {
                together.arrive_and_wait();
                Manager().Start();
                EXPECT_NE(Manager().GetState() & MetricsManager::Running, 0U);
            });
        }
        for (std::thread& thread : threads) thread.join();
        EXPECT_EQ(workers, 1);
        Manager().Shutdown();
        EXPECT_EQ(Manager().GetState(), 0U);
    }
}

TEST_F(StartTest, AThousandTimesInARowNothingIsLost) {
    Manager().SetState(MetricsManager::Collecting, true);
    std::atomic<int> seen{0};
    for (int i = 1; i <= 1000; ++i) {
        Manager().Start();
        Manager().Subscribe(MetricsEventCategory::Events, [&](const auto& batch) {
            for (const MetricsEvent& event : batch) seen += event.Type() == MetricsEventType::ContextCreate;
        });
        Context::Create(true);
        Manager().Shutdown();
        ASSERT_EQ(seen, i);
    }
}

TEST_F(StartTest, StartAndShutdownMeetFromManyThreads) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 6; ++i) {
        threads.emplace_back([this, i] {
            for (int round = 0; round < 100; ++round) {
                if ((i + round) % 2 == 0) {
                    Manager().Start();
                } else {
                    Manager().Shutdown();
                }
                Manager().Unsubscribe(Manager().Subscribe(MetricsEventCategory::Events, [](const auto&) {}));
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    Manager().Shutdown();
    EXPECT_EQ(Manager().GetState(), 0U);
    Manager().Start();
    EXPECT_EQ(Manager().GetState(), MetricsManager::Running);
}

}  // namespace
}  // namespace Metrics::Testing
